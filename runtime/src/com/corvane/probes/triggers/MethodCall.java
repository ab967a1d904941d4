package com.corvane.probes.triggers;

import com.corvane.runtime.Callback;
import java.util.List;

/**
 * One call of a method that a method listener watches, as its actions see it
 * through the method macros: the class, name and signature, and, where the
 * listener asks for them, `this`, the parameters and the return value or the
 * exception. Actions run on the calling thread; what they call themselves
 * does not fire triggers again.
 */
public final class MethodCall {
    // One slot a thread, made once: setting and clearing a thread local
    // itself would make a weak reference on every call.
    private static final ThreadLocal<MethodCall[]> ourCurrent = new ThreadLocal<MethodCall[]>() {
        @Override
        protected MethodCall[] initialValue() {
            return new MethodCall[1];
        }
    };

    final MethodListener myListener;
    final Object myThis;
    // Whether the macros may show `this`; instanceOf looks at it anyway.
    final boolean myShowThis;
    final Class<?> myClass;
    final String myName;
    final String mySignature;
    final Object[] myParams;
    Object myReturnValue;
    boolean myHasReturnValue;
    Throwable myThrown;
    // One call is one firing of the listener, from entry to exit: 1 once it
    // is admitted, -1 when left out, 0 before.
    private int myTurn;
    // Its row in the method invocations table, or 0.
    private int myRow;

    private static final String INVOCATIONS = "Method Invocations\n8\nuptime_ns\n1\nuptime_ns.end\n1\nthread\n0\n"
            + "frame\n0\nMethod\n2\nParameters\n2\nReturn value\n2\nexception_str\n2\n";
    private static final int METHOD_COLUMN = 4;
    private static final int PARAMETERS_COLUMN = 5;
    private static final int RETURN_VALUE_COLUMN = 6;
    private static volatile int ourInvocationsTable;

    MethodCall(MethodListener listener, Object self, boolean showThis, Class<?> type, String name, String signature,
               Object[] params) {
        myListener = listener;
        myThis = self;
        myShowThis = showThis;
        myClass = type;
        myName = name;
        mySignature = signature;
        myParams = params;
    }

    /** The call whose actions run on this thread now, or null. */
    static MethodCall current() {
        return ourCurrent.get()[0];
    }

    static MethodCall entered(MethodCall call, List<Action> actions) {
        if (call != null) {
            call.startRecording();
            call.perform(actions);
        }
        return call;
    }

    static void returned(MethodCall call, List<Action> actions, Object value, boolean hasValue) {
        if (call != null) {
            call.myReturnValue = value;
            call.myHasReturnValue = hasValue;
            call.perform(actions);
            call.endRecording();
        }
    }

    static void threw(MethodCall call, List<Action> actions, Throwable thrown) {
        if (call != null) {
            call.myThrown = thrown;
            call.perform(actions);
            call.endRecording();
        }
    }

    /** Whether the call fires the listener: not inside another call's actions, of the right instance, counted. */
    private boolean admit() {
        if (myTurn == 0) {
            MethodListener listener = myListener;
            boolean fires = listener != null && ourCurrent.get()[0] == null && listener.appliesTo(myThis, myClass);
            myTurn = fires && listener.takeTurn() ? 1 : -1;
        }
        return myTurn > 0;
    }

    private void startRecording() {
        if (!myListener.recordsInvocations() || !admit()) {
            return;
        }
        int table = ourInvocationsTable;
        if (table == 0) {
            table = Callback.createEventTable("RecordMethodInvocation", INVOCATIONS);
            ourInvocationsTable = table;
        }
        myRow = table > 0 ? Callback.createEventTableRow(table) : 0;
        if (myRow != 0) {
            Callback.setEventTableStringColumn(table, myRow, METHOD_COLUMN, macro("MethodContext", null));
            Callback.setEventTableStringColumn(table, myRow, PARAMETERS_COLUMN, describeParams());
        }
    }

