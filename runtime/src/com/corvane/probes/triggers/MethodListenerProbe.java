package com.corvane.probes.triggers;

import com.corvane.probes.ClassRef;
import com.corvane.probes.MethodName;
import com.corvane.probes.MethodPattern;
import com.corvane.probes.MethodSignature;
import com.corvane.probes.OnEnterResult;
import com.corvane.probes.Params;
import com.corvane.probes.ReturnValue;
import com.corvane.probes.This;
import com.corvane.probes.ThrownException;
import java.util.List;

/**
 * The template of the probe class made for each method listener. The agent
 * copies it under a numbered name, puts the listener's pattern in place of
 * the pattern macro, gives the callbacks that the listener needs their
 * names, and drops the other macro methods. The forms with a result carry
 * the call from entry to exit; "NO_PARAMS" leaves out the parameters, or at
 * exit the value; "NO_ENTER" forms take the call's facts themselves.
 */
@MethodPattern("$$METHOD_PATTERN$$")
public class MethodListenerProbe {
    public static MethodListener ourListener;
    public static List<Action> ourOnEnterActions;
    public static List<Action> ourOnReturnActions;
    public static List<Action> ourOnExceptionActions;
    public static boolean ourFillThis;
    public static boolean ourFillParams;
    public static boolean ourFillReturnValue;

    // Null once the listener can fire no more: its calls then cost a test.
    private static MethodCall call(Object self, Class<?> type, String name, String signature, Object[] params) {
        MethodListener listener = ourListener;
        return listener == null || listener.isTriggerCountExceeded() ? null
                : new MethodCall(listener, self, ourFillThis, type, name, signature, params);
    }

    public static MethodCall $$ON_ENTER$$(@This Object self, @ClassRef Class<?> type, @MethodName String name,
            @MethodSignature String signature, @Params Object[] params) {
        return MethodCall.entered(call(self, type, name, signature, params), ourOnEnterActions);
    }

    public static MethodCall $$ON_ENTER_NO_PARAMS$$(@This Object self, @ClassRef Class<?> type,
            @MethodName String name, @MethodSignature String signature) {
        return MethodCall.entered(call(self, type, name, signature, null), ourOnEnterActions);
    }

    public static void $$ON_ENTER_VOID$$(@This Object self, @ClassRef Class<?> type, @MethodName String name,
            @MethodSignature String signature, @Params Object[] params) {
        MethodCall.entered(call(self, type, name, signature, params), ourOnEnterActions);
    }

    public static void $$ON_ENTER_VOID_NO_PARAMS$$(@This Object self, @ClassRef Class<?> type,
            @MethodName String name, @MethodSignature String signature) {
        MethodCall.entered(call(self, type, name, signature, null), ourOnEnterActions);
    }

    public static void $$ON_RETURN$$(@OnEnterResult MethodCall call, @ReturnValue Object value) {
        MethodCall.returned(call, ourOnReturnActions, value, true);
    }

    public static void $$ON_RETURN_NO_PARAMS$$(@OnEnterResult MethodCall call) {
        MethodCall.returned(call, ourOnReturnActions, null, false);
    }

    public static void $$ON_RETURN_NO_ENTER$$(@This Object self, @ClassRef Class<?> type, @MethodName String name,
            @MethodSignature String signature, @Params Object[] params, @ReturnValue Object value) {
        MethodCall.returned(call(self, type, name, signature, params), ourOnReturnActions, value, ourFillReturnValue);
    }

    public static void $$ON_RETURN_NO_PARAMS_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
            @MethodName String name, @MethodSignature String signature, @ReturnValue Object value) {
        MethodCall.returned(call(self, type, name, signature, null), ourOnReturnActions, value, ourFillReturnValue);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION$$(@OnEnterResult MethodCall call, @ThrownException Throwable thrown) {
        MethodCall.threw(call, ourOnExceptionActions, thrown);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION_NO_PARAMS$$(@OnEnterResult MethodCall call,
            @ThrownException Throwable thrown) {
        MethodCall.threw(call, ourOnExceptionActions, thrown);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
            @MethodName String name, @MethodSignature String signature, @Params Object[] params,
            @ThrownException Throwable thrown) {
        MethodCall.threw(call(self, type, name, signature, params), ourOnExceptionActions, thrown);
    }

    public static void $$ON_UNCAUGHT_EXCEPTION_NO_PARAMS_NO_ENTER$$(@This Object self, @ClassRef Class<?> type,
            @MethodName String name, @MethodSignature String signature, @ThrownException Throwable thrown) {
        MethodCall.threw(call(self, type, name, signature, null), ourOnExceptionActions, thrown);
    }
}
