import java.lang.reflect.Method;

// Event tables written through the agent's natives, as probes write them:
// requests (a master table) with their queries (a dependent table) from three
// threads, one request failing; rows shorter than a table's minimum duration;
// a message in characters beyond ASCII; descriptions the agent refuses, with their codes; and object maps
// from objects to rows, which keep no object alive.
public class EventTablesApp {
    static Class<?> callback;

    static Object call(String name, Object... args) throws Exception {
        for (Method method : callback.getMethods()) {
            if (method.getName().equals(name) && method.getParameterCount() == args.length) {
                return method.invoke(null, args);
            }
        }
        throw new NoSuchMethodException(name);
    }

    static int table(String description) throws Exception {
        return (Integer) call("createEventTable", "EventTablesApp", description);
    }

    static void request(int requests, int queries, int thread, int number) throws Exception {
        int row = (Integer) call("createEventTableRow", requests);
        call("setEventTableStringColumn", requests, row, 3, "/t" + thread + "/r" + number);
        for (int q = 0; q < 2; q++) {
            int query = (Integer) call("createEventTableRow", queries);
            call("setEventTableInt32Column", queries, query, 2, row);
            call("setEventTableStringColumn", queries, query, 3, "select " + q + " from t" + thread);
            call("closeEventTableRow", queries, query, false, null);
        }
        call("closeEventTableRow", requests, row, false, number == 3 ? "java.io.IOException: boom" : null);
    }

    public static void main(String[] args) throws Exception {
        callback = Class.forName("com.corvane.runtime.Callback");
        int requests = table("Requests\n5\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\nURI\n2\nexception_str\n2\n");
        int queries = table("Queries\n4\nuptime_ns\n1\nuptime_ns.end\n1\n" + requests + "\n3\nSQL\n2\n");
        System.out.println("same table again: " + (table("Requests\n5\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\nURI\n2"
                + "\nexception_str\n2\n") == requests));
        Thread[] threads = new Thread[3];
        for (int t = 0; t < threads.length; t++) {
            final int thread = t;
            threads[t] = new Thread(() -> {
                try {
                    for (int r = 0; r < 4; r++) {
                        request(requests, queries, thread, r);
                    }
                } catch (Exception e) {
                    throw new RuntimeException(e);
                }
            }, "worker-" + t);
            threads[t].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        int slow = table("Slow\n3\nuptime_ns\n1\nuptime_ns.end\n1\nName\n2\n");
        call("setMinimumRecordedLastingEventTime", slow, 50);
        for (long sleep : new long[] {0, 120}) {
            int row = (Integer) call("createEventTableRow", slow);
            call("setEventTableStringColumn", slow, row, 2, "slept " + sleep);
            Thread.sleep(sleep);
            call("closeEventTableRow", slow, row, false, null);
        }
        // A text of two- and three-byte characters, and one longer than the
        // agent converts on its stack.
        StringBuilder detail = new StringBuilder();
        for (int i = 0; i < 12; i++) {
            detail.append("from the program ");
        }
        call("messageToTable", "Test", "h\u00e9llo \u2014 \u65e5\u672c", detail.toString());
        String[] refused = {"", "Name", "Name\nx\n", "Name\n2\nuptime_ns\n1\n", "Name\n2\nuptime_ns\n1\nother\n",
            "Name\n1\nuptime_ns\n6\n"};
        StringBuilder codes = new StringBuilder();
        for (String description : refused) {
            codes.append(' ').append(table(description));
        }
        System.out.println("refused:" + codes);
        System.out.println("tables: " + String.valueOf(call("getTopEventTableNames")).replace('\n', ','));
        objectMaps();
    }

    static void objectMaps() throws Exception {
        long first = (Long) call("createObjectMap");
        long second = (Long) call("createObjectMap");
        Object connection = new Object();
        Object other = new Object();
        StringBuilder out = new StringBuilder("maps:");
        out.append(' ').append(call("objectMapPut", first, connection, 7, false, 0));
        out.append(' ').append(call("objectMapPut", second, connection, 8, false, 0));
        out.append(' ').append(call("objectMapGet", first, connection));
        out.append(' ').append(call("objectMapGet", second, connection));
        out.append(' ').append(call("objectMapGet", first, other));
        // Replacing answers the old id; a conditional put that expects another keeps the entry.
        out.append(' ').append(call("objectMapPut", first, connection, 9, false, 0));
        out.append(' ').append(call("objectMapPut", first, connection, 10, true, 5));
        out.append(' ').append(call("objectMapPut", first, connection, 11, true, 9));
        out.append(' ').append(call("objectMapPut", first, connection, 0, false, 0));
        out.append(' ').append(call("objectMapGet", first, connection));
        out.append(' ').append(call("objectGetID", connection).equals(call("objectGetID", connection)));
        out.append(' ').append(call("isLiveObjectID", call("objectGetID", connection)));
        System.out.println(out);
        // A mapped object still goes with the next collections.
        Object mapped = new byte[1 << 20];
        call("objectMapPut", second, mapped, 12, false, 0);
        java.lang.ref.WeakReference<Object> weak = new java.lang.ref.WeakReference<>(mapped);
        mapped = null;
        for (int i = 0; i < 20 && weak.get() != null; i++) {
            System.gc();
            Thread.sleep(10);
        }
        System.out.println("collected while mapped: " + (weak.get() == null));
        call("deleteObjectMap", first);
        call("deleteObjectMap", second);
        call("deleteObjectMap", 0L);
    }
}
