package com.corvane.flame;

import com.corvane.profile.CallNode;
import com.corvane.profile.Profile;
import com.corvane.profile.ThreadProfile;
import com.corvane.report.Json;
import java.io.IOException;
import java.io.InputStream;
import java.io.UncheckedIOException;
import java.io.Writer;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Flame graphs of a profile: one self-contained HTML page (data and script
 * inline, nothing fetched), or folded stacks, one line a call path with its
 * own time in nanoseconds, for other flame graph tools.
 */
public final class FlameGraph {
    private static final String TEMPLATE = "flamegraph.html";
    private static final String DATA_MARK = "/*@DATA@*/null";
    private static final String TITLE_MARK = "@TITLE@";

    private FlameGraph() {
    }

    public static void writeHtml(Profile profile, boolean perThread, String title, String subtitle, Writer out)
            throws IOException {
        writeHtml(profile, perThread, title, subtitle, "ns", out);
    }

    /** {@code unit}: what the widths are, "ns" (time) or "bytes" (allocations, whose calls are objects). */
    public static void writeHtml(Profile profile, boolean perThread, String title, String subtitle, String unit,
            Writer out) throws IOException {
        Map<String, Object> data = new LinkedHashMap<>();
        data.put("title", title);
        data.put("subtitle", subtitle);
        data.put("unit", unit);
        List<String> names = new ArrayList<>();
        Map<String, Integer> nameIndex = new HashMap<>();
        data.put("root", perThread ? perThreadNode(profile, names, nameIndex) : node(profile.allThreads(), names,
                nameIndex));
        data.put("names", names);

        String template = template();
        int dataAt = template.indexOf(DATA_MARK);
        StringBuilder json = new StringBuilder();
        Json.write(data, json, false, true);
        String head = template.substring(0, dataAt).replace(TITLE_MARK, escapeHtml(title));
        out.write(head);
        out.write(json.toString());
        out.write(template.substring(dataAt + DATA_MARK.length()));
    }

    /** [name index, total ns, own ns, invocations, [children]] */
    private static List<Object> node(CallNode node, List<String> names, Map<String, Integer> nameIndex) {
        List<Object> children = new ArrayList<>();
        for (CallNode child : node.children()) {
            if (child.totalNs() > 0) {
                children.add(node(child, names, nameIndex));
            }
        }
        return List.of(index(node.name(), names, nameIndex), node.totalNs(), node.ownNs(), node.invocations(),
                children);
    }

    private static List<Object> perThreadNode(Profile profile, List<String> names, Map<String, Integer> nameIndex) {
        List<Object> children = new ArrayList<>();
        for (ThreadProfile thread : profile.threads()) {
            if (thread.root().totalNs() > 0) {
                children.add(node(thread.root(), names, nameIndex));
            }
        }
        return List.of(index("<all threads>", names, nameIndex), profile.totalNs(), 0L, 0L, children);
    }

    private static int index(String name, List<String> names, Map<String, Integer> nameIndex) {
        return nameIndex.computeIfAbsent(name, n -> {
            names.add(n);
            return names.size() - 1;
        });
    }

    /** Folded stacks: "frame;frame;frame value", value the own time in nanoseconds. */
    public static void writeCollapsed(Profile profile, boolean perThread, Writer out) throws IOException {
        if (perThread) {
            for (ThreadProfile thread : profile.threads()) {
                collapsed(thread.root(), folded(thread.name()), out);
            }
        } else {
            collapsed(profile.allThreads(), null, out);
        }
    }

    private static void collapsed(CallNode node, String path, Writer out) throws IOException {
        if (path != null && node.ownNs() > 0) {
            out.write(path);
            out.write(' ');
            out.write(Long.toString(node.ownNs()));
            out.write('\n');
        }
        for (CallNode child : node.children()) {
            String name = folded(child.name());
            collapsed(child, path == null ? name : path + ";" + name, out);
        }
    }

    /** A frame name may hold neither the separator nor a line break. */
    private static String folded(String name) {
        return name.replace(';', ',').replace('\n', ' ').replace('\r', ' ');
    }

    private static String template() {
        try (InputStream in = FlameGraph.class.getResourceAsStream(TEMPLATE)) {
            if (in == null) {
                throw new IllegalStateException("corvane.jar lacks " + TEMPLATE);
            }
            return new String(in.readAllBytes(), StandardCharsets.UTF_8);
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
    }

    static String escapeHtml(String text) {
        return text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;").replace("\"", "&quot;");
    }
}
