package com.corvane.builtin;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.profile.HotSpot;
import com.corvane.profile.Profile;
import com.corvane.snapshot.Snapshot;
import com.corvane.snapshot.SnapshotReader;
import com.corvane.testing.AgentJvm;
import com.corvane.testing.AgentJvm.Snapshotted;
import com.corvane.testing.ToolRun;
import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;
import java.io.OutputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.jar.Attributes;
import java.util.jar.JarEntry;
import java.util.jar.JarOutputStream;
import java.util.jar.Manifest;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Module containers whose class loaders ask the boot loader only for the
 * packages on their own lists: an OSGi framework and JBoss Modules, both
 * from Debian. With the agent their classes are rewritten to call the
 * runtime; they must run as without the agent, and be traced, whether the
 * agent started with the JVM or was attached.
 */
class ContainerLoadingTest {
    static final String JAVA = "/usr/share/java/";

    @Test
    void anOsgiBundleRunsAndIsTraced(@TempDir Path dir) throws Exception {
        Map<String, Long> calls = tracedRun(dir, felixClassPath(), "FelixHost", bundle(dir).toString(),
                dir.resolve("storage").toString());
        assertEquals(1L, calls.get("bundled.BundleWork.start(org.osgi.framework.BundleContext)"), calls.toString());
        assertEquals(1L, calls.get("bundled.BundleWork.work(int)"), calls.toString());
    }

    @Test
    void anOsgiBundleInstalledAfterAnAttachRunsAndIsTraced(@TempDir Path dir) throws Exception {
        Path bundle = bundle(dir);
        Path snapshots = Files.createDirectories(dir.resolve("snapshots"));
        Path go = dir.resolve("go");
        ProcessBuilder builder = new ProcessBuilder(System.getProperty("corvane.java"), "-cp", felixClassPath(),
                "FelixHost", bundle.toString(), dir.resolve("storage").toString(), go.toString()).redirectErrorStream(true);
        builder.environment().put("CORVANE_HOME", dir.resolve("home").toString());
        Process host = builder.start();
        try (BufferedReader out = new BufferedReader(new InputStreamReader(host.getInputStream(), StandardCharsets.UTF_8))) {
            for (String line = out.readLine(); !"ready".equals(line); line = out.readLine()) {
                assertNotNull(line, "the host ends before it is ready");
            }
            ToolRun attach = ToolRun.of("attach", "--agent-options=tracing,onexit=snapshot,dir=" + snapshots,
                    Long.toString(host.pid()));
            assertEquals(0, attach.code(), attach.err());
            // Tracing starts once the loaded classes are rewritten, seconds after the attach.
            Path log = dir.resolve("home/.kzt/log/FelixHost-" + host.pid() + ".log");
            for (long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(120);
                    !Files.exists(log) || !Files.readString(log).contains("CPU tracing started"); Thread.sleep(50)) {
                assertTrue(System.nanoTime() < end, "tracing starts after the attach");
            }
            Files.createFile(go);
            String rest = out.lines().collect(Collectors.joining("\n"));
            assertTrue(host.waitFor(120, TimeUnit.SECONDS));
            assertEquals(0, host.exitValue(), rest);
            assertTrue(rest.contains("bundle work 4950"), rest);
        } finally {
            host.destroyForcibly();
        }
        Map<String, Long> calls = callsIn(SnapshotReader.read(AgentJvm.onlyFile(snapshots, "-shutdown.snapshot")));
        assertEquals(1L, calls.get("bundled.BundleWork.work(int)"), calls.toString());
    }

    @Test
    void aJBossModuleRunsAndIsTraced(@TempDir Path dir) throws Exception {
        Path module = Files.createDirectories(dir.resolve("modules/moduled/main"));
        jar(module.resolve("moduled.jar"), manifest(Map.of()), "moduled");
        Files.writeString(module.resolve("module.xml"), "<module xmlns=\"urn:jboss:module:1.9\" name=\"moduled\">\n"
                + "  <main-class name=\"moduled.ModuleWork\"/>\n"
                + "  <resources><resource-root path=\"moduled.jar\"/></resources>\n</module>\n");
        Map<String, Long> calls = tracedRun(dir, ".", "-jar",
                JAVA + "jboss-modules.jar", "-mp", dir.resolve("modules").toString(), "moduled");
        assertEquals(1L, calls.get("moduled.ModuleWork.main(java.lang.String[])"), calls.toString());
        assertEquals(1L, calls.get("moduled.ModuleWork.work(int)"), calls.toString());
    }

    /** Runs the program traced from the start; the calls of its methods, by name. */
    static Map<String, Long> tracedRun(Path dir, String classPath, String... program) throws Exception {
        Snapshotted jvm = AgentJvm.atExit(dir, "tracing", classPath, program);
        assertTrue(jvm.run().out().contains(" work 4950"), jvm.run().out());
        return callsIn(jvm.snapshot());
    }

    static Map<String, Long> callsIn(Snapshot snapshot) throws Exception {
        return Profile.build(snapshot).hotSpots().stream()
                .collect(Collectors.toMap(HotSpot::name, HotSpot::invocations, Long::sum));
    }

    static String felixClassPath() {
        return System.getProperty("corvane.builtin.classes") + ":" + JAVA + "org.apache.felix.framework.jar";
    }

    static Path bundle(Path dir) throws IOException {
        Manifest manifest = manifest(Map.of("Bundle-ManifestVersion", "2", "Bundle-SymbolicName", "bundled",
                "Bundle-Version", "1.0.0", "Bundle-Activator", "bundled.BundleWork", "Import-Package", "org.osgi.framework"));
        return jar(dir.resolve("bundle.jar"), manifest, "bundled");
    }

    static Manifest manifest(Map<String, String> attributes) {
        Manifest manifest = new Manifest();
        manifest.getMainAttributes().put(Attributes.Name.MANIFEST_VERSION, "1.0");
        attributes.forEach((key, value) -> manifest.getMainAttributes().putValue(key, value));
        return manifest;
    }

    /** A jar of the program classes in one package. */
    static Path jar(Path file, Manifest manifest, String packageName) throws IOException {
        Path classes = Path.of(System.getProperty("corvane.builtin.classes"), packageName);
        try (JarOutputStream out = new JarOutputStream(Files.newOutputStream(file), manifest);
             var files = Files.list(classes)) {
            for (Path found : files.collect(Collectors.toList())) {
                out.putNextEntry(new JarEntry(packageName + "/" + found.getFileName()));
                Files.copy(found, (OutputStream) out);
                out.closeEntry();
            }
        }
        return file;
    }
}
