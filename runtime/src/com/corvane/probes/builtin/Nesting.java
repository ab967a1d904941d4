package com.corvane.probes.builtin;

/**
 * How deep a thread is in the calls of one kind, and the row of the
 * outermost. Libraries call their own entry points from inside each other
 * (an execute that runs another execute, a filter that calls the servlet),
 * and a light and a full probe may both sit on one call: only the outermost
 * call is a row.
 */
final class Nesting {
    private final ThreadLocal<int[]> myState = new ThreadLocal<int[]>() {
        @Override
        protected int[] initialValue() {
            return new int[3];
        }
    };

    /** Enters a call; true when it is the outermost one. */
    boolean enter() {
        return myState.get()[0]++ == 0;
    }

    /** The row of the outermost call, once it has one. */
    void setRow(int row) {
        myState.get()[1] = row;
    }

    int getRow() {
        return myState.get()[1];
    }

    /**
     * Marks the present outermost call, for a full probe whose exit may come
     * before that of the light probe that closes the row.
     */
    void mark() {
        myState.get()[2] = 1;
    }

    boolean isMarked() {
        return myState.get()[2] != 0;
    }

    /** Leaves a call entered with {@link #enter}; true when it was the outermost one. */
    boolean exit() {
        int[] state = myState.get();
        if (state[0] > 0 && --state[0] == 0) {
            return true;
        }
        return false;
    }

    /** Leaves a call; the row of the outermost one when that is left, else 0. */
    int exitRow() {
        int[] state = myState.get();
        if (!exit()) {
            return 0;
        }
        int row = state[1];
        state[1] = 0;
        state[2] = 0;
        return row;
    }
}
