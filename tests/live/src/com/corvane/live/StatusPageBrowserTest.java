package com.corvane.live;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.runtime.Protocol;
import com.corvane.testing.Chromium;
import java.net.HttpURLConnection;
import java.net.URL;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The control port's HTTP face, as headless Chromium and a plain HTTP client see it. */
class StatusPageBrowserTest {
    @TempDir
    Path dir;

    private static String get(int port, String path, int expectedStatus) throws Exception {
        HttpURLConnection connection = (HttpURLConnection) new URL("http://127.0.0.1:" + port + path).openConnection();
        assertEquals(expectedStatus, connection.getResponseCode());
        return new String((expectedStatus < 400 ? connection.getInputStream() : connection.getErrorStream())
                .readAllBytes(), StandardCharsets.UTF_8);
    }

    @Test
    void theSummaryPageShowsTheAgentAndWhatRuns() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "sessionname=LivePage")) {
            new AgentClient(jvm.port()).startCpuProfiling(4, null);
            String dom = Chromium.run(dir, "http://127.0.0.1:" + jvm.port() + "/", "--dump-dom");
            assertTrue(dom.contains("<title>LivePage - Corvane Java Profiler</title>"), dom);
            assertTrue(dom.contains("<h2>Runtime &amp; Agent</h2>") && dom.contains("<h2>Profiling Activities</h2>"));
            for (String cell : new String[] {"<td id=\"session\">LivePage</td>", "<td id=\"pid\">" + jvm.pid() + "</td>",
                "<td id=\"mode\">Loaded on start</td>", "<td id=\"version\">" + Protocol.PRODUCT_VERSION + "</td>",
                "<td id=\"cpu\" class=\"running\">running (sampling)</td>",
                "<td id=\"allocations\" class=\"off\">off</td>"}) {
                assertTrue(dom.contains(cell), cell + " in:\n" + dom);
            }
        }
    }

    @Test
    void threadDumpAndPropertiesArePlainText() throws Exception {
        try (LiveJvm jvm = LiveJvm.start(dir, "")) {
            String dump = get(jvm.port(), "/dump-threads", 200);
            assertTrue(dump.startsWith("Java Virtual Machine: ") && dump.contains("\nUptime: ")
                    && dump.contains("\nTime: "), dump);
            assertTrue(dump.contains("LiveApp.spinForever(LiveApp.java:"), dump);
            String properties = get(jvm.port(), "/system-properties", 200);
            List<String> lines = List.of(properties.split("\n"));
            assertTrue(lines.contains("java.class.path=" + System.getProperty("corvane.live.classes")), properties);
            List<String> keys = new ArrayList<>();
            for (String line : lines) {
                keys.add(line.substring(0, line.indexOf('=')));
            }
            List<String> sorted = new ArrayList<>(keys);
            sorted.sort(null);
            assertEquals(sorted, keys);
            assertTrue(get(jvm.port(), "/nothing-here", 404).startsWith("Not found"));
        }
    }
}
