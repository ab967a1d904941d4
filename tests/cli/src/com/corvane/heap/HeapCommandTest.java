package com.corvane.heap;

import static com.corvane.testing.JsonParser.list;
import static com.corvane.testing.JsonParser.map;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Tables;
import com.corvane.testing.JsonParser;
import com.corvane.testing.SnapshotFileWriter;
import com.corvane.testing.ToolRun;
import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * `corvane heap` on a memory snapshot of known shape, written here as the
 * agent writes one. The library computes the dominators, so the tests need
 * libcorvane.so beside corvane.jar.
 *
 * <pre>
 * class Main (a GC root): static tree -> Tree@10, static cache -> Node[]@20
 * Tree@10 (fields of Base: name; its own: root, size): name -> byte[]@11, root -> Node@12
 * Node@12 -> 13 -> 14 -> 15 -> 16 (field next)
 * Node[]@20: [Node@17, Node@18, Node@15]; Node@17 and Node@18 -> Node@19
 * Node@21 -> Node@22: garbage
 * </pre>
 */
@Tag("agent")
class HeapCommandTest {
    private static final int CLASS_SIZE = 100;
    private static final int NODE_SIZE = 24;
    private static final int TREE_SIZE = 32;
    private static final int BYTES_SIZE = 40;
    private static final int ARRAY_SIZE = 56;
    private static final int OBJECT = 1, MAIN = 2, NODE = 3, TREE = 4, BASE = 5, NODE_ARRAY = 6;

    @TempDir
    Path myFolder;

    /** The heap segment, entry by entry. */
    static final class Segment {
        final ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        final DataOutputStream out = new DataOutputStream(bytes);

        void info(long size) throws IOException {
            out.writeByte(4);
            out.writeInt((int) size);
        }

        /** statics and fields: {name id, type, value} from first to last; written last to first. */
        void classDump(int id, int superId, int[][] statics, int[][] fields) throws IOException {
            out.writeByte(0x20);
            info(CLASS_SIZE);
            out.writeInt(id);
            out.writeInt(0);
            out.writeInt(superId);
            for (int k = 0; k < 5; k++) {
                out.writeInt(0);  // class loader, signers, protection domain, reserved
            }
            out.writeInt(16);
            out.writeShort(0);
            out.writeShort(statics.length);
            for (int k = statics.length - 1; k >= 0; k--) {
                out.writeInt(statics[k][0]);
                out.writeByte(statics[k][1]);
                out.writeInt(statics[k][2]);  // references and ints: 4 bytes
            }
            out.writeShort(fields.length);
            for (int k = fields.length - 1; k >= 0; k--) {
                out.writeInt(fields[k][0]);
                out.writeByte(fields[k][1]);
                out.writeInt(0);
            }
        }

        /** An instance whose field values are the words given, 4 bytes each. */
        void instance(int id, int classId, long size, int... words) throws IOException {
            out.writeByte(0x21);
            info(size);
            out.writeInt(id);
            out.writeInt(0);
            out.writeInt(classId);
            out.writeInt(4 * words.length);
            for (int word : words) {
                out.writeInt(word);
            }
        }

        void node(int id, int next) throws IOException {
            instance(id, NODE, NODE_SIZE, next, id * 10);  // next, value
        }

        void root(int object, int kind) throws IOException {
            out.writeByte(0xFF);
            out.writeInt(object);
            out.writeInt(kind);
            out.writeInt(0);
            out.writeInt(0);
            out.writeInt(0);
            out.writeInt(0);
        }
    }

