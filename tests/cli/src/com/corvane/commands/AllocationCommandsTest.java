package com.corvane.commands;

import static com.corvane.testing.JsonParser.list;
import static com.corvane.testing.JsonParser.map;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.JsonParser;
import com.corvane.testing.ProfileBuilder;
import com.corvane.testing.ToolRun;
import java.nio.file.Path;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What report and flamegraph make of allocation recording and call counting. */
class AllocationCommandsTest {
    @TempDir
    Path dir;

    static String corvane(String... args) {
        return ToolRun.of(args).ok();
    }

    // Two threads make p.Small at p.Work.make():7 below p.Main.main(); one makes int[] in p.Work.fill().
    // Objects counted at two points; calls counted for two methods.
    Path snapshot() {
        ProfileBuilder b = new ProfileBuilder();
        b.allocationMode(2);
        int main = b.method("p.Main", "main", "()");
        int make = b.method("p.Work", "make", "()");
        int fill = b.method("p.Work", "fill", "()");
        int small = b.classMethod("p.Small");
        int ints = b.classMethod("int[]");
        int makeFrame = b.frame(b.frame(0, main, 0), make, 3);
        int smallFrame = b.frame(b.frame(makeFrame, b.ownLineMethod(), 7), small, 0);
        int intsFrame = b.frame(b.frame(b.frame(0, main, 0), fill, 4), ints, 0);
        int first = b.thread("first", 11, false);
        int second = b.thread("second", 12, false);
        b.allocation(first, smallFrame, 30, 480, 900);
        b.allocation(second, smallFrame, 10, 160, 0);
        b.allocation(second, intsFrame, 50, 3200, 0);
        b.counted(make, 7, "p.Small", 400);
        b.counted(fill, 0, "int[]", 600);
        b.calls(make, 40);
        b.calls(fill, 5);
        return b.write(dir.resolve("a.snapshot"));
    }

    @Test
    void theReportShowsHotSpotsByClassSiteAndThreadAndTheCallCounts() {
        Map<String, Object> json = map(JsonParser.parse(corvane("report", "--json", snapshot().toString())));
        Map<String, Object> recorded = map(map(json.get("allocations")).get("recorded"));
        assertEquals(90L, recorded.get("objects"));
        assertEquals(3840L, recorded.get("bytes"));
        assertEquals(900L, recorded.get("summedAgeOfCollectedMs"));
        assertEquals(Map.of("name", "int[]", "objects", 50L, "objectsPercent", 55.56, "bytes", 3200L, "bytesPercent",
                83.33), list(recorded.get("classesBySize")).get(0));
        assertEquals("p.Small", map(list(recorded.get("classesByCount")).get(1)).get("name"));
        assertEquals("p.Work.make():7", map(list(recorded.get("sitesByCount")).get(1)).get("name"));
        assertEquals("p.Work.fill()", map(list(recorded.get("sitesBySize")).get(0)).get("name"));
        Map<String, Object> second = map(list(recorded.get("threads")).get(0));
        assertEquals("second", second.get("name"));
        assertEquals(60L, second.get("objects"));
        Map<String, Object> counted = map(map(json.get("allocations")).get("counted"));
        assertEquals(1000L, counted.get("objects"));
        assertEquals("p.Work.make():7", map(list(counted.get("sites")).get(1)).get("name"));
        Map<String, Object> calls = map(json.get("callCounts"));
        assertEquals(45L, calls.get("totalCalls"));
        assertEquals(Map.of("method", "p.Work.make()", "calls", 40L, "percent", 88.89), list(calls.get("methods")).get(0));

        String text = corvane("report", snapshot().toString());
        assertTrue(text.contains("Allocations recorded: 90 objects, 3,840 bytes; collected ones lived 900 ms in all"),
                text);
        assertTrue(text.contains("Allocation hot spots by count, per site: 2 of 2;"), text);
        assertTrue(text.contains("Allocations counted: 1,000 objects"), text);
        assertTrue(text.contains("Call counts: 2 of 2 methods; 100% = 45 calls counted"), text);
    }

    @Test
    void theAllocationFlameGraphIsInBytesWithTheClassesOnTop() {
        String folded = corvane("flamegraph", "--allocations", "--format", "collapsed", snapshot().toString());
        assertEquals(List.of("p.Main.main();p.Work.fill();int[] 3200", "p.Main.main();p.Work.make();p.Small 640"),
                List.of(folded.trim().split("\n")).stream().sorted().toList());
        String html = corvane("flamegraph", "--allocations", "-o", "-", snapshot().toString());
        assertTrue(html.contains("\"unit\":\"bytes\""), "the page shows bytes");
        assertTrue(html.contains("Allocation flame graph"));
    }
}
