package com.corvane.heap;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.ThreadRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

/**
 * The same heap and checks with allocation recording on for every object:
 * the recorded objects carry in the file the thread that made them, the
 * frame of the allocating method and the time.
 */
class RecordedMemorySnapshotTest extends MemorySnapshotTest {
    @Override
    String options() {
        return ",alloceach=1";
    }

    @Test
    void recordedObjectsCarryTheirThreadFrameAndTime() {
        int main = 0;
        for (Table.Entry<ThreadRow> thread : snapshot.tables().threads.liveEntries()) {
            if ("main".equals(snapshot.string(thread.row().name()))) {
                main = thread.row().trn();
            }
        }
        assertTrue(main > 0, "the main thread's number");
        for (int node : heap.instancesOf("HeapShapes$Node")) {
            HeapDump.Allocation allocation = heap.allocation(node);
            assertNotNull(allocation, "node " + node);
            assertEquals(main, allocation.threadNumber());
            assertTrue(allocation.timeMs() > 0);
            assertEquals(List.of("HeapShapes$Node.<<init>>", "HeapShapes.main"), stack(allocation.frame(), 2));
        }
        int stackOnly = only("HeapShapes$StackOnly");
        HeapDump.Allocation allocation = heap.allocation(stackOnly);
        assertNotNull(allocation);
        assertTrue(allocation.threadNumber() != main, "made by its own thread");
    }

    /** The methods of the frame and its callers, the frame's own first, at most `depth`; own-line frames left out. */
    List<String> stack(int frame, int depth) {
        List<String> methods = new ArrayList<>();
        for (FrameRow row = snapshot.tables().frames.get(frame); row != null && methods.size() < depth;
                row = snapshot.tables().frames.get(row.parent())) {
            String method = method(row.codePoint());
            if (!method.contains(Snapshot.OWN_LINE_METHOD_NAME)) {
                methods.add(method);
            }
        }
        return methods;
    }

    String method(int codePoint) {
        String name = snapshot.methodName(snapshot.methodOfCodePoint(codePoint));
        int parameters = name.indexOf('(');
        return parameters < 0 ? name : name.substring(0, parameters);
    }
}
