package com.corvane.runtime;

import java.io.BufferedReader;
import java.io.File;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.util.ArrayList;
import java.util.List;

/** Starts the profiler UI that the {@code profiler_dir} option names, pointed at this agent. */
final class UILauncher {
    private UILauncher() {
    }

    static void start(final String profilerDir, final int idePort) {
        Thread launcher = new Thread(SharedConstants.UI_LAUNCHER_THREAD_NAME) {
            @Override
            public void run() {
                Callback.excludeThreadFromAsyncSampling();
                launchUI(profilerDir, idePort);
            }
        };
        launcher.setDaemon(true);
        launcher.start();
    }

    static void launchUI(String profilerDir, int idePort) {
        File script = new File(profilerDir, "bin/profiler.sh");
        List<String> command = new ArrayList<String>();
        command.add(script.getPath());
        command.add("-ideport=" + idePort);
        command.add("-agentport=" + Core.ourPort);
        command.add("-sessionid=" + Core.ourSessionId);
        command.add("-snapshotdir=" + Core.getSnapshotDirectory().getAbsolutePath());
        Callback.messageToLogFile("Launching Corvane Java Profiler UI: " + script.getPath());
        try {
            Process process = new ProcessBuilder(command).directory(script.getAbsoluteFile().getParentFile()).start();
            process.getOutputStream().close();
            copyToLog(process.getInputStream(), SharedConstants.UI_LAUNCHER_THREAD_NAME + "-IR");
            copyToLog(process.getErrorStream(), SharedConstants.UI_LAUNCHER_THREAD_NAME + "-ER");
        } catch (IOException e) {
            Callback.messageToLogFile("error: cannot launch Corvane Java Profiler UI\n" + e);
        }
    }

    private static void copyToLog(final InputStream stream, String name) {
        Thread reader = new Thread(name) {
            @Override
            public void run() {
                Callback.excludeThreadFromAsyncSampling();
                try (BufferedReader lines = new BufferedReader(new InputStreamReader(stream, "UTF-8"))) {
                    for (String line; (line = lines.readLine()) != null; ) {
                        Callback.messageToLogFile("UI: " + line);
                    }
                } catch (IOException e) {
                    // the UI went away
                }
            }
        };
        reader.setDaemon(true);
        reader.start();
    }
}
