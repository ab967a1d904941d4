// The heap-graph natives of com.corvane.Natives, for the UI's analysis
// process: the object storage behind a long handle, the dominator step and
// its driver, and the reachability walks. Arrays are held with
// GetPrimitiveArrayCritical for bulk work, inputs released without copying
// back; holders release them before any Java exception is raised.
#include <jni.h>

#include "analysis/NewDominatorSupport.h"
#include "analysis/ObjectStorage.h"
#include "analysis/Reachability.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

#define NATIVE(name) Java_com_corvane_Natives_##name

// A native that reads one value of one object from the storage.
#define OBJECT_GETTER(name, type, read)                                                      \
    JNIEXPORT type JNICALL NATIVE(name)(JNIEnv * env, jclass, jlong handle, jint object) { \
        KZT_NATIVE_BEGIN                                                                     \
        return storageOf(handle)->read(object);                                              \
        KZT_NATIVE_END(env, 0)                                                               \
    }

namespace {

ObjectStorage* storageOf(jlong handle) {
    ObjectStorage* storage = (ObjectStorage*)(intptr_t)handle;
    KZT_ASSERT_NOT_NULL(storage);
    return storage;
}

// A Java array held critically for the holder's scope. Inputs go back
// without copying (JNI_ABORT), outputs with their changes.
template <typename T>
class CriticalArray {
public:
    CriticalArray(JNIEnv* env, jarray array, bool changed = false)
        : myEnv(env), myArray(array), myData(nullptr), myLength(0), myChanged(changed) {
        KZT_ASSERT_NOT_NULL(array);
        myLength = env->GetArrayLength(array);
        myData = (T*)env->GetPrimitiveArrayCritical(array, nullptr);
        if (myData == nullptr) throw std::bad_alloc();
    }
    ~CriticalArray() { myEnv->ReleasePrimitiveArrayCritical(myArray, myData, myChanged ? 0 : JNI_ABORT); }
    CriticalArray(const CriticalArray&) = delete;
    CriticalArray& operator=(const CriticalArray&) = delete;

    T* get() const { return myData; }
    int getLength() const { return myLength; }
    // At least `count` elements, else a fatal assertion.
    const CriticalArray& holding(int count) const {
        KZT_ASSERT(count >= 0 && myLength >= count);
        return *this;
    }

private:
    JNIEnv* myEnv;
    jarray myArray;
    T* myData;
    int myLength;
    bool myChanged;
};

// Calls set(object, value) for the first `count` pairs of two arrays.
template <typename V, typename Set>
void forEachPair(JNIEnv* env, jintArray objects, jarray values, jint count, Set set) {
    CriticalArray<jint> objectIds(env, objects);
    CriticalArray<V> given(env, values);
    objectIds.holding(count);
    given.holding(count);
    for (int i = 0; i < count; i++) set(objectIds.get()[i], given.get()[i]);
}

// A bit set that covers every object of the storage.
void checkBitSet(const CriticalArray<jint>& bits, const ObjectStorage* storage) {
    KZT_ASSERT((int64_t)bits.getLength() * 32 >= storage->getSize());
}

void checkObjects(const int* objects, int count, const ObjectStorage* storage) {
    for (int i = 0; i < count; i++) KZT_ASSERT(objects[i] >= 1 && objects[i] < storage->getSize());
}

// Marks what is reachable from each start object not yet marked.
void markFromStarts(const ObjectStorage* storage, const CriticalArray<jint>& starts, int* visited) {
    checkObjects(starts.get(), starts.getLength(), storage);
    ZVector<int> stack;
    for (int i = 0; i < starts.getLength(); i++) {
        int start = starts.get()[i];
        if (!Reachability::isMarked(visited, start)) Reachability::markAsVisited(*storage, start, visited, stack);
    }
}

struct RunnableStep {
    JNIEnv* myEnv;
    jobject myRunnable;

