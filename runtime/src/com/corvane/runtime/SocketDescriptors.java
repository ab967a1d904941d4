package com.corvane.runtime;

import java.io.FileDescriptor;
import java.lang.reflect.Field;
import java.net.Socket;

/**
 * The system's descriptor of a socket, for the natives that write to it
 * themselves (table streams, progress messages). The JVM keeps it in private
 * fields, which are read without the access rules.
 */
final class SocketDescriptors {
    private SocketDescriptors() {
    }

    /** The descriptor, or -1 when it can't be found. */
    static int descriptorOf(Socket socket) {
        try {
            // Not Callback's: the agent gives that one the JVM's internal class from Java 9 on.
            sun.misc.Unsafe unsafe = sun.misc.Unsafe.getUnsafe();
            Object impl = unsafe.getObject(socket, unsafe.objectFieldOffset(findField(Socket.class, "impl")));
            Object descriptor = impl == null ? null
                    : unsafe.getObject(impl, unsafe.objectFieldOffset(findField(impl.getClass(), "fd")));
            if (!(descriptor instanceof FileDescriptor)) {
                return -1;
            }
            return unsafe.getInt(descriptor, unsafe.objectFieldOffset(findField(FileDescriptor.class, "fd")));
        } catch (Throwable e) {
            Callback.messageToLogFile("warning: no descriptor for the socket: " + e);
            return -1;
        }
    }

    private static Field findField(Class<?> type, String name) throws NoSuchFieldException {
        for (Class<?> c = type; c != null; c = c.getSuperclass()) {
            try {
                return c.getDeclaredField(name);
            } catch (NoSuchFieldException e) {
                // on to the superclass
            }
        }
        throw new NoSuchFieldException(type.getName() + "." + name);
    }
}
