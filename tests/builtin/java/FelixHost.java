import java.util.HashMap;
import java.util.Map;
import org.apache.felix.framework.Felix;
import org.osgi.framework.Bundle;
import org.osgi.framework.Constants;

/**
 * Starts an OSGi framework, runs the bundle of the first argument in it and
 * stops it. With a third argument it prints "ready" once the framework runs
 * and installs the bundle only when that file exists.
 */
public class FelixHost {
    public static void main(String[] args) throws Exception {
        Map<String, String> config = new HashMap<>();
        config.put(Constants.FRAMEWORK_STORAGE, args[1]);
        config.put(Constants.FRAMEWORK_STORAGE_CLEAN, Constants.FRAMEWORK_STORAGE_CLEAN_ONFIRSTINIT);
        Felix framework = new Felix(config);
        framework.start();
        if (args.length > 2) {
            System.out.println("ready");
            System.out.flush();
            while (!new java.io.File(args[2]).exists()) {
                Thread.sleep(20);
            }
        }
        try {
            Bundle bundle = framework.getBundleContext().installBundle("file:" + args[0]);
            bundle.start();
            System.out.println("bundle state " + bundle.getState());
        } finally {
            framework.stop();
            framework.waitForStop(60_000);
        }
    }
}
