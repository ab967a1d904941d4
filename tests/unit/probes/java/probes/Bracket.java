package probes;

import com.corvane.probes.*;

// onExit in both roles with @DiscardThrownException: brackets a result,
// and turns an exception into "(message)".
@DiscardThrownException
@MethodPattern("targets.Calc:fragile(String)")
public class Bracket {
    public static String onExit(@ReturnValue String value, @ThrownException Throwable thrown) {
        return thrown != null ? "(" + thrown.getMessage() + ")" : "[" + value + "]";
    }
}
