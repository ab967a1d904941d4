// Tables of the database. DBTableBase is what the database and the snapshot
// stream see; DBTable<R, C> stores records of type R in a chunked map (index
// from an IndexPool) or, for telemetry, in a rolling array of positions.
// Callers hold ourLock and stamp a record themselves whenever they change it.
#pragma once

#include <cstdlib>
#include <new>

#include "services/Logger.h"
#include "foundation/IndexPool.h"
#include "foundation/ZIntChunkMap.h"
#include "foundation/ZRollingArray.h"
#include "foundation/ZString.h"
#include "foundation/AbstractWriter.h"
#include "foundation/Progress.h"

class DBTableBase {
public:
    virtual ~DBTableBase() {}
    // Rows whose |stamp| is above `sinceGeneration`: their count, then each
    // as index, stamp and, when live, its columns. Progress moves from
    // `progressFrom` towards `progressTo` by rows.
    virtual void writeTable(AbstractWriter& writer, int sinceGeneration, int progressFrom, int progressTo,
                            Progress* progress) = 0;
    // Forgets all rows; the capacity stays. The caller stamps the table's
    // "table_generation" row.
    virtual void clearTable() = 0;
    // 0 for an absent row.
    virtual int getRecordModificationStamp(int index) = 0;
    virtual void setRecordModificationStamp(int index, int stamp) = 0;
    // The table's line for the database statistics; adds its bytes to *totalBytes.
    virtual ZString getStatistics(long* totalBytes) = 0;
};

// The two passes of writeTable, shared by both kinds of storage. `Table`
// offers forEachRecord(f), calling f(index, record) for each present record
// in ascending index.
class TableStreamer {
public:
    template <typename Table>
    static void writeChangedRows(Table& table, AbstractWriter& writer, int sinceGeneration, int progressFrom,
                                 int progressTo, Progress* progress) {
        KZT_ASSERT_NOT_NULL(progress);
        int rowCount = 0;
        table.forEachRecord([&](long long, const typename Table::Record& record) {
            if (abs(record.myStamp) > sinceGeneration) rowCount++;
        });
        writer.writeInt(rowCount);
        if (rowCount == 0) return;
        long long rowsDone = 0;
        table.forEachRecord([&](long long index, const typename Table::Record& record) {
            int stamp = record.myStamp;
            if (abs(stamp) <= sinceGeneration) return;
            writer.writeInt((int)index);
            writer.writeInt(stamp);
            if (stamp > 0) record.writeRecord(writer);
            int percent = (int)(rowsDone * (progressTo - progressFrom) / rowCount + progressFrom);
            if (percent > progress->getLastPercent()) progress->updateProgressImpl(percent);
            rowsDone++;
        });
    }

    // "<name padded to 20> records=<live> /       0 - <capacity> allocated=<bytes>"
    static ZString formatStatisticsLine(const ZString& name, int liveRows, int capacity, long bytes);
};

// "<n / 1048576> MB (=<n> bytes)"
ZString formatBytes(long n);

template <typename R, typename C>
class DBTable;

// Records in chunks of 256, made on first write and never moved.
template <typename R>
class DBTable<R, ZIntChunkMap<R>> : public DBTableBase {
public:
    typedef R Record;

    DBTable(const char* name, int firstIndex, int initialSize)
        : myIndexPool(firstIndex), myContainer(initialSize, R()), myName(name) {}

    // The record at `index`; with `create` it is made on need, else null
    // when absent. A negative index is fatal.
    R* getPtr(int index, bool create) { return myContainer.getPtr(index, create); }
    const ZString& getName() const { return myName; }
    int getCapacity() const { return myContainer.getCapacity(); }

    int nextIndex() { return myIndexPool.nextIndex(); }
    int peekNextIndex() const { return myIndexPool.peekNextIndex(); }
    void releaseIndex(int index) { myIndexPool.releaseIndex(index); }

    // Marks the row deleted at `generation`: columns back to the default,
    // stamp -generation, index back to the pool. The row stays in the stream.
    void deleteRecord(int index, int generation) {
        markDeleted(index, generation);
        releaseIndex(index);
    }
    // The same for a table indexed by another table's index: no release.
    void markDeleted(int index, int generation) {
        R* record = getPtr(index, true);
        *record = myContainer.getDefault();
        record->myStamp = -generation;
    }

