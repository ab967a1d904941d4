import java.lang.reflect.Method;

/**
 * Switches allocation recording through the natives while it runs: each
 * phase allocates its own class a known number of times. Prints what each
 * switch answered, as "<step> <answer>". Arguments: two snapshot paths.
 */
public class AllocControl {
    static volatile Object sink;

    static class PhaseA { int value; }
    static class PhaseB { int value; }
    static class PhaseC { int value; }
    static class PhaseD { int value; }
    static class PhaseE { int value; }
    static class PhaseF { int value; }

    static void phase(char name, int count) {
        for (int i = 0; i < count; i++) {
            switch (name) {
                case 'A': sink = new PhaseA(); break;
                case 'B': sink = new PhaseB(); break;
                case 'C': sink = new PhaseC(); break;
                case 'D': sink = new PhaseD(); break;
                case 'E': sink = new PhaseE(); break;
                default: sink = new PhaseF(); break;
            }
        }
    }

    static Object call(String name, Class<?>[] types, Object... arguments) throws Exception {
        Method method = Class.forName("com.corvane.runtime.Callback").getMethod(name, types);
        return method.invoke(null, arguments);
    }

    static String start(int recordEach, int sizeLimit, long mode) throws Exception {
        return (String) call("startAllocationRecording", new Class<?>[] {int.class, int.class, long.class, String.class},
                recordEach, sizeLimit, mode, null);
    }

    static void stop() throws Exception {
        call("stopAllocationRecording", new Class<?>[0]);
    }

    static Object capture(String path) throws Exception {
        return call("captureSnapshot", new Class<?>[] {String.class, int.class, long.class}, path, -1, 0L);
    }

    public static void main(String[] args) throws Exception {
        phase('A', 100);
        System.out.println("start " + start(1, 4096, 2));
        System.out.println("again " + start(1, 4096, 2));
        System.out.println("badmode " + start(1, 4096, 5));
        System.out.println("negative " + start(-1, 0, 2));
        System.out.println("each " + call("getAllocationRecordingSettingsRecordEach", new Class<?>[0]));
        phase('B', 200);
        call("clearAllocationData", new Class<?>[0]);
        phase('C', 300);
        stop();
        stop();
        phase('D', 400);
        System.out.println("restart " + start(1, 4096, 2));
        phase('E', 500);
        System.out.println("capture " + capture(args[0]));
        stop();
        // Object counting has no such settings: negative ones are accepted.
        System.out.println("counting " + start(-1, -1, 16386));
        System.out.println("countingAgain " + start(1, 1, 16386));
        phase('F', 600);
        System.out.println("capture2 " + capture(args[1]));
        stop();
        System.out.println("done");
    }
}
