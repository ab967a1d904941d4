#include "recording/StackCapture.h"

#include <cstring>

#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZFrameStorage.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

// Line by (method, location); -1 for a location without a line, so that a
// lineless method is not asked again.
static ZMap<MethodAndLocation, int>& ourLineCache = *new ZMap<MethodAndLocation, int>(1000);
static ZMap<jmethodID, int>& ourMethodID2MethodIndex = *new ZMap<jmethodID, int>(1000);

int StackCapture::getLineNumber(const LockHolder&, jmethodID methodId, int method, jlocation location) {
    if (location < 0) return 0;
    MethodAndLocation key = {method, (int64_t)location};
    int* known = ourLineCache.getPtr(key);
    if (known != nullptr) return *known < 0 ? 0 : *known;
    int line = 0;
    jint count = 0;
    JvmtiMemory<jvmtiLineNumberEntry> table;
    if (ourJVMTI->GetLineNumberTable(methodId, &count, table.out()) == JVMTI_ERROR_NONE) {
        // Sorted by start location: the last entry that starts at or before it.
        for (int i = 0; i < count && table.get()[i].start_location <= location; i++) {
            line = table.get()[i].line_number;
        }
    }
    ourLineCache.put(key, line == 0 ? -1 : line);
    return line;
}

static bool isDigit(char c, bool hex) {
    return (c >= '0' && c <= '9') || (hex && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')));
}

// "Foo$$Lambda$12.345" and "Foo$$Lambda$12.678" are one lambda site; so are
// the hidden classes of newer JVMs, "Foo$$Lambda$12.0x0000000800c03000".
static ZString foldLambdaClassName(const ZString& name) {
    if (!name.contains("$$Lambda$")) return name;
    int dot = name.lastIndexOfChar('.');
    int from = dot + 1;
    bool hex = name.getLength() > from + 2 && name[from] == '0' && name[from + 1] == 'x';
    if (hex) from += 2;
    if (dot < 0 || from == name.getLength()) return name;
    for (int i = from; i < name.getLength(); i++) {
        if (!isDigit(name[i], hex)) return name;
    }
    return name.substring(0, dot);
}

static ZString getDeclaringClassName(JNIEnv* env, jmethodID methodId, ZString* sourceFile) {
    jclass declaringClass = nullptr;
    if (ourJVMTI->GetMethodDeclaringClass(methodId, &declaringClass) != JVMTI_ERROR_NONE || declaringClass == nullptr) {
        return ZString("<unknown>");
    }
    ZString name = foldLambdaClassName(convertClassSignatureToFullName(getClassNameJvmti(declaringClass, __FILE__).c_str()));
    JvmtiMemory<char> source;
    if (ourJVMTI->GetSourceFileName(declaringClass, source.out()) == JVMTI_ERROR_NONE && source.get() != nullptr) {
        *sourceFile = source.get();
    }
    if (env != nullptr) env->DeleteLocalRef(declaringClass);
    return name;
}

int StackCapture::getMethodById(const LockHolder& lock, JNIEnv* env, jmethodID methodId) {
    KZT_ASSERT_NOT_NULL(methodId);
    int* known = ourMethodID2MethodIndex.getPtr(methodId);
    if (known != nullptr) return *known;
    ZString name;
    ZString parameters;
    ZString returnType;
    JvmtiMemory<char> rawName;
    JvmtiMemory<char> descriptor;
    if (ourJVMTI->GetMethodName(methodId, rawName.out(), descriptor.out(), nullptr) == JVMTI_ERROR_NONE) {
        if (rawName.get() != nullptr) name = rawName.get();
        if (descriptor.get() != nullptr) {
            parameters = convertMethodSignatureToParameters(descriptor.get());
            returnType = getReturnTypeFromMethodSignature(descriptor.get());
        }
    }
    ZString sourceFile;
    ZString className = getDeclaringClassName(env, methodId, &sourceFile);
    jboolean native = JNI_FALSE;
    if (ourJVMTI->IsMethodNative(methodId, &native) != JVMTI_ERROR_NONE) native = JNI_FALSE;
    int method = ZMethod::getByName(lock, className, name, parameters, returnType, sourceFile, native == JNI_TRUE);
    KZT_ASSERT(method != 0);
    ourMethodID2MethodIndex.put(methodId, method);
    return method;
}

// Bottom of the stack first; each call is placed at the line where its
// caller stood. `frameAt(i)` gives method id and location of frame i, 0
// being the top.
template <typename FrameAt>
static int walkStack(const LockHolder& lock, JNIEnv* env, int count, bool skipInvisible, FrameAt frameAt) {
    int frame = 0;
    int line = 0;
    for (int i = count - 1; i >= 0; i--) {
        jmethodID methodId;
        jlocation location;
        frameAt(i, &methodId, &location);
        if (methodId == nullptr) continue;
        int method = StackCapture::getMethodById(lock, env, methodId);
        if (skipInvisible && (ZMethod::getFlags(method) & METHOD_FLAG_INVISIBLE) != 0) continue;
        frame = ZFrameStorage::getChild(lock, frame, method, line);
        line = StackCapture::getLineNumber(lock, methodId, method, location);
    }
    if (frame > 0 && line > 0) frame = ZFrameStorage::getChild(lock, frame, ownLineNumberMethod, line);
    return frame;
}

int StackCapture::fillCurrentFrameJVMTIForSampling(const LockHolder& lock, JNIEnv* env,
                                                    const jvmtiStackInfo& stack) {
    return walkStack(lock, env, stack.frame_count, true, [&](int i, jmethodID* id, jlocation* location) {
        *id = stack.frame_buffer[i].method;
        *location = stack.frame_buffer[i].location;
    });
}

int StackCapture::fillCurrentFrameForAsyncSampling(const LockHolder& lock, JNIEnv* env, int count,
                                                    AsyncCallFrame* frames) {
    return walkStack(lock, env, count, true, [&](int i, jmethodID* id, jlocation* location) {
        *id = frames[i].myMethodId;
        *location = frames[i].myLineOrLocation;
    });
}

int StackCapture::fillCurrentFrameJvmtiForRoots(const LockHolder& lock, JNIEnv* env, const jvmtiStackInfo& stack) {
    for (int i = 0; i < stack.frame_count; i++) KZT_ASSERT_NOT_NULL(stack.frame_buffer[i].method);
    return walkStack(lock, env, stack.frame_count, false, [&](int i, jmethodID* id, jlocation* location) {
        *id = stack.frame_buffer[i].method;
        *location = stack.frame_buffer[i].location;
    });
}

void StackCapture::resetForTests() {
    ourLineCache.clear();
    ourMethodID2MethodIndex.clear();
}

// ---- The current thread, into its own tree ----

NodeStackCapture::NodeStackCapture(ZNodeTree* tree) : myTree(tree), myLineCache(1024), myMethodCache(1024) {}

int NodeStackCapture::getLineNumber(jmethodID methodId, int method, jlocation location) {
    if (location < 0) return 0;
    MethodAndLocation key = {method, (int64_t)location};
    return ZNodeTree::lookupCached(myLineCache, key, [&](const LockHolder& lock) {
        return StackCapture::getLineNumber(lock, methodId, method, location);
    });
}

int NodeStackCapture::getMethodById(JNIEnv* env, jmethodID methodId) {
    return ZNodeTree::lookupCached(myMethodCache, methodId, [&](const LockHolder& lock) {
        return StackCapture::getMethodById(lock, env, methodId);
    });
}

int NodeStackCapture::readCurrentStack(JNIEnv* env, int maxDepth, jvmtiError* error) {
    // Both kinds of frame take 16 bytes: the asynchronous walk writes into the
    // buffer, and each frame is turned into a JVMTI frame in place.
    static_assert(sizeof(AsyncCallFrame) == sizeof(jvmtiFrameInfo), "frames of one size");
    AsyncCallFrame* frames = reinterpret_cast<AsyncCallFrame*>(myFrameBuffer);
    int read = AsyncCallTrace::readCurrentThread(env, maxDepth, frames);
    for (int i = 0; i < read; i++) {
        AsyncCallFrame frame;
        memcpy(&frame, &frames[i], sizeof frame);
        myFrameBuffer[i].method = frame.myMethodId;
        myFrameBuffer[i].location = frame.myLineOrLocation < 0 ? -1 : frame.myLineOrLocation;
    }
    if (read >= 0) return read;
    jint count = 0;
    *error = ourJVMTI->GetStackTrace(nullptr, 0, maxDepth, myFrameBuffer, &count);
    return *error == JVMTI_ERROR_NONE ? count : 0;
}

// The `count` frames in the buffer as a node, bottom up. A frame whose method
// flags, masked by `mask`, are not `wanted` is left out; with `dropLine` so is
// the line at which the frame below it called on.
int NodeStackCapture::walkCurrentStack(JNIEnv* env, int count, int mask, int wanted, bool dropLine, bool lines,
                                       int* lastLine) {
    int node = 0;
    int line = 0;
    for (int i = count - 1; i >= 0; i--) {
        jmethodID methodId = myFrameBuffer[i].method;
        int method = getMethodById(env, methodId);
        if ((ZMethod::getFlags(method) & mask) != wanted) {
            if (dropLine) line = 0;
            continue;
        }
        node = myTree->getChildNode(node, myTree->getCodePoint(method, line));
        line = lines ? getLineNumber(methodId, method, myFrameBuffer[i].location) : 0;
    }
    if (lastLine != nullptr) *lastLine = line;
    return node;
}

int NodeStackCapture::readWholeStack(JNIEnv* env) {
    jvmtiError error = JVMTI_ERROR_NONE;
    int count = readCurrentStack(env, MAX_STACK_DEPTH, &error);
    check_JVMTI_error(error);
    return count;
}

const NodeStackCapture::RememberedStack* NodeStackCapture::findRememberedStack(int count) const {
    for (const RememberedStack& stack : myRemembered) {
        if (stack.myCount == count && memcmp(myFrameBuffer, stack.myFrames, count * sizeof(jvmtiFrameInfo)) == 0) {
            return &stack;
        }
    }
    return nullptr;
}

void NodeStackCapture::rememberStack(int count, int node, int lastLine) {
    if (count > REMEMBERED_DEPTH) return;
    RememberedStack& stack = myRemembered[myOldestRemembered];
    myOldestRemembered = (myOldestRemembered + 1) % REMEMBERED_STACKS;
    memcpy(stack.myFrames, myFrameBuffer, count * sizeof(jvmtiFrameInfo));
    stack.myCount = count;
    stack.myNode = node;
    stack.myLastLine = lastLine;
}

int NodeStackCapture::fillCurrentNodeJvmti_notForTracing_noOwnLine(JNIEnv* env, int* lastLine) {
    int count = readWholeStack(env);
    int line = 0;
    int node = 0;
    if (const RememberedStack* remembered = findRememberedStack(count)) {
        node = remembered->myNode;
        line = remembered->myLastLine;
    } else {
        // Invisibility is fixed when a method is first seen.
        node = walkCurrentStack(env, count, METHOD_FLAG_INVISIBLE, 0, false, true, &line);
        rememberStack(count, node, line);
    }
    if (lastLine != nullptr) *lastLine = line;
    return node;
}

int NodeStackCapture::fillCurrentNodeJvmti_notForTracing_withOwnLine(JNIEnv* env) {
    int line = 0;
    int node = fillCurrentNodeJvmti_notForTracing_noOwnLine(env, &line);
    return myTree->tryGetOwnLineChildNode(node, line);
}

int NodeStackCapture::fillCurrentNodeJvmti_forTracing(JNIEnv* env, bool lines) {
    int count = readWholeStack(env);
    // Not remembered: which methods are traced changes as classes are
    // instrumented again.
    const int mask = METHOD_FLAG_TRACED | METHOD_FLAG_EXCLUDED | METHOD_FLAG_INVISIBLE;
    return walkCurrentStack(env, count, mask, METHOD_FLAG_TRACED, true, lines, nullptr);
}

// A wrapped native runs under its prefixed name below its wrapper: what it
// allocates counts for the wrapper, the method that the program called.
// Object counting asks from the JVM's allocation sampling callback, where the
// asynchronous walk finds no walkable frame: JVMTI at once.
int NodeStackCapture::getTopMethodIndex(JNIEnv* env) {
    // Mostly the top frame is the one: one frame is far less to walk.
    // When it is not, the frames below it are read, up to the fourth.
    jmethodID top = nullptr;
    jlocation location = 0;
    int from = 0;
    if (ourJVMTI->GetFrameLocation(nullptr, 0, &top, &location) == JVMTI_ERROR_NONE && top != nullptr) {
        int method = getMethodById(env, top);
        if ((ZMethod::getFlags(method) & METHOD_FLAG_INVISIBLE) == 0) return method;
        from = 1;
    }
    const int depth = 4;
    jint count = 0;
    if (ourJVMTI->GetStackTrace(nullptr, from, depth - from, myFrameBuffer, &count) != JVMTI_ERROR_NONE) return 0;
    for (int i = 0; i < count; i++) {
        int method = getMethodById(env, myFrameBuffer[i].method);
        if ((ZMethod::getFlags(method) & METHOD_FLAG_INVISIBLE) == 0) return method;
    }
    return 0;
}