    private void endRecording() {
        if (myRow == 0) {
            return;
        }
        int table = ourInvocationsTable;
        if (myHasReturnValue) {
            Callback.setEventTableStringColumn(table, myRow, RETURN_VALUE_COLUMN, String.valueOf(myReturnValue));
        }
        Callback.closeEventTableRow(table, myRow, false, myThrown == null ? null : myThrown.toString());
        myRow = 0;
    }

    private void perform(List<Action> actions) {
        if (actions == null || actions.isEmpty() || !admit()) {
            return;
        }
        MethodCall[] current = ourCurrent.get();
        if (current[0] != null) {
            return;
        }
        current[0] = this;
        try {
            for (int i = 0; i < actions.size(); i++) {
                actions.get(i).performSafe();
            }
        } finally {
            current[0] = null;
        }
    }

    String describeParams() {
        if (myParams == null) {
            return null;
        }
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < myParams.length; i++) {
            text.append(i == 0 ? "" : ", ").append(myParams[i]);
        }
        return text.toString();
    }

    /** The parameter types of the signature in Java's notation, "int, java.lang.String". */
    String describeParameterTypes() {
        StringBuilder text = new StringBuilder();
        int at = 1;
        while (at < mySignature.length() && mySignature.charAt(at) != ')') {
            int dimensions = 0;
            while (mySignature.charAt(at) == '[') {
                dimensions++;
                at++;
            }
            String type;
            if (mySignature.charAt(at) == 'L') {
                int end = mySignature.indexOf(';', at);
                type = mySignature.substring(at + 1, end).replace('/', '.');
                at = end + 1;
            } else {
                type = primitive(mySignature.charAt(at++));
            }
            text.append(text.length() == 0 ? "" : ", ").append(type);
            for (int i = 0; i < dimensions; i++) {
                text.append("[]");
            }
        }
        return text.toString();
    }

    private static String primitive(char code) {
        switch (code) {
            case 'Z': return "boolean";
            case 'B': return "byte";
            case 'C': return "char";
            case 'S': return "short";
            case 'I': return "int";
            case 'J': return "long";
            case 'F': return "float";
            case 'D': return "double";
            default: return String.valueOf(code);
        }
    }

    /** The value of a field of `this`, searched up the class hierarchy; null when there is none. */
    String thisField(String name) {
        if (myThis == null || !myShowThis) {
            return null;
        }
        for (Class<?> c = myThis.getClass(); c != null; c = c.getSuperclass()) {
            try {
                java.lang.reflect.Field field = c.getDeclaredField(name);
                field.setAccessible(true);
                return String.valueOf(field.get(myThis));
            } catch (NoSuchFieldException e) {
                // up to the superclass
            } catch (Exception e) {
                return null;
            }
        }
        return null;
    }

    /** A method macro's value for this call; null when the listener did not ask for it. */
    String macro(String name, String parameter) {
        if (name.equals("Class")) {
            return myClass == null ? null : myClass.getName();
        }
        if (name.equals("MethodName")) {
            return myName;
        }
        if (name.equals("MethodSignature")) {
            return mySignature;
        }
        if (name.equals("MethodContext")) {
            return (myClass == null ? "" : myClass.getName() + ".") + myName + "(" + describeParameterTypes() + ")";
        }
        if (name.equals("ParameterTypes")) {
            return describeParameterTypes();
        }
        if (name.equals("Params")) {
            return describeParams();
        }
        if (name.equals("This")) {
            return myThis == null || !myShowThis ? null : String.valueOf(myThis);
        }
        if (name.equals("ThisField")) {
            return parameter == null ? null : thisField(parameter.trim());
        }
        if (name.equals("ReturnValue")) {
            return myHasReturnValue ? String.valueOf(myReturnValue) : null;
        }
        if (name.equals("ThrownException")) {
            return myThrown == null ? null : myThrown.toString();
        }
        return null;
    }
}
