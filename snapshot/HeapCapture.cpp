#include "snapshot/HeapCapture.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/StringPool.h"
#include "db/ZFrameStorage.h"
#include "foundation/ZMap.h"
#include "foundation/ZVector.h"
#include "recording/ObjectEnumerator.h"
#include "recording/StackCapture.h"
#include "recording/ThreadInfo.h"
#include "snapshot/FileMemoryMapper.h"
#include "snapshot/SnapshotFormat.h"
#include "snapshot/TableStream.h"

HeapCaptureJoint ourHeapCaptureJoint = {nullptr, nullptr};

namespace {

// The entries of a heap dump segment, and the flags of the object info extension.
enum : int {
    ENTRY_CLASS = 0x20,
    ENTRY_INSTANCE = 0x21,
    ENTRY_OBJECT_ARRAY = 0x22,
    ENTRY_PRIMITIVE_ARRAY = 0x23,
    ENTRY_ROOT = 0xFF,
    HPROF_OBJECT = 2,
    EXT_OBJECT_ID = 1,
    EXT_ALLOCATION_SITE = 2,
    EXT_ALWAYS = 4,
    EXT_LONG_SIZE = 8,
};

// A record's length is an unsigned int: a segment that would grow past it
// goes on in a new record.
const int64_t SEGMENT_LIMIT = 0xFFFFFFFFLL;
const int ROOT_KIND_COUNT = 8;
const char* const ROOT_KIND_NAMES[ROOT_KIND_COUNT] = {
    nullptr,
    "JVMTI_HEAP_ROOT_JNI_GLOBAL",
    "JVMTI_HEAP_ROOT_SYSTEM_CLASS",
    "JVMTI_HEAP_ROOT_MONITOR",
    "JVMTI_HEAP_ROOT_STACK_LOCAL",
    "JVMTI_HEAP_ROOT_JNI_LOCAL",
    "JVMTI_HEAP_ROOT_THREAD",
    "JVMTI_HEAP_ROOT_OTHER",
};
int ourRootKindIds[ROOT_KIND_COUNT];

int toHprofType(char signature) {
    switch (signature) {
        case 'Z': return 4;
        case 'C': return 5;
        case 'F': return 6;
        case 'D': return 7;
        case 'B': return 8;
        case 'S': return 9;
        case 'I': return 10;
        case 'J': return 11;
        default: return HPROF_OBJECT;
    }
}

int fieldWidth(char signature) {
    int size = AbstractWriter::getPrimitiveSize(signature);
    return size < 0 ? 4 : size;
}

// Where the JVM's field number k (from the base on) of a class lies: in an
// instance's block, or among the static values of the class dump.
struct FieldSlot {
    int32_t myOffset;  // -1 for a field whose values are never patched through this class
    int8_t mySize;
    bool myStatic;
};

struct OwnField {
    int32_t myNameId;
    char mySignature;
    int32_t myModifiers;
    bool isStatic() const { return (myModifiers & 8) != 0; }
};

struct ClassInfo {
    jclass myClass = nullptr;
    int32_t myIndex = 0;
    int32_t myNameId = 0;
    int32_t mySuperIndex = 0;
    int32_t myLoaderIndex = 0;
    int64_t myObjectSize = 0;
    bool myPrimitiveArray = false;
    bool myObjectArray = false;
    bool myInterface = false;
    // Loaded but not linked yet: JVMTI tells no fields, though the JVM may
    // hold instances made ahead of time (archived objects).
    bool myUnprepared = false;
    ZVectorSafe<OwnField> myOwnFields;
    ZVectorSafe<int> myInterfaces;
    // Numbering of the JVM: fields of all implemented interfaces first, then
    // those of the superclasses from the top down, then the class's own.
    bool myLaidOut = false;
    int32_t myFieldIndexBase = 0;
    ZVectorSafe<FieldSlot> myChain;
    int32_t myBlockSize = 0;
    int32_t myStaticBytes = 0;
    int64_t myLoaderPosition = 0;
    int64_t mySignersPosition = 0;
    int64_t myDomainPosition = 0;
    int64_t myStaticPosition = 0;
    ZVectorSafe<int> myPoolIndices;
    ZVectorSafe<int> myPoolObjects;
};

struct ThreadAndFrame {
    int32_t myTRN;
    int32_t myFrame;
    int32_t myIndex;
};

// Per dense index, for the capture only.
int64_t* ourInstanceFieldBlockPositions = nullptr;
int32_t* ourArrayLengths = nullptr;

struct Capture {
    const LockHolder* myLock = nullptr;
    SnapshotWriter* myWriter = nullptr;
    FileMemoryMapper* myMapper = nullptr;
    int64_t myCounter = -1;
    int32_t myGeneration = 0;
    int32_t myObjectCount = 0;
    jlong myClassClassTag = 0;
    ZVectorSafe<ClassInfo*> myClasses;  // all, in the order of the dump
    ZMap<int, ClassInfo*> myClassByIndex{4096};
    ClassInfo* myClassClass = nullptr;
    ZMap<jlong, ThreadAndFrame> myThreads{64};
    int64_t mySegmentStart = 0;
    int64_t myReferenceEstimate = 0;
    int32_t myWarnings = 0;
    bool myFailed = false;

    ~Capture() {
        for (int i = 0; i < myClasses.getSize(); i++) delete myClasses[i];
    }

