package probes;

import com.corvane.probes.*;

// An exception leaving risky becomes a return value.
@DiscardThrownException
@MethodPattern("targets.Calc:risky(String)")
public class Discard {
    public static String onUncaughtException(@ThrownException Throwable thrown) {
        return "discarded " + thrown.getMessage();
    }
}