    static DominatorStepRunner::Result run(void* context, ZString& failure) {
        RunnableStep* step = (RunnableStep*)context;
        JNIEnv* env = step->myEnv;
        jclass runnableClass = env->GetObjectClass(step->myRunnable);
        jmethodID run = runnableClass != nullptr ? env->GetMethodID(runnableClass, "run", "()V") : nullptr;
        if (run == nullptr) {
            env->ExceptionClear();
            return DominatorStepRunner::RUN_NOT_FOUND;
        }
        env->CallVoidMethod(step->myRunnable, run);
        jthrowable thrown = env->ExceptionOccurred();
        if (thrown == nullptr) return DominatorStepRunner::RUN_OK;
        // Read its message, and leave it pending for the caller.
        env->ExceptionClear();
        failure = getExceptionMessage(env, thrown);
        env->ExceptionClear();
        env->Throw(thrown);
        return DominatorStepRunner::RUN_FAILED;
    }
};

// A copy of a Java int array that stays valid while Java code runs.
class IntArrayElements {
public:
    IntArrayElements(JNIEnv* env, jintArray array) : myEnv(env), myArray(array), myData(nullptr) {
        KZT_ASSERT_NOT_NULL(array);
        myLength = env->GetArrayLength(array);
        myData = env->GetIntArrayElements(array, nullptr);
        if (myData == nullptr) throw std::bad_alloc();
    }
    ~IntArrayElements() { myEnv->ReleaseIntArrayElements(myArray, myData, JNI_ABORT); }
    IntArrayElements(const IntArrayElements&) = delete;
    IntArrayElements& operator=(const IntArrayElements&) = delete;
    const int* get() const { return (const int*)myData; }
    int getLength() const { return myLength; }

private:
    JNIEnv* myEnv;
    jintArray myArray;
    jint* myData;
    int myLength;
};

}  // namespace

extern "C" {

// ---- Object storage ----

JNIEXPORT jlong JNICALL NATIVE(createStorage)(JNIEnv* env, jclass, jint objectCount) {
    KZT_NATIVE_BEGIN
    ZString line("createStorage: objectCount=");
    line.appendLong(objectCount);
    Logger::messageWithStats(line);
    if (ObjectStorage::isTooLarge(objectCount)) {
        ZString refusal("tmo::");
        refusal.appendLong(objectCount);
        Logger::message(refusal);
        throwException(env, refusal.c_str());
        return 0;
    }
    ObjectStorage* storage = new ObjectStorage(objectCount);
    ZString result("createStorage: result=");
    result.appendLong((int64_t)(intptr_t)storage);
    Logger::messageWithStats(result);
    return (jlong)(intptr_t)storage;
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(deleteStorage)(JNIEnv* env, jclass, jlong handle) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    Logger::messageWithStats(ZString("deleteStorage: "));
    delete storage;
    Logger::messageWithStats(ZString("deleteStorage: exit"));
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setAllocatorImpl)(JNIEnv* env, jclass, jlong handle, jint object, jint frame, jint trn,
                                               jlong timestampMs) {
    KZT_NATIVE_BEGIN
    storageOf(handle)->setAllocator(object, frame, trn, timestampMs);
    KZT_NATIVE_END(env, )
}

OBJECT_GETTER(getAllocatorFrameImpl, jint, getAllocatorFrame)

OBJECT_GETTER(getAllocatorTrnImpl, jint, getAllocatorTrn)

OBJECT_GETTER(getAllocatorTimestampMs, jlong, getAllocatorTimestampMs)

OBJECT_GETTER(getGenerationImpl, jint, getGeneration)

JNIEXPORT void JNICALL NATIVE(setGenerations)(JNIEnv* env, jclass, jlong handle, jintArray objects,
                                             jintArray generations, jint count) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    forEachPair<jint>(env, objects, generations, count, [&](int object, int value) { storage->setGeneration(object, value); });
    KZT_NATIVE_END(env, )
}

OBJECT_GETTER(getDepthToGcRootImpl, jint, getDepthToGcRoot)

OBJECT_GETTER(getArrayLengthImpl, jint, getArrayLength)

JNIEXPORT void JNICALL NATIVE(setArrayLengths)(JNIEnv* env, jclass, jlong handle, jintArray objects,
                                              jintArray lengths, jint count) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    forEachPair<jint>(env, objects, lengths, count, [&](int object, int value) { storage->setArrayLength(object, value); });
    KZT_NATIVE_END(env, )
}

