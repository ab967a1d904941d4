// The recording of one object. The path of an object that is only counted
// or skipped takes no lock and allocates nothing; a recorded one walks its
// stack (or takes the sampler's), enters the ObjectEnumerator and becomes
// an event of its thread.
#include "recording/AllocationRecording.h"

#include <atomic>

#include "db/DB.h"
#include "db/SignatureNames.h"
#include "recording/CountingSupport.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/ObjectEnumerator.h"
#include "recording/StackCapture.h"
#include "recording/ThreadInfo.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"

AllocationRecordingSettings ourAllocationRecordingSettings = {10, 4096};

int AllocationRecording::getClassPseudoMethod(JNIEnv* env, jclass klass) {
    if (klass == nullptr) return 0;
    jvmtiEnv* tags = ourJVMTI_AllocatorMethod;
    jlong tag = 0;
    if (tags != nullptr && tags->GetTag(klass, &tag) == JVMTI_ERROR_NONE && tag > 0) return (int)tag;
    JvmtiMemory<char> signature;
    if (ourJVMTI->GetClassSignature(klass, signature.out(), nullptr) != JVMTI_ERROR_NONE || signature.get() == nullptr)
        return 0;
    ZString name = convertClassSignatureToFullName(signature.get());
    int method;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        method = ZMethod::getByName(lock, name, "<<init>>", "()", "void", "", false);
    }
    if (tags != nullptr) tags->SetTag(klass, method);
    return method;
}

// The class of an object that came without one. Redirected JNI functions
// run in native code's frame: the local reference goes when the holder does.
class ObjectClass {
public:
    ObjectClass(JNIEnv* env, jobject object, jclass given)
        : myEnv(env), myOwn(given == nullptr && object != nullptr ? env->GetObjectClass(object) : nullptr),
          myClass(given != nullptr ? given : myOwn) {}
    ~ObjectClass() {
        if (myOwn != nullptr) myEnv->DeleteLocalRef(myOwn);
    }
    ObjectClass(const ObjectClass&) = delete;
    ObjectClass& operator=(const ObjectClass&) = delete;
    jclass get() const { return myClass; }

private:
    JNIEnv* myEnv;
    jclass myOwn;
    jclass myClass;
};

// Pseudo threads stand for many threads at once: their tree, buffer and
// counters are used under the lock.
static bool isPseudoThread(const ThreadInfo* thread) {
    return thread == ourVMStartThread || thread == ourUnknownAllocatorThread || thread == ourThreadUnknown ||
           thread == ourOldestFinishedThreads;
}

// ---- counting ----

// The counter of an allocation point, through the thread's own cache.
static int64_t* getAllocCounterPtrBase(ThreadInfo* thread, int codePoint, int classStr) {
    long key = (long)(((uint64_t)(uint32_t)codePoint << 32) | (uint32_t)classStr);
    if (thread == nullptr) {
        LockHolder lock(&ourLock, LOCK_SITE);
        return (int64_t*)(intptr_t)AllocObjectCounting::getCounterAddress(lock, codePoint, classStr);
    }
    ZMap<long, long>& cache = thread->getNodeTree()->getAllocCounterCache();
    long* known = cache.getPtr(key);
    if (known != nullptr) return (int64_t*)(intptr_t)*known;
    long address;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        address = (long)AllocObjectCounting::getCounterAddress(lock, codePoint, classStr);
    }
    cache.put(key, address);
    return (int64_t*)(intptr_t)address;
}

static int getTopMethod(JNIEnv* env, ThreadInfo* thread) {
    if (thread != nullptr) return thread->getStackCapture()->getTopMethodIndex(env);
    jvmtiFrameInfo top;
    jint count = 0;
    if (ourJVMTI->GetStackTrace(nullptr, 0, 1, &top, &count) != JVMTI_ERROR_NONE || count < 1) return 0;
    LockHolder lock(&ourLock, LOCK_SITE);
    return StackCapture::getMethodById(lock, env, top.method);
}