    private Path writeSnapshot() throws IOException {
        SnapshotFileWriter w = new SnapshotFileWriter();
        w.header.put("snapshot_flags", Integer.toString(0x200 | 0x8000 | 1));
        w.header.put("oid_count", String.format("%032d", 22));
        w.row(Tables.STRING, 1, 1, "JVMTI_HEAP_ROOT_SYSTEM_CLASS");
        w.row(Tables.STRING, 2, 1, "JVMTI_HEAP_ROOT_JNI_GLOBAL");
        String[] names = {null, "java.lang.Object", "com.acme.Main", "com.acme.Node", "com.acme.Tree", "com.acme.Base",
            "[Lcom.acme.Node;", "tree", "cache", "next", "value", "name", "root", "size"};
        for (int id = 1; id < names.length; id++) {
            w.heapStrings.put(100 + id, names[id]);
        }
        for (int id = OBJECT; id <= NODE_ARRAY; id++) {
            w.heapClasses.add(new int[] {id, id, 100 + id});
        }
        Segment s = new Segment();
        int ref = 2, typeInt = 10, typeLong = 11;
        s.classDump(OBJECT, 0, new int[0][], new int[0][]);
        s.classDump(MAIN, OBJECT, new int[][] {{107, ref, 10}, {108, ref, 20}}, new int[0][]);
        s.classDump(NODE, OBJECT, new int[0][], new int[][] {{109, ref, 0}, {110, typeInt, 0}});
        // Tree lists only its own fields: the block holds Base's first.
        s.classDump(TREE, BASE, new int[0][], new int[][] {{112, ref, 0}, {113, typeLong, 0}});
        s.classDump(BASE, OBJECT, new int[0][], new int[][] {{111, ref, 0}});
        s.classDump(NODE_ARRAY, OBJECT, new int[0][], new int[0][]);
        s.instance(10, TREE, TREE_SIZE, 11, 12, 0, 5);  // name, root, size (a long)
        // byte[]@11
        s.out.writeByte(0x23);
        s.info(BYTES_SIZE);
        s.out.writeInt(11);
        s.out.writeInt(0);
        s.out.writeInt(10);
        s.out.writeByte(8);
        s.out.write(new byte[10]);
        for (int id = 12; id <= 16; id++) {
            s.node(id, id < 16 ? id + 1 : 0);
        }
        s.node(17, 19);
        s.node(18, 19);
        s.node(19, 0);
        // Node[]@20
        s.out.writeByte(0x22);
        s.info(ARRAY_SIZE);
        s.out.writeInt(20);
        s.out.writeInt(0);
        s.out.writeInt(4);
        s.out.writeInt(NODE_ARRAY);
        for (int element : new int[] {17, 18, 0, 15}) {
            s.out.writeInt(element);
        }
        s.node(21, 22);
        s.node(22, 0);
        for (int id = OBJECT; id <= NODE_ARRAY; id++) {
            s.root(id, 1);
        }
        s.root(MAIN, 2);
        w.heapSegments.add(s.bytes.toByteArray());
        return w.writeTo(myFolder.resolve("shape.snapshot"));
    }

