#include "db/ZMethod.h"

#include <cstdlib>
#include <new>

#include "services/Logger.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/RecentTexts.h"
#include "db/SignatureNames.h"
#include "foundation/ZMap.h"


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

// Texts with their lengths, compared as ZString compares them.
static bool textEquals(const char* chars, int length, const char* text) {
    return (int)strlen(text) == length && memcmp(chars, text, length) == 0;
}

static bool textStartsWith(const char* chars, int length, const char* prefix) {
    int n = (int)strlen(prefix);
    return n <= length && memcmp(chars, prefix, n) == 0;
}

static bool isProbeCallbackName(const char* name, int length) {
    static const char* const names[] = {"onEnter", "onEnterImpl", "onExit", "onReturn", "onReturnImpl",
                                        "onUncaughtException"};
    for (const char* candidate : names) {
        if (textEquals(name, length, candidate)) return true;
    }
    return false;
}

static int computeFlags(const ZString& className, const char* name, int nameLength, bool native) {
    int flags = 0;
    if (className.equals(CALLBACK_CLASS_DOTTED) || textStartsWith(name, nameLength, NATIVE_METHOD_PREFIX)) {
        flags |= METHOD_FLAG_INVISIBLE;
    }
    if (native) flags |= METHOD_FLAG_NATIVE;
    if (isProbeCallbackName(name, nameLength)) flags |= METHOD_FLAG_PROBE_CALLBACK;
    if (textStartsWith(name, nameLength, "invoke") || textStartsWith(name, nameLength, "dispatch")) {
        flags |= METHOD_FLAG_NEVER_EXCLUDED;
    }
    return flags;
}

// The string index of a name given by its bytes, up to its first zero byte;
// a short one is terminated on the stack rather than copied to the heap.
static int internName(const LockHolder& lock, const char* name, int length) {
    char buffer[128];
    if (length >= (int)sizeof(buffer)) return StringPool::getStrID(lock, ZString(name, length));
    memcpy(buffer, name, length);
    buffer[length] = 0;
    return StringPool::getStrIDImpl(lock, buffer, false);
}

// The method of `key`, made when it is new.
static int getByKey(const LockHolder& lock, const MethodKey& key, const ZString& className, const char* name,
                    int nameLength, bool native) {
    int* known = ourMethodKey2Index.getPtr(key);
    if (known != nullptr) return *known;

    DB* db = KZT_DB();
    int method = allocateMethodIndex(textEquals(name, nameLength, "<<init>>"));
    MethodRecord* record = db->getMethodTable()->getPtr(method, true);
    record->myName = key.myName;
    record->myParameters = key.myParameters;
    record->myClass = key.myClass;
    record->myReturnType = key.myReturnType;
    record->mySourceFile = key.mySourceFile;
    record->myFlags = computeFlags(className, name, nameLength, native);
    record->myStamp = db->getCurrentGeneration();
    if (ZMethod::ourApplyFilters != nullptr) ZMethod::ourApplyFilters(lock, method, record);
    ourMethodKey2Index.put(key, method);
    return method;
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
    return getByKey(lock, key, className, name.c_str(), name.getLength(), native);
}

// ---- descriptors ----

// A descriptor's bytes with their hash; the cache owns the bytes.
struct DescriptorKey {
    const char* myBytes;
    int32_t myLength;
    int32_t myHash;

    bool operator==(const DescriptorKey& other) const {
        return myHash == other.myHash && myLength == other.myLength && memcmp(myBytes, other.myBytes, myLength) == 0;
    }
};
inline int32_t zmap_hashCode(const DescriptorKey& key) { return key.myHash; }

static DescriptorKey descriptorKey(const char* bytes, int length) {
    return DescriptorKey{bytes, length, hashText31(bytes, length)};
}

// The string indices of the parameters and return type of a descriptor.
struct DescriptorStrings {
    int32_t myParameters;
    int32_t myReturnType;
};

// Valid while the string pool's epoch is the one it was filled in.
static ZMap<DescriptorKey, DescriptorStrings>& ourDescriptorStrings = *new ZMap<DescriptorKey, DescriptorStrings>(1000);
static int ourDescriptorEpoch = -1;
static RecentTexts<DescriptorStrings>& ourRecentDescriptors = *new RecentTexts<DescriptorStrings>();
static RecentTexts<int32_t>& ourRecentNames = *new RecentTexts<int32_t>();

static void forgetDescriptors() {
    for (int slot = 0; slot < ourDescriptorStrings.getCapacity(); slot++) {
        if (ourDescriptorStrings.isFull(slot)) free((void*)ourDescriptorStrings.keyAt(slot).myBytes);
    }
    ourDescriptorStrings.clear();
}

int ZMethod::getByDescriptor(const LockHolder& lock, ClassStrings& known, const ZString& className,
                             const char* name, int nameLength, const char* descriptor, int descriptorLength,
                             const ZString& sourceFile, bool native) {
    int epoch = StringPool::getEpoch();
    if (ourDescriptorEpoch != epoch) {
        forgetDescriptors();
        ourDescriptorEpoch = epoch;
    }
    if (known.myEpoch != epoch) known = ClassStrings{0, 0, epoch};

    // New strings get their indices in the order of getByName: name,
    // parameters, class, return type, source file. Known ones are in the
    // pool already, so leaving out their lookups changes no order.
    MethodKey key;
    int32_t nameHash = hashText31(name, nameLength);
    const int32_t* recentName = ourRecentNames.find(name, nameLength, nameHash, epoch);
    if (recentName != nullptr) {
        key.myName = *recentName;
    } else {
        key.myName = internName(lock, name, nameLength);
        ourRecentNames.put(name, nameLength, nameHash, epoch, key.myName);
    }
    DescriptorKey lookup = descriptorKey(descriptor, descriptorLength);
    const DescriptorStrings* strings = ourRecentDescriptors.find(descriptor, descriptorLength, lookup.myHash, epoch);
    if (strings == nullptr) {
        strings = ourDescriptorStrings.getPtr(lookup);
        if (strings != nullptr) ourRecentDescriptors.put(descriptor, descriptorLength, lookup.myHash, epoch, *strings);
    }
    ZString returnType;
    if (strings != nullptr) {
        key.myParameters = strings->myParameters;
    } else {
        ZString text(descriptor, descriptorLength);
        key.myParameters = StringPool::getStrID(lock, convertMethodSignatureToParameters(text));
        returnType = getReturnTypeFromMethodSignature(text);
    }
    if (known.myClass == 0) known.myClass = StringPool::getStrID(lock, className);
    key.myClass = known.myClass;
    if (strings != nullptr) {
        key.myReturnType = strings->myReturnType;
    } else {
        key.myReturnType = StringPool::getStrID(lock, returnType);
        char* copy = (char*)malloc(descriptorLength > 0 ? descriptorLength : 1);
        if (copy == nullptr) throw std::bad_alloc();
        memcpy(copy, descriptor, descriptorLength);
        lookup.myBytes = copy;
        DescriptorStrings made{key.myParameters, key.myReturnType};
        ourDescriptorStrings.put(lookup, made);
        ourRecentDescriptors.put(descriptor, descriptorLength, lookup.myHash, epoch, made);
    }
    if (known.mySourceFile == 0) known.mySourceFile = StringPool::getStrID(lock, sourceFile);
    key.mySourceFile = known.mySourceFile;
    return getByKey(lock, key, className, name, nameLength, native);
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
    forgetDescriptors();
    ourInitMethodPage = {1, 0};
    ourOtherMethodPage = {0, 1};
    ourNextMethodPage = 2;
}
