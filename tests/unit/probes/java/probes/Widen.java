package probes;

import com.corvane.probes.*;

// Parameters of other types than the target's, and one beyond them.
@MethodPattern("targets.Calc:widen(int, int, boolean, float)")
public class Widen {
    public static void onEnter(@Param(1) long widened, @Param(2) String notString, @Param(3) int fromBoolean,
            @Param(4) double fromFloat, @Param(5) Object missing, @Param(2) Object boxed) {
        System.out.println("  widen " + widened + " " + notString + " " + fromBoolean + " " + fromFloat + " " + missing
                + " " + boxed);
    }
}
