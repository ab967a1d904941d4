package probes;

import com.corvane.probes.*;

// The arguments of scale, changed before it runs.
@MethodPattern("targets.Calc:scale(*)")
public class Out {
    public static void onEnter(@com.corvane.probes.Out @Params Object[] p) {
        p[0] = (Integer) p[0] * 10;
        p[1] = (Long) p[1] + 1;
        p[2] = (Double) p[2] * 2;
        p[3] = "y";
    }
}
