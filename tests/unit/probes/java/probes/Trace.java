package probes;

import com.corvane.probes.*;
import java.util.Arrays;

// Every method of Calc but loop: arguments in, value or exception out.
@MethodPattern({"targets.Calc:*(*)", "-targets.Calc:loop(*)"})
public class Trace {
    public static void onEnter(@ClassRef Class<?> c, @MethodName String name, @Params Object[] args) {
        System.out.println("  enter " + c.getSimpleName() + "." + name + Arrays.toString(args));
    }

    public static void onExit(@MethodName String name, @MethodSignature String signature, @ReturnValue Object value,
            @ThrownException Throwable thrown, @Params Object[] args, @MethodParameterTypes String types) {
        System.out.println("  exit " + name + signature + " " + types + " " + Arrays.toString(args) + " -> "
                + (thrown != null ? "thrown " + thrown.getMessage() : value));
    }
}