OBJECT_GETTER(getRefCountImpl, jint, getRefs().getRefCount)

// Gives each object its first reference count, in the main area where it fits.
JNIEXPORT void JNICALL NATIVE(createRefs)(JNIEnv* env, jclass, jlong handle, jintArray objects, jintArray counts,
                                         jint count) {
    KZT_NATIVE_BEGIN
    RefTable& refs = storageOf(handle)->getRefs();
    forEachPair<jint>(env, objects, counts, count, [&](int object, int value) { refs.createRefs(object, value); });
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setNewRefCount)(JNIEnv* env, jclass, jlong handle, jint object, jint count) {
    KZT_NATIVE_BEGIN
    storageOf(handle)->getRefs().setNewRefCount(object, count);
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(setRefImpl)(JNIEnv* env, jclass, jlong handle, jint object, jint index, jint target) {
    KZT_NATIVE_BEGIN
    storageOf(handle)->getRefs().setRef(object, index, target);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(getRefImpl)(JNIEnv* env, jclass, jlong handle, jint object, jint index) {
    KZT_NATIVE_BEGIN
    return storageOf(handle)->getRefs().getRef(object, index);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(setRefs)(JNIEnv* env, jclass, jlong handle, jintArray sources, jintArray indices,
                                      jintArray targets, jint count) {
    KZT_NATIVE_BEGIN
    RefTable& refs = storageOf(handle)->getRefs();
    CriticalArray<jint> from(env, sources), at(env, indices), to(env, targets);
    from.holding(count);
    at.holding(count);
    to.holding(count);
    for (int i = 0; i < count; i++) {
        int source = from.get()[i];
        int index = at.get()[i];
        int refCount = refs.getRefCount(source);
        if (index < 0 || index >= refCount) {
            ZString line("warning: bad ref index: src=");
            line.appendLong(source).append(" refIndex=").appendLong(index).append(" refCount=").appendLong(refCount);
            Logger::message(line);
            continue;
        }
        refs.setRef(source, index, to.get()[i]);
    }
    KZT_NATIVE_END(env, )
}

OBJECT_GETTER(getPrimitiveDataPositionImpl, jlong, getPrimitiveDataPosition)

JNIEXPORT void JNICALL NATIVE(setPrimitiveDataPositions)(JNIEnv* env, jclass, jlong handle, jintArray objects,
                                                        jlongArray positions, jint count) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    forEachPair<jlong>(env, objects, positions, count,
                       [&](int object, int64_t value) { storage->setPrimitiveDataPosition(object, value); });
    KZT_NATIVE_END(env, )
}

OBJECT_GETTER(getOIDImpl, jlong, getOID)

JNIEXPORT void JNICALL NATIVE(setOIDs)(JNIEnv* env, jclass, jlong handle, jintArray objects, jlongArray oids,
                                      jint count) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    forEachPair<jlong>(env, objects, oids, count, [&](int object, int64_t value) { storage->setOID(object, value); });
    KZT_NATIVE_END(env, )
}

JNIEXPORT jint JNICALL NATIVE(getCRC32)(JNIEnv* env, jclass, jlong handle, jint object) {
    KZT_NATIVE_BEGIN
    return storageOf(handle)->getCRC32(object);
    KZT_NATIVE_END(env, 0)
}

JNIEXPORT void JNICALL NATIVE(setCRC32)(JNIEnv* env, jclass, jlong handle, jint object, jint crc) {
    KZT_NATIVE_BEGIN
    storageOf(handle)->setCRC32(object, crc);
    KZT_NATIVE_END(env, )
}

JNIEXPORT jstring JNICALL NATIVE(getStorageStatisticsImpl)(JNIEnv* env, jclass, jlong handle) {
    KZT_NATIVE_BEGIN
    return newJavaString(env, storageOf(handle)->getStatistics());
    KZT_NATIVE_END(env, nullptr)
}

// The immediate dominator that the dominator step stored, as an object id.
OBJECT_GETTER(getDominatorImpl, jint, getInts().get)

// ---- Dominators ----

JNIEXPORT jboolean JNICALL NATIVE(dc)(JNIEnv* env, jclass, jstring inputPath, jstring outputPath, jstring folder,
                                     jstring algorithm) {
    KZT_NATIVE_BEGIN
    bool done = dcImpl(createZS(env, inputPath), createZS(env, outputPath), createZS(env, folder),
                       createZS(env, algorithm));
    return done ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_FALSE)
}

