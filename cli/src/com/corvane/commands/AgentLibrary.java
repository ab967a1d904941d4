package com.corvane.commands;

import java.net.URISyntaxException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;

/** Finds libcorvane.so: beside corvane.jar in the product's lib folder, unless the environment names another. */
public final class AgentLibrary {
    public static final String ENVIRONMENT_VARIABLE = "CORVANE_AGENT_LIBRARY";
    public static final String FILE_NAME = "libcorvane.so";

    private AgentLibrary() {
    }

    public static Path locate() {
        String override = System.getenv(ENVIRONMENT_VARIABLE);
        Path library;
        if (override != null && !override.isEmpty()) {
            library = Paths.get(override).toAbsolutePath();
        } else {
            library = jarFolder().resolve(FILE_NAME);
        }
        if (!Files.isRegularFile(library)) {
            throw new UserException("the profiler agent library is missing: " + library
                    + (override != null && !override.isEmpty() ? " (named by " + ENVIRONMENT_VARIABLE + ")"
                            : " (it belongs beside corvane.jar)"));
        }
        return library;
    }

    private static Path jarFolder() {
        try {
            Path location = Paths.get(AgentLibrary.class.getProtectionDomain().getCodeSource().getLocation().toURI());
            return Files.isDirectory(location) ? location : location.toAbsolutePath().getParent();
        } catch (URISyntaxException | SecurityException | NullPointerException e) {
            return Paths.get(".").toAbsolutePath();
        }
    }
}
