import java.io.IOException;
import java.net.HttpURLConnection;
import java.net.URL;

/**
 * Requests to two servers of known shape: embedded Tomcat with a servlet of
 * jakarta.servlet behind a filter, and embedded Jetty with one of
 * javax.servlet. Each serves /ok (200), /missing (404, set by the servlet)
 * and /fail (the servlet throws). Prints the status of each request.
 */
public class ServletWork {
    static final String[] PATHS = {"/app/ok?n=1", "/app/missing", "/app/fail", "/app/ok?n=2"};

    public static void main(String[] args) throws Exception {
        org.apache.catalina.startup.Tomcat tomcat = new org.apache.catalina.startup.Tomcat();
        tomcat.setBaseDir(args[0]);
        tomcat.setPort(0);
        org.apache.catalina.Context context = tomcat.addContext("", null);
        org.apache.catalina.startup.Tomcat.addServlet(context, "jakarta", new JakartaServlet());
        context.addServletMappingDecoded("/app/*", "jakarta");
        org.apache.tomcat.util.descriptor.web.FilterDef filter = new org.apache.tomcat.util.descriptor.web.FilterDef();
        filter.setFilterName("passing");
        filter.setFilter(new PassingFilter());
        context.addFilterDef(filter);
        org.apache.tomcat.util.descriptor.web.FilterMap mapping = new org.apache.tomcat.util.descriptor.web.FilterMap();
        mapping.setFilterName("passing");
        mapping.addURLPattern("/*");
        context.addFilterMap(mapping);
        tomcat.getConnector();
        tomcat.start();
        int port = tomcat.getConnector().getLocalPort();
        for (String path : PATHS) {
            System.out.println("tomcat " + path + " " + get(port, path));
        }
        tomcat.stop();
        tomcat.destroy();

        org.eclipse.jetty.server.Server jetty = new org.eclipse.jetty.server.Server(0);
        org.eclipse.jetty.servlet.ServletContextHandler handler = new org.eclipse.jetty.servlet.ServletContextHandler();
        handler.addServlet(new org.eclipse.jetty.servlet.ServletHolder(new JavaxServlet()), "/app/*");
        jetty.setHandler(handler);
        jetty.start();
        port = ((org.eclipse.jetty.server.ServerConnector) jetty.getConnectors()[0]).getLocalPort();
        for (String path : PATHS) {
            System.out.println("jetty " + path + " " + get(port, path));
        }
        jetty.stop();
    }

    static int get(int port, String path) throws IOException {
        HttpURLConnection connection = (HttpURLConnection) new URL("http://127.0.0.1:" + port + path).openConnection();
        int status = connection.getResponseCode();
        connection.disconnect();
        return status;
    }

    static class JakartaServlet extends jakarta.servlet.http.HttpServlet {
        @Override
        protected void doGet(jakarta.servlet.http.HttpServletRequest request, jakarta.servlet.http.HttpServletResponse response)
                throws IOException {
            String path = request.getPathInfo();
            if (path.equals("/fail")) {
                throw new IllegalStateException("failed on purpose");
            }
            response.setStatus(path.equals("/ok") ? 200 : 404);
            response.getWriter().print(path);
        }
    }

    static class PassingFilter implements jakarta.servlet.Filter {
        @Override
        public void doFilter(jakarta.servlet.ServletRequest request, jakarta.servlet.ServletResponse response,
                jakarta.servlet.FilterChain chain) throws IOException, jakarta.servlet.ServletException {
            chain.doFilter(request, response);
        }
    }

    static class JavaxServlet extends javax.servlet.http.HttpServlet {
        @Override
        protected void doGet(javax.servlet.http.HttpServletRequest request, javax.servlet.http.HttpServletResponse response)
                throws IOException {
            String path = request.getPathInfo();
            if (path.equals("/fail")) {
                throw new IllegalStateException("failed on purpose");
            }
            response.setStatus(path.equals("/ok") ? 200 : 404);
            response.getWriter().print(path);
        }
    }
}
