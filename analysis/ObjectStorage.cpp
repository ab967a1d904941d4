#include "analysis/ObjectStorage.h"

static int positiveSize(int objectCount) {
    if (objectCount <= 0 || ObjectStorage::isTooLarge(objectCount)) failFatal("assertion failed", __FILE__, __LINE__);
    return objectCount + 1;
}

ObjectStorage::ObjectStorage(int objectCount)
    : mySize(positiveSize(objectCount)),
      myRefs("r", mySize),
      myInts("i", mySize),
      myGenerations(nullptr),
      myDepths("depth"),
      myAllocatorFrames("af"),
      myAllocatorTrns("at"),
      myAllocatorTimestamps("ats"),
      myArrayLengths("al"),
      myPrimitiveDataPositions("po"),
      myCRC32s("crc32"),
      myOIDLows("oid_l"),
      myOIDHighs("oid_h") {}

ObjectStorage::~ObjectStorage() {
    delete myGenerations;
}

int64_t ObjectStorage::getLong(const BigIntArray64& column, int object) const {
    int64_t index = 2 * (int64_t)checked(object);
    return (int64_t)((uint64_t)(uint32_t)column.get(index) | (uint64_t)(uint32_t)column.get(index + 1) << 32);
}

void ObjectStorage::setLong(BigIntArray64& column, int object, int64_t value) {
    int64_t index = 2 * (int64_t)checked(object);
    column.set(index, (int)(uint32_t)value);
    column.set(index + 1, (int)(value >> 32));
}

void ObjectStorage::setAllocator(int object, int frame, int trn, int64_t timestampMs) {
    myAllocatorFrames.set(checked(object), frame);
    myAllocatorTrns.set(object, trn);
    setLong(myAllocatorTimestamps, object, timestampMs);
}

void ObjectStorage::setGeneration(int object, int generation) {
    checked(object);
    if (myGenerations == nullptr) {
        if (generation == 0) return;
        myGenerations = new GenerationColumn("g");
    }
    myGenerations->set(object, generation);
}

int64_t ObjectStorage::getOID(int object) const {
    return (int64_t)((uint64_t)(uint32_t)myOIDLows.get(checked(object)) | (uint64_t)(uint32_t)myOIDHighs.get(object) << 32);
}

void ObjectStorage::setOID(int object, int64_t oid) {
    myOIDLows.set(checked(object), (int)(uint32_t)oid);
    myOIDHighs.set(object, (int)(oid >> 32));
}

ZString ObjectStorage::getStatistics() const {
    ZString text("AL: ");
    text.append(myArrayLengths.getStatistics()).append("\n");
    if (myGenerations != nullptr) text.append("GEN: ").append(myGenerations->getStatistics()).append("\n");
    text.append("DEPTHS: ").append(myDepths.getStatistics()).append("\n");
    return text;
}
