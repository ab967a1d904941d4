#include "db/ThreadFrameIndex.h"

#include "services/Logger.h"
#include "db/DB.h"

// 8 chunk pointers at first, 256 frames a chunk.
static const int INITIAL_MAP_CAPACITY = 7 * ZIntChunkMap<int>::CHUNK_SIZE;

int ThreadFrameIndex::getTFI(const LockHolder&, int tfiIndex, int frame, bool create) {
    KZT_ASSERT(tfiIndex >= 0 && frame >= 0);
    if (!create) {
        if (tfiIndex >= myMaps.getSize() || myMaps[tfiIndex] == nullptr) return -1;
        int* known = myMaps[tfiIndex]->getPtr(frame, false);
        return known != nullptr ? *known : -1;
    }
    if (tfiIndex >= myMaps.getSize()) myMaps.resize(tfiIndex + 1, nullptr);
    FrameMap* map = myMaps[tfiIndex];
    if (map == nullptr) {
        map = new FrameMap(INITIAL_MAP_CAPACITY, -1);
        myMaps[tfiIndex] = map;
    }
    int* entry = map->getPtr(frame, true);
    if (*entry != -1) return *entry;
    DB* db = KZT_DB();
    ThreadFrameTable* table = db->getThreadFrameTable();
    int index = table->nextIndex();
    ThreadFrameRecord* record = table->getPtr(index, true);
    record->myTFIIndex = tfiIndex;
    record->myFrame = frame;
    record->myStamp = db->getCurrentGeneration();
    *entry = index;
    return index;
}

void ThreadFrameIndex::changeThread(const LockHolder& lock, int tfiIndex, int targetTfiIndex) {
    KZT_ASSERT(tfiIndex != targetTfiIndex);
    if (tfiIndex < 0 || tfiIndex >= myMaps.getSize() || myMaps[tfiIndex] == nullptr) return;
    FrameMap* map = myMaps[tfiIndex];
    DB* db = KZT_DB();
    int generation = db->getCurrentGeneration();
    CpuProfilingTable* cpuTable = db->getCpuProfilingTable();
    AllocInfoTable* allocTable = db->getAllocInfoTable();
    for (int chunk = 0; chunk < map->getChunkCount(); chunk++) {
        if (!map->hasChunk(chunk)) continue;
        for (int frame = chunk * FrameMap::CHUNK_SIZE; frame < (chunk + 1) * FrameMap::CHUNK_SIZE; frame++) {
            int index = *map->getPtr(frame, true);
            if (index == -1) continue;
            CpuProfilingRecord* cpu = cpuTable->getPtr(index, false);
            if (cpu != nullptr && cpu->myStamp >= 1) {
                CpuProfilingRecord* target = cpuTable->getPtr(getTFI(lock, targetTfiIndex, frame, true), true);
                target->myTime += cpu->myTime;
                target->myInvocations += cpu->myInvocations;
                target->myStamp = generation;
                cpuTable->markDeleted(index, generation);
            }
            AllocInfoRecord* alloc = allocTable->getPtr(index, false);
            if (alloc != nullptr && alloc->myStamp >= 1) {
                AllocInfoRecord* target = allocTable->getPtr(getTFI(lock, targetTfiIndex, frame, true), true);
                target->myObjectCount += alloc->myObjectCount;
                target->mySize += alloc->mySize;
                target->myStamp = generation;
                allocTable->markDeleted(index, generation);
            }
            // Last: the released index may be taken again by the target's rows.
            db->getThreadFrameTable()->deleteRecord(index, generation);
        }
    }
    delete map;
    myMaps[tfiIndex] = nullptr;
}

void ThreadFrameIndex::clearThreadFrameIndex() {
    for (FrameMap* map : myMaps) delete map;
    myMaps.clear();
}

long ThreadFrameIndex::getAllocatedBytes() const {
    long bytes = (long)sizeof(FrameMap*) * myMaps.getCapacity();
    for (FrameMap* map : myMaps) {
        if (map == nullptr) continue;
        bytes += sizeof(FrameMap) + (long)sizeof(int*) * map->getChunkCount();
        for (int chunk = 0; chunk < map->getChunkCount(); chunk++) {
            if (map->hasChunk(chunk)) bytes += (long)sizeof(int) * FrameMap::CHUNK_SIZE;
        }
    }
    return bytes;
}
