package com.corvane.heap;

import com.corvane.snapshot.Snapshot;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.function.LongBinaryOperator;

/**
 * The heap graph of a memory snapshot, read from its heap dump segments:
 * objects by their dense index (1 to count), each with its class, shallow
 * size and outgoing references, the classes with their fields, and the GC
 * roots. An instance refers to its class and to what its reference fields
 * hold; an object array to its class and elements; a class to its
 * superclass, class loader, signers, protection domain, static reference
 * fields, interfaces and constant pool references.
 */
public final class HeapDump {
    static final int ENTRY_CLASS = 0x20;
    static final int ENTRY_INSTANCE = 0x21;
    static final int ENTRY_OBJECT_ARRAY = 0x22;
    static final int ENTRY_PRIMITIVE_ARRAY = 0x23;
    static final int ENTRY_ROOT = 0xFF;
    static final int TYPE_OBJECT = 2;

    /** The class key of an object of no known class. */
    static final int CLASS_UNKNOWN = 0;
    /** The class key of class objects. */
    static final int CLASS_OBJECT = Integer.MIN_VALUE;

    /** A class of the dump: its object id, name and fields (first declared first). */
    public static final class ClassInfo {
        final int id;
        String name;
        int superId;
        int loaderId;
        final List<Field> staticFields = new ArrayList<>();
        final List<Field> ownFields = new ArrayList<>();
        /** All instance fields in block order, once known; null when the block cannot be read. */
        List<Field> layout;
        boolean layoutDecided;

        ClassInfo(int id) {
            this.id = id;
        }

        public String name() {
            return name;
        }
    }

    /** A field: its name, type and, for a static, its value (an object id, or the bits of a primitive). */
    record Field(String name, int type, long value) {
    }

    /** A value read from the heap: a name and a boxed primitive or a {@link Ref}. */
    public record FieldValue(String name, Object value) {
    }

    /** A reference value: the object id, 0 for null. */
    public record Ref(int id) {
    }

    /** Where allocation recording saw an object made: the thread's number, the frame and the uptime in ms. */
    public record Allocation(int threadNumber, int frame, long timeMs) {
    }

    /** A GC root: the object and the kind ("JNI_GLOBAL", "THREAD", ...). */
    public record Root(int object, String kind, int threadNumber) {
    }

    private final int myCount;
    /** Per object: its class id; for a primitive array minus its element type; CLASS_OBJECT or CLASS_UNKNOWN. */
    private final int[] myClassOf;
    private final long[] myShallow;
    private final long[] myBlockOffset;
    private final int[] myArrayLength;
    private final Map<Integer, ClassInfo> myClasses;
    private final List<Root> myRoots;
    private final int[] myRefStart;
    private final int[] myRefs;
    private final Snapshot mySnapshot;
    private final int myUnreadableBlocks;
    private final Map<Integer, Allocation> myAllocations;

    private HeapDump(Builder b) {
        myCount = b.count;
        myClassOf = b.classOf;
        myShallow = b.shallow;
        myBlockOffset = b.blockOffset;
        myArrayLength = b.arrayLength;
        myClasses = b.classes;
        myRoots = b.roots;
        myRefStart = b.refStart;
        myRefs = b.refs;
        mySnapshot = b.snapshot;
        myUnreadableBlocks = b.unreadableBlocks;
        myAllocations = b.allocations;
    }

    /** Where the object was made, for an object that allocation recording recorded; null otherwise. */
    public Allocation allocation(int object) {
        return myAllocations.get(object);
    }

    /** Reads the heap of a memory snapshot; `progress` hears bytes read of the segments. */
    public static HeapDump read(Snapshot snapshot, LongBinaryOperator progress)
            throws IOException {
        Snapshot.MemoryPart memory = snapshot.memoryPart();
        if (memory == null) {
            throw new IOException("the snapshot holds no heap: it is not a memory snapshot");
        }
        Builder builder = new Builder(snapshot);
        try (RandomAccessFile file = new RandomAccessFile(snapshot.file().toFile(), "r")) {
            builder.read(file.getChannel(), memory, progress);
        }
        return new HeapDump(builder);
    }

    public int objectCount() {
        return myCount;
    }

    public long shallowSize(int object) {
        return myShallow[object];
    }

    public int refCount(int object) {
        return myRefStart[object + 1] - myRefStart[object];
    }

    public int ref(int object, int index) {
        return myRefs[myRefStart[object] + index];
    }

