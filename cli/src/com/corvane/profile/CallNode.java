package com.corvane.profile;

import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * One node of a call tree: a method at one call path, with calls from the
 * same caller merged whatever their line. Total time includes the callees;
 * own time is what is left after them.
 */
public final class CallNode {
    private final int myMethod;
    private final String myName;
    long myTotalNs;
    long myOwnNs;
    long myInvocations;
    private final List<CallNode> myChildren = new ArrayList<>();
    private Map<Integer, CallNode> myChildByMethod;

    CallNode(int method, String name) {
        myMethod = method;
        myName = name;
    }

    /** The method index; 0 for a root (all threads, or one thread). */
    public int method() {
        return myMethod;
    }

    public String name() {
        return myName;
    }

    public long totalNs() {
        return myTotalNs;
    }

    public long ownNs() {
        return myOwnNs;
    }

    public long invocations() {
        return myInvocations;
    }

    /** The callees, the most expensive first. */
    public List<CallNode> children() {
        return Collections.unmodifiableList(myChildren);
    }

    CallNode child(int method, String name) {
        if (myChildByMethod == null) {
            myChildByMethod = new HashMap<>();
            for (CallNode existing : myChildren) {
                myChildByMethod.put(existing.myMethod, existing);
            }
        }
        CallNode child = myChildByMethod.get(method);
        if (child == null) {
            child = new CallNode(method, name);
            myChildByMethod.put(method, child);
            myChildren.add(child);
        }
        return child;
    }

    /** Adds another tree's measures and callees into this one. */
    void mergeFrom(CallNode other) {
        myTotalNs += other.myTotalNs;
        myOwnNs += other.myOwnNs;
        myInvocations += other.myInvocations;
        for (CallNode otherChild : other.myChildren) {
            child(otherChild.myMethod, otherChild.myName).mergeFrom(otherChild);
        }
    }

    /** Own time from the totals, then the callees in order of time; for the whole subtree. */
    void finish() {
        long callees = 0;
        for (CallNode child : myChildren) {
            child.finish();
            callees += child.myTotalNs;
        }
        myOwnNs = Math.max(0, myTotalNs - callees);
        myChildren.sort((a, b) -> {
            int byTime = Long.compare(b.myTotalNs, a.myTotalNs);
            return byTime != 0 ? byTime : a.myName.compareTo(b.myName);
        });
        myChildByMethod = null;
    }
}
