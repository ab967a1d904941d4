package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.heap.HeapDump.FieldValue;
import com.corvane.heap.HeapDump.Ref;
import com.corvane.snapshot.Rows.InstanceCountRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.ToolRun;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Comparator;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.TestInstance;

/**
 * A real JVM with the agent captures the heap of HeapShapes (tests/heap/java)
 * through the agent's native, and the snapshot is read with the project's
 * reader: every object of the known shape, its fields, array contents,
 * references and roots are checked exactly.
 */
@TestInstance(TestInstance.Lifecycle.PER_CLASS)
class MemorySnapshotTest {
    static final int CHAIN = 1000;

    Path dir;
    Snapshot snapshot;
    HeapDump heap;
    String log;

    /** More agent options for the capture. */
    String options() {
        return "";
    }

    @BeforeAll
    void capture() throws Exception {
        dir = Files.createTempDirectory("corvane-heap-test-");
        Path file = dir.resolve("shapes.snapshot");
        AgentJvm.Run run = AgentJvm.run(dir, "dir=" + Files.createDirectories(dir.resolve("exit")) + options(),
                System.getProperty("corvane.heap.classes"), "HeapShapes", file.toString(), AgentJvm.jniLibrary(), "native");
        assertEquals(0, run.exitCode(), run.out());
        assertTrue(run.out().contains("capture null"), run.out() + run.log());
        log = run.log();
        snapshot = SnapshotReader.read(file);
        heap = HeapDump.read(snapshot, (done, total) -> 0);
    }

    @AfterAll
    void removeFiles() throws Exception {
        try (Stream<Path> files = Files.walk(dir)) {
            files.sorted(Comparator.reverseOrder()).forEach(path -> path.toFile().delete());
        }
    }

    /** Field names and values, in the order of the dump. */
    static Map<String, Object> values(List<FieldValue> fields) {
        Map<String, Object> values = new LinkedHashMap<>();
        fields.forEach(value -> values.put(value.name(), value.value()));
        return values;
    }

    Map<String, Object> fields(int object) throws Exception {
        return values(heap.fieldValues(object));
    }

    Map<String, Object> statics(int classObject) {
        return values(heap.staticValues(classObject));
    }

    int only(String className) {
        List<Integer> objects = heap.instancesOf(className);
        assertEquals(1, objects.size(), className + ": " + objects);
        return objects.get(0);
    }

    int shapesClass() {
        List<Integer> classes = heap.classObjects("HeapShapes");
        assertEquals(1, classes.size());
        return classes.get(0);
    }

    static int ref(Object value) {
        assertTrue(value instanceof Ref, "a reference: " + value);
        return ((Ref) value).id();
    }

    List<Integer> referrers(int target) {
        List<Integer> found = new ArrayList<>();
        for (int object = 1; object <= heap.objectCount(); object++) {
            for (int k = 0; k < heap.refCount(object); k++) {
                if (heap.ref(object, k) == target) {
                    found.add(object);
                }
            }
        }
        return found;
    }

    @Test
    void everyObjectHasAnEntryAndTheClassCountsMatchTheInstanceCounts() {
        assertEquals(String.format("%032d", heap.objectCount()), snapshot.header("oid_count"));
        Map<String, Integer> counted = new TreeMap<>();
        for (int object = 1; object <= heap.objectCount(); object++) {
            String name = heap.className(object);
            assertNotEquals("<unknown class>", name, "object " + object);
            counted.merge(name, 1, Integer::sum);
        }
        // The instance counts of the same capture: the JVM's own walk of the heap, class by class.
        Map<String, Integer> expected = new TreeMap<>();
        Table<InstanceCountRow> counts = snapshot.tables().instanceCounts;
        for (Table.Entry<InstanceCountRow> row : counts.liveEntries()) {
            if (row.row().count() > 0) {
                expected.merge(snapshot.string(row.row().className()), row.row().count(), Integer::sum);
            }
        }
        for (String name : List.of("HeapShapes$Node", "HeapShapes$Derived", "HeapShapes$Prims",
                "HeapShapes$Empty", "HeapShapes$StackOnly", "HeapShapes$JniOnly", "HeapShapes$ShapeLoader",
                "java.lang.String", "java.lang.Thread", "int[]", "java.lang.Object[]")) {
            assertEquals(expected.get(name), counted.get(name), name);
        }
        assertEquals(CHAIN + 3, counted.get("HeapShapes$Node"));
        assertEquals(List.of(), AgentJvm.problems(log), "the agent logged no warnings");
    }

