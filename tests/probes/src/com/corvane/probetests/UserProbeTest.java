package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.testing.AgentJvm;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * Probes as a user gives them to the agent: classes compiled against
 * corvane-probes.jar, packed in a JAR on the probe class path, switched on by
 * option, against ProbedApp (tests/probes/java).
 */
class UserProbeTest {
    /** ProbedApp with the probes of folder `probes`: `options` with "%s" for their JAR. It must end well. */
    static AgentJvm.Run runApp(Path dir, String probes, String options) throws Exception {
        Path jar = ProbeBuild.probeJar(dir, probes);
        AgentJvm.Run run = AgentJvm.run(dir, String.format(options, jar), System.getProperty("corvane.probes.classes"),
                "ProbedApp");
        assertEquals(0, run.exitCode(), run.out());
        return run;
    }

    static String group(String text, String regex) {
        Matcher m = Pattern.compile(regex).matcher(text);
        assertTrue(m.find(), regex + " in:\n" + text);
        return m.group(1);
    }

    @Test
    void aProbeFromTheProbeClassPathSeesEveryCall(@TempDir Path dir) throws Exception {
        AgentJvm.Run run = runApp(dir, "counting", "probeclasspath=%s,probe_on=counting.WorkProbe");
        String sum = group(run.out(), "work 2500 calls, sum (\\d+)");
        assertTrue(run.out().contains("probe: 2500 calls, sum " + sum + "\n"), run.out());
        assertTrue(run.log().contains("\n  Registered: counting.WorkProbe\n"), run.log());
    }

    @Test
    void aBrokenProbeIsReportedAndTheApplicationRunsUnprobed(@TempDir Path dir) throws Exception {
        AgentJvm.Run run = runApp(dir, "broken", "probeclasspath=%s,probe_on=broken.BrokenProbe");
        String[] errors = {
            "Error: probe class broken.BrokenProbe, method onEnter: callback must be public static",
            "Error: probe class broken.BrokenProbe, method onReturn, parameter #2: parameter must be annotated",
        };
        for (String error : errors) {
            assertTrue(run.out().contains(error + "\n"), "on the console: " + error + "\n" + run.out());
            assertTrue(run.log().contains(": " + error + "\n"), "in the log: " + error + "\n" + run.log());
        }
        assertTrue(run.out().contains("work 2500 calls, sum "), run.out());
        assertFalse(run.out().contains("probe:"), run.out());
        assertFalse(run.log().contains("Successfully registered probes"), run.log());
    }

    @Test
    void aProbeOnAClassOfTheJdkFromTheBootClassPath(@TempDir Path dir) throws Exception {
        AgentJvm.Run run = runApp(dir, "files", "probebootclasspath=%s,probe_on=files.FileReads");
        assertTrue(run.out().contains("read 10000 bytes in 10 reads\n"), run.out());
        // Ten full buffers and the read that finds the end.
        assertTrue(run.out().contains("probe: 11 reads, 10000 bytes\n"), run.out());
        // Loaded before the agent may touch it: the probe came by retransformation.
        assertTrue(run.log().contains("Retransform early class: java/io/FileInputStream"), run.log());
    }

    @Test
    void bothNativesValidateMethodPatterns(@TempDir Path dir) throws Exception {
        AgentJvm.Run run = AgentJvm.run(dir, "quiet", System.getProperty("corvane.probes.classes"), "PatternCheck");
        assertEquals(0, run.exitCode(), run.out());
        assertEquals("java.io.File:delete() | null | null\n"
                + "a.B:m(int long) | parameter pattern is invalid: int long | parameter pattern is invalid: int long\n"
                + "@x:run() | class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern> | "
                + "class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern>\n"
                + "nothing | invalid pattern syntax, must be <class>:<method>(<params>) | "
                + "invalid pattern syntax, must be <class>:<method>(<params>)\n"
                + "null | methodPattern is null | methodPattern is null\n", run.out());
    }
}