    @Test
    void retainedSizesAreTheSumsOfTheShape() throws IOException {
        Path snapshot = writeSnapshot();
        ToolRun result = ToolRun.of("heap", "--json", "--biggest", "3", "--path-to-roots", "16", snapshot.toString());
        assertEquals(0, result.code(), result.err());
        Map<String, Object> report = map(JsonParser.parse(result.out()));
        assertEquals(22L, ((Number) report.get("objects")).longValue());
        assertEquals(6L, ((Number) report.get("gcRoots")).longValue(), "six classes, Main twice");

        int nodes = 8;
        long tree = TREE_SIZE + BYTES_SIZE + 3 * NODE_SIZE;  // 15 and 16 are reached from the array too
        long array = ARRAY_SIZE + 3L * NODE_SIZE;     // 17, 18, 19
        long main = CLASS_SIZE + tree + array + 2 * NODE_SIZE;
        assertEquals(6L * CLASS_SIZE + TREE_SIZE + BYTES_SIZE + nodes * NODE_SIZE + ARRAY_SIZE,
                ((Number) report.get("reachableSize")).longValue());
        assertEquals(17L, ((Number) report.get("reachableObjects")).longValue());

        Map<String, long[]> classes = new HashMap<>();
        for (Object row : list(report.get("classes"))) {
            Map<String, Object> r = map(row);
            classes.put((String) r.get("class"), new long[] {((Number) r.get("instances")).longValue(),
                ((Number) r.get("shallowSize")).longValue(), ((Number) r.get("retainedSize")).longValue()});
        }
        assertEquals(List.of(nodes, (long) nodes * NODE_SIZE, (long) nodes * NODE_SIZE),
                List.of((int) classes.get("com.acme.Node")[0], classes.get("com.acme.Node")[1],
                        classes.get("com.acme.Node")[2]));
        assertEquals(tree, classes.get("com.acme.Tree")[2]);
        assertEquals(array, classes.get("com.acme.Node[]")[2]);
        assertEquals(BYTES_SIZE, classes.get("byte[]")[2]);
        assertEquals(6, classes.get("java.lang.Class")[0]);
        assertEquals(main + 5L * CLASS_SIZE, classes.get("java.lang.Class")[2]);

        List<Object> biggest = list(report.get("biggestObjects"));
        Map<String, Object> first = map(biggest.get(0));
        assertEquals("class com.acme.Main@2", first.get("description"));
        assertEquals(main, ((Number) first.get("retainedSize")).longValue());
        Map<String, Object> second = map(biggest.get(1));
        assertEquals("com.acme.Tree@10", second.get("description"));
        assertEquals(tree, ((Number) second.get("retainedSize")).longValue());
        assertEquals(List.of(2L), list(second.get("dominators")).stream().map(d -> map(d).get("object")).toList());
        assertEquals(array, map(biggest.get(2)).get("retainedSize"));

        List<String> steps = list(map(report.get("pathToRoots")).get("path")).stream().map(step -> {
            Map<String, Object> s = map(step);
            return s.getOrDefault("reference", "") + " " + s.get("description");
        }).toList();
        assertEquals(List.of(" class com.acme.Main@2", ".cache (static) com.acme.Node[]@20",
                "[3] com.acme.Node@15", ".next com.acme.Node@16"), steps);
    }

    @Test
    void textReportAndPathByClass() throws IOException {
        Path snapshot = writeSnapshot();
        ToolRun result = ToolRun.of("heap", "--classes", "3", "--biggest", "1", "--path-to-roots", "com.acme.Tree",
                snapshot.toString());
        assertEquals(0, result.code(), result.err());
        String out = result.out();
        assertTrue(out.startsWith("Heap of shape.snapshot: 22 objects, "), out);
        assertTrue(out.contains("Classes by retained size:"), out);
        assertTrue(out.contains("  class com.acme.Main@2 (GC root: SYSTEM_CLASS, JNI_GLOBAL): retained 420, shallow 100"),
                out);
        assertTrue(out.contains("Shortest path from the GC roots to com.acme.Tree@10:\n"
                + "  class com.acme.Main@2 (GC root: SYSTEM_CLASS, JNI_GLOBAL)\n"
                + "    .tree (static) -> com.acme.Tree@10\n"), out);
        ToolRun tree = ToolRun.of("heap", "--path-to-roots", "11", "--biggest", "0", "--classes", "0", snapshot.toString());
        assertTrue(tree.out().contains("    .name -> byte[]@11"), tree.out());
        ToolRun garbage = ToolRun.of("heap", "--path-to-roots", "22", "--biggest", "0", "--classes", "0",
                snapshot.toString());
        assertTrue(garbage.out().contains("No GC root reaches com.acme.Node@22."), garbage.out());

        assertEquals("corvane: --path-to-roots: the heap has no instance of com.acme.Missing\n",
                ToolRun.of("heap", "--path-to-roots", "com.acme.Missing", snapshot.toString()).err());
        assertEquals("corvane: --path-to-roots: there is no object 99 (objects are numbered 1 to 22)\n",
                ToolRun.of("heap", "--path-to-roots", "99", snapshot.toString()).err());
    }
}