    @Test
    void theChainAndTheCycleAreThereNodeByNode() throws Exception {
        Map<String, Object> shapes = statics(shapesClass());
        int node = ref(shapes.get("chain"));
        for (int i = 0; i < CHAIN; i++) {
            assertEquals("HeapShapes$Node", heap.className(node));
            Map<String, Object> values = fields(node);
            assertEquals(i, values.get("value"));
            int next = ref(values.get("next"));
            assertEquals(next == 0 ? 1 : 2, heap.refCount(node), "its class, and the next node if any");
            node = next;
        }
        assertEquals(0, node, "the chain ends");
        int first = ref(shapes.get("cycle"));
        int at = first;
        for (int value : new int[] {1001, 1002, 1003}) {
            assertEquals(value, fields(at).get("value"));
            at = ref(fields(at).get("next"));
        }
        assertEquals(first, at, "the cycle closes");
    }

    @Test
    void fieldsOfEveryPrimitiveTypeAndInheritedFieldsHaveTheirValues() throws Exception {
        Map<String, Object> prims = fields(only("HeapShapes$Prims"));
        assertEquals(List.of("z", "b", "c", "s", "i", "j", "f", "d"), new ArrayList<>(prims.keySet()));
        assertEquals(List.of(true, (byte) -5, 'q', (short) -300, 123456789, 0x1122334455667788L, 1.5f, -2.25),
                new ArrayList<>(prims.values()));
        int derived = only("HeapShapes$Derived");
        Map<String, Object> values = fields(derived);
        assertEquals(List.of("baseLong", "baseRef", "derivedInt", "derivedRef"), new ArrayList<>(values.keySet()));
        assertEquals(-1L, values.get("baseLong"));
        assertEquals("java.lang.String", heap.className(ref(values.get("baseRef"))));
        assertEquals(0x7F00FF01, values.get("derivedInt"));
        assertEquals(derived, ref(values.get("derivedRef")), "a reference to itself");
        int empty = only("HeapShapes$Empty");
        assertEquals(List.of(), heap.fieldValues(empty));
        assertEquals(1, heap.refCount(empty), "its class only");
    }

    @Test
    void staticFieldsOfAClassAndItsInterface() throws Exception {
        Map<String, Object> statics = statics(heap.classObjects("HeapShapes$Statics").get(0));
        assertEquals(0x0102030405060708L, statics.get("sLong"));
        assertEquals(-42, statics.get("sInt"));
        assertEquals(3.5, statics.get("sDouble"));
        assertEquals(true, statics.get("sBool"));
        assertEquals((short) -7, statics.get("sShort"));
        assertArrayEquals(new int[] {4, 5, 6}, (int[]) heap.arrayValues(ref(statics.get("sRef"))));
        assertEquals(Map.of("MARK", 3), statics(heap.classObjects("HeapShapes$Marked").get(0)));
    }

    @Test
    void arraysOfEveryElementKindHoldTheirContents() throws Exception {
        int[] arrays = (int[]) heap.arrayValues(ref(statics(shapesClass()).get("arrays")));
        assertEquals(10, arrays.length);
        assertArrayEquals(new boolean[] {true, false, true}, (boolean[]) heap.arrayValues(arrays[0]));
        assertArrayEquals(new byte[] {1, -2, 127}, (byte[]) heap.arrayValues(arrays[1]));
        assertArrayEquals(new char[] {'a', 'b', '\u20ac'}, (char[]) heap.arrayValues(arrays[2]));
        assertArrayEquals(new short[] {-1, 2, 32767}, (short[]) heap.arrayValues(arrays[3]));
        assertArrayEquals(new int[] {Integer.MIN_VALUE, 0, Integer.MAX_VALUE}, (int[]) heap.arrayValues(arrays[4]));
        assertArrayEquals(new long[] {Long.MIN_VALUE, 1L, Long.MAX_VALUE}, (long[]) heap.arrayValues(arrays[5]));
        assertArrayEquals(new float[] {1.25f, -0.5f, Float.NaN}, (float[]) heap.arrayValues(arrays[6]));
        assertArrayEquals(new double[] {Math.PI, -0.0, Double.MAX_VALUE}, (double[]) heap.arrayValues(arrays[7]));
        int[] objects = (int[]) heap.arrayValues(arrays[8]);
        assertEquals("java.lang.Object[]", heap.className(arrays[8]));
        assertEquals(ref(statics(shapesClass()).get("chain")), objects[0]);
        assertEquals(0, objects[1]);
        assertEquals("java.lang.String", heap.className(objects[2]));
        assertArrayEquals(new int[0], (int[]) heap.arrayValues(arrays[9]));
        int none = ref(statics(shapesClass()).get("noObjects"));
        assertArrayEquals(new int[0], (int[]) heap.arrayValues(none));
        assertEquals(1, heap.refCount(none), "its class only");
    }

