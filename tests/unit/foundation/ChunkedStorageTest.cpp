#include <gtest/gtest.h>

#include <thread>

#include "foundation/Failure.h"
#include "foundation/IndexPool.h"
#include "foundation/SynchronizedQueue.h"
#include "foundation/System.h"
#include "foundation/ZIntChunkMap.h"
#include "foundation/ZRollingArray.h"

struct Record {
    int stamp;
    int value;
};

TEST(ZIntChunkMap, GetPtrCreatesOnlyTheChunkAsked) {
    ZIntChunkMap<Record> map(1, Record{0, -1});
    EXPECT_EQ(256, map.getCapacity());
    EXPECT_EQ(nullptr, map.getPtr(300, false));
    Record* record = map.getPtr(300, true);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(-1, record->value);
    EXPECT_TRUE(map.hasChunk(1));
    EXPECT_FALSE(map.hasChunk(0));
    EXPECT_EQ(512, map.getCapacity());
    EXPECT_EQ(nullptr, map.getPtr(5, false));
    EXPECT_THROW(map.getPtr(-1, true), KZTRuntimeException);
    EXPECT_THROW(ZIntChunkMap<int>(0, 0), KZTRuntimeException);
}

TEST(ZIntChunkMap, RecordAtDefaultFirstWordIsAbsentToReaders) {
    ZIntChunkMap<Record> map(1000, Record{0, 0});
    Record* record = map.getPtr(7, true);
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    record->stamp = 3;
    EXPECT_EQ(record, map.getPtr(7, false));
    record->value = 9;
    record->stamp = 0;
    EXPECT_EQ(nullptr, map.getPtr(7, false));
    EXPECT_EQ(record, map.getPtr(7, true));
}

TEST(ZIntChunkMap, AddressesStayStableAcrossGrowth) {
    ZIntChunkMap<Record> map(1, Record{0, 0});
    Record* first = map.getPtr(3, true);
    first->stamp = 1;
    for (int i = 0; i < 100000; i += 97) map.getPtr(i, true)->stamp = i + 1;
    EXPECT_EQ(first, map.getPtr(3, false));
    EXPECT_EQ(1, first->stamp);
    EXPECT_EQ(97 * 1000 + 1, map.getPtr(97 * 1000, false)->stamp);
}

TEST(ZIntChunkMap, IntPutSkipsDefaultsBeyondCapacity) {
    ZIntChunkMap<int> map(10, 0);
    map.put(100000, 0);
    EXPECT_EQ(256, map.getCapacity());
    map.put(1000, 5);
    EXPECT_EQ(((1000 * 3 / 2) >> 8) + 1, map.getChunkCount());
    EXPECT_EQ(5, *map.getPtr(1000, false));
    EXPECT_FALSE(map.hasChunk(0));
    map.put(1, 0);
    EXPECT_TRUE(map.hasChunk(0));
}

TEST(ZIntChunkMap3, GrowsByTenChunks) {
    ZIntChunkMap3<int> map(-5);
    EXPECT_EQ(-5, *map.getPtr(2559));
    *map.getPtr(2559) = 4;
    EXPECT_EQ(4, *map.getPtr(2559));
    EXPECT_EQ(-5, *map.getPtr(2560 * 3));
    EXPECT_EQ(4, *map.getPtr(2559));
    EXPECT_THROW(map.getPtr(-1), KZTRuntimeException);
}

TEST(ZRollingArray, KeepsTheNewestRows) {
    ZRollingArray<int> ring(3);
    for (int i = 0; i < 5; i++) {
        int* row;
        EXPECT_EQ(i, ring.addRow(&row));
        *row = i * 10;
    }
    EXPECT_EQ(2, ring.getFirstIndex());
    EXPECT_EQ(5, ring.getEndIndex());
    EXPECT_EQ(nullptr, ring.getRow(1));
    EXPECT_EQ(nullptr, ring.getRow(5));
    for (int i = 2; i < 5; i++) EXPECT_EQ(i * 10, *ring.getRow(i));
    ring.clear();
    EXPECT_EQ(nullptr, ring.getRow(4));
    int* row;
    EXPECT_EQ(5, ring.addRow(&row));
}

namespace {

// Records are built when their position is first used, once, and each
// built one is destroyed with the ring.
struct CountedRecord {
    static int ourLive;
    static int ourBuilt;
    int myValue = 7;
    CountedRecord() { ourLive++, ourBuilt++; }
    ~CountedRecord() { ourLive--; }
};
int CountedRecord::ourLive = 0;
int CountedRecord::ourBuilt = 0;

}  // namespace

TEST(ZRollingArray, BuildsEachRecordOnFirstUseAndDestroysWhatItBuilt) {
    struct Case {
        int rows;
        int built;
    } cases[] = {{0, 0}, {2, 2}, {4, 4}, {9, 4}};
    for (const Case& c : cases) {
        CountedRecord::ourBuilt = 0;
        {
            ZRollingArray<CountedRecord> ring(4);
            for (int i = 0; i < c.rows; i++) {
                CountedRecord* row;
                ring.addRow(&row);
                if (i < 4) {
                    EXPECT_EQ(7, row->myValue) << "a new position holds a new record";
                }
                row->myValue = i;
            }
            EXPECT_EQ(c.built, CountedRecord::ourBuilt) << c.rows;
            EXPECT_EQ(c.built, CountedRecord::ourLive) << c.rows;
        }
        EXPECT_EQ(0, CountedRecord::ourLive) << c.rows;
    }
}

TEST(IndexPool, ReusesReleasedIndicesLastInFirstOut) {
    IndexPool pool(1);
    auto next = [&] { return std::vector<int>{pool.peekNextIndex(), pool.nextIndex()}; };
    for (int expected : {1, 2, 3}) EXPECT_EQ((std::vector<int>{expected, expected}), next());
    pool.releaseIndex(1);
    pool.releaseIndex(3);
    for (int expected : {3, 1, 4}) EXPECT_EQ((std::vector<int>{expected, expected}), next());
    pool.releaseIndex(2);
    pool.clearIndexPool();
    EXPECT_EQ(1, pool.nextIndex());
}

TEST(SynchronizedQueue, PopAllMovesEverythingInOrder) {
    SynchronizedQueue<ZString> queue;
    std::thread producer([&] {
        for (int i = 0; i < 1000; i++) queue.push(ZString::fromLong(i));
    });
    ZVectorSafe<ZString> all;
    for (int64_t deadline = getTimeNs() + 30000000000LL; all.getSize() < 1000 && getTimeNs() < deadline;) {
        queue.popAll(&all);
    }
    producer.join();
    ASSERT_EQ(1000, all.getSize());
    for (int i = 0; i < 1000; i++) EXPECT_EQ(i, all[i].parseLong());
    queue.popAll(&all);
    EXPECT_EQ(1000, all.getSize());
    EXPECT_THROW(queue.popAll(nullptr), KZTRuntimeException);
}

TEST(ZLock, IsRecursive) {
    ZLock lock("test");
    LockHolder outer(&lock, LOCK_SITE);
    LockHolder inner(&lock, LOCK_SITE);
    LockHolder none(nullptr, LOCK_SITE);
}

TEST(ZIntChunkMap, RecordsSmallerThanAWordCompareOnTheirOwnBytes) {
    ZIntChunkMap<unsigned char> map(1, 7);
    unsigned char* record = map.getPtr(9, true);
    EXPECT_EQ(nullptr, map.getPtr(9, false));
    *record = 8;
    EXPECT_EQ(record, map.getPtr(9, false));
}
