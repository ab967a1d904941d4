package targets;

// Could be a Shape by its interfaces, as far as one class tells; it is not.
public class Other implements Comparable<Other> {
    public double area() {
        return 2;
    }

    public int compareTo(Other o) {
        return 0;
    }
}
