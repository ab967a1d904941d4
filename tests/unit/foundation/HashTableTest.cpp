#include <gtest/gtest.h>

#include "foundation/Failure.h"
#include "foundation/PrimeFinder.h"
#include "foundation/ZMap.h"
#include "foundation/ZStringMap.h"
#include "foundation/ZStringSet.h"

TEST(PrimeFinder, SearchAndNextPrime) {
    EXPECT_EQ(2, PrimeFinder::binary_search(7));
    EXPECT_EQ(~3, PrimeFinder::binary_search(8));
    EXPECT_EQ(~0, PrimeFinder::binary_search(1));
    EXPECT_EQ(3, PrimeFinder::nextPrime(1));
    EXPECT_EQ(7, PrimeFinder::nextPrime(6));
    EXPECT_EQ(11, PrimeFinder::nextPrime(11));
    EXPECT_EQ(2147483647, PrimeFinder::nextPrime(2147483647));
}

TEST(ZMap, CapacityOneRehashesOnSecondInsertion) {
    ZMap<int, int> map(1);
    map.init();
    EXPECT_EQ(3, map.getCapacity());
    map.put(10, 100);
    EXPECT_EQ(3, map.getCapacity());
    map.put(20, 200);
    EXPECT_EQ(7, map.getCapacity());
    EXPECT_EQ(100, map.get(10));
    EXPECT_EQ(200, map.get(20));
    map.put(10, 101);
    EXPECT_EQ(2, map.getSize());
    EXPECT_EQ(101, map.get(10));
}

TEST(ZMap, SignBitKeysStayFindable) {
    ZMap<int, int> map(10);
    map.init();
    int keys[] = {(int)0x80000000, -1, (int)0x80000005, 5, 0};
    for (int i = 0; i < 5; i++) map.put(keys[i], i + 1);
    for (int i = 0; i < 5; i++) EXPECT_EQ(i + 1, map.get(keys[i], -7)) << keys[i];
    EXPECT_EQ(-7, map.get(12345, -7));
}

TEST(ZMap, WornOutFreeSlotsForceADoublingAtSizeOne) {
    ZMap<int, int> map(10);
    map.init();
    EXPECT_EQ(11, map.getCapacity());
    // Keys 1..11 take the eleven home slots in turn; removal never gives a
    // slot back to `free`, so the eleventh insertion doubles the table.
    for (int key = 1; key <= 10; key++) {
        map.put(key, key);
        EXPECT_EQ(key, map.remove(key));
    }
    EXPECT_EQ(11, map.getCapacity());
    map.put(11, 11);
    EXPECT_EQ(23, map.getCapacity());
    EXPECT_EQ(1, map.getSize());
    EXPECT_EQ(11, map.get(11));
    EXPECT_EQ(0, map.remove(5));
}

TEST(ZMap, SameKeyReinsertedReusesARemovedProbeSlot) {
    ZMap<int, int> map(10);
    map.init();
    // The removed home slot is not reused, but the first removed slot met in
    // the probe loop is: after two rounds the table is stable.
    for (int round = 0; round < 100; round++) {
        map.put(42, round);
        EXPECT_EQ(round, map.get(42));
        EXPECT_EQ(round, map.remove(42));
    }
    EXPECT_EQ(11, map.getCapacity());
    EXPECT_EQ(0, map.getSize());
}

TEST(ZMap, ManyKeysWithRemovalsAndLongKeys) {
    ZMap<long, int> map(10);
    map.init();
    for (long i = 0; i < 5000; i++) map.put(i * 0x100000001L, (int)i);
    for (long i = 0; i < 5000; i += 2) map.remove(i * 0x100000001L);
    EXPECT_EQ(2500, map.getSize());
    for (long i = 0; i < 5000; i++) EXPECT_EQ(i % 2 ? (int)i : -1, map.get(i * 0x100000001L, -1));
    EXPECT_LE(map.getSize(), map.getCapacity() * 6 / 10);
}

TEST(ZMap, StringKeys) {
    ZMap<const char*, int> map(10);
    map.init();
    char key[] = "name";
    map.put("name", 1);
    map.put("", 2);
    EXPECT_EQ(1, map.get(key));
    EXPECT_EQ(2, map.get(""));
    EXPECT_EQ(0, zmap_hashCode((const char*)nullptr));
    EXPECT_EQ(zmap_hashCode(""), 0);
}

TEST(ZSet, AddRemoveAndZeroKeyCheck) {
    ZSet<int> set(1);
    set.init();
    for (int i = 1; i <= 100; i++) EXPECT_TRUE(set.add(i));
    EXPECT_FALSE(set.add(50));
    EXPECT_TRUE(set.remove(50));
    EXPECT_FALSE(set.contains(50));
    EXPECT_TRUE(set.contains(100));
    EXPECT_EQ(99, set.getSize());
    EXPECT_THROW(set.contains(0), KZTRuntimeException);
}

TEST(ZStringSet, CollidingHashesShareABucket) {
    ZStringSet set;
    // "Aa" and "BB" have the same 31-hash.
    ASSERT_EQ(ZString("Aa").hashCode(), ZString("BB").hashCode());
    EXPECT_TRUE(set.add(ZString("Aa")));
    EXPECT_TRUE(set.add(ZString("BB")));
    EXPECT_FALSE(set.add(ZString("Aa")));
    EXPECT_TRUE(set.add(ZString("")));
    EXPECT_TRUE(set.contains(ZString("BB")));
    EXPECT_TRUE(set.contains(ZString("")));
    EXPECT_FALSE(set.contains(ZString("Ab")));
    EXPECT_EQ(3, set.getSize());
}

TEST(ZStringMap, PutReplacesRemoveClosesGap) {
    ZStringMap<int> map(2, -1);
    map.put(ZString("a"), 1);
    map.put(ZString("b"), 2);
    map.put(ZString("c"), 3);
    map.put(ZString("a"), 10);
    EXPECT_EQ(3, map.getSize());
    EXPECT_EQ(10, map.get(ZString("a")));
    EXPECT_EQ(2, map.remove(ZString("b")));
    EXPECT_EQ(-1, map.remove(ZString("b")));
    EXPECT_STREQ("c", map.keyAt(1).c_str());
    EXPECT_EQ(3, map.valueAt(1));
    EXPECT_EQ(-1, map.get(ZString("zz")));
    EXPECT_THROW(ZStringMap<int>(0, 0), KZTRuntimeException);
}
