package counting;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;

// Counts the calls of ProbedApp.work and sums what they return.
@MethodPattern("ProbedApp:work(int) long")
public class WorkProbe {
    static long calls;
    static long sum;

    static {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println("probe: " + calls + " calls, sum " + sum)));
    }

    public static synchronized void onReturn(@Param(1) int n, @ReturnValue long value) {
        calls++;
        sum += value;
    }
}