    // The dense index that a tag stands for; 0 for none.
    int indexOf(jlong tag) const {
        int32_t low = (int32_t)tag;
        int index = low < 0 ? -low : low == 0 ? 0 : recordedIndex(low);
        return index <= myObjectCount ? index : 0;
    }
    static int recordedIndex(int32_t low) {
        JavaObjectInfo info;
        return ourObjectEnumerator.getJavaObjectInfo(low, &info) ? info.myObjectIndex : 0;
    }
    ClassInfo* classOf(int index) const { return myClassByIndex.get(index, nullptr); }

    // A value into the file: straight into the writer while the heap is
    // written, through the mapper in the pass after it.
    void put(int64_t offset, int64_t value, int size) {
        if (myMapper != nullptr) {
            myMapper->put(offset, value, size);
        } else {
            myWriter->putAt(offset, value, size);
        }
    }
    bool hasPutError() const { return myMapper != nullptr && myMapper->hasError(); }

    // The next dense index into a tag; an object recorded by allocation
    // recording keeps its tag and learns the index through its record.
    void updateTag(jlong* tagPtr) {
        int64_t n = myCounter--;
        uint64_t tag = (uint64_t)*tagPtr;
        int32_t low = (int32_t)tag;
        uint32_t high = (uint32_t)(tag >> 32);
        if (low > 0) {
            ourObjectEnumerator.setObjectIndex(low, (int)-n);
        } else {
            low = (int32_t)n;
        }
        if (high == 0) high = (uint32_t)myGeneration;
        *tagPtr = (jlong)(((uint64_t)high << 32) | (uint32_t)low);
    }

    void warn(const ZString& text) {
        if (myWarnings++ < 100) Logger::message(ZString("warning: ") + text);
    }
};

// A JVMTI callback must not let a failure unwind through the JVM's frames:
// it is noted, and the walk stops.
#define CALLBACK_GUARD_BEGIN try {
#define CALLBACK_GUARD_END(capture, aborted)          \
    }                                                 \
    catch (...) {                                     \
        Logger::exceptionCaught(__FILE__, __LINE__);  \
        (capture).myFailed = true;                    \
        return aborted;                               \
    }

// ---- Tags ----

// java.lang.Class itself has its index already.
jint JNICALL tagObject(jlong classTag, jlong size, jlong* tagPtr, jint length, void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    if (*tagPtr != capture.myClassClassTag) capture.updateTag(tagPtr);
    return JVMTI_VISIT_OBJECTS;
    CALLBACK_GUARD_END(capture, JVMTI_VISIT_ABORT)
}


jlong getTag(jobject object) {
    jlong tag = 0;
    if (object != nullptr) ourJVMTI->GetTag(object, &tag);
    return tag;
}

// ---- Classes ----

void collectOwnFields(const LockHolder& lock, ClassInfo* info) {
    jint count = 0;
    jfieldID* fields = nullptr;
    if (ourJVMTI->GetClassFields(info->myClass, &count, &fields) != JVMTI_ERROR_NONE) return;
    for (int i = 0; i < count; i++) {
        char* name = nullptr;
        char* signature = nullptr;
        jint modifiers = 0;
        if (ourJVMTI->GetFieldName(info->myClass, fields[i], &name, &signature, nullptr) != JVMTI_ERROR_NONE) {
            // The numbering must stay whole: an unnamed field still counts.
            info->myOwnFields.push(OwnField{0, 'I', 0});
            continue;
        }
        ourJVMTI->GetFieldModifiers(info->myClass, fields[i], &modifiers);
        info->myOwnFields.push(OwnField{StringPool::getStrID(lock, ZString(name)), signature[0], modifiers});
        deallocate(name);
        deallocate(signature);
    }
    deallocate(fields);
}

void buildClassInfo(const LockHolder& lock, JNIEnv* env, Capture& capture, ClassInfo* info) {
    char* signature = nullptr;
    if (ourJVMTI->GetClassSignature(info->myClass, &signature, nullptr) == JVMTI_ERROR_NONE) {
        info->myNameId = StringPool::getStrID(lock, convertClassSignatureToFullName(signature));
        info->myObjectArray = signature[0] == '[' && (signature[1] == '[' || signature[1] == 'L');
        info->myPrimitiveArray = signature[0] == '[' && !info->myObjectArray;
        deallocate(signature);
    }
    jboolean isInterface = JNI_FALSE;
    ourJVMTI->IsInterface(info->myClass, &isInterface);
    info->myInterface = isInterface == JNI_TRUE;
    ourJVMTI->GetObjectSize(info->myClass, &info->myObjectSize);
    jclass super = env->GetSuperclass(info->myClass);
    if (super != nullptr) {
        info->mySuperIndex = capture.indexOf(getTag(super));
        env->DeleteLocalRef(super);
    }
    jobject loader = nullptr;
    if (ourJVMTI->GetClassLoader(info->myClass, &loader) == JVMTI_ERROR_NONE && loader != nullptr) {
        info->myLoaderIndex = capture.indexOf(getTag(loader));
        env->DeleteLocalRef(loader);
    }
    jint status = 0;
    ourJVMTI->GetClassStatus(info->myClass, &status);
    info->myUnprepared = (status & JVMTI_CLASS_STATUS_PREPARED) == 0;
    if (info->myUnprepared || (status & JVMTI_CLASS_STATUS_PRIMITIVE) != 0) return;
    jint count = 0;
    jclass* interfaces = nullptr;
    if (ourJVMTI->GetImplementedInterfaces(info->myClass, &count, &interfaces) == JVMTI_ERROR_NONE) {
        for (int i = 0; i < count; i++) {
            int index = capture.indexOf(getTag(interfaces[i]));
            if (index > 0) info->myInterfaces.push(index);
            env->DeleteLocalRef(interfaces[i]);
        }
        deallocate(interfaces);
    }
    collectOwnFields(lock, info);
}

