package com.corvane.runtime;

import com.corvane.probes.triggers.CpuUsageListener;
import com.corvane.probes.triggers.EventListener;
import com.corvane.probes.triggers.HeapMemoryUsageListener;
import com.corvane.probes.triggers.JvmExitListener;
import com.corvane.probes.triggers.JvmStartListener;
import com.corvane.probes.triggers.MemoryUsageListener;
import com.corvane.probes.triggers.MethodListener;
import com.corvane.probes.triggers.Action;
import com.corvane.probes.triggers.SleepAction;
import com.corvane.probes.triggers.WaitForEventToFinishAction;
import com.corvane.probes.triggers.TimerListener;
import java.lang.management.MemoryMXBean;
import java.lang.management.MemoryUsage;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Map;
import java.util.WeakHashMap;

/**
 * The triggers in force: set from the options and the triggers file at start
 * and from the control port, fired by the telemetry thread (timer, CPU and
 * memory listeners), at the end of the start (JVM start listeners) and at
 * JVM exit. The list is replaced as a whole under the class lock.
 */
final class Triggers {
    private static List<EventListener> ourListeners = Collections.emptyList();
    // Listeners in a Sleep, on the telemetry thread only; those replaced are dropped with their keys.
    private static final Map<EventListener, Waiting> ourWaiting = new WeakHashMap<EventListener, Waiting>();
    private static String ourText = "";
    private static int ourTemplateNumber;

    private Triggers() {
    }

    /** Null when the text was taken, else why not; the triggers in force stay as they were then. */
    static synchronized String set(String text, boolean append) {
        Callback.messageToLogFile((append ? "setTriggers: (appending):\n" : "setTriggers:\n") + text);
        String full = append ? ourText + text : text;
        List<EventListener> parsed;
        try {
            parsed = EventListener.parse(full);
        } catch (Exception e) {
            return "Cannot parse triggers: " + Core.describe(e);
        }
        List<EventListener> listeners = new ArrayList<EventListener>();
        try {
            for (EventListener listener : parsed) {
                String refusal = listener.checkAvailable();
                if (refusal != null) {
                    return refusal;
                }
                if (listener instanceof MethodListener && !isValid((MethodListener) listener)) {
                    continue;
                }
                listeners.add(sameOld(listener));
            }
        } catch (Exception e) {
            return "Cannot set triggers: " + Core.describe(e);
        }
        unregisterGone(listeners);
        List<EventListener> old = ourListeners;
        ourListeners = Collections.unmodifiableList(listeners);
        ourText = full;
        registerNew(old, listeners);
        Callback.messageToLogFile("setTriggers: OK");
        return null;
    }

    /** Whether a method listener's pattern and type are valid; one that is not is left out. */
    private static boolean isValid(MethodListener listener) {
        String error = Callback.validateMethodPattern(listener.myMethodPattern);
        if (error != null) {
            Callback.messageToLogFile("Invalid method pattern '" + listener.myMethodPattern + "': " + error);
            return false;
        }
        error = Agent.validateJavaTypeOrEmpty(listener.myInstanceOf);
        if (error != null) {
            Callback.messageToLogFile("Invalid instanceOf '" + listener.myInstanceOf + "': " + error);
            return false;
        }
        return true;
    }

    /** Unregisters the probe classes of the method listeners in force that the new list no longer holds. */
    private static void unregisterGone(List<EventListener> listeners) {
        List<String> gone = new ArrayList<String>();
        for (EventListener old : ourListeners) {
            if (old instanceof MethodListener && ((MethodListener) old).myProbeClassName != null
                    && !listeners.contains(old)) {
                gone.add(((MethodListener) old).myProbeClassName);
            }
        }
        if (gone.isEmpty()) {
            return;
        }
        Callback.messageToLogFile("setTriggers: to unregister: " + gone.size());
        Callback.unregisterProbes(gone.toArray(new String[0]));
        Callback.messageToLogFile("setTriggers: unregistered");
    }

    /** Makes, registers and arms a probe class for each new method listener with actions. */
    private static void registerNew(List<EventListener> old, List<EventListener> listeners) {
        List<MethodListener> fresh = new ArrayList<MethodListener>();
        List<byte[]> classes = new ArrayList<byte[]>();
        for (EventListener listener : listeners) {
            if (listener instanceof MethodListener && !old.contains(listener)
                    && ((MethodListener) listener).hasActions()) {
                MethodListener method = (MethodListener) listener;
                fresh.add(method);
                classes.add(method.generateProbeByTemplate(++ourTemplateNumber));
            }
        }
        if (fresh.isEmpty()) {
            return;
        }
        Callback.messageToLogFile("setTriggers: method listeners to register: " + fresh.size());
        String error = Callback.registerProbesByBytecode(classes.toArray(new byte[0][]), false, true);
        if (error != null) {
            Callback.messageToLogFile("Failed to register method listeners: " + error);
            return;
        }
        Callback.messageToLogFile("setTriggers: method listeners registered");
        for (MethodListener listener : fresh) {
            try {
                listener.installInto(Class.forName(listener.myProbeClassName, true, null));
            } catch (Throwable e) {
                Callback.messageToLogFile("error: failed to set actions");
            }
        }
    }