    @Test
    void objectsHeldOnlyByAStackOrAJniGlobalAreRootsOfThatKind() throws Exception {
        Map<Integer, List<String>> roots = new HashMap<>();
        Map<Integer, Integer> threads = new HashMap<>();
        for (HeapDump.Root root : heap.roots()) {
            roots.computeIfAbsent(root.object(), k -> new ArrayList<>()).add(root.kind());
            threads.put(root.object(), root.threadNumber());
        }
        int stackOnly = only("HeapShapes$StackOnly");
        assertEquals(List.of("STACK_LOCAL"), roots.get(stackOnly));
        assertTrue(threads.get(stackOnly) > 0, "the thread's number");
        assertEquals(List.of(), referrers(stackOnly));
        int jniOnly = only("HeapShapes$JniOnly");
        assertEquals(List.of("JNI_GLOBAL"), roots.get(jniOnly));
        assertEquals(List.of(), referrers(jniOnly));
        assertEquals(77, fields(jniOnly).get("mark"));
        assertTrue(roots.values().stream().anyMatch(kinds -> kinds.contains("THREAD")));
        assertTrue(roots.values().stream().anyMatch(kinds -> kinds.contains("SYSTEM_CLASS")));
    }

    @Test
    void corvaneHeapFindsTheClassesAndThePathsFromTheRoots() throws Exception {
        String file = dir.resolve("shapes.snapshot").toString();
        String compact = ToolRun.of("heap", "--json", "--classes", "100000", "--biggest", "0", "--path-to-roots",
                "HeapShapes$JniOnly", file).ok().replaceAll("\\s", "");
        assertTrue(compact.contains("{\"class\":\"HeapShapes$Node\",\"instances\":" + (CHAIN + 3) + ","), compact);
        assertTrue(compact.contains("\"path\":[{\"object\":" + only("HeapShapes$JniOnly")
                + ",\"description\":\"HeapShapes$JniOnly@" + only("HeapShapes$JniOnly") + "\",\"gcRoot\":[\"JNI_GLOBAL\"]}]"),
                compact);
        String derived = ToolRun.of("heap", "--json", "--classes", "0", "--biggest", "0", "--path-to-roots",
                "HeapShapes$Derived", file).ok();
        assertTrue(derived.replaceAll("\\s", "").endsWith("\"reference\":\".derived(static)\"}]}}"), derived);
    }

    @Test
    void aClassDefinedByItsOwnLoaderHoldsThatLoader() throws Exception {
        List<Integer> loadables = heap.classObjects("HeapShapes$Loadable");
        assertEquals(1, loadables.size(), "defined only by the test's loader");
        int loadable = loadables.get(0);
        int loader = heap.classLoader(loadable);
        assertEquals("HeapShapes$ShapeLoader", heap.className(loader));
        assertEquals(loadable, ref(statics(shapesClass()).get("loaded")));
        assertArrayEquals(new int[] {9, 8, 7}, (int[]) heap.arrayValues(ref(statics(loadable).get("held"))));
        int app = heap.classLoader(shapesClass());
        assertEquals(app, heap.classLoader(heap.classObjects("HeapShapes$ShapeLoader").get(0)));
        assertNotEquals(0, app, "the application's loader");
        assertEquals(0, heap.classLoader(heap.classObjects("java.lang.String").get(0)), "the bootstrap loader");
    }
}
