package probes;

import com.corvane.probes.*;

// Areas of Shapes only, whatever class declares the method.
@InstanceOf("targets.Shape")
@MethodPattern("targets.*:area()")
public class ShapeArea {
    public static void onReturn(@This Object shape, @ReturnValue double value) {
        System.out.println("  area of " + shape.getClass().getSimpleName() + " = " + value);
    }
}
