package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;
import java.util.ArrayList;
import java.util.List;

/**
 * Fires on entry, return or exception of the methods that match
 * `methodPattern`; its action lines begin with "onenter:", "onreturn:" or
 * "onexception:". The agent runs it as a probe class made from the template
 * {@link MethodListenerProbe}, one class a listener.
 */
public class MethodListener extends EventListener {
    static final String[] PREFIXES = {"onenter:", "onreturn:", "onexception:"};
    private static final String TEMPLATE = "com/corvane/probes/triggers/MethodListenerProbe";

    public String myMethodPattern;
    public String myInstanceOf;
    public boolean myFillThis;
    public boolean myFillParams;
    public boolean myFillReturnValue;
    public final transient List<Action> myOnEnterActions = new ArrayList<Action>();
    public final transient List<Action> myOnReturnActions = new ArrayList<Action>();
    public final transient List<Action> myOnExceptionActions = new ArrayList<Action>();
    /** The dotted name of the probe class made for this listener, once registered. */
    public transient String myProbeClassName;

    private List<Action> actionsOf(int prefix) {
        return prefix == 0 ? myOnEnterActions : prefix == 1 ? myOnReturnActions : myOnExceptionActions;
    }

    @Override
    void addAction(String line) throws Exception {
        for (int i = 0; i < PREFIXES.length; i++) {
            if (line.startsWith(PREFIXES[i])) {
                Action action = Action.parse(line.substring(PREFIXES[i].length()).trim());
                if (action != null) {
                    actionsOf(i).add(action);
                }
                return;
            }
        }
        throw new IllegalArgumentException("method listener action without onenter:, onreturn: or onexception: " + line);
    }

    @Override
    void appendActionLines(StringBuilder text) throws Exception {
        for (int i = 0; i < PREFIXES.length; i++) {
            for (Action action : actionsOf(i)) {
                text.append("  ").append(PREFIXES[i]).append(action.serialize()).append('\n');
            }
        }
    }

    @Override
    public String checkAvailable() {
        for (int i = 0; i < PREFIXES.length; i++) {
            for (Action action : actionsOf(i)) {
                String refusal = action.checkAvailable();
                if (refusal != null) {
                    return refusal;
                }
            }
        }
        return null;
    }

    /** Whether a RecordMethodInvocation among the actions makes each call a row. */
    boolean recordsInvocations() {
        for (int i = 0; i < PREFIXES.length; i++) {
            for (Action action : actionsOf(i)) {
                if (action instanceof RecordMethodInvocationAction) {
                    return true;
                }
            }
        }
        return false;
    }

    public boolean hasActions() {
        return !myOnEnterActions.isEmpty() || !myOnReturnActions.isEmpty() || !myOnExceptionActions.isEmpty();
    }

    /**
     * Whether a call may perform its actions now; counts it against
     * `maxTriggerCount`. Only a listener with a limit takes its lock, and an
     * exhausted one not even that: hot methods stay cheap.
     */
    boolean takeTurn() {
        if (myMaxTriggerCount == -1) {
            return true;
        }
        if (isTriggerCountExceeded()) {
            return false;
        }
        synchronized (this) {
            if (isTriggerCountExceeded()) {
                return false;
            }
            onActionsCompleted(Callback.getUptimeMs());
            return true;
        }
    }

    /** Whether the call on `self` in `type` is one for this listener: `instanceOf` asks `this` to derive from it. */
    boolean appliesTo(Object self, Class<?> type) {
        String wanted = myInstanceOf;
        if (wanted == null || wanted.length() == 0) {
            return true;
        }
        return self != null && derivesFrom(self.getClass(), wanted);
    }

    private static boolean derivesFrom(Class<?> type, String name) {
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            if (c.getName().equals(name)) {
                return true;
            }
            for (Class<?> i : c.getInterfaces()) {
                if (derivesFrom(i, name)) {
                    return true;
                }
            }
        }
        return false;
    }

    /**
     * The class file of this listener's probe class, number `number`: the
     * callbacks it needs and no others. With entry actions the call is made
     * at entry and handed on to the exit; without, the exits take it
     * themselves.
     */
    public byte[] generateProbeByTemplate(int number) {
        myProbeClassName = (TEMPLATE + number).replace('/', '.');
        List<String> pairs = new ArrayList<String>();
        pairs.add(TEMPLATE);
        pairs.add(TEMPLATE + number);
        pairs.add("$$METHOD_PATTERN$$");
        pairs.add(myMethodPattern);
        // A recorded call is one row from entry to exit.
        boolean recorded = recordsInvocations();
        boolean exits = recorded || !myOnReturnActions.isEmpty() || !myOnExceptionActions.isEmpty();
        String params = myFillParams ? "" : "_NO_PARAMS";
        if (recorded || !myOnEnterActions.isEmpty()) {
            pairs.add(exits ? "$$ON_ENTER" + params + "$$" : "$$ON_ENTER_VOID" + params + "$$");
            pairs.add("onEnter");
            if (recorded || !myOnReturnActions.isEmpty()) {
                pairs.add(myFillReturnValue ? "$$ON_RETURN$$" : "$$ON_RETURN_NO_PARAMS$$");
                pairs.add("onReturn");
            }
            if (recorded || !myOnExceptionActions.isEmpty()) {
                pairs.add("$$ON_UNCAUGHT_EXCEPTION" + params + "$$");
                pairs.add("onUncaughtException");
            }
        } else {
            if (!myOnReturnActions.isEmpty()) {
                pairs.add("$$ON_RETURN" + params + "_NO_ENTER$$");
                pairs.add("onReturn");
            }
            if (!myOnExceptionActions.isEmpty()) {
                pairs.add("$$ON_UNCAUGHT_EXCEPTION" + params + "_NO_ENTER$$");
                pairs.add("onUncaughtException");
            }
        }
        return Callback.patchTemplateClass(pairs.toArray(new String[0]));
    }

    /** Hands the listener's actions and choices to its probe class, defined by the agent. */
    public void installInto(Class<?> probeClass) throws Exception {
        probeClass.getField("ourOnEnterActions").set(null, myOnEnterActions);
        probeClass.getField("ourOnReturnActions").set(null, myOnReturnActions);
        probeClass.getField("ourOnExceptionActions").set(null, myOnExceptionActions);
        probeClass.getField("ourFillThis").setBoolean(null, myFillThis);
        probeClass.getField("ourFillParams").setBoolean(null, myFillParams);
        probeClass.getField("ourFillReturnValue").setBoolean(null, myFillReturnValue);
        probeClass.getField("ourListener").set(null, this);
    }
}