    int[] refStarts() {
        return myRefStart;
    }

    int[] refs() {
        return myRefs;
    }

    public List<Root> roots() {
        return myRoots;
    }

    /** Instances whose field blocks did not match their class's fields; their fields were not read. */
    public int unreadableBlocks() {
        return myUnreadableBlocks;
    }

    /** A key that is the same for all objects of one class. */
    int classKey(int object) {
        return myClassOf[object];
    }

    /** The class name of an object, as the Java language writes it. */
    public String className(int object) {
        return classKeyName(myClassOf[object]);
    }

    String classKeyName(int key) {
        if (key == CLASS_OBJECT) {
            return "java.lang.Class";
        }
        if (key < 0) {
            return primitiveName(-key) + "[]";
        }
        ClassInfo info = myClasses.get(key);
        if (info != null && info.name != null) {
            return javaName(info.name);
        }
        return "<unknown class>";
    }

    /** "java.util.HashMap@17", or "class java.util.HashMap@3" for a class object. */
    public String describe(int object) {
        ClassInfo asClass = myClasses.get(object);
        if (asClass != null) {
            return "class " + (asClass.name != null ? javaName(asClass.name) : "?") + "@" + object;
        }
        return className(object) + "@" + object;
    }

    /** The objects of the class with this name (Java or internal form). */
    public List<Integer> instancesOf(String name) {
        String wanted = javaName(name);
        List<Integer> objects = new ArrayList<>();
        for (int object = 1; object <= myCount; object++) {
            if (className(object).equals(wanted)) {
                objects.add(object);
            }
        }
        return objects;
    }

    /** How `from` refers to `to`: ".field", "[index]", "<class>", "<superclass>" and so on. */
    public String describeReference(int from, int to) throws IOException {
        ClassInfo asClass = myClasses.get(from);
        if (asClass != null) {
            for (Field field : asClass.staticFields) {
                if (field.type == TYPE_OBJECT && field.value == to) {
                    return "." + field.name + " (static)";
                }
            }
            return asClass.superId == to ? "<superclass>" : "<class reference>";
        }
        int key = myClassOf[from];
        ClassInfo info = key > 0 ? myClasses.get(key) : null;
        if (info != null && to == key) {
            return "<class>";
        }
        if (myBlockOffset[from] > 0 && info != null && info.layout != null) {
            ByteBuffer block = readAt(myBlockOffset[from], Builder.widthOf(info.layout));
            int offset = 0;
            for (Field field : info.layout) {
                if (field.type == TYPE_OBJECT && block.getInt(offset) == to) {
                    return "." + field.name;
                }
                offset += width(field.type);
            }
        }
        if (myBlockOffset[from] > 0 && myArrayLength[from] > 0 && key > 0) {
            ByteBuffer elements = readAt(myBlockOffset[from], 4 * myArrayLength[from]);
            for (int k = 0; k < myArrayLength[from]; k++) {
                if (elements.getInt(4 * k) == to) {
                    return "[" + k + "]";
                }
            }
        }
        return "<reference>";
    }

    /** The class object of an object, 0 for a class object, a primitive array or an object of no known class. */
    public int classId(int object) {
        return Math.max(myClassOf[object], 0);
    }

    /** The class objects whose name is this one (Java or internal form): one per class loader that defined it. */
    public List<Integer> classObjects(String name) {
        String wanted = javaName(name);
        List<Integer> found = new ArrayList<>();
        for (ClassInfo info : myClasses.values()) {
            if (info.name != null && javaName(info.name).equals(wanted) && myClassOf[info.id] == CLASS_OBJECT) {
                found.add(info.id);
            }
        }
        found.sort(null);
        return found;
    }

    /** The class loader of a class object, 0 for the bootstrap loader. */
    public int classLoader(int classObject) {
        ClassInfo info = myClasses.get(classObject);
        return info == null ? 0 : info.loaderId;
    }

    /** The static fields of a class object with their values, first declared first. */
    public List<FieldValue> staticValues(int classObject) {
        ClassInfo info = myClasses.get(classObject);
        List<FieldValue> values = new ArrayList<>();
        if (info != null) {
            for (Field field : info.staticFields) {
                values.add(new FieldValue(field.name, box(field.type, field.value)));
            }
        }
        return values;
    }

