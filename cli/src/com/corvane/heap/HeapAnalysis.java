package com.corvane.heap;

import com.corvane.Natives;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.PriorityQueue;
import java.util.Set;
import java.util.function.LongBinaryOperator;

/**
 * The heap graph in the library's object storage: what the GC roots reach,
 * the immediate dominator of each reachable object, retained sizes, and
 * distances from the roots. Retained size of an object: its shallow size and
 * that of every object it dominates. Retained size of a class: that of its
 * instances that no other instance of the class dominates.
 */
public final class HeapAnalysis {
    /** One row of the class histogram, reachable objects only. */
    public record ClassRow(String name, long count, long shallow, long retained) {
    }

    private static final int CHUNK = 1 << 20;

    private final HeapDump myDump;
    private final int[] myRoots;
    private final int[] myReachable;
    private final int[] myDominator;
    private final long[] myRetained;
    private final int[] myDepth;

    private HeapAnalysis(HeapDump dump, int[] roots, int[] reachable, int[] dominator, long[] retained, int[] depth) {
        myDump = dump;
        myRoots = roots;
        myReachable = reachable;
        myDominator = dominator;
        myRetained = retained;
        myDepth = depth;
    }

    /** The phases of the analysis, each told as it starts, with its progress. */
    public interface Steps {
        void phase(String name);

        LongBinaryOperator progress();
    }

    public static HeapAnalysis analyze(HeapDump dump, Path library, Path folder, Steps steps) throws IOException {
        Natives.load(library);
        int count = dump.objectCount();
        long storage = Natives.createStorage(Math.max(count, 1));
        try {
            steps.phase("Storing the heap graph");
            store(storage, dump, steps.progress());
            Set<Integer> distinct = new LinkedHashSet<>();
            for (HeapDump.Root root : dump.roots()) {
                distinct.add(root.object());
            }
            int[] roots = distinct.stream().mapToInt(Integer::intValue).toArray();
            int[] reachable = new int[(count + 1 + 31) >> 5];
            Natives.f(storage, roots, reachable);

            steps.phase("Computing dominators");
            int[] dominator = new int[count + 1];
            if (roots.length > 0) {
                String input = folder.resolve("heap.dc").toString();
                String output = folder.resolve("heap.idom").toString();
                try {
                    Natives.computeDominatorsImpl(storage, reachable, roots, input, output, false, () -> {
                        if (!Natives.dc(input, output, folder.toString(), "snca")) {
                            throw new IllegalStateException("the dominator step failed; the library's log tells why");
                        }
                    });
                } finally {
                    Files.deleteIfExists(Path.of(input));
                    Files.deleteIfExists(Path.of(output));
                }
                for (int object = 1; object <= count; object++) {
                    if (isSet(reachable, object)) {
                        dominator[object] = Natives.getDominatorImpl(storage, object);
                    }
                }
            }
            steps.phase("Computing distances from the GC roots");
            Natives.calculateDepthToGcRoot(storage, roots);
            int[] depth = new int[count + 1];
            for (int object = 1; object <= count; object++) {
                depth[object] = Natives.getDepthToGcRootImpl(storage, object);
            }
            steps.phase("Computing retained sizes");
            long[] retained = retainedSizes(dump, reachable, dominator);
            return new HeapAnalysis(dump, roots, reachable, dominator, retained, depth);
        } finally {
            Natives.deleteStorage(storage);
        }
    }

