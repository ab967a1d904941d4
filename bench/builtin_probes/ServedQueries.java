import java.io.InputStream;
import java.net.HttpURLConnection;
import java.net.URL;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.Statement;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Embedded Tomcat serving a servlet that reads one row of an in-memory H2
 * database through JDBC per request, and client threads in the same JVM
 * that request it over HTTP for a while. Prints the requests per second of
 * the measured seconds, after a warm-up.
 * Usage: ServedQueries <work dir> <client threads> <warm-up s> <measured s>
 */
public class ServedQueries {
    static final String DATABASE = "jdbc:h2:mem:served;DB_CLOSE_DELAY=-1";

    public static void main(String[] args) throws Exception {
        int clients = Integer.parseInt(args[1]);
        long warmUpMs = Long.parseLong(args[2]) * 1000;
        long measuredMs = Long.parseLong(args[3]) * 1000;
        try (Connection connection = DriverManager.getConnection(DATABASE); Statement statement = connection.createStatement()) {
            statement.execute("create table item(id int primary key, name varchar(20))");
            for (int i = 0; i < 100; i++) {
                statement.execute("insert into item values(" + i + ", 'item " + i + "')");
            }
        }
        org.apache.catalina.startup.Tomcat tomcat = new org.apache.catalina.startup.Tomcat();
        tomcat.setBaseDir(args[0]);
        tomcat.setPort(0);
        org.apache.catalina.Context context = tomcat.addContext("", null);
        org.apache.catalina.startup.Tomcat.addServlet(context, "items", new Items());
        context.addServletMappingDecoded("/item", "items");
        tomcat.getConnector();
        tomcat.start();
        int port = tomcat.getConnector().getLocalPort();

        AtomicLong served = new AtomicLong();
        long start = System.currentTimeMillis();
        long measureFrom = start + warmUpMs;
        long end = measureFrom + measuredMs;
        Thread[] threads = new Thread[clients];
        for (int t = 0; t < clients; t++) {
            int first = t;
            threads[t] = new Thread(() -> {
                byte[] buffer = new byte[256];
                for (int n = first; ; n++) {
                    long now = System.currentTimeMillis();
                    if (now >= end) {
                        return;
                    }
                    try {
                        HttpURLConnection c = (HttpURLConnection) new URL("http://127.0.0.1:" + port + "/item?id=" + n % 100)
                                .openConnection();
                        try (InputStream in = c.getInputStream()) {
                            while (in.read(buffer) > 0) {
                                // the item's name
                            }
                        }
                        if (now >= measureFrom) {
                            served.incrementAndGet();
                        }
                    } catch (Exception e) {
                        throw new RuntimeException(e);
                    }
                }
            });
            threads[t].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        System.out.printf(java.util.Locale.ROOT, "%.1f%n", served.get() * 1000.0 / measuredMs);
        tomcat.stop();
        tomcat.destroy();
    }

    static class Items extends jakarta.servlet.http.HttpServlet {
        @Override
        protected void doGet(jakarta.servlet.http.HttpServletRequest request, jakarta.servlet.http.HttpServletResponse response)
                throws java.io.IOException {
            try (Connection connection = DriverManager.getConnection(DATABASE);
                    PreparedStatement query = connection.prepareStatement("select name from item where id = ?")) {
                query.setInt(1, Integer.parseInt(request.getParameter("id")));
                try (ResultSet rows = query.executeQuery()) {
                    rows.next();
                    response.getWriter().print(rows.getString(1));
                }
            } catch (java.sql.SQLException e) {
                throw new java.io.IOException(e);
            }
        }
    }
}
