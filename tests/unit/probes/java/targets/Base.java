package targets;

public class Base {
    final String kind;

    public Base(String kind) {
        this.kind = kind;
    }
}
