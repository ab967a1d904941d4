package com.corvane.http;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.Socket;
import java.nio.charset.Charset;

/**
 * The control port's plain HTTP face: one request a connection, answered
 * and closed. Only what a browser sends is read, within fixed limits.
 */
public final class HttpServer {
    private static final Charset ASCII = Charset.forName("US-ASCII");
    private static final int MAX_LINE = 8192;
    private static final int MAX_HEADERS = 100;
    private static final int MAX_BODY = 1 << 20;

    private HttpServer() {
    }

    public static void serve(Socket socket, InputStream in) throws IOException {
        OutputStream out = socket.getOutputStream();
        String requestLine = readLine(in);
        String[] parts = requestLine == null ? new String[0] : requestLine.split(" ");
        if (parts.length != 3 || !parts[2].startsWith("HTTP/")) {
            write(out, HttpRequestProcessor.plain(400, "Bad Request", "Bad request\n"));
            return;
        }
        long contentLength = 0;
        for (int i = 0; ; i++) {
            String header = readLine(in);
            if (header == null || i > MAX_HEADERS) {
                write(out, HttpRequestProcessor.plain(400, "Bad Request", "Bad request\n"));
                return;
            }
            if (header.isEmpty()) {
                break;
            }
            int colon = header.indexOf(':');
            if (colon > 0 && header.substring(0, colon).trim().equalsIgnoreCase("Content-Length")) {
                try {
                    contentLength = Long.parseLong(header.substring(colon + 1).trim());
                } catch (NumberFormatException e) {
                    contentLength = -1;
                }
            }
        }
        if (contentLength < 0 || contentLength > MAX_BODY) {
            write(out, HttpRequestProcessor.plain(400, "Bad Request", "Bad request\n"));
            return;
        }
        for (long left = contentLength; left > 0; left--) {
            if (in.read() < 0) {
                return;
            }
        }
        write(out, HttpRequestProcessor.process(parts[0], parts[1]));
    }

    /** A line without its CR LF; null at the end of input or for an overlong line. */
    private static String readLine(InputStream in) throws IOException {
        ByteArrayOutputStream line = new ByteArrayOutputStream();
        for (int c; (c = in.read()) >= 0; ) {
            if (c == '\n') {
                byte[] bytes = line.toByteArray();
                int length = bytes.length > 0 && bytes[bytes.length - 1] == '\r' ? bytes.length - 1 : bytes.length;
                return new String(bytes, 0, length, ASCII);
            }
            if (line.size() >= MAX_LINE) {
                return null;
            }
            line.write(c);
        }
        return null;
    }

    private static void write(OutputStream out, HttpRequestProcessor.Response response) throws IOException {
        String head = "HTTP/1.1 " + response.myStatus + " " + response.myReason + "\r\n"
                + "Content-Type: " + response.myContentType + "\r\n"
                + "Content-Length: " + response.myBody.length + "\r\n"
                + "Cache-Control: no-store\r\n"
                + "Connection: close\r\n\r\n";
        out.write(head.getBytes(ASCII));
        out.write(response.myBody);
        out.flush();
    }
}
