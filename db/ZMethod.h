// Methods: interned by their five strings in the "method" table. The index
// is the method id that rewritten classes carry as a constant.
#pragma once

#include <cstdint>

#include "db/DBRecords.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "services/SharedConstants.h"


class ZMethod {
public:
    // Methods are numbered in pages of this size.
    static constexpr int PAGE_SIZE = 4096;

    // The index of the method, made on first sight. Methods named exactly
    // "<<init>>" (the pseudo constructors of allocation recording) are
    // numbered apart from the others.
    static int getByName(const LockHolder& lock, const ZString& className, const ZString& name,
                         const ZString& parameters, const ZString& returnType, const ZString& sourceFile,
                         bool native);

    // The class and source file strings of the methods of one class, interned
    // with its first method and reused for the others.
    struct ClassStrings {
        int32_t myClass = 0;
        int32_t mySourceFile = 0;
        int myEpoch = -1;
    };
    // getByName for a method as a class file names it: the JVM descriptor
    // ("(I)V") instead of parameters and return type. The descriptor's
    // readable forms are made once for all methods that share it. The name
    // is interned up to its first zero byte, as getByName does.
    static int getByDescriptor(const LockHolder& lock, ClassStrings& known, const ZString& className,
                               const char* name, int nameLength, const char* descriptor, int descriptorLength,
                               const ZString& sourceFile, bool native);

    // The method's record, or null.
    static MethodRecord* getRecord(int method);
    // The flags of a method, 0 when unknown. Read without the lock: a late
    // read only costs an event or two.
    static int getFlags(int method);

    // Installed by the filters: sets the timing flags of a new method.
    static void (*ourApplyFilters)(const LockHolder& lock, int method, MethodRecord* record);

    static void resetForTests();
};
