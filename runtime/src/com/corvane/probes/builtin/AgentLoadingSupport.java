package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;
import com.corvane.runtime.BootDelegation;

/**
 * Lets the classes of module containers find the agent's runtime classes.
 * Their class loaders ask the boot loader only for the packages on their own
 * lists, so a rewritten class of a bundle or module would fail to load
 * {@code Callback}. Each container is told that "com.corvane" is one of
 * those packages.
 */
public final class AgentLoadingSupport {
    private AgentLoadingSupport() {
    }

    /**
     * An OSGi framework (Apache Felix) asks this for each package that a
     * bundle's class loader looks up: the runtime's packages go to the boot
     * loader. After an attach the class is rewritten again, so bundles
     * installed later find the runtime too.
     */
    @MethodPattern("org.apache.felix.framework.BundleWiringImpl:shouldBootDelegate(java.lang.String) boolean")
    public static final class Felix {
        private Felix() {
        }

        public static boolean onReturn(@Param(1) String packageName, @ReturnValue boolean delegate) {
            return delegate || BootDelegation.isRuntimePackage(packageName);
        }
    }

    /** JBoss Modules reads its system packages when its module class initializes. */
    @MethodPattern("org.jboss.modules.Module:<clinit>()")
    public static final class JBossModules {
        private JBossModules() {
        }

        public static void onEnter() {
            BootDelegation.addToJBossSystemPackages();
        }
    }
}
