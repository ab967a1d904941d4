import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;

/**
 * Work of a known shape on an in-memory database through JDBC: a table made,
 * five rows inserted one by one with two parameters each, three more in one
 * batch, a query that reads all eight, a commit, a rollback, a statement
 * that fails, and a connection that cannot be made. On a second database,
 * many statements at once: 300 prepared and run, all but the last 50 closed
 * and collected, 200 more prepared, then the 50 and the 200 run.
 */
public class JdbcWork {
    public static void main(String[] args) throws Exception {
        try (Connection connection = DriverManager.getConnection("jdbc:h2:mem:shop", "sa", "")) {
            connection.setAutoCommit(false);
            try (Statement statement = connection.createStatement()) {
                statement.executeUpdate("create table item(id int primary key, name varchar(20))");
            }
            try (PreparedStatement insert = connection.prepareStatement("insert into item values(?, ?)")) {
                for (int i = 1; i <= 5; i++) {
                    insert.setInt(1, i);
                    insert.setString(2, "item " + i);
                    insert.executeUpdate();
                }
                for (int i = 6; i <= 8; i++) {
                    insert.setInt(1, i);
                    insert.setString(2, "item " + i);
                    insert.addBatch();
                }
                insert.executeBatch();
            }
            connection.commit();
            int read = 0;
            try (PreparedStatement query = connection.prepareStatement("select id, name from item where id > ?")) {
                query.setInt(1, 0);
                try (ResultSet rows = query.executeQuery()) {
                    while (rows.next()) {
                        read++;
                    }
                }
            }
            System.out.println("read: " + read);
            try (Statement statement = connection.createStatement()) {
                statement.executeUpdate("delete from item");
                connection.rollback();
                statement.executeQuery("select nothing from nowhere");
            } catch (SQLException expected) {
                System.out.println("failed: " + expected.getErrorCode());
            }
        }
        try (Connection connection = DriverManager.getConnection("jdbc:h2:mem:many", "sa", "")) {
            List<PreparedStatement> open = new ArrayList<>();
            for (int i = 0; i < 300; i++) {
                open.add(connection.prepareStatement("select " + i));
                open.get(i).executeQuery().close();
            }
            List<PreparedStatement> kept = new ArrayList<>(open.subList(250, 300));
            for (PreparedStatement statement : open.subList(0, 250)) {
                statement.close();
            }
            open = null;
            System.gc();
            for (int i = 300; i < 500; i++) {
                kept.add(connection.prepareStatement("select " + i));
            }
            for (PreparedStatement statement : kept) {
                statement.executeQuery().close();
            }
        }
        try {
            DriverManager.getConnection("jdbc:h2:/nonexistent/folder/db;IFEXISTS=TRUE", "sa", "");
        } catch (SQLException expected) {
            System.out.println("no connection: " + expected.getErrorCode());
        }
    }
}
