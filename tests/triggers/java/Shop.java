/**
 * Known calls for method triggers: price runs five times and returns, twice
 * and throws; idle runs three times; nothing never runs.
 */
public class Shop {
    int stock = 7;

    long price(int quantity, String item) {
        if (quantity < 0) {
            throw new IllegalArgumentException("negative " + quantity);
        }
        return quantity * 3L;
    }

    static void idle() {
    }

    static void nothing() {
    }

    public static void main(String[] args) {
        Shop shop = new Shop();
        long sum = 0;
        for (int i = 0; i < 5; i++) {
            sum += shop.price(i, "apple");
        }
        for (int i = 0; i < 2; i++) {
            try {
                shop.price(-1 - i, "pear");
            } catch (IllegalArgumentException e) {
                sum--;
            }
        }
        for (int i = 0; i < 3; i++) {
            idle();
        }
        System.out.println("sum " + sum);
    }
}