JNIEXPORT jboolean JNICALL NATIVE(computeDominatorsImpl)(JNIEnv* env, jclass, jlong handle, jintArray markedBits,
                                                        jintArray roots, jstring inputPath, jstring outputPath,
                                                        jboolean reuseExisting, jobject runnable) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    KZT_ASSERT_NOT_NULL(runnable);
    ZString toThrow;
    bool done;
    {
        // Copies, not critical holds: the step runs Java code meanwhile.
        IntArrayElements bits(env, markedBits), rootIds(env, roots);
        KZT_ASSERT((int64_t)bits.getLength() * 32 >= storage->getSize());
        RunnableStep step = {env, runnable};
        DominatorStepRunner runner = {RunnableStep::run, &step};
        done = computeDominators(storage, bits.get(), rootIds.get(), rootIds.getLength(), createZS(env, inputPath),
                                 createZS(env, outputPath), reuseExisting == JNI_TRUE, runner, toThrow);
    }
    if (!toThrow.isEmpty()) throwException(env, toThrow.c_str());
    return done ? JNI_TRUE : JNI_FALSE;
    KZT_NATIVE_END(env, JNI_FALSE)
}

// ---- Reachability ----

JNIEXPORT void JNICALL NATIVE(f)(JNIEnv* env, jclass, jlong handle, jintArray starts, jintArray visited) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    CriticalArray<jint> startIds(env, starts), marks(env, visited, true);
    checkBitSet(marks, storage);
    markFromStarts(storage, startIds, marks.get());
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(f0m)(JNIEnv* env, jclass, jlong handle, jintArray extra, jintArray starts,
                                  jintArray visited) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    CriticalArray<jint> extraBits(env, extra), startIds(env, starts), marks(env, visited, true);
    checkBitSet(marks, storage);
    int words = extraBits.getLength() < marks.getLength() ? extraBits.getLength() : marks.getLength();
    for (int w = 0; w < words; w++) marks.get()[w] |= extraBits.get()[w];
    markFromStarts(storage, startIds, marks.get());
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(f0o)(JNIEnv* env, jclass, jlong handle, jintArray objects, jint from, jint to,
                                  jintArray starts, jintArray visited) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    CriticalArray<jint> preset(env, objects), startIds(env, starts), marks(env, visited, true);
    checkBitSet(marks, storage);
    KZT_ASSERT(from >= 0 && from <= to && to <= preset.getLength());
    checkObjects(preset.get() + from, to - from, storage);
    for (int i = from; i < to; i++) Reachability::mark(marks.get(), preset.get()[i]);
    markFromStarts(storage, startIds, marks.get());
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(fStrong)(JNIEnv* env, jclass, jlong handle, jintArray startBits, jintArray visited,
                                      jintArray excluded, jint specialObject, jint specialIndex) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    CriticalArray<jint> starts(env, startBits), marks(env, visited, true), exclusions(env, excluded);
    checkBitSet(starts, storage);
    checkBitSet(marks, storage);
    ZVector<int> stack;
    for (int object = 1; object < storage->getSize(); object++) {
        if (!Reachability::isMarked(starts.get(), object) || Reachability::isMarked(marks.get(), object)) continue;
        Reachability::markAsVisitedStrong(*storage, object, marks.get(), exclusions.get(), exclusions.getLength(),
                                          specialObject, specialIndex, stack);
    }
    KZT_NATIVE_END(env, )
}

JNIEXPORT void JNICALL NATIVE(calculateDepthToGcRoot)(JNIEnv* env, jclass, jlong handle, jintArray roots) {
    KZT_NATIVE_BEGIN
    ObjectStorage* storage = storageOf(handle);
    CriticalArray<jint> rootIds(env, roots);
    Reachability::calculateDepthToGcRoot(*storage, rootIds.get(), rootIds.getLength());
    KZT_NATIVE_END(env, )
}

}  // extern "C"
