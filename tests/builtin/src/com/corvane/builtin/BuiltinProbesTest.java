package com.corvane.builtin;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.EventTables;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import com.corvane.testing.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeSet;
import java.util.function.Predicate;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The built-in probes on programs of known shape: the JDK's own classes, an
 * in-memory database through JDBC and JPA, Tomcat and Jetty, the MongoDB
 * driver, and JUnit and TestNG, each checked row by row through the reader.
 */
class BuiltinProbesTest {
    /** The auto probes that the JDK programs use, switched on. */
    static final String JDK_PROBES_ON = ",probe_on=.Files,probe_on=.Sockets,probe_on=.DirectoryStreams,probe_on=.JNDI"
            + ",probe_on=.Sync,probe_on=.AsyncChannels";

    record Tables(EventTables tables, String out, Path snapshot) {
        /** The lines of `corvane report` on the snapshot from the section with the title to the next blank line. */
        List<String> reportSection(String title) {
            List<String> lines = ToolRun.of("report", snapshot.toString()).out().lines().collect(Collectors.toList());
            int at = lines.indexOf(title + ":");
            assertTrue(at >= 0, title + " in\n" + String.join("\n", lines));
            List<String> section = new ArrayList<>();
            for (int i = at + 2; i < lines.size() && !lines.get(i).isEmpty(); i++) {
                section.add(lines.get(i).trim().replaceAll(" +", " "));
            }
            return section;
        }

        List<Map<String, Object>> rows(String table) {
            assertTrue(tables.table(table) != null, "table " + table + " in " + names());
            return tables.rows(tables.table(table));
        }

        List<Map<String, Object>> rows(String table, Predicate<Map<String, Object>> which) {
            return rows(table).stream().filter(which).collect(Collectors.toList());
        }

        /** The one row of the table that the predicate picks. */
        Map<String, Object> row(String table, Predicate<Map<String, Object>> which) {
            List<Map<String, Object>> found = rows(table, which);
            assertEquals(1, found.size(), table + ": " + found);
            return found.get(0);
        }

        Set<String> names() {
            Set<String> names = new TreeSet<>();
            tables.list().forEach(t -> names.add((String) t.get("name")));
            return names;
        }
    }

    static Tables run(Path dir, String options, String... program) throws Exception {
        String classPath = System.getProperty("corvane.builtin.classes") + ":" + System.getProperty("corvane.builtin.libraries");
        Snapshotted jvm = AgentJvm.atExit(dir, "quiet" + options, classPath, program);
        assertEquals(List.of(), AgentJvm.problems(jvm.run().log()));
        return new Tables(new EventTables(jvm.snapshot()), jvm.run().out(), jvm.file());
    }

    static Predicate<Map<String, Object>> has(String column, Object value) {
        return row -> value.equals(row.get(column));
    }

    static long durationMs(Map<String, Object> row) {
        return (Long) row.get("duration_ns") / 1_000_000;
    }

    static void assertColumns(Map<String, Object> row, Object... namesAndValues) {
        for (int i = 0; i < namesAndValues.length; i += 2) {
            assertEquals(namesAndValues[i + 1], row.get(namesAndValues[i]), namesAndValues[i] + " of " + row);
        }
    }

