// A scripted JVMTI for unit tests: the methods, their classes and line tables,
// the current thread's stack, tags, sizes and system properties are what the
// test puts here. Installed as
// ourJVMTI for the object's lifetime. Header only: each test binary that
// includes it gets its own copy.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "services/AgentState.h"

struct ScriptedMethod {
    std::string name;
    std::string descriptor;
    std::string classSignature;
    std::string sourceFile;  // empty: no source information
    bool native = false;
    std::vector<std::pair<jlocation, jint>> lines;  // sorted by location; empty: no table
};

class ScriptedJvmti {
public:
    ScriptedJvmti() {
        ourCurrent() = this;
        memset(&myFunctions, 0, sizeof(myFunctions));
        myFunctions.Deallocate = deallocate;
        myFunctions.GetStackTrace = getStackTrace;
        myFunctions.GetFrameLocation = getFrameLocation;
        myFunctions.GetLineNumberTable = getLineNumberTable;
        myFunctions.GetMethodName = getMethodName;
        myFunctions.GetMethodDeclaringClass = getMethodDeclaringClass;
        myFunctions.GetClassSignature = getClassSignature;
        myFunctions.GetSourceFileName = getSourceFileName;
        myFunctions.IsMethodNative = isMethodNative;
        myFunctions.GetThreadLocalStorage = getThreadLocalStorage;
        myFunctions.GetPhase = getPhase;
        myFunctions.GetObjectSize = getObjectSize;
        myFunctions.SetTag = setTag;
        myFunctions.GetTag = getTag;
        myFunctions.GetErrorName = getErrorName;
        myFunctions.GetSystemProperty = getSystemProperty;
        myFunctions.Allocate = allocate;
        myEnv.functions = &myFunctions;
        mySaved = ourJVMTI;
        ourJVMTI = &myEnv;
    }
    ~ScriptedJvmti() {
        ourJVMTI = mySaved;
        ourCurrent() = nullptr;
    }
    ScriptedJvmti(const ScriptedJvmti&) = delete;
    ScriptedJvmti& operator=(const ScriptedJvmti&) = delete;

    // The method id is the key; the method's declaring class handle is the key too.
    jmethodID define(intptr_t key, ScriptedMethod method) {
        methods[key] = std::move(method);
        return (jmethodID)key;
    }
    // A line table whose line at each location below `count` is the location.
    static std::vector<std::pair<jlocation, jint>> linesAsLocations(int count = 100) {
        std::vector<std::pair<jlocation, jint>> lines;
        for (int i = 0; i < count; i++) lines.push_back({i, i});
        return lines;
    }
    void push(jmethodID method, jlocation location) { stack.push_back({method, location}); }
    // The stack as GetStackTraces would hand it out.
    jvmtiStackInfo stackInfo() {
        jvmtiStackInfo info;
        memset(&info, 0, sizeof(info));
        info.frame_buffer = stack.data();
        info.frame_count = (jint)stack.size();
        return info;
    }

    std::map<intptr_t, ScriptedMethod> methods;
    std::vector<jvmtiFrameInfo> stack;  // top first
    int lineTableCalls = 0;
    int stackTraceCalls = 0;
    // The current thread's local storage, the phase, object sizes (16 when
    // not given) and tags by object handle; SetTag fails while `tagError` is set.
    void* threadLocal = nullptr;
    jvmtiPhase phase = JVMTI_PHASE_LIVE;
    std::map<intptr_t, jlong> sizes;
    std::map<intptr_t, jlong> tags;
    jvmtiError tagError = JVMTI_ERROR_NONE;
    // System properties; Allocate fails above `allocationLimit` bytes; every
    // Deallocate is counted.
    std::map<std::string, std::string> systemProperties;
    jlong allocationLimit = 1 << 30;
    int deallocated = 0;

private:
    static ScriptedJvmti*& ourCurrent() {
        static ScriptedJvmti* current = nullptr;
        return current;
    }
    static const ScriptedMethod& methodOf(const void* handle) { return ourCurrent()->methods.at((intptr_t)handle); }
    static char* copyOf(const std::string& text) {
        char* copy = (char*)malloc(text.size() + 1);
        memcpy(copy, text.c_str(), text.size() + 1);
        return copy;
    }

