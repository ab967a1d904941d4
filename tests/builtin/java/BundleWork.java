package bundled;

import org.osgi.framework.BundleActivator;
import org.osgi.framework.BundleContext;

/** A bundle's own code: rewritten by the agent, it must still find the runtime classes. */
public class BundleWork implements BundleActivator {
    static int work(int n) {
        int sum = 0;
        for (int i = 0; i < n; i++) {
            sum += i;
        }
        return sum;
    }

    @Override
    public void start(BundleContext context) {
        System.out.println("bundle work " + work(100));
    }

    @Override
    public void stop(BundleContext context) {
    }
}
