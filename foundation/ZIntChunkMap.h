// Paged arrays indexed by int: 256 records a chunk, chunks made on first use
// and never moved, so a pointer to a record stays valid for the life of the map.
#pragma once

#include <cstdint>
#include <cstring>

#include "foundation/Failure.h"

template <typename T>
class ZIntChunkMap {
public:
    static const int CHUNK_BITS = 8;
    static const int CHUNK_SIZE = 1 << CHUNK_BITS;

    ZIntChunkMap(int initialCapacity, const T& defaultValue) : chunks(nullptr), capacity(0), chunkCount(0),
                                                               defaultRecord(defaultValue) {
        if (initialCapacity < 1) zmapFail(__LINE__);
        chunkCount = (initialCapacity >> CHUNK_BITS) + 1;
        chunks = new T*[chunkCount];
        memset(chunks, 0, sizeof(T*) * chunkCount);
        capacity = chunkCount * CHUNK_SIZE;
    }
    ~ZIntChunkMap() {
        for (int i = 0; i < chunkCount; i++) delete[] chunks[i];
        delete[] chunks;
    }
    ZIntChunkMap(const ZIntChunkMap&) = delete;
    ZIntChunkMap& operator=(const ZIntChunkMap&) = delete;

    int getCapacity() const { return capacity; }
    int getChunkCount() const { return chunkCount; }
    bool hasChunk(int chunk) const { return chunk >= 0 && chunk < chunkCount && chunks[chunk] != nullptr; }
    const T& getDefault() const { return defaultRecord; }

    // With `create`, the record's address, made on need. Without, the address
    // only if the record exists and its first 32-bit word differs from the
    // default's: a record still at the default is absent to readers.
    T* getPtr(int index, bool create) {
        if (index < 0) zmapFail(__LINE__);
        int chunk = index >> CHUNK_BITS;
        if (chunk >= chunkCount) {
            if (!create) return nullptr;
            growTable(chunk + 1);
        }
        T* records = chunks[chunk];
        if (records == nullptr) {
            if (!create) return nullptr;
            records = makeChunk(chunk);
            return &records[index & (CHUNK_SIZE - 1)];
        }
        T* record = &records[index & (CHUNK_SIZE - 1)];
        if (create) return record;
        return firstWord(record) != firstWord(&defaultRecord) ? record : nullptr;
    }

    // For int maps: stores a value; a default value beyond the capacity makes no storage.
    void put(int index, const T& value) {
        if (index < 0) zmapFail(__LINE__);
        if (index >= capacity) {
            if (memcmp(&value, &defaultRecord, sizeof(T)) == 0) return;
            growTable((int)(((long long)index * 3 / 2) >> CHUNK_BITS) + 1);
        }
        int chunk = index >> CHUNK_BITS;
        T* records = chunks[chunk];
        if (records == nullptr) records = makeChunk(chunk);
        records[index & (CHUNK_SIZE - 1)] = value;
    }

private:
    static int32_t firstWord(const T* record) {
        int32_t word = 0;  // records smaller than a word compare on their bytes only
        memcpy(&word, (const void*)record, sizeof(word) < sizeof(T) ? sizeof(word) : sizeof(T));
        return word;
    }
    void growTable(int newCount) {
        if (newCount <= chunkCount) return;
        T** grown = new T*[newCount];
        memcpy(grown, chunks, sizeof(T*) * chunkCount);
        memset(grown + chunkCount, 0, sizeof(T*) * (newCount - chunkCount));
        delete[] chunks;
        chunks = grown;
        chunkCount = newCount;
        capacity = chunkCount * CHUNK_SIZE;
    }
    T* makeChunk(int chunk) {
        T* records = new T[CHUNK_SIZE];
        for (int i = 0; i < CHUNK_SIZE; i++) records[i] = defaultRecord;
        chunks[chunk] = records;
        return records;
    }

    T** chunks;
    int32_t capacity;
    int32_t chunkCount;
    T defaultRecord;
};

// The same paging without the read-only mode; the chunk table grows by ten.
template <typename T>
class ZIntChunkMap3 {
public:
    static const int CHUNK_SIZE = 256;

    explicit ZIntChunkMap3(const T& defaultValue) : chunks(nullptr), chunkCount(0), defaultRecord(defaultValue) {}
    ~ZIntChunkMap3() {
        for (int i = 0; i < chunkCount; i++) delete[] chunks[i];
        delete[] chunks;
    }
    ZIntChunkMap3(const ZIntChunkMap3&) = delete;
    ZIntChunkMap3& operator=(const ZIntChunkMap3&) = delete;

    T* getPtr(int index) {
        if (index < 0) zmapFail(__LINE__);
        int chunk = index >> 8;
        if (chunk >= chunkCount) {
            int newCount = chunk + 10;
            T** grown = new T*[newCount];
            if (chunkCount > 0) memcpy(grown, chunks, sizeof(T*) * chunkCount);
            memset(grown + chunkCount, 0, sizeof(T*) * (newCount - chunkCount));
            delete[] chunks;
            chunks = grown;
            chunkCount = newCount;
        }
        if (chunks[chunk] == nullptr) {
            T* records = new T[CHUNK_SIZE];
            for (int i = 0; i < CHUNK_SIZE; i++) records[i] = defaultRecord;
            chunks[chunk] = records;
        }
        return &chunks[chunk][index & 255];
    }

private:
    T** chunks;
    int32_t chunkCount;
    T defaultRecord;
};
