package com.corvane.probes.builtin;

import com.corvane.probes.Table;

/**
 * The table "Servlet Requests" of the probes Servlets and ServletsLW: a row
 * for each request, from its entry into the first filter or servlet to the
 * end of the outermost one, with the method, the URI and the status of the
 * response; the full probe adds the query, the class of the servlet and the
 * client's address. The servlet API lives in the server's loader, so its
 * objects are read by reflection.
 */
final class ServletRequests {
    static final Table REQUESTS = new Table("Servlet Requests", true);
    static final Table.StringColumn METHOD = REQUESTS.stringColumn("Method");
    static final Table.StringColumn URI = REQUESTS.stringColumn("URI");
    static final Table.IntColumn STATUS = REQUESTS.intColumn("Status");
    static final Table.StringColumn QUERY = REQUESTS.stringColumn("Query");
    static final Table.StringColumn SERVLET = REQUESTS.stringColumn("Servlet");
    static final Table.StringColumn CLIENT = REQUESTS.stringColumn("Client");
    static final Nesting NESTING = new Nesting();

    private ServletRequests() {
    }

    static void entered(Object servlet, Object request, boolean full) {
        try {
            int row = 0;
            if (NESTING.enter()) {
                row = REQUESTS.createRow();
                NESTING.setRow(row);
                if (row != 0) {
                    METHOD.set(row, ProbeSupport.text(ProbeSupport.call(request, "getMethod")));
                    URI.set(row, ProbeSupport.text(ProbeSupport.call(request, "getRequestURI")));
                }
            }
            if (full) {
                // The full probe may be the second on the call; it completes the
                // outermost row, and the servlet, entered last, names itself.
                row = NESTING.getRow();
            }
            if (full && row != 0) {
                QUERY.set(row, ProbeSupport.text(ProbeSupport.call(request, "getQueryString")));
                SERVLET.set(row, servlet == null ? null : servlet.getClass().getName());
                CLIENT.set(row, ProbeSupport.text(ProbeSupport.call(request, "getRemoteAddr")));
            }
        } catch (Throwable e) {
            // the program's request stands
        }
    }

    static void exited(Object response, Throwable thrown) {
        int row = NESTING.exitRow();
        if (row == 0) {
            return;
        }
        try {
            // An error that leaves the servlet becomes a response of 500 in the server.
            STATUS.set(row, thrown != null ? 500 : ProbeSupport.callInt(response, "getStatus", 0));
            REQUESTS.close(row, thrown);
        } catch (Throwable e) {
            // the program's response stands
        }
    }
}
