package com.corvane.runtime;

import java.lang.reflect.Array;
import java.lang.reflect.Field;
import java.util.Arrays;
import java.util.Map;

/**
 * The runtime classes sit on the boot class path, but some containers' class
 * loaders ask the boot loader only for packages on their own lists, and a
 * rewritten class of theirs would then fail to find {@code Callback}. This
 * adds "com.corvane" to those lists: after an attach to the containers that
 * run, and through the AgentLoadingSupport probe as they come up or look
 * a package up. What is missing or refuses is logged and left.
 */
public final class BootDelegation {
    private static final String PACKAGE = "com.corvane";
    private static final String JBOSS_SYSTEM_PACKAGES = "jboss.modules.system.pkgs";

    private BootDelegation() {
    }

    static void agentLoadingSupportOnAttach() {
        handleJBoss();
        handleGlassFish();
        handleFelix();
    }

    private static Class<?> findClass(String name) {
        try {
            return Class.forName(name, false, ClassLoader.getSystemClassLoader());
        } catch (Throwable e) {
            return null;
        }
    }

    private static Field field(Class<?> type, String name) throws NoSuchFieldException {
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            try {
                Field field = c.getDeclaredField(name);
                field.setAccessible(true);
                return field;
            } catch (NoSuchFieldException e) {
                // on to the superclass
            }
        }
        throw new NoSuchFieldException(name);
    }

    static void handleJBoss() {
        Class<?> module = findClass("org.jboss.modules.Module");
        if (module == null) {
            return;
        }
        try {
            Field packages = field(module, "systemPackages");
            packages.set(null, insertFirstElement(packages.get(null), PACKAGE + "."));
            Callback.messageToLogFile("JBoss: boot delegation of " + PACKAGE + " added");
        } catch (Throwable e) {
            Callback.messageToLogFile("warning: JBoss: cannot add boot delegation: " + e);
        }
    }

    static void handleGlassFish() {
        if (System.getProperty("com.sun.aas.installRoot") == null) {
            return;
        }
        String key = "org.osgi.framework.bootdelegation";
        String current = System.getProperty(key);
        if (current == null || current.isEmpty()) {
            System.setProperty(key, PACKAGE + ".*");
        } else if (!current.contains(PACKAGE)) {
            System.setProperty(key, PACKAGE + ".*," + current);
        }
        Callback.messageToLogFile("GlassFish: boot delegation of " + PACKAGE + " added");
    }

    static void handleFelix() {
        Class<?> extensionManager = findClass("org.apache.felix.framework.ExtensionManager");
        if (extensionManager == null) {
            return;
        }
        try {
            Object manager = field(extensionManager, "m_extensionManager").get(null);
            Object sources = manager == null ? null : field(extensionManager, "m_sourceToExtensions").get(manager);
            if (!(sources instanceof Map)) {
                return;
            }
            for (Object felix : ((Map<?, ?>) sources).keySet()) {
                if (felix != null && felix.getClass().getName().equals("org.apache.felix.framework.Felix")) {
                    addToFelix(felix);
                }
            }
        } catch (Throwable e) {
            Callback.messageToLogFile("warning: Felix: cannot add boot delegation: " + e);
        }
    }

    /** True for the runtime's own packages, which a container's class loader must take from the boot loader. */
    public static boolean isRuntimePackage(String packageName) {
        return packageName != null && (packageName.equals(PACKAGE) || packageName.startsWith(PACKAGE + "."));
    }

    // Puts the runtime's packages in front of the boot packages of one framework.
    private static void addToFelix(Object felix) {
        try {
            Field packages = field(felix.getClass(), "m_bootPkgs");
            Field wildcards = field(felix.getClass(), "m_bootPkgWildcards");
            packages.set(felix, insertFirstElement(insertFirstElement(packages.get(felix), PACKAGE + "."), PACKAGE));
            wildcards.set(felix, insertFirstElement(insertFirstElement(wildcards.get(felix), true), false));
            Callback.messageToLogFile("Felix: boot delegation of " + PACKAGE + " added");
        } catch (Throwable e) {
            Callback.messageToLogFile("warning: Felix: cannot add boot delegation: " + e);
        }
    }

    /**
     * Adds the runtime's package to the system packages that JBoss Modules
     * reads when its module class initializes.
     */
    public static void addToJBossSystemPackages() {
        String current = System.getProperty(JBOSS_SYSTEM_PACKAGES);
        if (current == null || current.trim().isEmpty()) {
            System.setProperty(JBOSS_SYSTEM_PACKAGES, PACKAGE);
        } else if (!Arrays.asList(current.split(",")).contains(PACKAGE)) {
            System.setProperty(JBOSS_SYSTEM_PACKAGES, current + "," + PACKAGE);
        }
        Callback.messageToLogFile("JBoss: boot delegation of " + PACKAGE + " added");
    }

    /** A copy of the array with {@code element} in front. */
    static Object insertFirstElement(Object array, Object element) {
        int length = array == null ? 0 : Array.getLength(array);
        Class<?> type = array != null ? array.getClass().getComponentType()
                : element instanceof Boolean ? boolean.class : element.getClass();
        Object result = Array.newInstance(type, length + 1);
        Array.set(result, 0, element);
        for (int i = 0; i < length; i++) {
            Array.set(result, i + 1, Array.get(array, i));
        }
        return result;
    }
}
