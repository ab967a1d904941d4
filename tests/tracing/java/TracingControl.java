import java.lang.reflect.Method;

/**
 * Switches tracing through the natives while it runs: each phase calls its
 * own method a known number of times. Prints what each switch answered, as
 * "<step> <answer>".
 */
public class TracingControl {
    static final String SETTINGS = "walltime=*\nadaptive=false\n";
    static volatile long sink;

    // Each with a loop: methods that can't take time are not rewritten.
    static int phaseA(int x) { return mix(x, 3); }
    static int phaseB(int x) { return mix(x, 5); }
    static int phaseC(int x) { return mix(x, 7); }
    static int phaseD(int x) { return mix(x, 11); }
    static int phaseE(int x) { return mix(x, 13); }

    static int mix(int x, int factor) {
        int h = x;
        for (int i = 0; i < 4; i++) {
            h = h * factor + i;
        }
        return h;
    }

    static void run(char phase, int calls) {
        for (int i = 0; i < calls; i++) {
            switch (phase) {
                case 'A': sink += phaseA(i); break;
                case 'B': sink += phaseB(i); break;
                case 'C': sink += phaseC(i); break;
                case 'D': sink += phaseD(i); break;
                default: sink += phaseE(i); break;
            }
        }
    }

    static Object call(String name, Class<?>[] types, Object... arguments) throws Exception {
        Method method = Class.forName("com.corvane.runtime.Callback").getMethod(name, types);
        return method.invoke(null, arguments);
    }

    static String start(long mode, String settings) throws Exception {
        return (String) call("startCpuProfiling", new Class<?>[] {long.class, String.class}, mode, settings);
    }

    public static void main(String[] args) throws Exception {
        run('A', 100);
        System.out.println("start " + start(12, SETTINGS));
        System.out.println("again " + start(12, SETTINGS));
        System.out.println("invalid " + start(8, null));
        run('B', 200);
        call("clearCpuData", new Class<?>[0]);
        run('C', 300);
        call("stopCpuProfiling", new Class<?>[] {boolean.class}, false);
        call("stopCpuProfiling", new Class<?>[] {boolean.class}, false);
        run('D', 400);
        int[] telemetry = {10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 110, 0};
        call("storeTelemetryRecord", new Class<?>[] {int[].class, int[].class, int[].class, int[].class}, new int[7],
                telemetry, new int[0], new int[0]);
        System.out.println("capture " + call("captureSnapshot", new Class<?>[] {String.class, int.class, long.class},
                args[0], -1, 0L));
        System.out.println("restart " + start(12, SETTINGS));
        run('E', 500);
        System.out.println("done " + sink);
    }
}
