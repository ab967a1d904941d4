package probes;

import com.corvane.probes.*;

// What onEnter returned, and the time, at the exit of loop.
@MethodPattern("targets.Calc:loop(int)")
public class Timing {
    public static long onEnter() {
        return 42;
    }

    public static void onExit(@OnEnterResult long token, @MethodTimeMs long ms, @ReturnValue int value) {
        System.out.println("  loop " + token + " " + (ms >= 0 && ms < 60000) + " " + value);
    }
}
