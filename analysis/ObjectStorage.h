// The heap graph of a memory snapshot on the analysis side: objects numbered
// from 1, their references, and columns of per-object values, built for size
// first. The UI holds one storage as a handle and fills it in bulk.
#pragma once

#include <cstdint>

#include "analysis/BigArrayWithMapFallback.h"
#include "analysis/BigIntArray64.h"
#include "analysis/RefTable.h"
#include "foundation/ZString.h"

class ObjectStorage {
public:
    typedef BigArrayWithMapFallback<unsigned short, int, 0, 0> GenerationColumn;
    typedef BigArrayWithMapFallback<unsigned char, int, -1, 0> ByteColumn;

    // Room for objects 1 to objectCount, which must be positive.
    explicit ObjectStorage(int objectCount);
    ~ObjectStorage();
    ObjectStorage(const ObjectStorage&) = delete;
    ObjectStorage& operator=(const ObjectStorage&) = delete;

    // A count whose storage would not fit: 2 * count + 2 reaches 0x7fffffff.
    static bool isTooLarge(int64_t objectCount) { return 2 * objectCount + 2 >= 0x7fffffff; }

    int getSize() const { return mySize; }
    RefTable& getRefs() { return myRefs; }
    const RefTable& getRefs() const { return myRefs; }
    // The one int per object ("i"); the dominator step stores there.
    BigIntArray64Presized& getInts() { return myInts; }

    void setAllocator(int object, int frame, int trn, int64_t timestampMs);
    int getAllocatorFrame(int object) const { return myAllocatorFrames.get(checked(object)); }
    int getAllocatorTrn(int object) const { return myAllocatorTrns.get(checked(object)); }
    int64_t getAllocatorTimestampMs(int object) const { return getLong(myAllocatorTimestamps, object); }

    int getGeneration(int object) const { return myGenerations != nullptr ? myGenerations->get(checked(object)) : 0; }
    void setGeneration(int object, int generation);
    int getDepthToGcRoot(int object) const { return myDepths.get(checked(object)); }
    void setDepthToGcRoot(int object, int depth) { myDepths.set(checked(object), depth); }
    int getArrayLength(int object) const { return myArrayLengths.get(checked(object)); }
    void setArrayLength(int object, int length) { myArrayLengths.set(checked(object), length); }

    int64_t getPrimitiveDataPosition(int object) const { return getLong(myPrimitiveDataPositions, object); }
    void setPrimitiveDataPosition(int object, int64_t position) { setLong(myPrimitiveDataPositions, object, position); }
    int getCRC32(int object) const { return myCRC32s.get(checked(object)); }
    void setCRC32(int object, int crc) { myCRC32s.set(checked(object), crc); }
    int64_t getOID(int object) const;
    void setOID(int object, int64_t oid);

    // "AL: ", "GEN: " (when generations exist) and "DEPTHS: " lines.
    ZString getStatistics() const;

private:
    int checked(int object) const {
        if (object < 0 || object >= mySize) failFatal("assertion failed", __FILE__, __LINE__);
        return object;
    }
    int64_t getLong(const BigIntArray64& column, int object) const;
    void setLong(BigIntArray64& column, int object, int64_t value);

    int32_t mySize;
    RefTable myRefs;
    BigIntArray64Presized myInts;
    GenerationColumn* myGenerations;
    ByteColumn myDepths;
    BigIntArray64 myAllocatorFrames;
    BigIntArray64 myAllocatorTrns;
    BigIntArray64 myAllocatorTimestamps;
    ByteColumn myArrayLengths;
    BigIntArray64 myPrimitiveDataPositions;
    BigIntArray64 myCRC32s;
    BigIntArray64 myOIDLows;
    BigIntArray64 myOIDHighs;
};
