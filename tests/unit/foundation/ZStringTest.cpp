#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

static ZString repeat(char c, int count) {
    ZString s;
    for (int i = 0; i < count; i++) s.appendChar(c);
    return s;
}

// Up to nineteen characters live inline; past that, growth doubles unless
// more is needed, and a copy or a concatenation takes exactly what it holds.
TEST(ZString, InlineLimitAndGrowth) {
    ZString s = repeat('a', 19);
    EXPECT_TRUE(s.isInline());
    s.appendChar('b');
    EXPECT_FALSE(s.isInline());
    EXPECT_EQ(40, s.getCapacity());
    EXPECT_STREQ("aaaaaaaaaaaaaaaaaaab", s.c_str());
    EXPECT_TRUE(ZString("abcdefghijklmnopqrs").isInline());
    ZString twenty("abcdefghijklmnopqrst");
    ZString copy(twenty);
    EXPECT_EQ(21, copy.getCapacity());
    EXPECT_NE(twenty.c_str(), copy.c_str());
    ZString ab("ab");
    ab.append(repeat('x', 50));
    EXPECT_EQ(53, ab.getCapacity());
    ZString ten("0123456789");
    EXPECT_TRUE((ten + "012345678").isInline());
    EXPECT_EQ(41, (ten + repeat('y', 30)).getCapacity());
    EXPECT_THROW(ten + (const char*)nullptr, KZTRuntimeException);
}

TEST(ZString, AssignmentAndMoves) {
    ZString s("a long string that lives on the heap");
    s = s;
    EXPECT_STREQ("a long string that lives on the heap", s.c_str());
    s = s.c_str() + 2;
    EXPECT_STREQ("long string that lives on the heap", s.c_str());
    s.append(s);
    EXPECT_EQ(68, s.getLength());
    ZString moved(static_cast<ZString&&>(s));
    EXPECT_EQ(68, moved.getLength());
    EXPECT_TRUE(s.isEmpty());
    ZString inlineMoved(ZString("short"));
    EXPECT_TRUE(inlineMoved.isInline());
    EXPECT_STREQ("short", inlineMoved.c_str());
    EXPECT_THROW(ZString((const char*)nullptr), KZTRuntimeException);
    EXPECT_THROW(ZString(-1), KZTRuntimeException);
}

TEST(ZString, AppendLongExtremes) {
    ZString s;
    s.appendLong(LLONG_MIN);
    EXPECT_STREQ("-9223372036854775808", s.c_str());
    EXPECT_STREQ("0", ZString::fromLong(0).c_str());
    EXPECT_STREQ("9223372036854775807", ZString::fromLong(LLONG_MAX).c_str());
    EXPECT_STREQ("-7", ZString::fromLong(-7).c_str());
}

TEST(ZString, SubstringAndCharAccessBounds) {
    ZString s("hello");
    EXPECT_STREQ("ell", s.substring(1, 4).c_str());
    EXPECT_STREQ("", s.substring(5, 5).c_str());
    EXPECT_THROW(s.substring(-1, 2), KZTRuntimeException);
    EXPECT_THROW(s.substring(3, 2), KZTRuntimeException);
    EXPECT_THROW(s.substring(0, 6), KZTRuntimeException);
    EXPECT_EQ('o', s[4]);
    EXPECT_THROW(s[5], KZTRuntimeException);
    EXPECT_THROW(s[-1], KZTRuntimeException);
}

TEST(ZString, IndexOfEdgeCases) {
    EXPECT_EQ(0, ZString("").indexOf(""));
    EXPECT_EQ(-1, ZString("").indexOf("a"));
    EXPECT_EQ(0, ZString("a").indexOf(""));
    EXPECT_EQ(3, ZString("abcabc").indexOf("abc", 1));
    EXPECT_EQ(-1, ZString("abcabc").indexOf("abcd"));
    EXPECT_EQ(-1, ZString("ab").indexOf("abc"));
    EXPECT_TRUE(ZString("abc").contains("bc"));
    EXPECT_THROW(ZString("abc").contains((const char*)nullptr), KZTRuntimeException);
}

TEST(ZString, ReplaceAllDoesNotRescan) {
    EXPECT_STREQ("bbbb", ZString("aa").replaceAll("a", "bb").c_str());
    EXPECT_STREQ("xa", ZString("aaa").replaceAll("aa", "x").c_str());
    EXPECT_STREQ("abc", ZString("abc").replaceAll("", "x").c_str());
    EXPECT_STREQ("abc", ZString("abc").replaceAll("z", "x").c_str());
    EXPECT_STREQ("", ZString("abab").replaceAll("ab", "").c_str());
}

TEST(ZString, SplitDropsEmptyTokensAndAppends) {
    ZVectorSafe<ZString> tokens;
    for (const char* text : {"a,,b,", ",,,", "a"}) ZString(text).split(",", tokens);
    ZString("x;y z").split("; ", tokens);
    ZString("a,b").split("", tokens);
    ZString("").split(",", tokens);
    std::vector<std::string> all;
    for (int i = 0; i < tokens.getSize(); i++) all.push_back(tokens[i].c_str());
    EXPECT_EQ((std::vector<std::string>{"a", "b", "a", "x", "y", "z", "a,b"}), all);
}

