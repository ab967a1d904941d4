package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.snapshot.Rows.CpuRow;
import com.corvane.snapshot.Rows.FrameRow;
import com.corvane.snapshot.Rows.MethodRow;
import com.corvane.snapshot.Rows.ThreadFrameRow;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.Table;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import java.io.IOException;
import java.lang.invoke.MethodType;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import java.util.zip.ZipEntry;
import java.util.zip.ZipInputStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The compiler of the JDK under -Xverify:all, with a probe on every method of
 * com.sun.tools.javac and tracing of the same methods at once: every
 * rewritten class verifies, the probe's callbacks come exactly as often as
 * tracing counts the calls, and the compiler writes the same class files as
 * without the agent.
 */
class JavacUnderProbeTest {
    static final String SOURCES = "java.base/java/util/concurrent/atomic/";

    static List<Path> unpackSources(Path dir) throws IOException {
        Path zip = Paths.get(System.getProperty("corvane.java")).getParent().getParent().resolve("lib/src.zip");
        assertTrue(Files.exists(zip), zip + " is missing: install the Debian package openjdk-17-source");
        List<Path> files = new ArrayList<>();
        try (ZipInputStream in = new ZipInputStream(Files.newInputStream(zip))) {
            for (ZipEntry entry; (entry = in.getNextEntry()) != null; ) {
                if (!entry.getName().startsWith(SOURCES) || !entry.getName().endsWith(".java")) {
                    continue;
                }
                Path file = dir.resolve("src").resolve(entry.getName());
                Files.createDirectories(file.getParent());
                Files.copy(in, file);
                files.add(file);
            }
        }
        return files;
    }

    static List<String> javacArguments(Path dir, Path out, List<Path> files) {
        List<String> arguments = new ArrayList<>(List.of("-m", "jdk.compiler/com.sun.tools.javac.Main",
                "--patch-module", "java.base=" + dir.resolve("src/java.base"), "-nowarn", "-XDignore.symbol.file",
                "-implicit:none", "-proc:none", "-d", out.toString()));
        files.forEach(f -> arguments.add(f.toString()));
        return arguments;
    }

    static Map<String, byte[]> classFiles(Path out) throws IOException {
        Map<String, byte[]> result = new TreeMap<>();
        try (Stream<Path> files = Files.walk(out)) {
            for (Path file : files.filter(Files::isRegularFile).collect(Collectors.toList())) {
                result.put(out.relativize(file).toString(), Files.readAllBytes(file));
            }
        }
        return result;
    }

    /** "(parameters) return" of a method descriptor, in the method table's words ("[I" is "int[]"). */
    static String readable(String descriptor) {
        MethodType type = MethodType.fromMethodDescriptorString(descriptor, ClassLoader.getSystemClassLoader());
        return type.parameterList().stream().map(Class::getTypeName).collect(Collectors.joining(", ", "(", ") "))
                + type.returnType().getTypeName();
    }

    /** Calls by "class method (parameters) return", of the compiler's methods, from the tracing of all threads. */
    static Map<String, Long> tracedCalls(Snapshot snapshot) {
        Map<String, Long> calls = new TreeMap<>();
        for (Table.Entry<ThreadFrameRow> link : snapshot.tables().threadFrames.liveEntries()) {
            CpuRow cpu = snapshot.tables().cpuProfiling.get(link.index());
            if (cpu == null) {
                continue;
            }
            FrameRow frame = snapshot.tables().frames.get(link.row().frame());
            MethodRow method = snapshot.tables().methods.get(snapshot.methodOfCodePoint(frame.codePoint()));
            String className = snapshot.string(method.className());
            if (className.startsWith("com.sun.tools.javac.")) {
                calls.merge(className + " " + snapshot.string(method.name()) + " " + snapshot.string(method.parameters())
                        + " " + snapshot.string(method.returnType()), cpu.invocations(), Long::sum);
            }
        }
        return calls;
    }

    @Test
    void everyCompilerMethodUnderAProbeAndTracing(@TempDir Path dir) throws Exception {
        List<Path> files = unpackSources(dir);
        assertTrue(files.size() > 10, "sources: " + files.size());
        Path plain = dir.resolve("out-plain");
        ProbeBuild.run(dir, Stream.concat(Stream.of(System.getProperty("corvane.java")),
                javacArguments(dir, plain, files).stream()).collect(Collectors.toList()));

        Path jar = ProbeBuild.probeJar(dir, "javac");
        Path calls = dir.resolve("calls.txt");
        Path settings = Files.writeString(dir.resolve("tracing.txt"), "walltime=*\nadaptive=false\n");
        Path probed = dir.resolve("out-probed");
        // Tracing too for the compiler's methods alone, or the call tree of
        // the whole JDK makes a snapshot of more than a gigabyte.
        Files.writeString(Files.createDirectories(dir.resolve("home/.kzt")).resolve("bci_filter.txt"),
                "*\n+com.sun.tools.javac.*\n");
        List<String> program = new ArrayList<>(List.of("-Xverify:all", "-Djavac.calls=" + calls));
        program.addAll(javacArguments(dir, probed, files));
        Snapshotted jvm = AgentJvm.atExit(dir, "tracing,_instrument_all_methods,tracing_settings_path=" + settings
                + ",probeclasspath=" + jar + ",probe_on=javac.JavacCalls", "", program.toArray(new String[0]));
        AgentJvm.Run run = jvm.run();
        for (String failure : List.of("exception caught", "the previous exception happened", "not instrumented by probe",
                "bytecode too long", "no 'super' or 'this' call")) {
            assertTrue(!run.log().contains(failure), failure + " in the log:\n" + run.log());
        }

        // The same class files.
        Map<String, byte[]> expected = classFiles(plain);
        Map<String, byte[]> actual = classFiles(probed);
        assertEquals(expected.keySet(), actual.keySet());
        for (String name : expected.keySet()) {
            assertArrayEquals(expected.get(name), actual.get(name), name);
        }

        // Every method the probe saw, as often as tracing saw it. Bridge
        // methods are no probe's targets; tracing counts them apart.
        Map<String, Long> probeCalls = new TreeMap<>();
        for (String line : Files.readAllLines(calls)) {
            String[] fields = line.split("\t");
            probeCalls.put(fields[0] + " " + fields[1] + " " + readable(fields[2]), Long.parseLong(fields[3]));
        }
        Map<String, Long> traced = tracedCalls(jvm.snapshot());
        Map<String, Long> differences = new TreeMap<>();
        long total = 0;
        for (Map.Entry<String, Long> entry : probeCalls.entrySet()) {
            total += entry.getValue();
            Long count = traced.get(entry.getKey());
            if (!entry.getValue().equals(count)) {
                differences.put(entry.getKey(), count == null ? -1 : count);
            }
        }
        assertEquals(Map.of(), differences, "probe counts differ from tracing's");
        assertTrue(probeCalls.size() > 3000, "methods: " + probeCalls.size());
        System.out.printf("javac: %d classes, %d compiler methods seen by the probe, %d calls, as traced%n",
                actual.size(), probeCalls.size(), total);
    }
}
