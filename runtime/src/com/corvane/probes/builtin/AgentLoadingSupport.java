package com.corvane.probes.builtin;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.This;
import com.corvane.runtime.BootDelegation;

/**
 * Lets the classes of module containers find the agent's runtime classes.
 * Their class loaders ask the boot loader only for the packages on their own
 * lists, so a rewritten class of a bundle or module would fail to load
 * {@code Callback}. Each container gets "com.corvane" added to its list as it
 * comes up; after an attach the runtime does the same for those already up.
 */
public final class AgentLoadingSupport {
    private AgentLoadingSupport() {
    }

    /** An OSGi framework reads its boot delegation list when it is made. */
    @MethodPattern("org.apache.felix.framework.Felix:<init>(java.util.Map)")
    public static final class Felix {
        private Felix() {
        }

        public static void onReturn(@This Object felix) {
            BootDelegation.addToFelix(felix);
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
