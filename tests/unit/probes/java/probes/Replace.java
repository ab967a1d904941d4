package probes;

import com.corvane.probes.*;

// The return value of triple, replaced.
@MethodPattern("targets.Calc:triple(int) int")
public class Replace {
    public static int onReturn(@ReturnValue int value, @Param(1) int x) {
        return value + x;
    }
}
