package com.corvane.http;

import com.corvane.runtime.StatusPage;
import java.nio.charset.Charset;

/** What each address of the HTTP face answers. */
public final class HttpRequestProcessor {
    private static final Charset UTF8 = Charset.forName("UTF-8");

    /** One answer: status, type and body. */
    public static final class Response {
        final int myStatus;
        final String myReason;
        final String myContentType;
        final byte[] myBody;

        Response(int status, String reason, String contentType, String body) {
            myStatus = status;
            myReason = reason;
            myContentType = contentType;
            myBody = body.getBytes(UTF8);
        }
    }

    private HttpRequestProcessor() {
    }

    static Response plain(int status, String reason, String text) {
        return new Response(status, reason, "text/plain; charset=utf-8", text);
    }

    public static Response process(String method, String target) {
        if (!method.equals("GET") && !method.equals("POST")) {
            return plain(405, "Method Not Allowed", "Only GET and POST are served\n");
        }
        int query = target.indexOf('?');
        String path = query >= 0 ? target.substring(0, query) : target;
        if (path.equals("/")) {
            return new Response(200, "OK", "text/html; charset=utf-8", StatusPage.html());
        }
        if (path.equals("/dump-threads")) {
            return plain(200, "OK", StatusPage.threadDump());
        }
        if (path.equals("/system-properties")) {
            return plain(200, "OK", StatusPage.systemProperties());
        }
        return plain(404, "Not Found", "Not found: " + path + "\n");
    }
}