// The interfaces that `info` implements, with their superinterfaces.
void addInterfaces(Capture& capture, const ClassInfo* info, ZSet<int>& seen, int& fieldCount) {
    for (int i = 0; i < info->myInterfaces.getSize(); i++) {
        int index = info->myInterfaces[i];
        if (!seen.add(index)) continue;
        const ClassInfo* interfaceInfo = capture.classOf(index);
        if (interfaceInfo == nullptr) continue;
        fieldCount += interfaceInfo->myOwnFields.getSize();
        addInterfaces(capture, interfaceInfo, seen, fieldCount);
    }
}

void layOut(Capture& capture, ClassInfo* info, int depth) {
    if (info->myLaidOut) return;
    info->myLaidOut = true;
    ZSet<int> seen(16);
    int interfaceFields = 0;
    if (!info->myInterface) {
        ClassInfo* super = capture.classOf(info->mySuperIndex);
        if (super != nullptr && super != info && depth < 1000) {
            layOut(capture, super, depth + 1);
            for (int i = 0; i < super->myChain.getSize(); i++) {
                FieldSlot slot = super->myChain[i];
                if (slot.myStatic) slot.myOffset = -1;
                info->myChain.push(slot);
            }
            info->myBlockSize = super->myBlockSize;
        }
        for (const ClassInfo* up = info; up != nullptr && seen.getSize() < 100000;) {
            addInterfaces(capture, up, seen, interfaceFields);
            ClassInfo* next = capture.classOf(up->mySuperIndex);
            up = next == up ? nullptr : next;
        }
    } else {
        addInterfaces(capture, info, seen, interfaceFields);
    }
    info->myFieldIndexBase = interfaceFields;
    // Static values are written from the last field to the first, each after
    // its name id and type byte.
    int staticOffset = 0;
    for (int i = info->myOwnFields.getSize() - 1; i >= 0; i--) {
        if (info->myOwnFields[i].isStatic()) staticOffset += 5 + fieldWidth(info->myOwnFields[i].mySignature);
    }
    info->myStaticBytes = staticOffset;
    int chainStart = info->myChain.getSize();
    for (int i = 0; i < info->myOwnFields.getSize(); i++) {
        const OwnField& field = info->myOwnFields[i];
        int8_t size = (int8_t)fieldWidth(field.mySignature);
        if (field.isStatic()) {
            info->myChain.push(FieldSlot{0, size, true});
        } else {
            info->myChain.push(FieldSlot{info->myBlockSize, size, false});
            info->myBlockSize += size;
        }
    }
    // Statics: the offset of each value, walking the dump order backwards.
    int offset = 0;
    for (int i = info->myOwnFields.getSize() - 1; i >= 0; i--) {
        if (!info->myOwnFields[i].isStatic()) continue;
        offset += 5;
        info->myChain[chainStart + i].myOffset = offset;
        offset += fieldWidth(info->myOwnFields[i].mySignature);
    }
}

// ---- Writing ----

void writeZeros(SnapshotWriter& writer, int64_t count) {
    static const uint8_t zeros[4096] = {0};
    while (count > 0) {
        int chunk = count > (int64_t)sizeof(zeros) ? (int)sizeof(zeros) : (int)count;
        writer.writeRaw(zeros, chunk);
        count -= chunk;
    }
}

void writeObjectInfoExt(Capture& capture, jlong tag, int64_t size) {
    SnapshotWriter& writer = *capture.myWriter;
    JavaObjectInfo info;
    bool recorded = (int32_t)tag > 0 && ourObjectEnumerator.getJavaObjectInfo((int32_t)tag, &info);
    int flags = EXT_ALWAYS;
    if (recorded && info.myObjectID != 0) flags |= EXT_OBJECT_ID;
    if (recorded) flags |= EXT_ALLOCATION_SITE;
    if (size < 0) {
        capture.warn(ZString("negative size ") + ZString::fromLong(size) + " (as unsigned int: " +
                     ZString::fromLong((uint32_t)size) + ")");
    }
    if (size >= 2147483648LL) flags |= EXT_LONG_SIZE;
    writer.writeByte(flags);
    if ((flags & EXT_LONG_SIZE) != 0) {
        writer.writeLong(size);
    } else {
        writer.writeInt((int)size);
    }
    if ((flags & EXT_OBJECT_ID) != 0) writer.writeInt(info.myObjectID);
    if ((flags & EXT_ALLOCATION_SITE) != 0) {
        int frame = 0;
        if (info.myNodeOrFrame < 0) {
            frame = -info.myNodeOrFrame;
        } else {
            ThreadInfo* thread = ThreadInfo::findByTRN(info.myTRN);
            if (thread != nullptr) frame = thread->getFrameFromNode(*capture.myLock, info.myNodeOrFrame);
        }
        writer.writeInt(info.myTRN);
        writer.writeInt(frame);
        writer.writeLong(info.myTime);
    }
}

void ensureRoomInSegment(Capture& capture, int64_t bytes) {
    SnapshotWriter& writer = *capture.myWriter;
    if (writer.getCurrentOffset() + 1000 + bytes - capture.mySegmentStart < SEGMENT_LIMIT) return;
    writer.endTag();
    capture.mySegmentStart = writer.getCurrentOffset();
    writer.beginTag(SNAPSHOT_TAG_HEAP_DUMP_SEGMENT);
}

