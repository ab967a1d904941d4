package com.corvane.testing;

import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.File;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;

/** Headless Chromium with a fresh profile and no network chatter; a test that needs it fails when it is missing. */
public final class Chromium {
    private Chromium() {}

    private static Path find() {
        for (String name : new String[] {"chromium", "chromium-browser"}) {
            for (String folder : System.getenv().getOrDefault("PATH", "/usr/bin").split(File.pathSeparator)) {
                Path candidate = Paths.get(folder, name);
                if (Files.isExecutable(candidate)) {
                    return candidate;
                }
            }
        }
        return null;
    }

    /** Runs the browser on {@code url} with {@code what} (for example "--dump-dom") and returns what it printed. */
    public static String run(Path workDir, String url, String... what) throws Exception {
        Path chromium = find();
        assertNotNull(chromium, "Chromium is missing: install the Debian package chromium (scripts/install-deps test)");
        List<String> command = new ArrayList<>(List.of(chromium.toString(), "--headless", "--no-sandbox",
                "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
                "--disable-component-update", "--disable-sync", "--hide-scrollbars",
                "--user-data-dir=" + Files.createTempDirectory(workDir, "profile"), "--window-size=1200,800"));
        command.addAll(List.of(what));
        command.add(url);
        Process process = new ProcessBuilder(command).redirectError(workDir.resolve("chromium.log").toFile()).start();
        byte[] out = process.getInputStream().readAllBytes();
        assertTrue(process.waitFor(120, TimeUnit.SECONDS), "chromium did not finish");
        return new String(out, StandardCharsets.UTF_8);
    }
}
