package com.corvane.probes.triggers;

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
    // is admitted, -1 when maxTriggerCount left it out, 0 before.
    private int myTurn;

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
            call.perform(actions);
        }
        return call;
    }

    static void returned(MethodCall call, List<Action> actions, Object value, boolean hasValue) {
        if (call != null) {
            call.myReturnValue = value;
            call.myHasReturnValue = hasValue;
            call.perform(actions);
        }
    }

    static void threw(MethodCall call, List<Action> actions, Throwable thrown) {
        if (call != null) {
            call.myThrown = thrown;
            call.perform(actions);
        }
    }

    private void perform(List<Action> actions) {
        MethodListener listener = myListener;
        if (actions == null || actions.isEmpty() || listener == null || !listener.appliesTo(myThis, myClass)) {
            return;
        }
        MethodCall[] current = ourCurrent.get();
        if (current[0] != null) {
            return;
        }
        if (myTurn == 0) {
            myTurn = listener.takeTurn() ? 1 : -1;
        }
        if (myTurn < 0) {
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
