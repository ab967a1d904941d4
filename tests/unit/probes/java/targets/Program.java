package targets;

import java.util.ArrayList;
import java.util.List;

// Methods of many shapes that probes are injected into: constructors with
// super and this calls, static and instance methods, several returns,
// handlers, long and double parameters, an assigned parameter, switches,
// loops and a synchronized block.
public class Program {
    public static void main(String[] args) {
        Calc calc = new Calc(3);
        Calc copy = new Calc();
        System.out.println("triple " + calc.triple(4));
        System.out.println("pick " + Calc.pick(0) + " " + Calc.pick(2) + " " + Calc.pick(9));
        System.out.println("deposit " + calc.deposit(100L, 0.5));
        System.out.println("assign " + calc.assign(7));
        System.out.println("scale " + calc.scale(2, 3L, 1.5, "x"));
        System.out.println("widen " + Calc.widen(5, 6, true, 2.5f));
        System.out.println("handled " + calc.handled("ok") + " " + calc.handled(null));
        try {
            System.out.println("risky " + calc.risky("boom"));
        } catch (IllegalStateException e) {
            System.out.println("caught " + e.getMessage());
        }
        System.out.println("risky " + calc.risky("fine"));
        for (String s : new String[] {"boom", "ok"}) {
            try {
                System.out.println("fragile " + calc.fragile(s));
            } catch (IllegalArgumentException e) {
                System.out.println("caught " + e.getMessage());
            }
        }
        System.out.println("loop " + calc.loop(5));
        System.out.println("sync " + calc.sync(2));
        List<Shape> shapes = new ArrayList<>();
        shapes.add(new Square(2));
        shapes.add(new Big());
        for (Shape s : shapes) System.out.println("area " + s.area());
        System.out.println("plain " + new Plain().area() + " other " + new Other().area());
        System.out.println("copy " + copy.factor);
    }
}
