package com.corvane.commands;

import java.lang.reflect.Method;
import java.lang.reflect.Proxy;

/**
 * Lets Ctrl-C pass corvane by while it waits for a program: the program gets
 * the interrupt too, ends, writes its snapshot, and corvane reports it. The
 * JDK's signal API is reached by reflection, as it is not part of the
 * platform's compile-time API.
 */
final class InterruptGuard implements AutoCloseable {
    private Object mySignal;
    private Object myPrevious;
    private Method myHandle;

    InterruptGuard() {
        try {
            Class<?> signalClass = Class.forName("sun.misc.Signal");
            Class<?> handlerClass = Class.forName("sun.misc.SignalHandler");
            mySignal = signalClass.getConstructor(String.class).newInstance("INT");
            Object ignore = Proxy.newProxyInstance(InterruptGuard.class.getClassLoader(),
                    new Class<?>[] {handlerClass}, (proxy, method, args) -> {
                        if (method.getName().equals("hashCode")) {
                            return System.identityHashCode(proxy);
                        }
                        if (method.getName().equals("equals")) {
                            return proxy == args[0];
                        }
                        return method.getName().equals("toString") ? "ignore SIGINT" : null;
                    });
            myHandle = signalClass.getMethod("handle", signalClass, handlerClass);
            myPrevious = myHandle.invoke(null, mySignal, ignore);
        } catch (ReflectiveOperationException | RuntimeException e) {
            // no signal API, or SIGINT is taken: Ctrl-C then ends corvane as usual
            myHandle = null;
        }
    }

    @Override
    public void close() {
        if (myHandle != null && myPrevious != null) {
            try {
                myHandle.invoke(null, mySignal, myPrevious);
            } catch (ReflectiveOperationException | RuntimeException e) {
                // leave it ignored; corvane ends right after anyway
            }
        }
    }
}
