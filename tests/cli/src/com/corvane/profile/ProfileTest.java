package com.corvane.profile;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotFormatException;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.ProfileBuilder;
import com.corvane.testing.Samples;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class ProfileTest {
    private static final long MS = 1_000_000L;

    @TempDir
    Path dir;

    private Profile profile(ProfileBuilder builder) throws Exception {
        Snapshot snapshot = SnapshotReader.read(builder.write(dir.resolve("p.snapshot")));
        return Profile.build(snapshot);
    }

    private static CallNode child(CallNode node, String name) {
        for (CallNode child : node.children()) {
            if (child.name().equals(name)) {
                return child;
            }
        }
        throw new AssertionError(name + " is not a callee of " + node.name() + ": " + node.children().stream()
                .map(CallNode::name).toList());
    }

    @Test
    void sampledTreeFoldsOwnLineFramesAndMergesCallLines() throws Exception {
        Profile p = profile(Samples.sampled());
        assertEquals(List.of("main", "worker"), p.threads().stream().map(ThreadProfile::name).toList());
        CallNode mainThread = p.threads().get(0).root();
        assertEquals(1000 * MS, mainThread.totalNs());
        CallNode main = child(mainThread, "com.example.Main.main(java.lang.String[])");
        assertEquals(List.of(Samples.HOT_METHOD, "com.example.Io.read()"),
                main.children().stream().map(CallNode::name).toList(), "own-line frames are no callees; most time first");
        CallNode compute = child(main, Samples.HOT_METHOD);
        assertEquals(700 * MS, compute.totalNs(), "calls from lines 10 and 20 are one node");
        assertEquals(700 * MS, compute.ownNs(), "the own-line frames' time is compute's own time");
        assertEquals(200 * MS, main.ownNs());
        assertTrue(p.threads().get(1).daemon());
    }

    @Test
    void hotSpotsOverAllThreads() throws Exception {
        Profile p = profile(Samples.sampled());
        assertEquals(1400 * MS, p.totalNs());
        HotSpot first = p.hotSpots().get(0);
        assertEquals(Samples.HOT_METHOD, first.name());
        assertEquals(1000 * MS, first.ownNs());
        assertEquals(1000 * MS, first.totalNs());
        HotSpot main = p.hotSpots().stream().filter(h -> h.name().contains("Main.main")).findFirst().orElseThrow();
        assertEquals(200 * MS, main.ownNs());
        assertEquals(1000 * MS, main.totalNs());
        CallNode merged = p.allThreads();
        assertEquals(1400 * MS, merged.totalNs());
        assertEquals(2, merged.children().size());
    }

    @Test
    void recursionCountsTotalTimeOnce() throws Exception {
        ProfileBuilder b = new ProfileBuilder().cpuMode(ProfileBuilder.TRACING);
        int fib = b.method("Fib", "fib", "(int)");
        int t = b.thread("main", 1, false);
        int f1 = b.call(t, 0, fib, 0, 100 * MS, 1);
        int f2 = b.call(t, f1, fib, 5, 60 * MS, 2);
        b.call(t, f2, fib, 5, 20 * MS, 4);
        Profile p = profile(b);
        HotSpot spot = p.hotSpots().get(0);
        assertEquals(100 * MS, spot.totalNs(), "the nested calls are inside the outer one");
        assertEquals(100 * MS, spot.ownNs(), "own time of all levels adds up to the whole");
        assertEquals(7, spot.invocations());
    }

    @Test
    void aFrameSpansAtLeastItsCalleesSoOwnTimesAddUpToTheThread() throws Exception {
        ProfileBuilder b = new ProfileBuilder().cpuMode(ProfileBuilder.TRACING);
        int outer = b.method("A", "outer", "()");
        int inner = b.method("A", "inner", "()");
        int wall = b.method("A", "sleepy", "()");
        int work = b.method("A", "work", "()");
        int t = b.thread("main", 1, false);
        int fOuter = b.call(t, 0, outer, 0, 0, 1);           // still open at the snapshot: entered, never exited
        int fInner = b.call(t, fOuter, inner, 3, 10 * MS, 1); // CPU-timed caller
        b.call(t, fInner, wall, 4, 30 * MS, 1);               // wall-timed callee: more than its caller
        b.call(t, fOuter, work, 5, 5 * MS, 1);
        Profile p = profile(b);
        CallNode root = p.threads().get(0).root();
        CallNode outerNode = child(root, "A.outer()");
        assertEquals(35 * MS, outerNode.totalNs(), "a frame spans its callees");
        assertEquals(0, outerNode.ownNs());
        CallNode innerNode = child(outerNode, "A.inner()");
        assertEquals(30 * MS, innerNode.totalNs());
        assertEquals(0, innerNode.ownNs());
        assertEquals(35 * MS, root.totalNs());
        assertEquals(root.totalNs(), p.hotSpots().stream().mapToLong(HotSpot::ownNs).sum(),
                "own times add up to the recorded total");
    }

    @Test
    void codePointsOfAllThreeForms() throws Exception {
        ProfileBuilder b = new ProfileBuilder().cpuMode(ProfileBuilder.SAMPLING);
        int m = b.method("C", "m", "()");
        int n = b.method("C", "n", "()");
        int o = b.method("C", "o", "()");
        int t = b.thread("main", 1, false);
        int plain = b.frame(0, m, 0);
        int packed = b.frame(plain, n, 2047);
        b.call(t, packed, o, 2048, 5 * MS, 0);
        Profile p = profile(b);
        CallNode node = p.threads().get(0).root();
        for (String name : new String[] {"C.m()", "C.n()", "C.o()"}) {
            node = child(node, name);
            assertEquals(5 * MS, node.totalNs());
        }
    }

    @Test
    void aFrameMissingFromTheFrameTableIsReported() throws Exception {
        ProfileBuilder b = new ProfileBuilder();
        int t = b.thread("main", 1, false);
        b.time(t, 42, MS, 0);
        SnapshotFormatException e = assertThrows(SnapshotFormatException.class, () -> profile(b));
        assertEquals("corrupt snapshot: frame 42, on a call path of thread \"main\", is not in the frame table",
                e.getMessage());
    }

    @Test
    void aParentLoopIsReported() throws Exception {
        ProfileBuilder b = new ProfileBuilder();
        int m = b.method("L", "loop", "()");
        int t = b.thread("main", 1, false);
        b.time(t, 1, MS, 0);
        b.frameRow(1, 2, m, -1, -1);
        b.frameRow(2, 1, m, -1, -1);
        SnapshotFormatException e = assertThrows(SnapshotFormatException.class, () -> profile(b));
        assertTrue(e.getMessage().contains("loops"), e.getMessage());
    }

    @Test
    void modesFromTheLastModeProperties() {
        assertEquals("sampling", Summary.cpuMode(4));
        assertEquals("sampling (asynchronous, cpu)", Summary.cpuMode(4 | 0x20000));
        assertEquals("tracing", Summary.cpuMode(12));
        assertEquals("call counting", Summary.cpuMode(4100));
        assertEquals("off", Summary.cpuMode(0));
        assertEquals("sampled stacks", Summary.allocationMode(8194));
        assertEquals("object counting", Summary.allocationMode(16386));
        assertEquals("exact stacks", Summary.allocationMode(2));
    }
}
