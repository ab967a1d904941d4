package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.AgentJvm;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The registry driven through the natives in a running JVM (RegistryApp): what
 * each step answers, what the probe then counted, and exactly which classes
 * each step handed back to the JVM.
 */
class RegistryTest {
    static int count(String text, String literal) {
        Matcher m = Pattern.compile(Pattern.quote(literal)).matcher(text);
        int n = 0;
        while (m.find()) n++;
        return n;
    }

    @Test
    void registeringSwitchingAndRemovingRetransformExactlyTheClassesConcerned(@TempDir Path dir) throws Exception {
        Path jar = ProbeBuild.probeJar(dir, "registry");
        Path probe = dir.resolve("registry-classes/registry/CountProbe.class");
        // Without the built-in probes, whose classes the starts and stops of profiling would hand back too;
        // AgentLoadingSupport stays on whatever the options say.
        AgentJvm.Run run = AgentJvm.run(dir, "quiet,probe_disable=com.corvane.probes.builtin.*", System.getProperty("corvane.probes.classes"),
                "RegistryApp",
                probe.toString(), jar.toString());
        assertEquals(0, run.exitCode(), run.out() + run.log());
        assertEquals(String.join("\n",
                "start: null | probe -1",
                "register: null | probe 100",
                "again: Error: probe class registry.CountProbe: probe class with such name has already been registered"
                        + " | probe 200",
                "garbage: Error: invalid class file | probe 300",
                "on: [com.corvane.probes.builtin.AgentLoadingSupport, registry.CountProbe] | probe 400",
                "off: null | probe 400",
                "isOn: false | probe 400",
                "offAgain: null | probe 400",
                "badMode: unsupported probeActivityMode: 3 | probe 400",
                "onAgain: null | probe 500",
                "unregister: null | probe 500",
                "offList: [com.corvane.probes.builtin.AgentLoadingSupport] | probe 500",
                "missing: Error: probe class registry.Missing: class not found | probe 500",
                "byName: null | probe 600",
                "auto: null | probe 600",
                "sampling: null | probe 700",
                "stopped: null | probe 700", ""), run.out());
        String log = run.log();
        // Registering twice and removing once touch the one target class, and no other.
        assertEquals(3, count(log, "Classes to retransform: 1\n"), log);
        assertEquals(3, count(log, "ProbedApp <<< registry.CountProbe\n"), log);
        assertEquals(0, count(log, "Classes to retransform: 0\n") - count(log, "(loaded before agent attached)"), log);
        // Switching the mode hands back the probe class itself: off, on, auto, and the starts and stop of
        // CPU profiling for auto; the same mode again nothing.
        assertEquals(5, count(log, "Probe classes to retransform: 1\n"), log);
        assertEquals(5, count(log, "Probe classes retransform completed\n"), log);
        assertEquals(1, count(log, "Changing probe activity modes: nothing has changed: registry.CountProbe\n"), log);
        assertTrue(log.contains("Unregistered probe classes: 1\n  Unregistered: registry.CountProbe\n"), log);
        assertEquals(0, count(log, "retransform failed"), log);
    }
}
