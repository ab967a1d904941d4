package com.corvane.heap;

import java.io.IOException;
import java.io.PrintStream;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** What `corvane heap` tells, as a map that prints as text or JSON. */
public final class HeapReport {
    /** The object or class of --path-to-roots names nothing in the heap. */
    public static final class UnknownTarget extends RuntimeException {
        private static final long serialVersionUID = 1L;

        UnknownTarget(String message) {
            super(message);
        }
    }

    private HeapReport() {
    }

    public static Map<String, Object> build(String name, HeapAnalysis analysis, int classes, int biggest,
            String pathTarget) throws IOException {
        HeapDump dump = analysis.dump();
        Map<String, Object> report = new LinkedHashMap<>();
        report.put("snapshot", name);
        report.put("objects", dump.objectCount());
        long total = 0;
        for (int object = 1; object <= dump.objectCount(); object++) {
            total += dump.shallowSize(object);
        }
        report.put("size", total);
        report.put("gcRoots", analysis.rootCount());
        report.put("reachableObjects", analysis.reachableCount());
        report.put("reachableSize", analysis.reachableSize());
        if (dump.unreadableBlocks() > 0) {
            report.put("unreadableInstances", dump.unreadableBlocks());
        }

        List<Object> histogram = new ArrayList<>();
        for (HeapAnalysis.ClassRow row : analysis.classHistogram()) {
            if (histogram.size() == classes) {
                break;
            }
            Map<String, Object> entry = new LinkedHashMap<>();
            entry.put("class", row.name());
            entry.put("instances", row.count());
            entry.put("shallowSize", row.shallow());
            entry.put("retainedSize", row.retained());
            histogram.add(entry);
        }
        report.put("classes", histogram);

        List<Object> objects = new ArrayList<>();
        for (int object : analysis.biggestObjects(biggest)) {
            Map<String, Object> entry = object(analysis, object);
            entry.put("shallowSize", dump.shallowSize(object));
            entry.put("retainedSize", analysis.retainedSize(object));
            List<Object> chain = new ArrayList<>();
            for (int dominator : analysis.dominatorChain(object)) {
                chain.add(object(analysis, dominator));
            }
            entry.put("dominators", chain);
            objects.add(entry);
        }
        report.put("biggestObjects", objects);

        if (pathTarget != null) {
            int target = target(analysis, pathTarget);
            List<Object> steps = new ArrayList<>();
            List<Integer> path = analysis.pathToRoots(target);
            for (int k = 0; k < path.size(); k++) {
                Map<String, Object> step = object(analysis, path.get(k));
                if (k > 0) {
                    step.put("reference", dump.describeReference(path.get(k - 1), path.get(k)));
                }
                steps.add(step);
            }
            Map<String, Object> entry = object(analysis, target);
            entry.put("path", steps);
            report.put("pathToRoots", entry);
        }
        return report;
    }

    private static Map<String, Object> object(HeapAnalysis analysis, int object) {
        Map<String, Object> entry = new LinkedHashMap<>();
        entry.put("object", object);
        entry.put("description", analysis.dump().describe(object));
        List<String> kinds = analysis.rootKinds(object);
        if (!kinds.isEmpty()) {
            entry.put("gcRoot", kinds);
        }
        return entry;
    }

    /** An object id, or the instance of a class that lies nearest to the GC roots. */
    private static int target(HeapAnalysis analysis, String text) {
        HeapDump dump = analysis.dump();
        if (text.matches("[0-9]+")) {
            long object = Long.parseLong(text);
            if (object < 1 || object > dump.objectCount()) {
                throw new UnknownTarget("--path-to-roots: there is no object " + text + " (objects are numbered 1 to "
                        + dump.objectCount() + ")");
            }
            return (int) object;
        }
        List<Integer> instances = dump.instancesOf(text);
        if (instances.isEmpty()) {
            throw new UnknownTarget("--path-to-roots: the heap has no instance of " + text);
        }
        int best = instances.get(0);
        for (int object : instances) {
            int depth = analysis.depth(object);
            int bestDepth = analysis.depth(best);
            if (depth >= 0 && (bestDepth < 0 || depth < bestDepth)) {
                best = object;
            }
        }
        return best;
    }

    @SuppressWarnings("unchecked")
    public static void print(Map<String, Object> report, PrintStream out) {
        out.printf("Heap of %s: %,d objects, %,d bytes; %,d GC roots reach %,d objects, %,d bytes%n",
                report.get("snapshot"), report.get("objects"), report.get("size"), report.get("gcRoots"),
                report.get("reachableObjects"), report.get("reachableSize"));
        if (report.containsKey("unreadableInstances")) {
            out.printf("(%,d instances have field blocks that do not match their class: their references are"
                    + " left out)%n", report.get("unreadableInstances"));
        }
        List<Map<String, Object>> classes = (List<Map<String, Object>>) report.get("classes");
        if (!classes.isEmpty()) {
            out.println();
            out.println("Classes by retained size:");
            out.printf("  %14s %14s %11s  %s%n", "Retained", "Shallow", "Instances", "Class");
            for (Map<String, Object> row : classes) {
                out.printf("  %,14d %,14d %,11d  %s%n", row.get("retainedSize"), row.get("shallowSize"),
                        row.get("instances"), row.get("class"));
            }
        }
        List<Map<String, Object>> biggest = (List<Map<String, Object>>) report.get("biggestObjects");
        if (!biggest.isEmpty()) {
            out.println();
            out.println("Biggest objects by retained size, each with the objects that dominate it:");
            for (Map<String, Object> entry : biggest) {
                out.printf("  %s%s: retained %,d, shallow %,d%n", entry.get("description"), roots(entry),
                        entry.get("retainedSize"), entry.get("shallowSize"));
                List<Map<String, Object>> chain = (List<Map<String, Object>>) entry.get("dominators");
                for (Map<String, Object> dominator : chain) {
                    out.printf("    <- %s%s%n", dominator.get("description"), roots(dominator));
                }
            }
        }
        Map<String, Object> path = (Map<String, Object>) report.get("pathToRoots");
        if (path != null) {
            out.println();
            List<Map<String, Object>> steps = (List<Map<String, Object>>) path.get("path");
            if (steps.isEmpty()) {
                out.printf("No GC root reaches %s.%n", path.get("description"));
            } else {
                out.printf("Shortest path from the GC roots to %s:%n", path.get("description"));
                for (Map<String, Object> step : steps) {
                    Object reference = step.get("reference");
                    out.printf("  %s%s%s%n", reference == null ? "" : "  " + reference + " -> ",
                            step.get("description"), roots(step));
                }
            }
        }
    }

    @SuppressWarnings("unchecked")
    private static String roots(Map<String, Object> entry) {
        Object kinds = entry.get("gcRoot");
        return kinds == null ? "" : " (GC root: " + String.join(", ", (List<String>) kinds) + ")";
    }
}
