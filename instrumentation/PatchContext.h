// What the method patcher knows while it rewrites one class: the options
// that steer it, the references to the Callback stubs, and the method at
// hand. Shared by its policy, its code sequences and its driver.
#pragma once

#include "classfile/ClassFile.h"
#include "db/ZMethod.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"
#include "foundation/ZString.h"

struct PatchOptions {
    bool instrumentAllMethods;
    bool disableLines;
    bool jspWithLines;
    bool disableObfuscatedAllocations;
    bool debugBci;
    int largeMethodThreshold;
};

// Per class: the names and the references to the stubs.
struct ClassContext {
    ClassContext(const LockHolder& lock, ClassFile* classFile) : lock(lock), classFile(classFile) {}
    const LockHolder& lock;
    ClassFile* classFile;
    PatchOptions options;
    ZString fullName;
    ZString sourceFile;
    int entryRef = 0;
    int exitRef = 0;
    int lineRef = -1;
    int allocRef = 0;
    // Pseudo method ids of allocated classes, by pool index of the Class entry.
    ZMap<int, int> pseudoMethodByClassIndex{16};
    // The class and source file strings of the method records.
    ZMethod::ClassStrings strings;
    // The method being rewritten, its name, and its parameters in readable
    // form once something asked for them.
    MethodInfo* method = nullptr;
    const ConstantUtf8Info* name = nullptr;
    ZString parameters;
    bool parametersMade = false;
};

inline const ZString& methodName(const ClassContext& c) { return c.method->getName(); }
const ZString& methodParameters(ClassContext& c);

// The per-method constants of the injected code.
struct MethodConstants {
    int methodIdConstant;
    int callCounterConstant;
    int cachedFrameVar;
    int entryResultVar;
    bool withSwitch;
};