void writeClassDump(Capture& capture, ClassInfo* info) {
    SnapshotWriter& writer = *capture.myWriter;
    ensureRoomInSegment(capture, 24LL * info->myOwnFields.getSize());
    writer.writeByte(ENTRY_CLASS);
    writeObjectInfoExt(capture, 0, info->myObjectSize);
    writer.writeOID(info->myIndex);
    writer.writeInt(0);
    writer.writeOID(info->mySuperIndex);
    info->myLoaderPosition = writer.getCurrentOffset();
    writer.writeOID(0);
    info->mySignersPosition = writer.getCurrentOffset();
    writer.writeOID(0);
    info->myDomainPosition = writer.getCurrentOffset();
    writer.writeOID(0);
    writer.writeOID(0);
    writer.writeOID(0);
    writer.writeInt(info->myBlockSize);
    writer.writeShort(0);
    int statics = 0;
    for (int i = 0; i < info->myOwnFields.getSize(); i++) statics += info->myOwnFields[i].isStatic() ? 1 : 0;
    writer.writeShort(statics);
    info->myStaticPosition = writer.getCurrentOffset();
    for (int i = info->myOwnFields.getSize() - 1; i >= 0; i--) {
        const OwnField& field = info->myOwnFields[i];
        if (!field.isStatic()) continue;
        writer.writeOID(field.myNameId);
        writer.writeByte(toHprofType(field.mySignature));
        writeZeros(writer, fieldWidth(field.mySignature));
    }
    writer.writeShort(info->myOwnFields.getSize() - statics);
    for (int i = info->myOwnFields.getSize() - 1; i >= 0; i--) {
        const OwnField& field = info->myOwnFields[i];
        if (field.isStatic()) continue;
        writer.writeOID(field.myNameId);
        writer.writeByte(toHprofType(field.mySignature));
        writer.writeInt(field.myModifiers);
    }
    // The class object is written: the object passes leave it alone.
    ourInstanceFieldBlockPositions[info->myIndex] = info->myStaticPosition;
}

// Instances and object arrays with empty slots, primitive arrays whole.
jint JNICALL dumpObject(jlong classTag, jlong size, jlong* tagPtr, jint length, void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    if (*tagPtr == 0 || classTag == 0) return JVMTI_VISIT_OBJECTS;
    int index = capture.indexOf(*tagPtr);
    if (index == 0 || ourInstanceFieldBlockPositions[index] != 0) return JVMTI_VISIT_OBJECTS;
    // A class object without a class dump is an instance of java.lang.Class.
    ClassInfo* info =
        classTag == capture.myClassClassTag ? capture.myClassClass : capture.classOf(capture.indexOf(classTag));
    if (info == nullptr || info->myPrimitiveArray) return JVMTI_VISIT_OBJECTS;
    SnapshotWriter& writer = *capture.myWriter;
    if (info->myObjectArray) {
        ensureRoomInSegment(capture, 8LL * length);
        writer.writeByte(ENTRY_OBJECT_ARRAY);
        writeObjectInfoExt(capture, *tagPtr, size);
        writer.writeOID(index);
        writer.writeInt(0);
        writer.writeInt(length);
        writer.writeOID(info->myIndex);
        ourInstanceFieldBlockPositions[index] = writer.getCurrentOffset();
        ourArrayLengths[index] = length;
        writeZeros(writer, 4LL * length);
        capture.myReferenceEstimate += length;
    } else {
        ensureRoomInSegment(capture, 8LL * info->myChain.getSize());
        writer.writeByte(ENTRY_INSTANCE);
        writeObjectInfoExt(capture, *tagPtr, size);
        writer.writeOID(index);
        writer.writeInt(0);
        writer.writeOID(info->myIndex);
        writer.writeInt(info->myBlockSize);
        ourInstanceFieldBlockPositions[index] = writer.getCurrentOffset();
        writeZeros(writer, info->myBlockSize);
        capture.myReferenceEstimate += info->myChain.getSize();
    }
    return JVMTI_VISIT_OBJECTS;
    CALLBACK_GUARD_END(capture, JVMTI_VISIT_ABORT)
}

jint JNICALL dumpPrimitiveArray(jlong classTag, jlong size, jlong* tagPtr, jint count, jvmtiPrimitiveType type,
                                const void* elements, void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    if (*tagPtr == 0) return JVMTI_VISIT_OBJECTS;
    int index = capture.indexOf(*tagPtr);
    if (index == 0 || ourInstanceFieldBlockPositions[index] != 0) return JVMTI_VISIT_OBJECTS;
    char signature = (char)type;
    int width = AbstractWriter::getPrimitiveSize(signature);
    if (width < 0 || (elements == nullptr && count > 0)) {
        capture.warn(ZString("w_p_a: bad type: ") + ZString::fromLong(type) + " objectIndex: " +
                     ZString::fromLong(index));
        return JVMTI_VISIT_OBJECTS;
    }
    SnapshotWriter& writer = *capture.myWriter;
    ensureRoomInSegment(capture, (int64_t)count * width);
    writer.writeByte(ENTRY_PRIMITIVE_ARRAY);
    writeObjectInfoExt(capture, *tagPtr, size);
    writer.writeOID(index);
    writer.writeInt(0);
    writer.writeInt(count);
    writer.writeByte(toHprofType(signature));
    ourInstanceFieldBlockPositions[index] = writer.getCurrentOffset();
    if (count > 0) writer.writePrimitives(elements, signature, count);
    return JVMTI_VISIT_OBJECTS;
    CALLBACK_GUARD_END(capture, JVMTI_VISIT_ABORT)
}

