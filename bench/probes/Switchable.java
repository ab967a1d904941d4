import com.corvane.probes.MethodPattern;
import com.corvane.probes.ThrownException;

// A probe on the hot methods of the tracing benchmark's CallHeavy: each call
// of checksum, scan, mix and process gets onEnter and onExit, which count.
@MethodPattern({"CallHeavy:checksum(*)", "CallHeavy:scan(*)", "CallHeavy:mix(*)", "CallHeavy:process(*)"})
public class Switchable {
    static long enters;
    static long exits;

    public static void onEnter() {
        enters++;
    }

    public static void onExit(@ThrownException Throwable thrown) {
        exits++;
    }
}