    /** The fields of an instance with their values, superclass fields first; empty when they cannot be read. */
    public List<FieldValue> fieldValues(int object) throws IOException {
        int key = myClassOf[object];
        ClassInfo info = key > 0 ? myClasses.get(key) : null;
        List<FieldValue> values = new ArrayList<>();
        if (info == null || info.layout == null || myBlockOffset[object] <= 0) {
            return values;
        }
        ByteBuffer block = readAt(myBlockOffset[object], Builder.widthOf(info.layout));
        int offset = 0;
        for (Field field : info.layout) {
            values.add(new FieldValue(field.name, box(field.type, bits(block, offset, width(field.type)))));
            offset += width(field.type);
        }
        return values;
    }

    /**
     * The elements of an array: a Java array of the primitive type for a
     * primitive array, the element ids as an int[] for an object array; null
     * for anything else.
     */
    public Object arrayValues(int object) throws IOException {
        int key = myClassOf[object];
        int length = myArrayLength[object];
        if (myBlockOffset[object] <= 0 || key == CLASS_OBJECT || key == CLASS_UNKNOWN) {
            return null;
        }
        int type = key < 0 ? -key : TYPE_OBJECT;
        if (key > 0 && !className(object).endsWith("[]")) {
            return null;
        }
        int width = width(type);
        ByteBuffer bytes = readAt(myBlockOffset[object], length * width);
        bytes.rewind();
        switch (type) {
            case 4: { boolean[] a = new boolean[length]; for (int i = 0; i < length; i++) a[i] = bytes.get(i) != 0; return a; }
            case 5: { char[] a = new char[length]; bytes.asCharBuffer().get(a); return a; }
            case 6: { float[] a = new float[length]; bytes.asFloatBuffer().get(a); return a; }
            case 7: { double[] a = new double[length]; bytes.asDoubleBuffer().get(a); return a; }
            case 8: { byte[] a = new byte[length]; bytes.get(a); return a; }
            case 9: { short[] a = new short[length]; bytes.asShortBuffer().get(a); return a; }
            case 11: { long[] a = new long[length]; bytes.asLongBuffer().get(a); return a; }
            default: { int[] a = new int[length]; bytes.asIntBuffer().get(a); return a; }
        }
    }

    private static long bits(ByteBuffer block, int offset, int width) {
        switch (width) {
            case 1: return block.get(offset);
            case 2: return block.getShort(offset);
            case 4: return block.getInt(offset);
            default: return block.getLong(offset);
        }
    }

    private static Object box(int type, long bits) {
        switch (type) {
            case 4: return bits != 0;
            case 5: return (char) bits;
            case 6: return Float.intBitsToFloat((int) bits);
            case 7: return Double.longBitsToDouble(bits);
            case 8: return (byte) bits;
            case 9: return (short) bits;
            case 10: return (int) bits;
            case 11: return bits;
            default: return new Ref((int) bits);
        }
    }

    private ByteBuffer readAt(long offset, int size) throws IOException {
        ByteBuffer bytes = ByteBuffer.allocate(size);
        try (RandomAccessFile file = new RandomAccessFile(mySnapshot.file().toFile(), "r")) {
            FileChannel channel = file.getChannel();
            while (bytes.hasRemaining() && channel.read(bytes, offset + bytes.position()) >= 0) {
                continue;
            }
        }
        return bytes;
    }

    static int width(int type) {
        switch (type) {
            case 4: case 8: return 1;   // boolean, byte
            case 5: case 9: return 2;   // char, short
            case 7: case 11: return 8;  // double, long
            default: return 4;          // object, float, int
        }
    }

    static String primitiveName(int type) {
        switch (type) {
            case 4: return "boolean";
            case 5: return "char";
            case 6: return "float";
            case 7: return "double";
            case 8: return "byte";
            case 9: return "short";
            case 10: return "int";
            case 11: return "long";
            default: return "<type " + type + ">";
        }
    }

    /** "java.lang.String[]" for "[Ljava.lang.String;" or "[Ljava/lang/String;", "int[][]" for "[[I". */
    static String javaName(String name) {
        String dotted = name.replace('/', '.');
        int dimensions = 0;
        while (dimensions < dotted.length() && dotted.charAt(dimensions) == '[') {
            dimensions++;
        }
        if (dimensions == 0) {
            return dotted;
        }
        String element = dotted.substring(dimensions);
        String base;
        if (element.startsWith("L") && element.endsWith(";")) {
            base = element.substring(1, element.length() - 1);
        } else {
            base = element.length() == 1 ? primitiveName("ZCFDBSIJ".indexOf(element.charAt(0)) + 4) : element;
        }
        return base + "[]".repeat(dimensions);
    }