    private static void store(long storage, HeapDump dump, LongBinaryOperator progress) {
        int count = dump.objectCount();
        int[] starts = dump.refStarts();
        int[] refs = dump.refs();
        int[] objects = new int[CHUNK];
        int[] counts = new int[CHUNK];
        for (int first = 1; first <= count; first += CHUNK) {
            int n = Math.min(CHUNK, count - first + 1);
            for (int k = 0; k < n; k++) {
                objects[k] = first + k;
                counts[k] = starts[first + k + 1] - starts[first + k];
            }
            Natives.createRefs(storage, objects, counts, n);
        }
        int[] sources = new int[CHUNK];
        int[] indices = new int[CHUNK];
        int[] targets = new int[CHUNK];
        int n = 0;
        for (int object = 1; object <= count; object++) {
            for (int e = starts[object]; e < starts[object + 1]; e++) {
                sources[n] = object;
                indices[n] = e - starts[object];
                targets[n++] = refs[e];
                if (n == CHUNK) {
                    Natives.setRefs(storage, sources, indices, targets, n);
                    n = 0;
                    progress.applyAsLong(object, count);
                }
            }
        }
        Natives.setRefs(storage, sources, indices, targets, n);
    }

    static boolean isSet(int[] bits, int object) {
        return (bits[object >> 5] >>> (object & 31) & 1) != 0;
    }

    /** Children in the dominator tree; the virtual root is 0. */
    private static int[][] dominatorChildren(int count, int[] reachable, int[] dominator) {
        int[] start = new int[count + 2];
        for (int object = 1; object <= count; object++) {
            if (isSet(reachable, object)) {
                start[dominator[object] + 1]++;
            }
        }
        for (int v = 1; v <= count + 1; v++) {
            start[v] += start[v - 1];
        }
        int[] children = new int[start[count + 1]];
        int[] fill = Arrays.copyOf(start, count + 1);
        for (int object = 1; object <= count; object++) {
            if (isSet(reachable, object)) {
                children[fill[dominator[object]]++] = object;
            }
        }
        return new int[][] {start, children};
    }

    /** Objects of the dominator tree, parents before children. */
    private static int[] treeOrder(int count, int[][] tree) {
        int[] start = tree[0];
        int[] children = tree[1];
        int[] order = new int[children.length + 1];
        int size = 1;
        order[0] = 0;
        for (int k = 0; k < size; k++) {
            int v = order[k];
            for (int c = start[v]; c < start[v + 1]; c++) {
                order[size++] = children[c];
            }
        }
        return Arrays.copyOf(order, size);
    }

    private static long[] retainedSizes(HeapDump dump, int[] reachable, int[] dominator) {
        int count = dump.objectCount();
        int[] order = treeOrder(count, dominatorChildren(count, reachable, dominator));
        long[] retained = new long[count + 1];
        for (int k = order.length - 1; k >= 1; k--) {
            int object = order[k];
            retained[object] += dump.shallowSize(object);
            retained[dominator[object]] += retained[object];
        }
        return retained;
    }

    public HeapDump dump() {
        return myDump;
    }

    public int rootCount() {
        return myRoots.length;
    }

    public boolean isReachable(int object) {
        return object >= 1 && object <= myDump.objectCount() && isSet(myReachable, object);
    }

    public long retainedSize(int object) {
        return myRetained[object];
    }

    public int dominator(int object) {
        return myDominator[object];
    }

    public int depth(int object) {
        return myDepth[object];
    }

    public long reachableCount() {
        long n = 0;
        for (int object = 1; object <= myDump.objectCount(); object++) {
            n += isReachable(object) ? 1 : 0;
        }
        return n;
    }

    public long reachableSize() {
        return myRetained[0];
    }