    @Test
    void jdkProbesRecordFilesSocketsProcessesThreadsFoldersLookupsWaitsAndEvents(@TempDir Path dir) throws Exception {
        Path work = Files.createDirectories(dir.resolve("work"));
        Tables t = run(dir, JDK_PROBES_ON, "-Djava.awt.headless=true", "JdkWork", work.toString());
        assertEquals("entries: 3\nasync read: 100\nexit: 3\ndone\n", t.out());
        String data = work.resolve("data.bin").toString();
        // Files: each opening a row, with the bytes, calls and errors of the stream.
        assertColumns(t.row("Files", has("File", data).and(has("Access", "write"))),
                "Written bytes", 1051L, "Writes", 3, "Read bytes", 0L, "thread", "main", "exception_str", null);
        assertColumns(t.row("Files", has("File", data).and(has("Access", "read"))),
                "Read bytes", 1051L, "Reads", 5, "Written bytes", 0L);
        assertColumns(t.row("Files", has("File", work.resolve("random.bin").toString())),
                "Access", "read/write", "Read bytes", 32L, "Reads", 1, "Written bytes", 64L, "Writes", 1);
        assertTrue(((String) t.row("Files", has("File", work.resolve("missing.bin").toString())).get("exception_str"))
                .startsWith("java.io.FileNotFoundException: "));
        String text = work.resolve("text.txt").toString();
        assertColumns(t.row("Files", has("File", text).and(has("Access", "write"))), "Written bytes", 123L, "Writes", 1);
        assertColumns(t.row("Files", has("File", text).and(has("Access", "read"))), "Read bytes", 123L);
        // Sockets: the connecting side read what the accepting side wrote.
        assertColumns(t.row("Sockets", has("Access", "connect")), "Read bytes", 300L, "Written bytes", 0L, "thread", "main");
        assertColumns(t.row("Sockets", has("Access", "accept")), "Written bytes", 300L, "thread", "serving");
        Map<String, Object> process = t.row("Processes", row -> true);
        assertColumns(process, "Command line", "sh -c exit 3", "Exit code", 3, "thread", "main");
        assertTrue((Long) process.get("PID") > 0, process.toString());
        for (String thread : List.of("worker-1", "serving", "waiting")) {
            assertEquals(List.of("created", "started"), t.rows("Threads", has("Thread", thread).and(has("thread", "main")))
                    .stream().map(r -> r.get("Event")).collect(Collectors.toList()), thread);
        }
        assertEquals(List.of(), t.rows("Threads", row -> ((String) row.get("Thread")).startsWith("KZTAgent")));
        assertColumns(t.row("Directory Streams", row -> true), "Folder", work.toString(), "Entries", 3);
        Map<String, Object> lookup = t.row("JNDI Lookups", row -> true);
        assertEquals("java:comp/env/jdbc/missing", lookup.get("Name"));
        assertTrue(((String) lookup.get("exception_str")).startsWith("javax.naming.NoInitialContextException"), lookup.toString());
        // The lock was held 200 ms while "waiting" waited; main waited 50 ms on a condition, once.
        Map<String, Object> blocked = t.row("Lock Waits", has("thread", "waiting"));
        assertColumns(blocked, "Kind", "lock", "Lock", "java.util.concurrent.locks.ReentrantLock$NonfairSync");
        assertTrue(durationMs(blocked) >= 200, blocked.toString());
        Map<String, Object> await = t.row("Lock Waits", has("thread", "main").and(has("Kind", "await")));
        assertTrue(durationMs(await) >= 50, await.toString());
        assertColumns(t.row("Async Channels", row -> true), "Operation", "read", "thread", "main");
        t.row("AWT Events", has("Event", "java.awt.event.InvocationEvent 1200"));
        // The report sums each file's streams: opened twice, as many bytes read as written.
        List<String> io = t.reportSection("I/O by file, the most bytes first");
        assertTrue(io.stream().anyMatch(line -> line.matches("2 1,051 1,051 [0-9.]+ 0 " + data)), String.join("\n", io));
        assertTrue(t.reportSection("I/O by address, the most bytes first").stream()
                .anyMatch(line -> line.matches("1 0 300 [0-9.]+ 0 Socket\\[addr=/127\\.0\\.0\\.1,port=[0-9]+,localport=[0-9]+\\]")));
    }

    @Test
    void defaultModesBuiltInProbesNoneAndProbesSwitchedOff(@TempDir Path dir) throws Exception {
        record Case(String options, Set<String> tables, long bytesRead) {
        }
        Set<String> light = Set.of("AWT Events", "Class Loading", "Files", "Processes", "Sockets", "Threads");
        Set<String> full = new TreeSet<>(light);
        full.addAll(List.of("Async Channels", "Directory Streams", "JNDI Lookups"));
        Case[] cases = {
            // The light probes are on, the full ones wait for CPU profiling, and Sync is off.
            new Case("", light, 0),
            // With sampling from the start, the full ones are on too.
            new Case(",sampling", full, 1051),
            new Case(",probe_disable=com.corvane.probes.builtin.*", Set.of(), -1),
            new Case(",probe_off=.FilesLW,probe_off=.Processes,probe_disable=.ClassLoading",
                    Set.of("AWT Events", "Sockets", "Threads"), -1),
        };
        for (Case c : cases) {
            Path runDir = Files.createDirectories(dir.resolve("run" + c.options().hashCode()));
            Path work = Files.createDirectories(runDir.resolve("work"));
            Tables t = run(runDir, c.options(), "-Djava.awt.headless=true", "JdkWork", work.toString());
            assertEquals(c.tables(), t.names(), c.options());
            if (c.bytesRead() >= 0) {
                String data = work.resolve("data.bin").toString();
                assertEquals(c.bytesRead(), t.row("Files", has("File", data).and(has("Access", "read"))).get("Read bytes"),
                        c.options());
            }
        }
    }