    template <typename F>
    void forEachRecord(F f) {
        int chunkCount = myContainer.getChunkCount();
        for (int chunk = 0; chunk < chunkCount; chunk++) {
            if (!myContainer.hasChunk(chunk)) continue;
            int first = chunk * ZIntChunkMap<R>::CHUNK_SIZE;
            for (int index = first; index < first + ZIntChunkMap<R>::CHUNK_SIZE; index++) {
                R* record = myContainer.getPtr(index, true);
                if (record->myStamp != 0) f((long long)index, *record);
            }
        }
    }

    void writeTable(AbstractWriter& writer, int sinceGeneration, int progressFrom, int progressTo,
                    Progress* progress) override {
        TableStreamer::writeChangedRows(*this, writer, sinceGeneration, progressFrom, progressTo, progress);
    }

    void clearTable() override {
        myIndexPool.clearIndexPool();
        // A fresh container of the same chunk count: every chunk freed (and
        // with it what its records own), pointers nulled, capacity kept.
        int chunkCount = myContainer.getChunkCount();
        R defaultRecord = myContainer.getDefault();
        myContainer.~ZIntChunkMap<R>();
        new (&myContainer) ZIntChunkMap<R>((chunkCount - 1) * ZIntChunkMap<R>::CHUNK_SIZE + 1, defaultRecord);
    }

    int getRecordModificationStamp(int index) override {
        R* record = getPtr(index, false);
        return record != nullptr ? record->myStamp : 0;
    }
    void setRecordModificationStamp(int index, int stamp) override { getPtr(index, true)->myStamp = stamp; }

    ZString getStatistics(long* totalBytes) override {
        int live = 0;
        forEachRecord([&](long long, const R& record) {
            if (record.myStamp >= 1) live++;
        });
        int chunkCount = myContainer.getChunkCount();
        long bytes = (long)sizeof(R*) * chunkCount;
        for (int chunk = 0; chunk < chunkCount; chunk++) {
            if (myContainer.hasChunk(chunk)) bytes += (long)sizeof(R) * ZIntChunkMap<R>::CHUNK_SIZE;
        }
        *totalBytes += bytes;
        return TableStreamer::formatStatisticsLine(myName, live, getCapacity(), bytes);
    }

private:
    IndexPool myIndexPool;
    ZIntChunkMap<R> myContainer;
    ZString myName;
};

// Rows at ever-rising positions in a ring allocated up front; the oldest row
// falls off when the ring is full. A row's index is its position.
template <typename R>
class DBTable<R, ZRollingArray<R>> : public DBTableBase {
public:
    typedef R Record;

    DBTable(const char* name, int firstIndex, int initialSize) : myContainer(initialSize), myName(name) {}

    // The row at a valid position, else null; rows are never made on demand.
    R* getPtr(int index, bool create) {
        KZT_ASSERT(index >= 0);
        return myContainer.getRow(index);
    }
    const ZString& getName() const { return myName; }
    int getCapacity() const { return myContainer.getCapacity(); }
    long long getFirstValidPosition() const { return myContainer.getFirstIndex(); }
    long long getWritePosition() const { return myContainer.getEndIndex(); }

    // Takes the next position, giving up the oldest row when the ring is full.
    R* addRow(long long* position) {
        R* row;
        *position = myContainer.addRow(&row);
        return row;
    }

    template <typename F>
    void forEachRecord(F f) {
        for (long long position = myContainer.getFirstIndex(); position < myContainer.getEndIndex(); position++) {
            R* record = myContainer.getRow(position);
            if (record->myStamp != 0) f(position, *record);
        }
    }

    void writeTable(AbstractWriter& writer, int sinceGeneration, int progressFrom, int progressTo,
                    Progress* progress) override {
        TableStreamer::writeChangedRows(*this, writer, sinceGeneration, progressFrom, progressTo, progress);
    }

    // The window becomes empty; positions go on rising and rows stay allocated.
    void clearTable() override { myContainer.clear(); }

    int getRecordModificationStamp(int index) override {
        R* record = index >= 0 ? myContainer.getRow(index) : nullptr;
        return record != nullptr ? record->myStamp : 0;
    }
    void setRecordModificationStamp(int index, int stamp) override {
        R* record = getPtr(index, true);
        if (record != nullptr) record->myStamp = stamp;
    }

    ZString getStatistics(long* totalBytes) override {
        int live = 0;
        forEachRecord([&](long long, const R& record) {
            if (record.myStamp >= 1) live++;
        });
        long bytes = (long)sizeof(R) * getCapacity();
        *totalBytes += bytes;
        return TableStreamer::formatStatisticsLine(myName, live, getCapacity(), bytes);
    }

private:
    ZRollingArray<R> myContainer;
    ZString myName;
};