    /** Reads the segments: entries first, then the instances' field blocks once all classes are known. */
    private static final class Builder {
        final Snapshot snapshot;
        int count;
        int[] classOf;
        long[] shallow;
        long[] blockOffset;
        int[] arrayLength;
        int[] refStart;
        int[] refs;
        final Map<Integer, ClassInfo> classes = new HashMap<>();
        final List<Root> roots = new ArrayList<>();
        final Map<Integer, Allocation> allocations = new HashMap<>();
        Allocation lastAllocation;
        int unreadableBlocks;
        // Edges as read, before they are grouped by source.
        int[] edgeFrom = new int[1024];
        int[] edgeTo = new int[1024];
        int edgeCount;
        // Instances in file order: object, class, block size.
        int[] instances = new int[3 * 256];
        int instanceCount;

        Builder(Snapshot snapshot) {
            this.snapshot = snapshot;
            String declared = snapshot.header("oid_count");
            long oids = declared == null ? 0 : Long.parseLong(declared.trim().replaceFirst("^0+(?=.)", ""));
            count = (int) Math.min(oids, Integer.MAX_VALUE - 2);
            classOf = new int[count + 1];
            shallow = new long[count + 1];
            blockOffset = new long[count + 1];
            arrayLength = new int[count + 1];
        }

        void read(FileChannel channel, Snapshot.MemoryPart memory, LongBinaryOperator progress)
                throws IOException {
            long total = 0;
            for (Snapshot.HeapSegment segment : memory.heapSegments()) {
                total += segment.length();
            }
            long done = 0;
            for (Snapshot.HeapSegment segment : memory.heapSegments()) {
                ChannelInput in = new ChannelInput(channel, segment.offset(), segment.length());
                while (!in.atEnd()) {
                    entry(in);
                    progress.applyAsLong(done + in.position() - segment.offset(), total);
                }
                done += segment.length();
            }
            for (Map.Entry<Integer, String> name : classNames(memory).entrySet()) {
                classes.computeIfAbsent(name.getKey(), ClassInfo::new).name = name.getValue();
            }
            for (Map.Entry<Integer, int[]> interfaces : memory.classInterfaces().entrySet()) {
                for (int target : interfaces.getValue()) {
                    edge(interfaces.getKey(), target);
                }
            }
            for (Map.Entry<Integer, List<Snapshot.ConstantPoolReference>> pool
                    : memory.classConstantPoolReferences().entrySet()) {
                for (Snapshot.ConstantPoolReference reference : pool.getValue()) {
                    edge(pool.getKey(), reference.objectId());
                }
            }
            readBlocks(channel);
            group();
        }

        private Map<Integer, String> classNames(Snapshot.MemoryPart memory) {
            Map<Integer, String> names = new HashMap<>();
            for (Snapshot.HprofClass hprofClass : memory.hprofClasses()) {
                String name = memory.hprofStrings().get(hprofClass.nameId());
                if (name != null) {
                    names.put(hprofClass.classId(), name);
                }
            }
            return names;
        }

        private void entry(ChannelInput in) throws IOException {
            long at = in.position();
            int tag = in.readByte();
            if (tag == ENTRY_ROOT) {
                int object = checked(in.readInt(), at);
                String kind = snapshot.string(in.readInt());
                int thread = in.readInt();
                in.readInt();  // thread object
                in.readInt();  // frame
                in.readInt();  // local variable name
                if (object > 0) {
                    roots.add(new Root(object, kind == null ? "?" : kind.replaceFirst("^JVMTI_HEAP_ROOT_", ""),
                            thread));
                }
                return;
            }
            long size = infoExtension(in);
            int object = checked(in.readInt(), at);
            in.readInt();
            shallow[object] = size;
            if (lastAllocation != null) {
                allocations.put(object, lastAllocation);
            }
            switch (tag) {
                case ENTRY_CLASS:
                    classDump(in, object, at);
                    break;
                case ENTRY_INSTANCE: {
                    int classId = checked(in.readInt(), at);
                    int blockSize = in.readInt();
                    classOf[object] = classId;
                    edge(object, classId);
                    blockOffset[object] = in.position();
                    instance(object, classId, blockSize);
                    in.skip(blockSize);
                    break;
                }
                case ENTRY_OBJECT_ARRAY: {
                    int length = in.readInt();
                    int classId = checked(in.readInt(), at);
                    classOf[object] = classId;
                    edge(object, classId);
                    blockOffset[object] = in.position();
                    arrayLength[object] = length;
                    for (int k = 0; k < length; k++) {
                        edge(object, checked(in.readInt(), at));
                    }
                    break;
                }
                case ENTRY_PRIMITIVE_ARRAY: {
                    int length = in.readInt();
                    int type = in.readByte();
                    classOf[object] = -type;
                    blockOffset[object] = in.position();
                    arrayLength[object] = length;
                    in.skip((long) length * width(type));
                    break;
                }
                default:
                    throw new IOException("heap dump entry with the unknown tag " + tag + " at offset " + at);
            }
        }

