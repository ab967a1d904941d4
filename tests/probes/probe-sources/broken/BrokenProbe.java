package broken;

import com.corvane.probes.MethodPattern;
import com.corvane.probes.Param;
import com.corvane.probes.ReturnValue;

// Two mistakes: a callback that is not static, and a parameter without an
// annotation.
@MethodPattern("ProbedApp:work(int) long")
public class BrokenProbe {
    public void onEnter(@Param(1) int n) {
    }

    public static void onReturn(@ReturnValue long value, int unannotated) {
    }
}