    @Test
    void databasesThroughJdbcWithTheLightAndTheFullProbe(@TempDir Path dir) throws Exception {
        record Case(String options, List<Integer> parameters, long rowsRead) {
        }
        for (Case c : new Case[] {new Case("", List.of(0, 0, 0), 0), new Case(",probe_on=.Databases", List.of(2, 6, 1), 8)}) {
            Path runDir = Files.createDirectories(dir.resolve("run" + c.options().length()));
            Tables t = run(runDir, c.options(), "JdbcWork");
            assertEquals("read: 8\nfailed: 42102\nno connection: 90146\n", t.out());
            Map<String, Object> shop = t.row("JDBC Connections", has("URL", "jdbc:h2:mem:shop"));
            assertTrue(((String) t.row("JDBC Connections", row -> row.get("exception_str") != null).get("exception_str"))
                    .contains("IFEXISTS"));
            @SuppressWarnings("unchecked")
            List<Map<String, Object>> statements =
                    (List<Map<String, Object>>) ((Map<String, Object>) shop.get("dependent")).get("JDBC Statements");
            List<String> kinds = new ArrayList<>();
            statements.forEach(s -> kinds.add(s.get("Kind") + " " + s.get("Rows")));
            assertEquals(List.of("executeUpdate 0", "executeUpdate 1", "executeUpdate 1", "executeUpdate 1", "executeUpdate 1",
                    "executeUpdate 1", "executeBatch 3", "commit 0", "executeQuery " + c.rowsRead(), "executeUpdate 8",
                    "rollback 0", "executeQuery 0", "close 0"), kinds, c.options());
            assertColumns(statements.get(1), "SQL", "insert into item values(?, ?)", "Parameters", c.parameters().get(0));
            assertColumns(statements.get(6), "Parameters", c.parameters().get(1), "Batch size", c.parameters().get(1) / 2);
            assertColumns(statements.get(8), "SQL", "select id, name from item where id > ?",
                    "Parameters", c.parameters().get(2));
            assertTrue(((String) statements.get(11).get("exception_str")).contains("NOWHERE"), statements.get(11).toString());
            // Each of many statements, open at once or made after others were collected, keeps its own SQL.
            @SuppressWarnings("unchecked")
            List<Map<String, Object>> many = (List<Map<String, Object>>) ((Map<String, Object>) t
                    .row("JDBC Connections", has("URL", "jdbc:h2:mem:many")).get("dependent")).get("JDBC Statements");
            List<String> expectedSql = new ArrayList<>();
            for (int i = 0; i < 300; i++) {
                expectedSql.add("select " + i);
            }
            expectedSql.addAll(expectedSql.subList(250, 300));
            for (int i = 300; i < 500; i++) {
                expectedSql.add("select " + i);
            }
            expectedSql.add(null);
            assertEquals(expectedSql, many.stream().map(s -> (String) s.get("SQL")).collect(Collectors.toList()), c.options());
            // Six runs of the insert, five single and one batch, are the statement run most often.
            assertTrue(t.reportSection("Database statements, the most often run first").get(0)
                    .matches("6 [0-9.]+ [0-9.]+ 0 insert into item values\\(\\?, \\?\\)"), c.options());
        }
        // With the tables full after four rows, the rest of the work makes none and runs as before.
        Tables full = run(Files.createDirectories(dir.resolve("full")), ",probetablelengthlimit=4", "JdbcWork");
        assertEquals("read: 8\nfailed: 42102\nno connection: 90146\n", full.out());
        Map<String, Object> shop = full.row("JDBC Connections", has("URL", "jdbc:h2:mem:shop"));
        assertEquals(1, full.rows("JDBC Connections").size());
        @SuppressWarnings("unchecked")
        List<Map<String, Object>> first =
                (List<Map<String, Object>>) ((Map<String, Object>) shop.get("dependent")).get("JDBC Statements");
        assertEquals(List.of("create table item(id int primary key, name varchar(20))",
                "insert into item values(?, ?)", "insert into item values(?, ?)"),
                first.stream().map(s -> (String) s.get("SQL")).collect(Collectors.toList()));
    }

