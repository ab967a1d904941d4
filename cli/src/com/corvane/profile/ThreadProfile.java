package com.corvane.profile;

/** One thread's row and its call tree; the root carries the thread's total. */
public record ThreadProfile(int trn, String name, String group, boolean daemon, long startUptimeNs,
        long endUptimeNs, CallNode root) {
}
