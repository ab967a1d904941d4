package com.corvane.probetests;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/**
 * The example of the README's section on probes, taken from README.md and
 * run exactly as written: its Java block as the file the text names, its
 * shell blocks in a folder where `build` is the build folder.
 */
class ReadmeExampleTest {
    static List<String> blocks(String section, String language) {
        List<String> found = new ArrayList<>();
        Matcher m = Pattern.compile("```" + language + "\n(.*?)```", Pattern.DOTALL).matcher(section);
        while (m.find()) {
            found.add(m.group(1));
        }
        return found;
    }

    @Test
    void theProbeOfTheReadmeCompilesAndCountsTheDemosOrders(@TempDir Path dir) throws Exception {
        String readme = Files.readString(Paths.get(System.getProperty("corvane.readme")));
        int start = readme.indexOf("\n## Probes\n");
        assertTrue(start >= 0, "the README has a section on probes");
        int end = readme.indexOf("\n## ", start + 1);
        String section = readme.substring(start, end < 0 ? readme.length() : end);
        List<String> java = blocks(section, "java");
        List<String> shell = blocks(section, "sh");
        assertEquals(1, java.size());
        assertEquals(1, shell.size());

        Files.writeString(dir.resolve("MyProbe.java"), java.get(0));
        Files.createSymbolicLink(dir.resolve("build"), Paths.get(System.getProperty("corvane.build")).toAbsolutePath());
        ProcessBuilder builder = new ProcessBuilder("sh", "-e", "-c", shell.get(0)).directory(dir.toFile());
        Path jdk = Paths.get(System.getProperty("corvane.java")).getParent();
        builder.environment().put("PATH", jdk + ":" + System.getenv("PATH"));
        builder.environment().put("CORVANE_HOME", dir.resolve("home").toString());
        builder.environment().remove("JAVA_TOOL_OPTIONS");
        String out = ProbeBuild.run(builder);

        Matcher priced = Pattern.compile("priced (\\d+) orders").matcher(out);
        assertTrue(priced.find(), out);
        assertTrue(Integer.parseInt(priced.group(1)) > 0, out);
        assertTrue(out.contains("MyProbe: " + priced.group(1) + " orders priced in "), out);
        // Each order a row of the probe's own table.
        assertTrue(out.contains(String.format("%10d  Priced orders%n", Integer.parseInt(priced.group(1)))), out);
    }
}
