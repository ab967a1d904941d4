import java.lang.reflect.Method;

// Event tables written through the agent's natives, as probes write them:
// requests (a master table) with their queries (a dependent table) from three
// threads, one request failing; rows shorter than a table's minimum duration;
// a message; and descriptions the agent refuses, with their codes.
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
        call("messageToTable", "Test", "hello", "from the program");
        String[] refused = {"", "Name", "Name\nx\n", "Name\n2\nuptime_ns\n1\n", "Name\n2\nuptime_ns\n1\nother\n",
            "Name\n1\nuptime_ns\n6\n"};
        StringBuilder codes = new StringBuilder();
        for (String description : refused) {
            codes.append(' ').append(table(description));
        }
        System.out.println("refused:" + codes);
        System.out.println("tables: " + String.valueOf(call("getTopEventTableNames")).replace('\n', ','));
    }
}
