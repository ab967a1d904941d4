package com.corvane;

/** The corvane command-line tool. */
public final class Main {
    private Main() {
    }

    public static void main(String[] args) {
        System.out.println("corvane: the profiler agent is lib/libcorvane.so; load it with "
                + "-agentpath:<path to libcorvane.so>[=<options>]");
    }
}
