#include "db/ZMethod.h"

#include "agent/Logger.h"
#include "db/DB.h"
#include "foundation/ZMap.h"

const char* const NATIVE_METHOD_PREFIX = "$$KZT$$";
const char* const CALLBACK_CLASS_NAME = "com.corvane.runtime.Callback";

void (*ZMethod::ourApplyFilters)(const LockHolder&, int, MethodRecord*) = nullptr;

struct MethodKey {
    int32_t myName;
    int32_t myParameters;
    int32_t myClass;
    int32_t myReturnType;
    int32_t mySourceFile;

    bool operator==(const MethodKey& other) const {
        return myName == other.myName && myParameters == other.myParameters && myClass == other.myClass &&
               myReturnType == other.myReturnType && mySourceFile == other.mySourceFile;
    }
};

inline int32_t zmap_hashCode(const MethodKey& key) {
    return (int32_t)((uint32_t)key.myName + (uint32_t)key.myParameters + (uint32_t)key.myClass +
                     (uint32_t)key.myReturnType + (uint32_t)key.mySourceFile);
}

static ZMap<MethodKey, int>& ourMethodKey2Index = *new ZMap<MethodKey, int>(1000);

// Index allocation: a page number and a count within it, for each family.
struct MethodPage {
    int myPage;
    int myCount;
};
static MethodPage ourInitMethodPage = {1, 0};
// Count 1: index 0 stays unused.
static MethodPage ourOtherMethodPage = {0, 1};
static int ourNextMethodPage = 2;

static int allocateMethodIndex(bool pseudoConstructor) {
    MethodPage& page = pseudoConstructor ? ourInitMethodPage : ourOtherMethodPage;
    if (page.myCount == ZMethod::PAGE_SIZE) {
        page.myPage = ourNextMethodPage++;
        page.myCount = 0;
    }
    return page.myPage * ZMethod::PAGE_SIZE + page.myCount++;
}

static bool isProbeCallbackName(const ZString& name) {
    static const char* const names[] = {"onEnter", "onEnterImpl", "onExit", "onReturn", "onReturnImpl",
                                        "onUncaughtException"};
    for (const char* candidate : names) {
        if (name.equals(candidate)) return true;
    }
    return false;
}

static int computeFlags(const ZString& className, const ZString& name, bool native) {
    int flags = 0;
    if (className.equals(CALLBACK_CLASS_NAME) || name.startsWith(NATIVE_METHOD_PREFIX)) flags |= METHOD_FLAG_INVISIBLE;
    if (native) flags |= METHOD_FLAG_NATIVE;
    if (isProbeCallbackName(name)) flags |= METHOD_FLAG_PROBE_CALLBACK;
    if (name.startsWith("invoke") || name.startsWith("dispatch")) flags |= METHOD_FLAG_NEVER_EXCLUDED;
    return flags;
}

int ZMethod::getByName(const LockHolder& lock, const ZString& className, const ZString& name,
                       const ZString& parameters, const ZString& returnType, const ZString& sourceFile,
                       bool native) {
    MethodKey key;
    key.myName = StringPool::getStrID(lock, name);
    key.myParameters = StringPool::getStrID(lock, parameters);
    key.myClass = StringPool::getStrID(lock, className);
    key.myReturnType = StringPool::getStrID(lock, returnType);
    key.mySourceFile = StringPool::getStrID(lock, sourceFile);
    int* known = ourMethodKey2Index.getPtr(key);
    if (known != nullptr) return *known;

    DB* db = KZT_DB();
    int method = allocateMethodIndex(name.equals("<<init>>"));
    MethodRecord* record = db->getMethodTable()->getPtr(method, true);
    record->myName = key.myName;
    record->myParameters = key.myParameters;
    record->myClass = key.myClass;
    record->myReturnType = key.myReturnType;
    record->mySourceFile = key.mySourceFile;
    record->myFlags = computeFlags(className, name, native);
    record->myStamp = db->getCurrentGeneration();
    if (ourApplyFilters != nullptr) ourApplyFilters(lock, method, record);
    ourMethodKey2Index.put(key, method);
    return method;
}

MethodRecord* ZMethod::getRecord(int method) {
    if (method < 0 || ourMethodTable == nullptr) return nullptr;
    return ourMethodTable->getPtr(method, false);
}

int ZMethod::getFlags(int method) {
    MethodRecord* record = getRecord(method);
    return record != nullptr ? record->myFlags : 0;
}

void ZMethod::resetForTests() {
    ourMethodKey2Index.clear();
    ourInitMethodPage = {1, 0};
    ourOtherMethodPage = {0, 1};
    ourNextMethodPage = 2;
}
