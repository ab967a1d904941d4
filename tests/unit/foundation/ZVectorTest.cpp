#include <gtest/gtest.h>

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

#include <string>

TEST(ZVector, EleventhPushMovesToHeapWithDoubleCapacity) {
    ZVector<int, 10> v;
    for (int i = 0; i < 10; i++) EXPECT_EQ(i, v.push(i));
    EXPECT_EQ(10, v.getCapacity());
    int* inlineStorage = v.getElements();
    EXPECT_EQ(10, v.push(10));
    EXPECT_EQ(20, v.getCapacity());
    EXPECT_NE(inlineStorage, v.getElements());
    for (int i = 0; i < 11; i++) EXPECT_EQ(i, v[i]);
}

TEST(ZVector, CapacityAndIndexChecks) {
    EXPECT_EQ(10, ZVector<int>(5).getCapacity());
    EXPECT_EQ(33, ZVector<int>(33).getCapacity());
    EXPECT_THROW(ZVector<int>(0), KZTRuntimeException);
    ZVector<int> v;
    v.push(1);
    EXPECT_THROW(v[1], KZTRuntimeException);
    EXPECT_THROW(v.get(-1), KZTRuntimeException);
    EXPECT_THROW(v.set(1, 0), KZTRuntimeException);
    EXPECT_EQ(1, v.pop());
    EXPECT_THROW(v.pop(), KZTRuntimeException);
    EXPECT_THROW(v.peek(), KZTRuntimeException);
}

TEST(ZVector, RemoveRange) {
    ZVector<int> v;
    for (int i = 0; i < 15; i++) v.push(i);
    v.removeRange(2, 2);
    EXPECT_EQ(15, v.getSize());
    EXPECT_THROW(v.removeRange(3, 2), KZTRuntimeException);
    EXPECT_THROW(v.removeRange(0, 16), KZTRuntimeException);
    EXPECT_THROW(v.removeRange(-1, 2), KZTRuntimeException);
    v.removeRange(2, 12);
    ASSERT_EQ(5, v.getSize());
    int expected[] = {0, 1, 12, 13, 14};
    for (int i = 0; i < 5; i++) EXPECT_EQ(expected[i], v[i]);
    v.removeRange(0, 5);
    EXPECT_TRUE(v.isEmpty());
}

TEST(ZVector, CopiesAreIndependent) {
    ZVector<int> a;
    for (int i = 0; i < 25; i++) a.push(i);
    ZVector<int> b(a);
    ZVector<int> c;
    c.push(99);
    c = a;
    a.set(0, -1);
    for (ZVector<int>* copy : {&b, &c}) {
        ASSERT_EQ(25, copy->getSize());
        for (int i = 0; i < 25; i++) EXPECT_EQ(i, (*copy)[i]);
    }
}

TEST(ZVectorSafe, StringsSurviveGrowthRemovalAndCopy) {
    ZVectorSafe<ZString> v;
    for (int i = 0; i < 30; i++) v.push(ZString("a string too long to stay inline #") + ZString::fromLong(i));
    v.removeRange(0, 10);
    ZVectorSafe<ZString> copy(v);
    v.clear();
    ASSERT_EQ(20, copy.getSize());
    EXPECT_STREQ("a string too long to stay inline #10", copy[0].c_str());
    EXPECT_STREQ("a string too long to stay inline #29", copy[19].c_str());
    EXPECT_THROW(copy.set(20, ZString("x")), KZTRuntimeException);
}

TEST(ZVectorSafe, SortPushAllPushOnce) {
    ZVectorSafe<ZString> v;
    const char* words[] = {"pear", "\xe9t\xe9", "apple", "Zebra", "apple", "fig", "banana", "kiwi", "lime",
                           "date", "cherry", "grape"};
    for (const char* w : words) v.push(ZString(w));
    v.sort();
    ASSERT_EQ(12, v.getSize());
    std::string sorted;
    for (int i = 0; i < v.getSize(); i++) sorted += std::string(v[i].c_str()) + " ";
    // The first is negative as a signed byte.
    EXPECT_EQ("\xe9t\xe9 Zebra apple apple banana cherry date fig grape kiwi lime pear ", sorted);

    EXPECT_FALSE(v.pushOnce(ZString("fig")));
    EXPECT_TRUE(v.pushOnce(ZString("plum")));
    ZVectorSafe<ZString> all;
    all.push(ZString("first"));
    all.pushAll(v);
    EXPECT_EQ(14, all.getSize());
    EXPECT_STREQ("plum", all.peek().c_str());
}

TEST(ZVector, PushOfOwnElementSurvivesGrowth) {
    ZVector<int> numbers;
    for (int i = 0; i < 20; i++) numbers.push(i + 100);
    numbers.push(numbers[0]);  // full heap storage: the element lives in the array being replaced
    EXPECT_EQ(100, numbers[20]);

    ZVectorSafe<ZString> strings;
    for (int i = 0; i < 10; i++) strings.push(ZString::fromLong(i));
    strings.push(strings[3]);  // full inline storage: growth moves the elements out
    EXPECT_STREQ("3", strings[10].c_str());
    EXPECT_STREQ("3", strings[3].c_str());
}