TEST(ZString, TrimKeepsNulAndHighBytes) {
    EXPECT_STREQ("", ZString("   \t\n ").trim().c_str());
    EXPECT_STREQ("a b", ZString("\x01 a b \x1f").trim().c_str());
    ZString withNul(" \0x ", 4);
    EXPECT_EQ(2, withNul.trim().getLength());
    EXPECT_STREQ("\xe9", ZString(" \xe9 ").trim().c_str());
}

TEST(ZString, Tokens) {
    EXPECT_STREQ("a", ZString("a.b.c").getFirstToken('.').c_str());
    EXPECT_STREQ("c", ZString("a.b.c").getLastToken('.').c_str());
    EXPECT_STREQ("abc", ZString("abc").getLastToken('.').c_str());
    EXPECT_STREQ("", ZString("abc.").getLastToken('.').c_str());
    EXPECT_STREQ("server", ZString("server.jar").cutPostfix(".jar").c_str());
    EXPECT_STREQ("server.war", ZString("server.war").cutPostfix(".jar").c_str());
}

TEST(ZString, Prefixes) {
    ZString rest("old");
    EXPECT_TRUE(ZString::isPrefix(ZString("key=value"), "key=", &rest));
    EXPECT_STREQ("value", rest.c_str());
    EXPECT_FALSE(ZString::isPrefix(ZString("key=value"), "other", &rest));
    EXPECT_TRUE(rest.isEmpty());
    EXPECT_THROW(ZString::isPrefix(ZString("a"), "a", nullptr), KZTRuntimeException);

    int v = 7;
    EXPECT_TRUE(ZString::isPrefixInt(ZString("x=abc"), "x=", &v));
    EXPECT_EQ(0, v);
    EXPECT_TRUE(ZString::isPrefixInt(ZString("x=-42"), "x=", &v));
    EXPECT_EQ(-42, v);
    v = 7;
    EXPECT_FALSE(ZString::isPrefixInt(ZString("y=1"), "x=", &v));
    EXPECT_EQ(0, v);
    long long l = 0;
    EXPECT_TRUE(ZString::isPrefixLong(ZString("n=8589934592"), "n=", &l));
    EXPECT_EQ(8589934592LL, l);
    double d = 0;
    EXPECT_TRUE(ZString::isPrefixDouble(ZString("d=2.5"), "d=", &d));
    EXPECT_DOUBLE_EQ(2.5, d);
    EXPECT_THROW(ZString::isPrefixInt(ZString("a"), "a", nullptr), KZTRuntimeException);

    EXPECT_TRUE(ZString("abc").startsWith(""));
    EXPECT_TRUE(ZString("abc").endsWith("bc"));
    EXPECT_FALSE(ZString("bc").endsWith("abc"));
    EXPECT_THROW(ZString("abc").startsWith((const char*)nullptr), KZTRuntimeException);
}

TEST(ZString, FormatLongPutsPadLeftOfSign) {
    EXPECT_STREQ("00-5", ZString::formatLong(-5, 4, "0").c_str());
    EXPECT_STREQ("007", ZString::formatLong(7, 3, "0").c_str());
    EXPECT_STREQ("12345", ZString::formatLong(12345, 3, "0").c_str());
    EXPECT_THROW(ZString::formatLong(1, 0, "0"), KZTRuntimeException);
    EXPECT_STREQ("-1ms", ZString::nanosAsMs(-1999999).c_str());
    EXPECT_STREQ("2ms", ZString::nanosAsMs(2999999).c_str());
}

TEST(ZString, Parsing) {
    bool failed = false;
    EXPECT_EQ(-123, ZString("-123").parseLong(&failed));
    EXPECT_FALSE(failed);
    EXPECT_EQ(0, ZString("").parseLong(&failed));
    EXPECT_TRUE(failed);
    EXPECT_EQ(0, ZString("12a").parseLong(&failed));
    EXPECT_TRUE(failed);
    EXPECT_EQ(0, ZString("-").parseLong(&failed));
    EXPECT_TRUE(failed);
    EXPECT_EQ(LLONG_MIN, ZString("9223372036854775808").parseLong(&failed));
    EXPECT_EQ(12, parseLongSafe(ZString("12a")));
    EXPECT_EQ(-12, parseLongSafe(ZString("-12.5")));
    EXPECT_EQ(0, parseLongSafe(ZString("x")));
}

TEST(ZString, ComparisonIsSignedBytewise) {
    EXPECT_TRUE(ZString("ab") == ZString("ab"));
    EXPECT_FALSE(ZString("ab") == ZString("ab\0", 3));
    EXPECT_LT(ZString("\xe9").compareTo(ZString("a")), 0);
    EXPECT_LT(ZString("ab").compareTo(ZString("abc")), 0);
    EXPECT_EQ(0, ZString("").hashCode());
    EXPECT_EQ(96354, ZString("abc").hashCode());
    EXPECT_EQ(-23, ZString("\xe9").hashCode());
}

// Hashing four characters a step must give what one at a time gives, at
// every length and with characters above 127.
TEST(ZString, HashOfEveryLengthMatchesTheCharacterByCharacterRule) {
    std::string text;
    for (int length = 0; length <= 21; length++) {
        uint32_t expected = 0;
        for (char c : text) expected = expected * 31 + (uint32_t)(int32_t)(signed char)c;
        ASSERT_EQ((int32_t)expected, hashText31(text.data(), length)) << length;
        ASSERT_EQ((int32_t)expected, ZString(text.c_str()).hashCode()) << length;
        text.push_back(length % 3 == 0 ? (char)(0xc0 + length) : (char)('a' + length));
    }
}