    @Test
    void servletRequestsOnTomcatAndJetty(@TempDir Path dir) throws Exception {
        Tables t = run(dir, ",probe_on=.Servlets", "ServletWork", dir.resolve("tomcat").toString());
        // The servers log to the same output.
        assertEquals(List.of("tomcat /app/ok?n=1 200", "tomcat /app/missing 404", "tomcat /app/fail 500", "tomcat /app/ok?n=2 200",
                "jetty /app/ok?n=1 200", "jetty /app/missing 404", "jetty /app/fail 500", "jetty /app/ok?n=2 200"),
                t.out().lines().filter(line -> line.matches("(tomcat|jetty) /app/.*")).collect(Collectors.toList()));
        List<String> requests = new ArrayList<>();
        for (Map<String, Object> r : t.rows("Servlet Requests")) {
            String error = (String) r.get("exception_str");
            requests.add(r.get("Servlet") + " " + r.get("Method") + " " + r.get("URI") + " " + r.get("Query") + " "
                    + r.get("Status") + " " + r.get("Client") + (error == null ? "" : " " + error));
        }
        List<String> expected = new ArrayList<>();
        for (String servlet : List.of("ServletWork$JakartaServlet", "ServletWork$JavaxServlet")) {
            expected.addAll(List.of(servlet + " GET /app/ok n=1 200 127.0.0.1", servlet + " GET /app/missing null 404 127.0.0.1",
                    servlet + " GET /app/fail null 500 127.0.0.1 java.lang.IllegalStateException: failed on purpose",
                    servlet + " GET /app/ok n=2 200 127.0.0.1"));
        }
        assertEquals(expected, requests);
        List<String> byUri = t.reportSection("Web requests by URI, the most time first");
        assertEquals(List.of("2 2", "2 0", "4 0"), byUri.stream().map(line -> line.split(" ")).sorted((a, b) -> a[4].compareTo(b[4]))
                .map(w -> w[0] + " " + w[3]).collect(Collectors.toList()), String.join("\n", byUri));
    }

    @Test
    void jpaOperationsOfThreeProvidersAndTheMongoDbDriversOperations(@TempDir Path dir) throws Exception {
        // OpenJPA persists a subclass of its own making and fails a query with an error class of its own.
        record Provider(String probe, String name, String providerClass, String removed, String error) {
        }
        for (Provider p : new Provider[] {
                new Provider("JPA_EclipseLink", "EclipseLink", "org.eclipse.persistence.jpa.PersistenceProvider",
                        "JpaWork$Item", "IllegalArgumentException"),
                new Provider("JPA_Hibernate", "Hibernate", "org.hibernate.ejb.HibernatePersistence", "JpaWork$Item",
                        "IllegalArgumentException"),
                new Provider("JPA_OpenJPA", "OpenJPA", "org.apache.openjpa.persistence.PersistenceProviderImpl",
                        "org.apache.openjpa.enhance.JpaWork$Item$pcsubclass", "ArgumentException")}) {
            Tables jpa = run(Files.createDirectories(dir.resolve(p.probe())), ",probe_on=." + p.probe(), "JpaWork",
                    p.providerClass());
            assertTrue(jpa.out().endsWith("found: item 2\nquery: 3\nfailed: " + p.error() + "\n"), jpa.out());
            List<String> operations = new ArrayList<>();
            for (Map<String, Object> r : jpa.rows("JPA Operations")) {
                assertEquals(p.name(), r.get("Provider"));
                operations.add(r.get("Operation") + " " + r.get("Target") + " " + r.get("Results")
                        + (r.get("exception_str") == null ? "" : " failed"));
            }
            assertEquals(List.of("begin null 0", "persist JpaWork$Item 0", "persist JpaWork$Item 0", "persist JpaWork$Item 0",
                    "commit null 0", "find JpaWork$Item 0", "getResultList select i from Item i order by i.id 3",
                    "begin null 0", "find JpaWork$Item 0", "remove " + p.removed() + " 0", "rollback null 0",
                    "createQuery select x from Nothing x 0 failed"), operations, p.name());
        }

        record Case(String probe, String countFilter) {
        }
        for (Case c : new Case[] {new Case("MongoDBLW", null), new Case("MongoDB", "{ \"name\" : \"pen\" }")}) {
            int closedPort;
            try (java.net.ServerSocket socket = new java.net.ServerSocket(0)) {
                closedPort = socket.getLocalPort();
            }
            Tables mongo = run(Files.createDirectories(dir.resolve(c.probe())), ",probe_on=." + c.probe(), "MongoWork",
                    String.valueOf(closedPort));
            assertTrue(mongo.out().contains("count: MongoTimeoutException\n")
                    && mongo.out().contains("insert: MongoTimeoutException\n"), mongo.out());
            List<String> rows = new ArrayList<>();
            for (Map<String, Object> r : mongo.rows("MongoDB Operations")) {
                rows.add(r.get("Operation") + " " + r.get("Namespace") + " " + r.get("Filter") + " "
                        + ((String) r.get("exception_str")).startsWith("com.mongodb.MongoTimeoutException: "));
            }
            assertEquals(List.of("Count shop.items " + c.countFilter() + " true", "MixedBulkWrite shop.items null true"), rows,
                    c.probe());
        }
    }