void writeRoot(Capture& capture, int object, int kind, int thread, int threadObject, int frame) {
    SnapshotWriter& writer = *capture.myWriter;
    ensureRoomInSegment(capture, 32);
    writer.writeByte(ENTRY_ROOT);
    writer.writeOID(object);
    writer.writeInt(ourRootKindIds[kind]);
    writer.writeInt(thread);
    writer.writeOID(threadObject);
    writer.writeInt(frame);
    writer.writeInt(0);
}

jvmtiIterationControl JNICALL heapRootCallback(jvmtiHeapRootKind kind, jlong classTag, jlong size, jlong* tagPtr,
                                               void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    int index = *tagPtr == 0 ? 0 : capture.indexOf(*tagPtr);
    if (index == 0) return JVMTI_ITERATION_IGNORE;
    switch (kind) {
        case JVMTI_HEAP_ROOT_JNI_GLOBAL:
        case JVMTI_HEAP_ROOT_SYSTEM_CLASS:
        case JVMTI_HEAP_ROOT_MONITOR:
        case JVMTI_HEAP_ROOT_OTHER: writeRoot(capture, index, kind, 0, 0, 0); break;
        case JVMTI_HEAP_ROOT_THREAD: {
            ThreadAndFrame thread = capture.myThreads.get(*tagPtr, ThreadAndFrame{0, 0, 0});
            writeRoot(capture, index, kind, thread.myTRN, 0, 0);
            break;
        }
        case JVMTI_HEAP_ROOT_STACK_LOCAL:
        case JVMTI_HEAP_ROOT_JNI_LOCAL: break;
        default:
            capture.warn(ZString("heap_root_callback_new: JVM passed improper root kind: ") +
                         ZString::fromLong(kind));
    }
    // Roots only: what they hold is walked by the passes over the heap.
    return JVMTI_ITERATION_IGNORE;
    CALLBACK_GUARD_END(capture, JVMTI_ITERATION_ABORT)
}

jvmtiIterationControl JNICALL stackReferenceCallback(jvmtiHeapRootKind kind, jlong classTag, jlong size,
                                                     jlong* tagPtr, jlong threadTag, jint depth, jmethodID method,
                                                     jint slot, void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    int index = *tagPtr == 0 ? 0 : capture.indexOf(*tagPtr);
    if (index == 0) return JVMTI_ITERATION_IGNORE;
    if (kind != JVMTI_HEAP_ROOT_STACK_LOCAL && kind != JVMTI_HEAP_ROOT_JNI_LOCAL) {
        capture.warn(ZString("stack_reference_callback_new: JVM passed improper root kind: ") +
                     ZString::fromLong(kind));
        return JVMTI_ITERATION_IGNORE;
    }
    ThreadAndFrame thread = capture.myThreads.get(threadTag, ThreadAndFrame{0, 0, 0});
    int frame = thread.myFrame;
    for (int i = 0; i < depth && frame > 0; i++) frame = ZFrameStorage::getParent(frame);
    writeRoot(capture, index, kind, thread.myTRN, thread.myIndex, frame);
    return JVMTI_ITERATION_IGNORE;
    CALLBACK_GUARD_END(capture, JVMTI_ITERATION_ABORT)
}

// ---- Patching through the mapper ----

void putFieldValue(Capture& capture, ClassInfo* info, int64_t position, int fieldIndex, int64_t value,
                   bool isStatic) {
    int k = fieldIndex - info->myFieldIndexBase;
    if (info->myUnprepared) return;
    if (k < 0 || k >= info->myChain.getSize()) {
        capture.warn(ZString("field index ") + ZString::fromLong(fieldIndex) + " outside the fields of class " +
                     StringPool::getString(*capture.myLock, info->myNameId) + " base=" +
                     ZString::fromLong(info->myFieldIndexBase) + " fields=" + ZString::fromLong(info->myChain.getSize()) +
                     " own=" + ZString::fromLong(info->myOwnFields.getSize()) + (isStatic ? " static" : ""));
        return;
    }
    const FieldSlot& slot = info->myChain[k];
    if (slot.myStatic != isStatic || slot.myOffset < 0) return;
    int limit = isStatic ? info->myStaticBytes : info->myBlockSize;
    if (slot.myOffset + slot.mySize > limit) {
        capture.warn(ZString("invalid field offset: offset=") + ZString::fromLong(slot.myOffset) + " " +
                     StringPool::getString(*capture.myLock, info->myNameId));
        return;
    }
    capture.put(position + slot.myOffset, value, slot.mySize);
}

void warnNoPosition(Capture& capture, int index, const char* what, int number, ClassInfo* info) {
    capture.warn(ZString("no field block position: objectIndex=") + ZString::fromLong(index) + what +
                 ZString::fromLong(number) + " class=" + StringPool::getString(*capture.myLock, info->myNameId));
}