    /** The class histogram, by retained size, then shallow size. */
    public List<ClassRow> classHistogram() {
        int count = myDump.objectCount();
        java.util.Map<Integer, long[]> byClass = new java.util.HashMap<>();
        for (int object = 1; object <= count; object++) {
            if (isReachable(object)) {
                long[] row = byClass.computeIfAbsent(classKey(object), k -> new long[3]);
                row[0]++;
                row[1] += myDump.shallowSize(object);
            }
        }
        // A depth-first walk over the dominator tree, counting the instances
        // of each class on the way down: only the topmost ones add up.
        int[][] tree = dominatorChildren(count, myReachable, myDominator);
        int[] start = tree[0];
        int[] children = tree[1];
        java.util.Map<Integer, Integer> above = new java.util.HashMap<>();
        int[] stack = new int[children.length + 1];
        int[] next = new int[count + 1];
        int size = 0;
        stack[size++] = 0;
        while (size > 0) {
            int v = stack[size - 1];
            if (next[v] == 0 && v != 0) {
                int key = classKey(v);
                int instancesAbove = above.getOrDefault(key, 0);
                if (instancesAbove == 0) {
                    byClass.get(key)[2] += myRetained[v];
                }
                above.put(key, instancesAbove + 1);
            }
            int c = start[v] + next[v];
            if (c < start[v + 1]) {
                next[v]++;
                stack[size++] = children[c];
            } else {
                size--;
                if (v != 0) {
                    above.merge(classKey(v), -1, Integer::sum);
                }
            }
        }
        List<ClassRow> rows = new ArrayList<>();
        for (java.util.Map.Entry<Integer, long[]> entry : byClass.entrySet()) {
            long[] row = entry.getValue();
            rows.add(new ClassRow(nameOfKey(entry.getKey()), row[0], row[1], row[2]));
        }
        rows.sort(Comparator.comparingLong(ClassRow::retained).reversed()
                .thenComparing(Comparator.comparingLong(ClassRow::shallow).reversed())
                .thenComparing(ClassRow::name));
        return rows;
    }

    private int classKey(int object) {
        return myDump.classKey(object);
    }

    private String nameOfKey(int key) {
        return myDump.classKeyName(key);
    }

    /** The reachable objects of the largest retained sizes, largest first. */
    public List<Integer> biggestObjects(int limit) {
        PriorityQueue<Integer> top = new PriorityQueue<>(Comparator.comparingLong((Integer o) -> myRetained[o])
                .thenComparing(Comparator.reverseOrder()));
        for (int object = 1; object <= myDump.objectCount() && limit > 0; object++) {
            if (!isReachable(object)) {
                continue;
            }
            top.add(object);
            if (top.size() > limit) {
                top.poll();
            }
        }
        List<Integer> result = new ArrayList<>(top);
        result.sort(Comparator.comparingLong((Integer o) -> myRetained[o]).reversed().thenComparing(o -> o));
        return result;
    }

    /** The object's dominators, nearest first, up to a GC root's own (not the virtual root). */
    public List<Integer> dominatorChain(int object) {
        List<Integer> chain = new ArrayList<>();
        for (int d = myDominator[object]; d != 0 && chain.size() <= myDump.objectCount(); d = myDominator[d]) {
            chain.add(d);
        }
        return chain;
    }

    /**
     * A shortest path from the GC roots to the object, root first, or an
     * empty list when no root reaches it. One pass over all references makes
     * each object's parent a referrer one step nearer to the roots.
     */
    public List<Integer> pathToRoots(int object) {
        if (!isReachable(object) || myDepth[object] < 0) {
            return List.of();
        }
        int count = myDump.objectCount();
        int[] starts = myDump.refStarts();
        int[] refs = myDump.refs();
        int[] parent = new int[count + 1];
        for (int from = 1; from <= count; from++) {
            if (myDepth[from] < 0) {
                continue;
            }
            for (int e = starts[from]; e < starts[from + 1]; e++) {
                int to = refs[e];
                if (parent[to] == 0 && myDepth[to] == myDepth[from] + 1) {
                    parent[to] = from;
                }
            }
        }
        List<Integer> path = new ArrayList<>();
        for (int current = object; current != 0 && path.size() <= count; current = parent[current]) {
            path.add(0, current);
            if (myDepth[current] == 0) {
                break;
            }
        }
        return path;
    }

    /** The root kinds of an object that is a GC root. */
    public List<String> rootKinds(int object) {
        Set<String> kinds = new LinkedHashSet<>();
        for (HeapDump.Root root : myDump.roots()) {
            if (root.object() == object) {
                kinds.add(root.kind());
            }
        }
        return new ArrayList<>(kinds);
    }
}
