package sun.misc;

/**
 * Compile-time shape of the JVM's own class, which the Java 8 platform
 * description used for building the runtime does not list. Never packed.
 */
public final class Unsafe {
    private Unsafe() {
    }

    public static native Unsafe getUnsafe();

    public native long getLong(long address);

    public native void putLong(long address, long value);

    public native void putInt(long address, int value);

    public native long getLongVolatile(Object o, long offset);

    public native boolean compareAndSwapLong(Object o, long offset, long expected, long value);

    public native long objectFieldOffset(java.lang.reflect.Field field);

    public native Object getObject(Object o, long offset);

    public native int getInt(Object o, long offset);
}
