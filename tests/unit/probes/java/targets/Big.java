package targets;

// A Shape through its superclass: only a check at run time can tell.
public class Big extends Square {
    public Big() {
        super(10);
    }

    @Override
    public double area() {
        return super.area() + 1;
    }
}
