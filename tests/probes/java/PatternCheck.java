import java.lang.reflect.Method;

// Both natives that validate a method pattern, on a few patterns: one line
// each, "<pattern> | <Callback's answer> | <Natives' answer>".
public class PatternCheck {
    public static void main(String[] args) throws Exception {
        Method callback = Class.forName("com.corvane.runtime.Callback").getMethod("validateMethodPattern", String.class);
        String[] patterns = {"java.io.File:delete()", "a.B:m(int long)", "@x:run()", "nothing", null};
        for (String pattern : patterns) {
            System.out.println(pattern + " | " + callback.invoke(null, pattern) + " | "
                    + com.corvane.Natives.validateMethodPattern(pattern));
        }
    }
}
