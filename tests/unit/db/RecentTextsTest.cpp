#include <gtest/gtest.h>

#include <string>

#include "db/RecentTexts.h"
#include "foundation/ZString.h"

// A hit needs the same bytes and the same epoch; a slot taken by another
// text, a text longer than the slots hold and a moved epoch all miss.
TEST(RecentTexts, HitsOnlyTheSameTextInTheSameEpoch) {
    RecentTexts<int> cache;
    auto find = [&](const std::string& text, int epoch) {
        return cache.find(text.data(), (int)text.size(), hashText31(text.data(), (int)text.size()), epoch);
    };
    auto put = [&](const std::string& text, int epoch, int value) {
        cache.put(text.data(), (int)text.size(), hashText31(text.data(), (int)text.size()), epoch, value);
    };
    EXPECT_EQ(nullptr, find("", 0));
    put("<init>", 0, 7);
    ASSERT_NE(nullptr, find("<init>", 0));
    EXPECT_EQ(7, *find("<init>", 0));
    EXPECT_EQ(nullptr, find("<init>", 1));
    EXPECT_EQ(nullptr, find("<init", 0));
    EXPECT_EQ(nullptr, find(std::string("<init>\0", 7), 0));

    // Same slot, other text: the newer one replaces the older.
    std::string other;
    for (int i = 0; (hashText31(other.data(), (int)other.size()) & 1023) != (hashText31("<init>", 6) & 1023); i++) {
        other = "m" + std::to_string(i);
    }
    put(other, 0, 8);
    EXPECT_EQ(nullptr, find("<init>", 0));
    EXPECT_EQ(8, *find(other, 0));

    std::string longText(RecentTexts<int>::MAX_LENGTH + 1, 'x');
    put(longText, 0, 9);
    EXPECT_EQ(nullptr, find(longText, 0));
}