        private void classDump(ChannelInput in, int object, long at) throws IOException {
            ClassInfo info = classes.computeIfAbsent(object, ClassInfo::new);
            classOf[object] = CLASS_OBJECT;
            info.superId = checked(in.readInt(), at);
            edge(object, info.superId);
            info.loaderId = checked(in.readInt(), at);
            edge(object, info.loaderId);
            for (int k = 0; k < 2; k++) {
                edge(object, checked(in.readInt(), at));  // signers, protection domain
            }
            in.readInt();
            in.readInt();
            in.readInt();  // instance size
            in.readShort();
            int statics = in.readShort();
            for (int k = 0; k < statics; k++) {
                String name = fieldName(in.readInt());
                int type = in.readByte();
                long value;
                if (type == TYPE_OBJECT) {
                    int target = checked(in.readInt(), at);
                    edge(object, target);
                    value = target;
                } else {
                    value = in.readBits(width(type));
                }
                info.staticFields.add(0, new Field(name, type, value));
            }
            int fields = in.readShort();
            for (int k = 0; k < fields; k++) {
                String name = fieldName(in.readInt());
                int type = in.readByte();
                in.readInt();  // modifiers
                info.ownFields.add(0, new Field(name, type, 0));
            }
        }

        private String fieldName(int nameId) {
            String name = snapshot.memoryPart().hprofStrings().get(nameId);
            return name != null ? name : "<field " + nameId + ">";
        }

        private long infoExtension(ChannelInput in) throws IOException {
            int flags = in.readByte();
            long size = (flags & 8) != 0 ? in.readLong() : in.readInt() & 0xFFFFFFFFL;
            if ((flags & 1) != 0) {
                in.readInt();
            }
            lastAllocation = null;
            if ((flags & 2) != 0) {
                lastAllocation = new Allocation(in.readInt(), in.readInt(), in.readLong());
            }
            return size;
        }

        private int checked(int object, long at) throws IOException {
            if (object < 0 || object > count) {
                throw new IOException("object id " + object + " at offset " + at + " is not between 0 and the "
                        + count + " objects of \"oid_count\"");
            }
            return object;
        }

        private void edge(int from, int to) {
            if (to == 0) {
                return;
            }
            if (edgeCount == edgeFrom.length) {
                edgeFrom = Arrays.copyOf(edgeFrom, edgeCount * 2);
                edgeTo = Arrays.copyOf(edgeTo, edgeCount * 2);
            }
            edgeFrom[edgeCount] = from;
            edgeTo[edgeCount++] = to;
        }

        private void instance(int object, int classId, int blockSize) {
            if (3 * instanceCount == instances.length) {
                instances = Arrays.copyOf(instances, instances.length * 2);
            }
            instances[3 * instanceCount] = object;
            instances[3 * instanceCount + 1] = classId;
            instances[3 * instanceCount + 2] = blockSize;
            instanceCount++;
        }

        /**
         * The block of an instance holds the fields of its class and its
         * superclasses, superclass fields first. A class dump lists either
         * all of them or only its own: the block size tells which.
         */
        private List<Field> layout(ClassInfo info, int blockSize) {
            if (info.layoutDecided) {
                return info.layout;
            }
            info.layoutDecided = true;
            if (widthOf(info.ownFields) == blockSize) {
                info.layout = info.ownFields;
                return info.layout;
            }
            List<Field> inherited = new ArrayList<>();
            for (ClassInfo up = classes.get(info.superId); up != null && inherited.size() < 100000;
                    up = classes.get(up.superId)) {
                inherited.addAll(0, up.ownFields);
                if (up.superId == up.id) {
                    break;
                }
            }
            inherited.addAll(info.ownFields);
            info.layout = widthOf(inherited) == blockSize ? inherited : null;
            return info.layout;
        }

