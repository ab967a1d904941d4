package com.corvane.commands;

import java.io.PrintStream;

/**
 * A one-line progress display on stderr for long work, drawn only when stderr
 * is a terminal, at most ten times a second, and erased when the work ends.
 */
public final class Progress implements AutoCloseable {
    private static final long INTERVAL_NS = 100_000_000L;
    /** Work that ends sooner shows no progress at all, so quick commands do not flicker. */
    private static final long QUIET_START_NS = 300_000_000L;

    private final PrintStream myErr;
    private final boolean myEnabled;
    private String myPhase = "";
    private long myLastDrawNs;
    private long myPhaseStartNs;
    private int myLastWidth;

    public Progress(Io io) {
        myErr = io.err();
        myEnabled = io.progressOnTerminal();
    }

    public void phase(String phase) {
        myPhase = phase;
        myPhaseStartNs = System.nanoTime();
        if (myLastWidth > 0) {
            draw(myPhase + "...", true);
        }
    }

    public void update(long done, long total) {
        if (!myEnabled || total <= 0) {
            return;
        }
        long now = System.nanoTime();
        if (now - myPhaseStartNs < QUIET_START_NS || now - myLastDrawNs < INTERVAL_NS) {
            return;
        }
        int percent = (int) Math.min(100, done * 100 / total);
        draw(myPhase + "... " + percent + "%", false);
    }

    /** A bar for work counted in bytes: how much of how much has arrived. */
    public void updateBytes(long done, long total) {
        if (!myEnabled || total <= 0) {
            return;
        }
        long now = System.nanoTime();
        if (now - myPhaseStartNs < QUIET_START_NS || now - myLastDrawNs < INTERVAL_NS) {
            return;
        }
        int width = 30;
        int filled = (int) Math.min(width, done * width / total);
        draw(String.format("%s [%s%s] %3d%% %.1f of %.1f MB", myPhase, "#".repeat(filled), " ".repeat(width - filled),
                (int) (done * 100 / total), done / 1048576.0, total / 1048576.0), false);
    }

    private void draw(String text, boolean always) {
        if (!myEnabled) {
            return;
        }
        long now = System.nanoTime();
        if (!always && now - myLastDrawNs < INTERVAL_NS) {
            return;
        }
        myLastDrawNs = now;
        StringBuilder line = new StringBuilder("\r").append(text);
        for (int i = text.length(); i < myLastWidth; i++) {
            line.append(' ');
        }
        myLastWidth = text.length();
        myErr.print(line);
        myErr.flush();
    }

    @Override
    public void close() {
        if (myEnabled && myLastWidth > 0) {
            myErr.print("\r" + " ".repeat(myLastWidth) + "\r");
            myErr.flush();
            myLastWidth = 0;
        }
    }
}
