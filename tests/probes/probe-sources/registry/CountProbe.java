package registry;

import com.corvane.probes.MethodPattern;

// Counts the calls of ProbedApp.work while it is registered and on.
@MethodPattern("ProbedApp:work(int) long")
public class CountProbe {
    public static long calls;

    public static synchronized void onReturn() {
        calls++;
    }
}
