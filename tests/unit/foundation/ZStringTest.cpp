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

// Results as plain strings, one case each, so that a table can hold them.
struct TextCase {
    std::string actual, expected;
};
static void expectTexts(const std::vector<TextCase>& cases) {
    for (size_t i = 0; i < cases.size(); i++) EXPECT_EQ(cases[i].expected, cases[i].actual) << "case " << i;
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

TEST(ZString, TextResults) {
    ZString minimum;
    minimum.appendLong(LLONG_MIN);
    expectTexts({
        {minimum.c_str(), "-9223372036854775808"}, {ZString::fromLong(0).c_str(), "0"},
        {ZString::fromLong(LLONG_MAX).c_str(), "9223372036854775807"}, {ZString::fromLong(-7).c_str(), "-7"},
        {ZString("hello").substring(1, 4).c_str(), "ell"}, {ZString("hello").substring(5, 5).c_str(), ""},
        // Replacement does not rescan what it put in.
        {ZString("aa").replaceAll("a", "bb").c_str(), "bbbb"}, {ZString("aaa").replaceAll("aa", "x").c_str(), "xa"},
        {ZString("abc").replaceAll("", "x").c_str(), "abc"}, {ZString("abc").replaceAll("z", "x").c_str(), "abc"},
        {ZString("abab").replaceAll("ab", "").c_str(), ""},
        // Trimming keeps NUL and bytes above 127.
        {ZString("   \t\n ").trim().c_str(), ""}, {ZString("\x01 a b \x1f").trim().c_str(), "a b"},
        {ZString(" \xe9 ").trim().c_str(), "\xe9"},
        {ZString("a.b.c").getFirstToken('.').c_str(), "a"}, {ZString("a.b.c").getLastToken('.').c_str(), "c"},
        {ZString("abc").getLastToken('.').c_str(), "abc"}, {ZString("abc.").getLastToken('.').c_str(), ""},
        {ZString("server.jar").cutPostfix(".jar").c_str(), "server"},
        {ZString("server.war").cutPostfix(".jar").c_str(), "server.war"},
        // The pad goes left of the sign.
        {ZString::formatLong(-5, 4, "0").c_str(), "00-5"}, {ZString::formatLong(7, 3, "0").c_str(), "007"},
        {ZString::formatLong(12345, 3, "0").c_str(), "12345"},
        {ZString::nanosAsMs(-1999999).c_str(), "-1ms"}, {ZString::nanosAsMs(2999999).c_str(), "2ms"},
    });
    EXPECT_EQ(2, ZString(" \0x ", 4).trim().getLength());
    EXPECT_THROW(ZString::formatLong(1, 0, "0"), KZTRuntimeException);
}

TEST(ZString, BoundsAndNullsAreFatal) {
    ZString s("hello");
    EXPECT_EQ('o', s[4]);
    EXPECT_THROW(s.substring(-1, 2), KZTRuntimeException);
    EXPECT_THROW(s.substring(3, 2), KZTRuntimeException);
    EXPECT_THROW(s.substring(0, 6), KZTRuntimeException);
    EXPECT_THROW(s[5], KZTRuntimeException);
    EXPECT_THROW(s[-1], KZTRuntimeException);
    EXPECT_THROW(s.contains((const char*)nullptr), KZTRuntimeException);
    EXPECT_THROW(s.startsWith((const char*)nullptr), KZTRuntimeException);
    EXPECT_THROW(ZString::isPrefix(ZString("a"), "a", nullptr), KZTRuntimeException);
    EXPECT_THROW(ZString::isPrefixInt(ZString("a"), "a", nullptr), KZTRuntimeException);
}

TEST(ZString, Searches) {
    struct Case {
        const char *text, *part;
        int from, at;
    } cases[] = {{"", "", 0, 0}, {"", "a", 0, -1}, {"a", "", 0, 0}, {"abcabc", "abc", 1, 3}, {"abcabc", "abcd", 0, -1},
                 {"ab", "abc", 0, -1}};
    for (const Case& c : cases) EXPECT_EQ(c.at, ZString(c.text).indexOf(c.part, c.from)) << c.text << "/" << c.part;
    EXPECT_TRUE(ZString("abc").contains("bc"));
    EXPECT_TRUE(ZString("abc").startsWith(""));
    EXPECT_TRUE(ZString("abc").endsWith("bc"));
    EXPECT_FALSE(ZString("bc").endsWith("abc"));
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

TEST(ZString, Prefixes) {
    ZString rest("old");
    EXPECT_TRUE(ZString::isPrefix(ZString("key=value"), "key=", &rest));
    EXPECT_STREQ("value", rest.c_str());
    EXPECT_FALSE(ZString::isPrefix(ZString("key=value"), "other", &rest));
    EXPECT_TRUE(rest.isEmpty());

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
}

TEST(ZString, Parsing) {
    struct Case {
        const char* text;
        long long value;
        bool failed;
    } cases[] = {{"-123", -123, false}, {"", 0, true}, {"12a", 0, true}, {"-", 0, true},
                 {"9223372036854775808", LLONG_MIN, false}};
    for (const Case& c : cases) {
        bool failed = false;
        EXPECT_EQ(c.value, ZString(c.text).parseLong(&failed)) << c.text;
        if (c.value != LLONG_MIN) {
            EXPECT_EQ(c.failed, failed) << c.text;
        }
    }
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