    @Test
    void cassandraHBaseAndDataNucleusOperationsOnClassesOfTheirNames(@TempDir Path dir) throws Exception {
        record Case(String options, String keyspace, String pen, String list) {
        }
        for (Case c : new Case[] {new Case("", "null", "null", "null"),
                new Case(",probe_on=.Cassandra,probe_on=.HBase,probe_on=.JPA_DataNucleus", "shop", "pen", "3 requests")}) {
            Tables t = run(Files.createDirectories(dir.resolve("run" + c.options().length())), c.options(), "ClientsWork");
            assertEquals("statement: no host available\nget: region offline\nfound: pen\nremove: not managed: ink\n", t.out());
            List<String> rows = new ArrayList<>();
            for (String[] table : new String[][] {{"Cassandra Statements", "Statement", "Keyspace"},
                    {"HBase Operations", "Table", "Row"}}) {
                for (Map<String, Object> r : t.rows(table[0])) {
                    rows.add(r.get("Operation") + " " + r.get(table[1]) + " " + r.get(table[2]) + " " + r.get("exception_str"));
                }
            }
            assertEquals(List.of("execute select * from items " + c.keyspace() + " null",
                    "execute select * from prices null null",
                    "execute select fail " + c.keyspace() + " java.lang.IllegalStateException: no host available",
                    "get items " + c.pen() + " null", "put items " + (c.pen().equals("null") ? "null" : "ink") + " null",
                    "put items " + c.list() + " null",
                    "get items " + (c.pen().equals("null") ? "null" : "fail") + " java.lang.IllegalStateException: region offline"),
                    rows, c.options());
            if (!c.options().isEmpty()) {
                List<String> operations = new ArrayList<>();
                for (Map<String, Object> r : t.rows("JPA Operations")) {
                    operations.add(r.get("Provider") + " " + r.get("Operation") + " " + r.get("Target")
                            + (r.get("exception_str") == null ? "" : " " + r.get("exception_str")));
                }
                assertEquals(List.of("DataNucleus begin null", "DataNucleus persist pen", "DataNucleus flush null",
                        "DataNucleus commit null", "DataNucleus find java.lang.String",
                        "DataNucleus remove ink java.lang.IllegalArgumentException: not managed: ink"), operations);
            }
        }
    }

    @Test
    void testsOfJUnitFourJUnitFiveAndTestNgWithTheirResults(@TempDir Path dir) throws Exception {
        Tables t = run(dir, "", "TestsWork");
        assertEquals("junit 4: 4 run, 2 failed\ntestng: 3\n", t.out());
        record Case(String table, String test, String result) {
        }
        Case[] cases = {
            new Case("JUnit Tests", "TestsWork$Four.passes", "passed"),
            new Case("JUnit Tests", "TestsWork$Four.fails", "failed"),
            new Case("JUnit Tests", "TestsWork$Four.throwsAnError", "error"),
            new Case("JUnit Tests", "TestsWork$Four.givesUp", "skipped"),
            new Case("JUnit Tests", "TestsWork$Five.passes", "passed"),
            new Case("JUnit Tests", "TestsWork$Five.fails", "failed"),
            new Case("JUnit Tests", "TestsWork$Five.givesUp", "skipped"),
            new Case("TestNG Tests", "TestsWork$WithTestNG.passes", "passed"),
            new Case("TestNG Tests", "TestsWork$WithTestNG.fails", "failed"),
            new Case("TestNG Tests", "TestsWork$WithTestNG.throwsAnError", "error"),
            new Case("TestNG Tests", "TestsWork$WithTestNG.givesUp", "skipped"),
        };
        for (Case c : cases) {
            Map<String, Object> row = t.row(c.table(), has("Test", c.test()));
            assertColumns(row, "Result", c.result(), "thread", "main");
            assertEquals(c.result().equals("passed"), row.get("exception_str") == null, row.toString());
        }
        // A repeated test is a row a repetition.
        assertEquals(2, t.rows("JUnit Tests", has("Test", "TestsWork$Five.repeated").and(has("Result", "passed"))).size());
        assertEquals(9, t.rows("JUnit Tests").size());
        assertEquals(4, t.rows("TestNG Tests").size());
    }
}