// Object counting on the heap sampling road: one compare-and-swap on the
// stripe of the thread, no retry. A lost increment in a race is accepted;
// the stripes make it rare.
static void countObject(JNIEnv* env, jobject object, jclass klass, int line) {
    if (ourVmDeathCalled) return;
    ThreadInfo* thread = ourVmInitCalled ? getThreadInfoJvmti(env, nullptr) : nullptr;
    if (thread != nullptr && isPseudoThread(thread)) thread = nullptr;
    int top = getTopMethod(env, thread);
    if (top < 1) return;
    ObjectClass objectClass(env, object, klass);
    MethodRecord* pseudo = ZMethod::getRecord(AllocationRecording::getClassPseudoMethod(env, objectClass.get()));
    if (pseudo == nullptr) return;
    int codePoint;
    if (thread != nullptr) {
        codePoint = thread->getNodeTree()->getCodePoint(top, line);
    } else {
        LockHolder lock(&ourLock, LOCK_SITE);
        codePoint = CodePointStorage::getCodePoint(lock, top, line);
    }
    int64_t* counter = getAllocCounterPtrBase(thread, codePoint, pseudo->myClass);
    int64_t* stripe = CountingSupportBase::getStripe(counter, thread != nullptr ? thread->getTRN() : 0);
    int64_t value = __atomic_load_n(stripe, __ATOMIC_RELAXED);
    __atomic_compare_exchange_n(stripe, &value, value + 1, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED);
}

// ---- stacks ----

static std::atomic<int64_t> ourStatObjects(0);
static std::atomic<int64_t> ourStatWalks(0);

// With debug "alloc_stats": how many recorded objects cost a stack walk.
static void countForStats(bool walked) {
    static int debug = ourOptions.isDebug("alloc_stats") ? 1 : 0;
    if (debug == 0) return;
    int64_t walks = walked ? ourStatWalks.fetch_add(1) + 1 : ourStatWalks.load();
    int64_t objects = ourStatObjects.fetch_add(1) + 1;
    if (objects % 10000 != 0) return;
    Logger::message(ZString("alloc_stats: objects=") + ZString::fromLong(objects) + " walks=" +
                    ZString::fromLong(walks) + " (" + ZString::fromLong(walks * 100 / objects) + "%)");
}

// The shared frame under which the sampler's stack of a thread ends.
static int getSampledFrame(ThreadInfo* thread, int pseudoMethod) {
    int parent = thread->getLastSampleFrame();
    if (parent >= 1) {
        int known = thread->getCachedChildFrame(parent, pseudoMethod);
        if (known != 0) return known;
    }
    LockHolder lock(&ourLock, LOCK_SITE);
    bool sampled = parent >= 1;
    if (!sampled) {
        int unknown = ZMethod::getByName(lock, "", "<Stack trace could not be retrieved>", "", "void", "", false);
        parent = ZFrameStorage::getChild(lock, 0, unknown, 0);
    }
    int frame = ZFrameStorage::getChild(lock, parent, pseudoMethod, 0);
    if (sampled) thread->putCachedChildFrame(parent, pseudoMethod, frame);
    return frame;
}

// The node of the object's place in the thread's own tree. A call from an
// instrumented site walks the stack once per invocation of the allocating
// method: the walk's node is handed back to the method as its cached node.
static int getExactNode(JNIEnv* env, ThreadInfo* thread, bool startPhase, bool fromSite, jint* cachedFrame,
                        int line) {
    ZNodeTree* tree = thread->getNodeTree();
    if (startPhase) return tree->getVmStartNode();
    int node;
    if (fromSite) {
        bool walked = *cachedFrame < 1 || *cachedFrame >= tree->getCapacity();
        if (walked) {
            node = thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_noOwnLine(env, nullptr);
            if (node > 0) *cachedFrame = node;
        } else {
            node = *cachedFrame;
        }
        countForStats(walked);
        if (node > 0) node = tree->tryGetOwnLineChildNode(node, line);
    } else {
        node = thread->getStackCapture()->fillCurrentNodeJvmti_notForTracing_withOwnLine(env);
        countForStats(true);
    }
    return node > 0 ? node : tree->getUnknownAllocatorNode();
}

