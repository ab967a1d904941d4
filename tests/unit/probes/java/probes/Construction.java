package probes;

import com.corvane.probes.*;

// The receiver of a constructor: seen behind its super or this call.
@MethodPattern("targets.Calc:<init>(*)")
public class Construction {
    public static void onEnter(@This Object self) {
        System.out.println("  constructing " + ((targets.Base) self).getClass().getSimpleName());
    }
}
