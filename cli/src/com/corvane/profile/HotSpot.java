package com.corvane.profile;

/**
 * A method's time over all threads and call paths. Total time counts each
 * call path once even when the method recurses.
 */
public record HotSpot(int method, String name, long ownNs, long totalNs, long invocations) {
}
