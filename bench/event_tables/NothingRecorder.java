import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;

// The same callback on the same calls, recording nothing.
@MethodPattern("RowWork:step(int)")
public class NothingRecorder {
    static int sink;

    public static void onEnter(@Param(1) int value) {
        sink += value;
    }
}