    /** The old listener when one of the same text is in force, so that it keeps its counters. */
    private static EventListener sameOld(EventListener listener) throws Exception {
        String text = listener.serialize();
        for (EventListener old : ourListeners) {
            if (old.serialize().equals(text)) {
                return old;
            }
        }
        return listener;
    }

    static synchronized List<EventListener> getListeners() {
        return ourListeners;
    }

    /** The triggers in force as text, each listener in the form it was parsed into. */
    static synchronized String serialize() {
        try {
            return EventListener.serializeListeners(ourListeners);
        } catch (Exception e) {
            return "";
        }
    }

    /** Runs the actions of the listeners of the class, each once. */
    static void runOnce(Class<? extends EventListener> type) {
        for (EventListener listener : getListeners()) {
            if (type.isInstance(listener) && !listener.isTriggerCountExceeded()) {
                try {
                    listener.performActions(Callback.getUptimeMs());
                } catch (Throwable e) {
                    Callback.messageToLogFile("error: trigger failed: " + e);
                }
            }
        }
    }

    static void runOnJvmStart() {
        runOnce(JvmStartListener.class);
    }

    static void runOnJvmExit() {
        runOnce(JvmExitListener.class);
    }

    /**
     * One telemetry period: the listeners whose event has come perform their
     * actions, in order. A Sleep or WaitForEventToFinish action is not waited
     * for here: the listener waits, without being tested, until a later
     * period finds its time come or its event over, and goes on from the
     * action after it.
     */
    static void handle(MemoryMXBean memory) {
        long uptime = Callback.getUptimeMs();
        for (EventListener listener : getListeners()) {
            int from;
            Waiting waiting = ourWaiting.get(listener);
            if (waiting != null) {
                boolean over = uptime >= waiting.myUntilMs
                        || (waiting.myForEvent && isEventFinished(listener, uptime, memory));
                if (!over) {
                    continue;
                }
                ourWaiting.remove(listener);
                from = waiting.myNextAction;
            } else if (shouldTrigger(listener, uptime, memory)) {
                from = 0;
            } else {
                continue;
            }
            int next = listener.performActionsFrom(from, uptime, true);
            if (next >= 0) {
                // From now: the actions before the wait, and other listeners', took their time.
                long now = Callback.getUptimeMs();
                Action wait = listener.myActions.get(next - 1);
                if (wait instanceof SleepAction) {
                    ourWaiting.put(listener, new Waiting(next, now + ((SleepAction) wait).durationMs(), false));
                } else {
                    long most = ((WaitForEventToFinishAction) wait).maxTimeToWaitMs();
                    ourWaiting.put(listener, new Waiting(next, most > 0 ? now + most : Long.MAX_VALUE, true));
                }
            }
        }
    }

    /** Where a listener goes on after a wait, and from when at the latest. */
    private static final class Waiting {
        final int myNextAction;
        final long myUntilMs;
        // Goes on earlier, once the event that fired the listener is over.
        final boolean myForEvent;

        Waiting(int nextAction, long untilMs, boolean forEvent) {
            myNextAction = nextAction;
            myUntilMs = untilMs;
            myForEvent = forEvent;
        }
    }

    /** Whether what fired the listener is over: a usage back below its threshold; other events end at once. */
    private static boolean isEventFinished(EventListener listener, long uptime, MemoryMXBean memory) {
        if (listener instanceof MemoryUsageListener) {
            MemoryUsage usage = listener instanceof HeapMemoryUsageListener ? memory.getHeapMemoryUsage()
                    : memory.getNonHeapMemoryUsage();
            return ((MemoryUsageListener) listener).isEventFinished(usage.getUsed(), usage.getMax());
        }
        if (listener instanceof CpuUsageListener) {
            return ((CpuUsageListener) listener).isEventFinished(uptime, Callback.getProcessCpuTimeNs(false),
                    Runtime.getRuntime().availableProcessors());
        }
        return true;
    }

    private static boolean shouldTrigger(EventListener listener, long uptime, MemoryMXBean memory) {
        if (listener instanceof TimerListener) {
            return ((TimerListener) listener).shouldTrigger(uptime);
        }
        if (listener instanceof MemoryUsageListener) {
            MemoryUsage usage = listener instanceof HeapMemoryUsageListener ? memory.getHeapMemoryUsage()
                    : memory.getNonHeapMemoryUsage();
            return ((MemoryUsageListener) listener).shouldTrigger(uptime, usage.getUsed(), usage.getMax());
        }
        if (listener instanceof CpuUsageListener) {
            return ((CpuUsageListener) listener).shouldTrigger(uptime, Callback.getProcessCpuTimeNs(false),
                    Runtime.getRuntime().availableProcessors());
        }
        return false;
    }
}
