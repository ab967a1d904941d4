package targets;

public interface Shape {
    double area();
}