jint JNICALL fillPrimitiveField(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* reference,
                                jlong classTag, jlong* tagPtr, jvalue value, jvmtiPrimitiveType type, void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    if (classTag == 0 || *tagPtr == 0) return JVMTI_VISIT_OBJECTS;
    int64_t bits = AbstractWriter::jvalueAsLong((char)type, value);
    if (classTag == capture.myClassClassTag) {
        if (kind != JVMTI_HEAP_REFERENCE_STATIC_FIELD) return JVMTI_VISIT_OBJECTS;
        ClassInfo* info = capture.classOf(capture.indexOf(*tagPtr));
        if (info == nullptr || info->myStaticPosition <= 0) return JVMTI_VISIT_OBJECTS;
        putFieldValue(capture, info, info->myStaticPosition, reference->field.index, bits, true);
    } else {
        if (kind != JVMTI_HEAP_REFERENCE_FIELD) return JVMTI_VISIT_OBJECTS;
        ClassInfo* info = capture.classOf(capture.indexOf(classTag));
        int index = capture.indexOf(*tagPtr);
        if (info == nullptr || info->myObjectArray || info->myPrimitiveArray || index == 0)
            return JVMTI_VISIT_OBJECTS;
        int64_t position = ourInstanceFieldBlockPositions[index];
        if (position == 0) {
            warnNoPosition(capture, index, " primitive field index=", reference->field.index, info);
            return JVMTI_VISIT_OBJECTS;
        }
        putFieldValue(capture, info, position, reference->field.index, bits, false);
    }
    return capture.hasPutError() ? JVMTI_VISIT_ABORT : JVMTI_VISIT_OBJECTS;
    CALLBACK_GUARD_END(capture, JVMTI_VISIT_ABORT)
}

jint JNICALL fillReference(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* reference, jlong classTag,
                           jlong referrerClassTag, jlong size, jlong* tagPtr, jlong* referrerTagPtr, jint length,
                           void* data) {
    Capture& capture = *(Capture*)data;
    CALLBACK_GUARD_BEGIN
    if (referrerTagPtr == nullptr || *referrerTagPtr == 0 || *tagPtr == 0) return JVMTI_VISIT_OBJECTS;
    int value = capture.indexOf(*tagPtr);
    int referrer = capture.indexOf(*referrerTagPtr);
    if (value == 0 || referrer == 0) return JVMTI_VISIT_OBJECTS;
    FileMemoryMapper& mapper = *capture.myMapper;
    if (referrerClassTag == capture.myClassClassTag) {
        ClassInfo* info = capture.classOf(referrer);
        if (info == nullptr) return JVMTI_VISIT_OBJECTS;
        switch (kind) {
            case JVMTI_HEAP_REFERENCE_CLASS_LOADER: mapper.put(info->myLoaderPosition, value, 4); break;
            case JVMTI_HEAP_REFERENCE_SIGNERS: mapper.put(info->mySignersPosition, value, 4); break;
            case JVMTI_HEAP_REFERENCE_PROTECTION_DOMAIN: mapper.put(info->myDomainPosition, value, 4); break;
            case JVMTI_HEAP_REFERENCE_STATIC_FIELD:
                putFieldValue(capture, info, info->myStaticPosition, reference->field.index, value, true);
                break;
            case JVMTI_HEAP_REFERENCE_CONSTANT_POOL:
                info->myPoolIndices.push(reference->constant_pool.index);
                info->myPoolObjects.push(value);
                break;
            default: break;
        }
    } else {
        ClassInfo* info = capture.classOf(capture.indexOf(referrerClassTag));
        if (info == nullptr || info->myPrimitiveArray) return JVMTI_VISIT_OBJECTS;
        int64_t position = ourInstanceFieldBlockPositions[referrer];
        if (info->myObjectArray) {
            if (kind != JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT) return JVMTI_VISIT_OBJECTS;
            int element = reference->array.index;
            if (position == 0) {
                warnNoPosition(capture, referrer, " array element index=", element, info);
            } else if (element >= 0 && element < ourArrayLengths[referrer]) {
                mapper.put(position + 4LL * element, value, 4);
            }
        } else if (kind == JVMTI_HEAP_REFERENCE_FIELD) {
            if (position == 0) {
                warnNoPosition(capture, referrer, " reference field index=", reference->field.index, info);
            } else {
                putFieldValue(capture, info, position, reference->field.index, value, false);
            }
        }
    }
    return mapper.hasError() ? JVMTI_VISIT_ABORT : JVMTI_VISIT_OBJECTS;
    CALLBACK_GUARD_END(capture, JVMTI_VISIT_ABORT)
}

// ---- Steps ----

void iterate(Capture& capture, jvmtiHeapCallbacks& callbacks, jint filter = 0) {
    check_JVMTI_error(ourJVMTI->IterateThroughHeap(filter, nullptr, &callbacks, &capture));
}

void tagAllObjects(JNIEnv* env, Capture& capture) {
    jclass classClass = env->FindClass("java/lang/Class");
    KZT_ASSERT_NOT_NULL(classClass);
    jlong tag = getTag(classClass);
    capture.updateTag(&tag);
    check_JVMTI_error(ourJVMTI->SetTag(classClass, tag));
    capture.myClassClassTag = tag;
    env->DeleteLocalRef(classClass);
    jvmtiHeapCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    callbacks.heap_iteration_callback = tagObject;
    iterate(capture, callbacks);
    capture.myObjectCount = (int)~capture.myCounter;
}

void mapThreads(const LockHolder& lock, JNIEnv* env, Capture& capture) {
    jvmtiStackInfo* stacks = nullptr;
    jint count = 0;
    if (ourJVMTI->GetAllStackTraces(10000, &stacks, &count) != JVMTI_ERROR_NONE) return;
    for (int i = 0; i < count; i++) {
        jlong tag = getTag(stacks[i].thread);
        ThreadInfo* thread = getThreadInfoJvmti(env, stacks[i].thread);
        if (tag != 0) {
            int frame = StackCapture::fillCurrentFrameJvmtiForRoots(lock, env, stacks[i]);
            capture.myThreads.put(tag, ThreadAndFrame{thread != nullptr ? thread->getTRN() : 0, frame,
                                                      capture.indexOf(tag)});
        }
        env->DeleteLocalRef(stacks[i].thread);
    }
    deallocate(stacks);
}

