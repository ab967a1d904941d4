package com.corvane.probes.triggers;

import java.util.ArrayList;
import java.util.List;

/**
 * A trigger: an event to wait for and the actions to perform when it comes.
 * Text form: a listener line in the first column, its action lines below it,
 * each indented by two blanks.
 */
public abstract class EventListener {
    public static final Class<?>[] ALL_CLASSES = {MethodListener.class, TimerListener.class, CpuUsageListener.class,
            HeapMemoryUsageListener.class, NonHeapMemoryUsageListener.class, ProcessMemoryUsageListener.class,
            JvmStartListener.class, JvmExitListener.class};

    public int myMaxTriggerCount = -1;
    public transient int myTriggerCount;
    public final transient List<Action> myActions = new ArrayList<Action>();

    /** The listeners of a trigger text; unknown listeners are left out with their action lines. */
    public static List<EventListener> parse(String text) throws Exception {
        List<EventListener> result = new ArrayList<EventListener>();
        EventListener current = null;
        boolean skipping = false;
        for (String line : text.split("\n", -1)) {
            String trimmed = line.trim();
            if (trimmed.length() == 0 || trimmed.startsWith("#")) {
                continue;
            }
            if (line.startsWith("  ")) {
                if (current == null) {
                    if (skipping) {
                        continue;
                    }
                    throw new IllegalArgumentException("action line without listener: " + trimmed);
                }
                current.addAction(trimmed);
                continue;
            }
            current = (EventListener) Serialization.parse(trimmed, ALL_CLASSES, "");
            skipping = current == null;
            if (current != null) {
                result.add(current);
            }
        }
        return result;
    }

    public static String serializeListeners(List<EventListener> listeners) throws Exception {
        StringBuilder text = new StringBuilder();
        for (EventListener listener : listeners) {
            text.append(listener.serialize());
        }
        return text.toString();
    }

    /** The listener's line and its action lines, each ended by a newline. */
    public String serialize() throws Exception {
        StringBuilder text = new StringBuilder(Serialization.serialize(this, "")).append('\n');
        appendActionLines(text);
        return text.toString();
    }

    void appendActionLines(StringBuilder text) throws Exception {
        for (Action action : myActions) {
            text.append("  ").append(action.serialize()).append('\n');
        }
    }

    /** Adds the action of a trimmed action line; an unknown action is ignored. */
    void addAction(String line) throws Exception {
        Action action = Action.parse(line);
        if (action != null) {
            myActions.add(action);
        }
    }

    public boolean isTriggerCountExceeded() {
        return myMaxTriggerCount != -1 && myTriggerCount >= myMaxTriggerCount;
    }

    public void onActionsCompleted(long uptimeMs) {
        if (myMaxTriggerCount != -1) {
            myTriggerCount++;
        }
    }

    /** Null when the agent can act on this listener and its actions, else why not. */
    public String checkAvailable() {
        for (Action action : myActions) {
            String refusal = action.checkAvailable();
            if (refusal != null) {
                return refusal;
            }
        }
        return null;
    }

    /** Performs all actions in order; a failing one is logged and the next one runs. */
    public void performActions(long uptimeMs) {
        performActionsFrom(0, uptimeMs, false);
    }

    /**
     * Performs the actions from index `from` on. With `stopAtWait` a Sleep or
     * WaitForEventToFinish action is not performed but ends the call: the
     * result is the index of the action after it, for the caller to go on
     * from once the wait is over. Otherwise, the last action done, the
     * listener completes and the result is -1.
     */
    public int performActionsFrom(int from, long uptimeMs, boolean stopAtWait) {
        for (int i = from; i < myActions.size(); i++) {
            Action action = myActions.get(i);
            if (stopAtWait && (action instanceof SleepAction || action instanceof WaitForEventToFinishAction)) {
                return i + 1;
            }
            action.performSafe();
        }
        onActionsCompleted(uptimeMs);
        return -1;
    }
}
