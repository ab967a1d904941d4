package com.corvane.analysis;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.Natives;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The heap-graph natives, called from a JVM that loaded the library with System.load. */
class HeapGraphNativesTest {
    @TempDir
    Path myFolder;
    private long myStorage;

    @BeforeAll
    static void loadLibrary() {
        Natives.load(Paths.get(System.getProperty("corvane.agent")));
    }

    @AfterEach
    void deleteStorage() {
        if (myStorage != 0) {
            Natives.deleteStorage(myStorage);
        }
    }

    /** Objects 1 to n - 1 with references; the roots; some objects no root reaches. */
    static final class Graph {
        final int n;
        final int[][] refs;
        final int[] roots;

        Graph(int n, int[][] refs, int[] roots) {
            this.n = n;
            this.refs = refs;
            this.roots = roots;
        }

        static Graph heapLike(int n, long seed) {
            Random random = new Random(seed);
            int[][] refs = new int[n][];
            refs[0] = new int[0];
            for (int v = 1; v < n; v++) {
                int count = random.nextInt(10) == 0 ? random.nextInt(200) : random.nextInt(4);
                refs[v] = new int[count];
                for (int k = 0; k < count; k++) {
                    int kind = random.nextInt(10);
                    // 0 stands for a null reference; the last tenth of the objects is never referred to.
                    int t = kind < 1 ? 0 : kind < 6 ? v + 1 + random.nextInt(20) : 1 + random.nextInt(n / 100 + 1);
                    refs[v][k] = t < n * 9 / 10 ? t : 1 + random.nextInt(n / 2);
                }
            }
            return new Graph(n, refs, new int[] {1, 2, 3, n / 3, 1});
        }

        long fill() {
            long storage = Natives.createStorage(n - 1);
            int[] objects = new int[n - 1];
            int[] counts = new int[n - 1];
            for (int v = 1; v < n; v++) {
                objects[v - 1] = v;
                counts[v - 1] = refs[v].length;
            }
            Natives.createRefs(storage, objects, counts, n - 1);
            int total = Arrays.stream(refs).mapToInt(r -> r.length).sum();
            int[] sources = new int[total];
            int[] indices = new int[total];
            int[] targets = new int[total];
            int at = 0;
            for (int v = 1; v < n; v++) {
                for (int k = 0; k < refs[v].length; k++) {
                    sources[at] = v;
                    indices[at] = k;
                    targets[at++] = refs[v][k];
                }
            }
            Natives.setRefs(storage, sources, indices, targets, total);
            return storage;
        }

        /** Breadth-first distances from the roots, -1 where none reach. */
        int[] depths() {
            int[] depth = new int[n];
            Arrays.fill(depth, -1);
            ArrayDeque<Integer> front = new ArrayDeque<>();
            for (int r : roots) {
                if (depth[r] < 0) {
                    front.add(r);
                }
                depth[r] = 0;
            }
            while (!front.isEmpty()) {
                int v = front.poll();
                for (int t : refs[v]) {
                    if (t != 0 && depth[t] < 0) {
                        depth[t] = depth[v] + 1;
                        front.add(t);
                    }
                }
            }
            return depth;
        }

        /**
         * Immediate dominators by the definition: d dominates v when v cannot
         * be reached from the roots with d taken away.
         */
        int[] dominators() {
            int[] reached = depths();
            List<List<Integer>> strict = new ArrayList<>();
            for (int v = 0; v < n; v++) {
                strict.add(new ArrayList<>());
            }
            for (int d = 1; d < n; d++) {
                if (reached[d] < 0) {
                    continue;
                }
                boolean[] seen = new boolean[n];
                ArrayDeque<Integer> stack = new ArrayDeque<>();
                for (int r : roots) {
                    if (r != d && !seen[r]) {
                        seen[r] = true;
                        stack.push(r);
                    }
                }
                while (!stack.isEmpty()) {
                    for (int t : refs[stack.pop()]) {
                        if (t != 0 && t != d && !seen[t]) {
                            seen[t] = true;
                            stack.push(t);
                        }
                    }
                }
                for (int v = 1; v < n; v++) {
                    if (v != d && reached[v] >= 0 && !seen[v]) {
                        strict.get(v).add(d);
                    }
                }
            }
            int[] idom = new int[n];
            for (int v = 1; v < n; v++) {
                int best = -1;
                for (int d : strict.get(v)) {
                    if (strict.get(d).size() > best) {
                        best = strict.get(d).size();
                        idom[v] = d;
                    }
                }
            }
            return idom;
        }
    }

