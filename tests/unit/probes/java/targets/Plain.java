package targets;

// No Shape, and nothing that could make it one.
public class Plain {
    public double area() {
        return 1;
    }
}
