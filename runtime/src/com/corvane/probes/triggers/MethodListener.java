package com.corvane.probes.triggers;

import java.util.ArrayList;
import java.util.List;

/**
 * Fires on entry, return or exception of the methods that match
 * `methodPattern`; its action lines begin with "onenter:", "onreturn:" or
 * "onexception:". Parsed and written back; the agent cannot run it yet.
 */
public class MethodListener extends EventListener {
    static final String[] PREFIXES = {"onenter:", "onreturn:", "onexception:"};

    public String myMethodPattern;
    public String myInstanceOf;
    public boolean myFillThis;
    public boolean myFillParams;
    public boolean myFillReturnValue;
    public final transient List<Action> myOnEnterActions = new ArrayList<Action>();
    public final transient List<Action> myOnReturnActions = new ArrayList<Action>();
    public final transient List<Action> myOnExceptionActions = new ArrayList<Action>();

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
        return "MethodListener is not available in this agent yet";
    }
}