// The class objects that the JVM can tell about: the loaded classes and the
// primitive types. Other class objects in the heap (mirrors kept for classes
// not loaded yet) are written as plain instances of java.lang.Class.
void collectClasses(JNIEnv* env, ZVectorSafe<jclass>& classes) {
    jint count = 0;
    jclass* loaded = nullptr;
    check_JVMTI_error(ourJVMTI->GetLoadedClasses(&count, &loaded));
    for (int i = 0; i < count; i++) classes.push(loaded[i]);
    deallocate(loaded);
    static const char* const WRAPPERS[] = {"java/lang/Boolean", "java/lang/Byte",  "java/lang/Character",
                                           "java/lang/Short",   "java/lang/Integer", "java/lang/Long",
                                           "java/lang/Float",   "java/lang/Double",  "java/lang/Void"};
    for (const char* name : WRAPPERS) {
        jclass wrapper = env->FindClass(name);
        jfieldID type = wrapper == nullptr ? nullptr : env->GetStaticFieldID(wrapper, "TYPE", "Ljava/lang/Class;");
        if (type != nullptr) classes.push((jclass)env->GetStaticObjectField(wrapper, type));
        if (env->ExceptionCheck()) env->ExceptionClear();
        if (wrapper != nullptr) env->DeleteLocalRef(wrapper);
    }
}

void findClasses(const LockHolder& lock, JNIEnv* env, Capture& capture) {
    ZVectorSafe<jclass> classes;
    collectClasses(env, classes);
    Logger::messageWithStats(ZString("WSN: loaded classes: ") + ZString::fromLong(classes.getSize()));
    for (int i = 0; i < classes.getSize(); i++) {
        jclass klass = classes[i];
        jlong tag = getTag(klass);
        int index = capture.indexOf(tag);
        if (index == 0 || capture.classOf(index) != nullptr) continue;
        ClassInfo* info = new ClassInfo();
        info->myClass = klass;
        info->myIndex = index;
        capture.myClasses.push(info);
        capture.myClassByIndex.put(index, info);
        if (tag == capture.myClassClassTag) capture.myClassClass = info;
    }
    for (int i = 0; i < capture.myClasses.getSize(); i++) buildClassInfo(lock, env, capture, capture.myClasses[i]);
    for (int i = 0; i < capture.myClasses.getSize(); i++) layOut(capture, capture.myClasses[i], 0);
    Logger::messageWithStats(ZString("WSN: class infos: ") + ZString::fromLong(capture.myClasses.getSize()));
}

void writeHprofStringOnce(SnapshotWriter& writer, const LockHolder& lock, ZSet<int>& written, int id) {
    if (id == 0 || !written.add(id)) return;
    const char* text = StringPool::getString(lock, id);
    int length = text == nullptr ? 0 : (int)strlen(text);
    writer.beginTag(SNAPSHOT_TAG_UTF8);
    writer.writeOID(id);
    if (length > 0) writer.writeRaw(text, length);
    writer.endTag();
}

void writeHprofClasses(const LockHolder& lock, Capture& capture) {
    SnapshotWriter& writer = *capture.myWriter;
    ZSet<int> written(4096);
    for (int i = 0; i < capture.myClasses.getSize(); i++) {
        ClassInfo* info = capture.myClasses[i];
        for (int k = 0; k < info->myOwnFields.getSize(); k++)
            writeHprofStringOnce(writer, lock, written, info->myOwnFields[k].myNameId);
        writeHprofStringOnce(writer, lock, written, info->myNameId);
    }
    for (int i = 0; i < capture.myClasses.getSize(); i++) {
        writer.beginTag(SNAPSHOT_TAG_LOAD_CLASS);
        writer.writeInt(i + 1);
        writer.writeOID(capture.myClasses[i]->myIndex);
        writer.writeInt(0);
        writer.writeOID(capture.myClasses[i]->myNameId);
        writer.endTag();
    }
}

void writeClassReferences(Capture& capture) {
    SnapshotWriter& writer = *capture.myWriter;
    writer.beginTag(SNAPSHOT_TAG_BLOCK);
    for (int i = 0; i < capture.myClasses.getSize(); i++) {
        ClassInfo* info = capture.myClasses[i];
        KZT_ASSERT(info->myPoolIndices.getSize() == info->myPoolObjects.getSize());
        if (info->myPoolIndices.getSize() > 0) {
            writer.writeByte(SNAPSHOT_ITEM_CLASS_CONSTANT_POOL);
            writer.writeOID(info->myIndex);
            writer.writeInt(info->myPoolIndices.getSize());
            for (int k = 0; k < info->myPoolIndices.getSize(); k++) {
                writer.writeInt(info->myPoolIndices[k]);
                writer.writeOID(info->myPoolObjects[k]);
            }
        }
        if (info->myInterfaces.getSize() > 0) {
            writer.writeByte(SNAPSHOT_ITEM_CLASS_INTERFACES);
            writer.writeOID(info->myIndex);
            writer.writeInt(info->myInterfaces.getSize());
            for (int k = 0; k < info->myInterfaces.getSize(); k++) writer.writeOID(info->myInterfaces[k]);
        }
    }
    writer.endTag();
}