    static int[] bits(int n) {
        return new int[(n + 31) >> 5];
    }

    static boolean marked(int[] bits, int object) {
        return (bits[object >> 5] >>> (object & 31) & 1) != 0;
    }

    static int[] bitsOf(int n, int... objects) {
        int[] result = bits(n);
        for (int object : objects) {
            result[object >> 5] |= 1 << (object & 31);
        }
        return result;
    }

    @Test
    void dominatorsDepthsAndReachableSets() throws IOException {
        Graph graph = Graph.heapLike(3000, 7);
        myStorage = graph.fill();
        int[] depths = graph.depths();

        int[] reachable = bits(graph.n);
        Natives.f(myStorage, graph.roots, reachable);
        for (int v = 1; v < graph.n; v++) {
            assertEquals(depths[v] >= 0, marked(reachable, v), "object " + v);
        }

        Natives.calculateDepthToGcRoot(myStorage, graph.roots);
        for (int v = 1; v < graph.n; v++) {
            assertEquals(depths[v], Natives.getDepthToGcRootImpl(myStorage, v), "object " + v);
        }

        int[] expected = graph.dominators();
        String in = myFolder.resolve("graph.in").toString();
        String out = myFolder.resolve("graph.idom").toString();
        for (String algorithm : new String[] {"snca", "low_mem"}) {
            boolean[] ran = {false};
            assertTrue(Natives.computeDominatorsImpl(myStorage, reachable, graph.roots, in, out, false, () -> {
                ran[0] = true;
                assertTrue(Natives.dc(in, out, myFolder.toString(), algorithm));
            }));
            assertTrue(ran[0]);
            for (int v = 1; v < graph.n; v++) {
                if (depths[v] >= 0) {
                    assertEquals(expected[v], Natives.getDominatorImpl(myStorage, v), algorithm + ": object " + v);
                }
            }
        }
        // A sound output file is read again without running the step.
        assertTrue(Natives.computeDominatorsImpl(myStorage, reachable, graph.roots, in, out, true, () -> {
            throw new IllegalStateException("must not run");
        }));
        // A step that fails: its exception reaches the caller.
        Files.delete(Paths.get(out));
        IllegalStateException failed = assertThrows(IllegalStateException.class,
                () -> Natives.computeDominatorsImpl(myStorage, reachable, graph.roots, in, out, true, () -> {
                    throw new IllegalStateException("no step today");
                }));
        assertEquals("no step today", failed.getMessage());
        // A step that writes nothing.
        RuntimeException unread = assertThrows(RuntimeException.class,
                () -> Natives.computeDominatorsImpl(myStorage, reachable, graph.roots, in, out, false, () -> { }));
        assertEquals("dc: read error", unread.getMessage());
        assertFalse(Natives.dc(in + ".missing", out, "", "snca"));
    }

    @Test
    void strongWalksAndPresetSets() {
        // 1 -> 2 (index 0), 1 -> 3 (index 1); 3 -> 4; 2 -> 5 (index 0), 2 -> 6 (index 1); 6 -> 6.
        int[][] refs = {{}, {2, 3}, {5, 6}, {4}, {}, {}, {6}};
        Graph graph = new Graph(7, refs, new int[] {1});
        myStorage = graph.fill();

        int[] visited = bits(7);
        Natives.fStrong(myStorage, bitsOf(7, 1), visited, new int[0], 1, 1);
        assertArrayEquals(bitsOf(7, 1, 2, 5, 6), visited, "reference 1 of object 1 left out");
        visited = bits(7);
        // Objects whose reference 0 is 5 lose their reference 1.
        Natives.fStrong(myStorage, bitsOf(7, 1), visited, new int[] {5, 1}, 0, -1);
        assertArrayEquals(bitsOf(7, 1, 2, 3, 4, 5), visited);

        visited = bitsOf(7, 3);
        Natives.f(myStorage, new int[] {1}, visited);
        assertArrayEquals(bitsOf(7, 1, 2, 3, 5, 6), visited, "a marked object is not walked through");
        visited = bits(7);
        Natives.f0m(myStorage, bitsOf(7, 4, 6), new int[0], visited);
        assertArrayEquals(bitsOf(7, 4, 6), visited);
        visited = bits(7);
        Natives.f0o(myStorage, new int[] {5, 2, 3, 6}, 1, 3, new int[] {1}, visited);
        assertArrayEquals(bitsOf(7, 1, 2, 3), visited);
    }