jint AllocationRecording::recordObject(JNIEnv* env, jobject object, jclass klass, jlong size, jint cachedFrame,
                                       jint classMethodId, jint line, uint64_t mode) {
    if (mode == ALLOCATION_RECORDING_OBJECT_COUNTING) {
        countObject(env, object, klass, line);
        return 0;
    }
    if (ourVmDeathCalled) return 0;
    bool startPhase = false;
    if (!ourVmInitCalled) {
        jvmtiPhase phase = JVMTI_PHASE_DEAD;
        if (ourJVMTI->GetPhase(&phase) != JVMTI_ERROR_NONE) return 0;
        if (phase != JVMTI_PHASE_START && phase != JVMTI_PHASE_LIVE) return 0;
        startPhase = phase == JVMTI_PHASE_START;
    }
    ThreadInfo* thread = getThreadInfoJvmti(env, nullptr);
    if (thread == nullptr) thread = ourUnknownAllocatorThread;
    if (thread == nullptr) return cachedFrame;
    if (thread->isExcludedFromTracing()) return cachedFrame;
    bool shared = isPseudoThread(thread);
    LockHolder sharedLock(shared ? &ourLock : nullptr, LOCK_SITE);

    if (size <= 0 && object != nullptr && ourJVMTI->GetObjectSize(object, &size) != JVMTI_ERROR_NONE) size = 0;
    const AllocationRecordingSettings settings = ourAllocationRecordingSettings;
    if (!thread->countCreatedObject(size, settings.myRecordEach, settings.mySizeLimit)) return cachedFrame;

    bool locked = !shared && CpuTracingPseudoLock::ourLocked != 0;
    LockHolder lock(locked ? &ourLock : nullptr, LOCK_SITE);
    int pseudoMethod = classMethodId;
    if (pseudoMethod < 1) {
        ObjectClass objectClass(env, object, klass);
        pseudoMethod = getClassPseudoMethod(env, objectClass.get());
        if (pseudoMethod < 1) return cachedFrame;
    }
    int nodeOrFrame;
    jint result = cachedFrame;
    if (mode == ALLOCATION_RECORDING_SAMPLED_STACKS) {
        nodeOrFrame = -getSampledFrame(thread, pseudoMethod);
    } else {
        // A cached node belongs to one thread's tree: pseudo threads keep none.
        bool fromSite = classMethodId > 0 && !shared;
        int node = getExactNode(env, thread, startPhase, fromSite, &result, line);
        ZNodeTree* tree = thread->getNodeTree();
        nodeOrFrame = tree->getChildNode(node, tree->getCodePoint(pseudoMethod, 0));
    }
    if (object != nullptr) ourObjectEnumerator.createObjectAllocator(object, thread, nodeOrFrame);
    int32_t event[4] = {EVENT_ALLOCATION, lowHalf(size), highHalf(size), nodeOrFrame};
    thread->addEvent(event, 4, !locked && !shared);
    return result;
}

// Live threads' counts and those of the dead ones.
template <typename Count>
static int64_t sumOverThreads(int64_t dead, Count count) {
    LockHolder lock(&ourLock, LOCK_SITE);
    int64_t total = dead;
    ThreadInfo::forEachLiveThread([&](ThreadInfo* thread) { total += count(thread); });
    return total;
}

int64_t AllocationRecording::getCreatedObjectCount() {
    return sumOverThreads(ThreadInfo::ourCreatedObjectCountInDeadThreads,
                          [](ThreadInfo* thread) { return thread->getCreatedObjectCount(); });
}

int64_t AllocationRecording::getCreatedObjectSize() {
    return sumOverThreads(ThreadInfo::ourCreatedObjectSizeInDeadThreads,
                          [](ThreadInfo* thread) { return thread->getCreatedObjectSize(); });
}