// The arrays by dense index, dropped however the capture ends.
struct IndexArrays {
    explicit IndexArrays(int count) {
        if (ourArrayLengths != nullptr) {
            Logger::message("warning: orphan ourArrayLengths");
            free(ourArrayLengths);
        }
        if (ourInstanceFieldBlockPositions != nullptr) {
            Logger::message("warning: orphan ourInstanceFieldBlockPositions");
            free(ourInstanceFieldBlockPositions);
        }
        ourArrayLengths = (int32_t*)calloc((size_t)count + 1, sizeof(int32_t));
        ourInstanceFieldBlockPositions = (int64_t*)calloc((size_t)count + 1, sizeof(int64_t));
        if (ourArrayLengths == nullptr || ourInstanceFieldBlockPositions == nullptr) {
            release();
            throw std::bad_alloc();
        }
    }
    ~IndexArrays() { release(); }
    void release() {
        free(ourArrayLengths);
        free(ourInstanceFieldBlockPositions);
        ourArrayLengths = nullptr;
        ourInstanceFieldBlockPositions = nullptr;
    }
};

}  // namespace

void HeapCapture::internRootKinds(const LockHolder& lock) {
    for (int kind = 1; kind < ROOT_KIND_COUNT; kind++)
        ourRootKindIds[kind] = StringPool::getStrIDImpl(lock, ROOT_KIND_NAMES[kind], true);
}

ZString HeapCapture::writeHeap(const LockHolder& lock, JNIEnv* env, SnapshotWriter& writer, const ZString& path,
                               Progress& progress, int sinceGeneration) {
    Logger::messageWithStats(ZString("WSN: starting heap..."));
    Capture capture;
    capture.myLock = &lock;
    capture.myWriter = &writer;
    capture.myGeneration = ourHeapCaptureJoint.getCurrentGenerationID != nullptr
                               ? ourHeapCaptureJoint.getCurrentGenerationID()
                               : 0;
    tagAllObjects(env, capture);
    progress.updateProgressImpl(18);
    mapThreads(lock, env, capture);
    progress.updateProgressImpl(19);
    Logger::messageWithStats(ZString("WSN: classes..."));
    findClasses(lock, env, capture);
    IndexArrays arrays(capture.myObjectCount);
    writer.commitOIDCountProperty(capture.myObjectCount);
    Logger::messageWithStats(ZString("WSN: tagCount=") + ZString::fromLong(capture.myObjectCount));
    progress.updateProgressImpl(20);

    writeHprofClasses(lock, capture);
    capture.mySegmentStart = writer.getCurrentOffset();
    writer.beginTag(SNAPSHOT_TAG_HEAP_DUMP_SEGMENT);
    int64_t firstEntry = writer.getCurrentOffset();
    Logger::messageWithStats(ZString("WSN: heap segment..."));
    for (int i = 0; i < capture.myClasses.getSize(); i++) writeClassDump(capture, capture.myClasses[i]);
    Logger::messageWithStats(ZString("WSN: classes dumped"));
    progress.updateProgressImpl(25);

    jvmtiHeapCallbacks callbacks;
    memset(&callbacks, 0, sizeof(callbacks));
    // The JVM reports an object's primitive fields right after the object:
    // they go into its block while that is still at hand.
    callbacks.heap_iteration_callback = dumpObject;
    callbacks.primitive_field_callback = fillPrimitiveField;
    callbacks.array_primitive_value_callback = dumpPrimitiveArray;
    iterate(capture, callbacks, JVMTI_HEAP_FILTER_UNTAGGED);
    int64_t patchedEnd = writer.getCurrentOffset();
    Logger::messageWithStats(ZString("WSN: O+OA+PA+fields done"));
    progress.updateProgressImpl(50);

    check_JVMTI_error(
        ourJVMTI->IterateOverReachableObjects(heapRootCallback, stackReferenceCallback, nullptr, &capture));
    writer.endTag();
    writer.beginTag(SNAPSHOT_TAG_HEAP_DUMP_END);
    writer.endTag();

    int since[32];
    for (int i = 0; i < 32; i++) since[i] = sinceGeneration;
    writer.beginTag(SNAPSHOT_TAG_BLOCK);
    writeTables(lock, env, KZT_DB(), writer, ALL_TABLES_MASK, 51, 52, &progress, since, true);
    writer.endTag();
    Logger::messageWithStats(ZString("WSN: modified tables written"));
    writer.flush();
    Logger::messageWithStats(ZString("WSN: heap segment closed"));
    ZString error = writer.getError();
    if (error.isEmpty() && capture.myFailed) error = "the heap could not be walked; see the log";

    if (error.isEmpty()) {
        FileMemoryMapper mapper(path, firstEntry, patchedEnd);
        if (!mapper.isOpened()) {
            error = ZString("Cannot map file: ") + path;
        } else {
            capture.myMapper = &mapper;
            Logger::messageWithStats(ZString("WSN: map..."));
            memset(&callbacks, 0, sizeof(callbacks));
            callbacks.heap_reference_callback = fillReference;
            check_JVMTI_error(
                ourJVMTI->FollowReferences(JVMTI_HEAP_FILTER_UNTAGGED, nullptr, nullptr, &callbacks, &capture));
            progress.updateProgressImpl(98);
            if (mapper.hasError()) {
                error = "cannot map the snapshot file to memory.\nThe snapshot directory possibly belongs to a file "
                        "system which does not support file mapping.\nSee the Help on how to customize the "
                        "snapshot directory.";
            } else if (capture.myFailed) {
                error = "the heap could not be walked; see the log";
            }
            Logger::messageWithStats(ZString("WSN: map done"));
        }
    }
    if (error.isEmpty()) {
        Logger::messageWithStats(ZString("WSN: appending..."));
        writer.forgetFilePosition();
        writeClassReferences(capture);
        writer.flush();
        error = writer.getError();
        Logger::messageWithStats(ZString("WSN: appending done"));
    }
    return error;
}