    @Test
    void columnsKeepTheirValues() {
        myStorage = Natives.createStorage(300);
        Natives.setOIDs(myStorage, new int[] {1, 2}, new long[] {0x1234567890L, -1L}, 2);
        Natives.setPrimitiveDataPositions(myStorage, new int[] {2}, new long[] {1L << 40}, 1);
        Natives.setArrayLengths(myStorage, new int[] {3, 4}, new int[] {7, 100000}, 2);
        Natives.setGenerations(myStorage, new int[] {5}, new int[] {70000}, 1);
        Natives.setAllocatorImpl(myStorage, 6, 11, 12, 1L << 33);
        Natives.setCRC32(myStorage, 7, -5);
        assertEquals(0x1234567890L, Natives.getOIDImpl(myStorage, 1));
        assertEquals(-1L, Natives.getOIDImpl(myStorage, 2));
        assertEquals(1L << 40, Natives.getPrimitiveDataPositionImpl(myStorage, 2));
        assertEquals(7, Natives.getArrayLengthImpl(myStorage, 3));
        assertEquals(100000, Natives.getArrayLengthImpl(myStorage, 4));
        assertEquals(-1, Natives.getArrayLengthImpl(myStorage, 5));
        assertEquals(70000, Natives.getGenerationImpl(myStorage, 5));
        assertEquals(11, Natives.getAllocatorFrameImpl(myStorage, 6));
        assertEquals(12, Natives.getAllocatorTrnImpl(myStorage, 6));
        assertEquals(1L << 33, Natives.getAllocatorTimestampMs(myStorage, 6));
        assertEquals(-5, Natives.getCRC32(myStorage, 7));
        assertEquals("AL: elements=1048576 map=1\nGEN: elements=1048576 map=1\nDEPTHS: elements=0 map=0\n",
                Natives.getStorageStatisticsImpl(myStorage));
        Natives.createRefs(myStorage, new int[] {1}, new int[] {2}, 1);
        Natives.setRefImpl(myStorage, 1, 1, 9);
        Natives.setNewRefCount(myStorage, 2, 1);
        Natives.setRefs(myStorage, new int[] {2, 2}, new int[] {0, 1}, new int[] {8, 9}, 2);
        assertEquals(9, Natives.getRefImpl(myStorage, 1, 1));
        assertEquals(8, Natives.getRefImpl(myStorage, 2, 0));
        assertEquals(1, Natives.getRefCountImpl(myStorage, 2));
    }

    @Test
    void failuresBecomeJavaExceptionsAndReachTheLog() throws IOException {
        RuntimeException tooMany = assertThrows(RuntimeException.class, () -> Natives.createStorage(0x3fffffff));
        assertEquals("tmo::1073741823", tooMany.getMessage());
        myStorage = Natives.createStorage(10);
        RuntimeException shortArrays = assertThrows(RuntimeException.class,
                () -> Natives.setRefs(myStorage, new int[1], new int[1], new int[1], 2));
        assertEquals("assertion failed in native code; see agent log for detail", shortArrays.getMessage());
        assertThrows(RuntimeException.class, () -> Natives.f(myStorage, new int[] {11}, bits(11)));
        assertThrows(RuntimeException.class, () -> Natives.getRefImpl(0, 1, 0));

        String pidSuffix = "-" + ProcessHandle.current().pid() + ".log";
        Path logFolder = Paths.get(System.getenv("CORVANE_HOME"), ".kzt", "log");
        String log;
        try (Stream<Path> files = Files.list(logFolder)) {
            Path file = files.filter(p -> p.getFileName().toString().endsWith(pidSuffix)).findFirst().orElseThrow();
            log = Files.readString(file);
        }
        assertTrue(log.contains("tmo::1073741823"), log);
        assertTrue(log.contains("HeapGraphNatives.cpp"), log);
        assertTrue(log.contains("assertion failed"), log);
        assertTrue(log.contains("error: exception caught at "), log);
    }
}