        private static int widthOf(List<Field> fields) {
            int width = 0;
            for (Field field : fields) {
                width += width(field.type);
            }
            return width;
        }

        private void readBlocks(FileChannel channel) throws IOException {
            for (int i = 0; i < instanceCount; i++) {
                int object = instances[3 * i];
                ClassInfo info = classes.get(instances[3 * i + 1]);
                int blockSize = instances[3 * i + 2];
                List<Field> fields = info == null ? null : layout(info, blockSize);
                if (fields == null) {
                    if (blockSize > 0) {
                        unreadableBlocks++;
                    }
                    continue;
                }
                boolean anyReference = false;
                for (Field field : fields) {
                    anyReference |= field.type == TYPE_OBJECT;
                }
                if (!anyReference) {
                    continue;
                }
                ByteBuffer block = ByteBuffer.allocate(blockSize);
                while (block.hasRemaining()) {
                    if (channel.read(block, blockOffset[object] + block.position()) < 0) {
                        throw new IOException("the file ends inside the fields of object " + object);
                    }
                }
                int offset = 0;
                for (Field field : fields) {
                    if (field.type == TYPE_OBJECT) {
                        int target = block.getInt(offset);
                        if (target > 0 && target <= count) {
                            edge(object, target);
                        }
                    }
                    offset += width(field.type);
                }
            }
            instances = null;
        }

        private void group() {
            refStart = new int[count + 2];
            for (int e = 0; e < edgeCount; e++) {
                refStart[edgeFrom[e] + 1]++;
            }
            for (int v = 1; v <= count + 1; v++) {
                refStart[v] += refStart[v - 1];
            }
            refs = new int[edgeCount];
            int[] fill = Arrays.copyOf(refStart, count + 1);
            for (int e = 0; e < edgeCount; e++) {
                refs[fill[edgeFrom[e]]++] = edgeTo[e];
            }
            edgeFrom = null;
            edgeTo = null;
        }
    }

    /** Big-endian values of one region of the file, through a buffer of 1 MiB. */
    private static final class ChannelInput {
        private final FileChannel myChannel;
        private final long myEnd;
        private final ByteBuffer myBuffer = ByteBuffer.allocate(1 << 20);
        private long myBufferStart;

        ChannelInput(FileChannel channel, long start, long length) {
            myChannel = channel;
            myEnd = start + length;
            myBufferStart = start;
            myBuffer.limit(0);
        }

        long position() {
            return myBufferStart + myBuffer.position();
        }

        boolean atEnd() {
            return position() >= myEnd;
        }

        private void need(int bytes) throws IOException {
            if (myBuffer.remaining() >= bytes) {
                return;
            }
            long start = position();
            if (start + bytes > myEnd) {
                throw new IOException("the heap dump segment ends inside an entry at offset " + start);
            }
            myBufferStart = start;
            myBuffer.clear();
            myBuffer.limit((int) Math.min(myBuffer.capacity(), myEnd - start));
            while (myBuffer.hasRemaining()) {
                if (myChannel.read(myBuffer, myBufferStart + myBuffer.position()) < 0) {
                    break;
                }
            }
            myBuffer.flip();
            if (myBuffer.remaining() < bytes) {
                throw new IOException("the file ends inside the heap dump at offset " + start);
            }
        }

        int readByte() throws IOException {
            need(1);
            return myBuffer.get() & 0xFF;
        }

        int readShort() throws IOException {
            need(2);
            return myBuffer.getShort() & 0xFFFF;
        }

        /** A value of 1, 2, 4 or 8 bytes, as its bits. */
        long readBits(int width) throws IOException {
            switch (width) {
                case 1: return readByte();
                case 2: return readShort();
                case 4: return readInt() & 0xFFFFFFFFL;
                default: return readLong();
            }
        }

        int readInt() throws IOException {
            need(4);
            return myBuffer.getInt();
        }

        long readLong() throws IOException {
            need(8);
            return myBuffer.getLong();
        }

        void skip(long bytes) throws IOException {
            long inBuffer = Math.min(bytes, myBuffer.remaining());
            myBuffer.position(myBuffer.position() + (int) inBuffer);
            long rest = bytes - inBuffer;
            if (rest > 0) {
                if (position() + rest > myEnd) {
                    throw new IOException("the heap dump segment ends inside an entry at offset " + position());
                }
                myBufferStart = position() + rest;
                myBuffer.clear();
                myBuffer.limit(0);
            }
        }
    }
}
