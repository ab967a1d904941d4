import java.lang.reflect.Method;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Arrays;

// The probe registry driven through the agent's natives while the program
// runs: registration by bytes and by name, activity modes, removal. After
// each step ProbedApp.work runs 100 times and the probe's count is printed.
public class RegistryApp {
    static final String PROBE = "registry.CountProbe";
    static Class<?> callback;

    static Object call(String name, Class<?>[] types, Object... args) throws Exception {
        Method method = callback.getMethod(name, types);
        return method.invoke(null, args);
    }

    static long probeCalls() throws Exception {
        try {
            return Class.forName(PROBE, true, null).getField("calls").getLong(null);
        } catch (ClassNotFoundException e) {
            return -1;
        }
    }

    static void step(String name, Object result) throws Exception {
        for (int i = 0; i < 100; i++) ProbedApp.work(i);
        String text = result instanceof String[] ? Arrays.toString((String[]) result) : String.valueOf(result);
        System.out.println(name + ": " + text + " | probe " + probeCalls());
    }

    static Object modes(String name, int mode) throws Exception {
        return call("setProbeActivityModes", new Class<?>[] {String[].class, int[].class}, new String[] {name},
                new int[] {mode});
    }

    public static void main(String[] args) throws Exception {
        callback = Class.forName("com.corvane.runtime.Callback");
        byte[] probe = Files.readAllBytes(Paths.get(args[0]));
        Class<?>[] bytecode = {byte[][].class, boolean.class, boolean.class};
        Class<?>[] names = {String[].class};
        step("start", null);
        step("register", call("registerProbesByBytecode", bytecode, new byte[][] {probe}, false, true));
        step("again", call("registerProbesByBytecode", bytecode, new byte[][] {probe}, false, true));
        step("garbage", call("registerProbesByBytecode", bytecode, new byte[][] {{1, 2, 3}}, false, true));
        step("on", call("getProbes", new Class<?>[] {int.class}, 1));
        step("off", modes(PROBE, 0));
        step("isOn", call("isProbeOn", new Class<?>[] {String.class}, PROBE));
        step("offAgain", modes(PROBE, 0));
        step("badMode", modes(PROBE, 3));
        step("onAgain", modes(PROBE, 1));
        step("unregister", call("unregisterProbes", names, (Object) new String[] {"registry"}));
        step("offList", call("getProbes", new Class<?>[] {int.class}, 1));
        step("missing", call("registerProbesByName", names, (Object) new String[] {"registry.Missing"}));
        call("addProbePath", new Class<?>[] {String.class}, args[1]);
        step("byName", call("registerProbesByName", names, (Object) new String[] {PROBE}));
        // Mode auto: on while CPU profiling other than call counting runs.
        step("auto", modes(PROBE, 2));
        step("sampling", call("startCpuProfiling", new Class<?>[] {long.class, String.class}, 4L, null));
        step("stopped", call("stopCpuProfiling", new Class<?>[] {boolean.class}, true));
    }
}