    static jvmtiError JNICALL deallocate(jvmtiEnv*, unsigned char* memory) {
        ourCurrent()->deallocated++;
        free(memory);
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getThreadLocalStorage(jvmtiEnv*, jthread, void** data) {
        *data = ourCurrent()->threadLocal;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getPhase(jvmtiEnv*, jvmtiPhase* phase) {
        *phase = ourCurrent()->phase;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getObjectSize(jvmtiEnv*, jobject object, jlong* size) {
        auto known = ourCurrent()->sizes.find((intptr_t)object);
        *size = known != ourCurrent()->sizes.end() ? known->second : 16;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL setTag(jvmtiEnv*, jobject object, jlong tag) {
        if (ourCurrent()->tagError != JVMTI_ERROR_NONE) return ourCurrent()->tagError;
        ourCurrent()->tags[(intptr_t)object] = tag;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getTag(jvmtiEnv*, jobject object, jlong* tag) {
        auto known = ourCurrent()->tags.find((intptr_t)object);
        *tag = known != ourCurrent()->tags.end() ? known->second : 0;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL allocate(jvmtiEnv*, jlong size, unsigned char** memory) {
        if (size > ourCurrent()->allocationLimit) return JVMTI_ERROR_OUT_OF_MEMORY;
        *memory = (unsigned char*)malloc(size);
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getSystemProperty(jvmtiEnv*, const char* property, char** value) {
        auto known = ourCurrent()->systemProperties.find(property);
        if (known == ourCurrent()->systemProperties.end()) return JVMTI_ERROR_NOT_AVAILABLE;
        *value = copyOf(known->second);
        return JVMTI_ERROR_NONE;
    }
    // Names the errors the tests meet; any other is an illegal argument.
    static jvmtiError JNICALL getErrorName(jvmtiEnv*, jvmtiError error, char** name) {
        if (error == JVMTI_ERROR_INVALID_OBJECT) *name = copyOf("JVMTI_ERROR_INVALID_OBJECT");
        else if (error == JVMTI_ERROR_INVALID_THREAD) *name = copyOf("JVMTI_ERROR_INVALID_THREAD");
        else return JVMTI_ERROR_ILLEGAL_ARGUMENT;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getStackTrace(jvmtiEnv*, jthread, jint start, jint max, jvmtiFrameInfo* frames,
                                            jint* count) {
        ourCurrent()->stackTraceCalls++;
        const std::vector<jvmtiFrameInfo>& stack = ourCurrent()->stack;
        int n = 0;
        for (size_t i = start; i < stack.size() && n < max; i++) frames[n++] = stack[i];
        *count = n;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getFrameLocation(jvmtiEnv*, jthread, jint depth, jmethodID* method,
                                               jlocation* location) {
        const std::vector<jvmtiFrameInfo>& stack = ourCurrent()->stack;
        if (depth < 0 || (size_t)depth >= stack.size()) return JVMTI_ERROR_NO_MORE_FRAMES;
        *method = stack[depth].method;
        *location = stack[depth].location;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getLineNumberTable(jvmtiEnv*, jmethodID method, jint* count,
                                                 jvmtiLineNumberEntry** table) {
        ourCurrent()->lineTableCalls++;
        const ScriptedMethod& m = methodOf(method);
        if (m.lines.empty()) return JVMTI_ERROR_ABSENT_INFORMATION;
        *count = (jint)m.lines.size();
        *table = (jvmtiLineNumberEntry*)malloc(sizeof(jvmtiLineNumberEntry) * m.lines.size());
        for (size_t i = 0; i < m.lines.size(); i++) (*table)[i] = {m.lines[i].first, m.lines[i].second};
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getMethodName(jvmtiEnv*, jmethodID method, char** name, char** signature,
                                            char** generic) {
        const ScriptedMethod& m = methodOf(method);
        if (name != nullptr) *name = copyOf(m.name);
        if (signature != nullptr) *signature = copyOf(m.descriptor);
        if (generic != nullptr) *generic = nullptr;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getMethodDeclaringClass(jvmtiEnv*, jmethodID method, jclass* klass) {
        *klass = (jclass)method;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getClassSignature(jvmtiEnv*, jclass klass, char** signature, char** generic) {
        *signature = copyOf(methodOf(klass).classSignature);
        if (generic != nullptr) *generic = nullptr;
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL getSourceFileName(jvmtiEnv*, jclass klass, char** name) {
        const ScriptedMethod& m = methodOf(klass);
        if (m.sourceFile.empty()) return JVMTI_ERROR_ABSENT_INFORMATION;
        *name = copyOf(m.sourceFile);
        return JVMTI_ERROR_NONE;
    }
    static jvmtiError JNICALL isMethodNative(jvmtiEnv*, jmethodID method, jboolean* native) {
        *native = methodOf(method).native ? JNI_TRUE : JNI_FALSE;
        return JVMTI_ERROR_NONE;
    }

    jvmtiInterface_1_ myFunctions;
    _jvmtiEnv myEnv;
    jvmtiEnv* mySaved = nullptr;
};
