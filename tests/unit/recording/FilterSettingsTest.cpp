// Include and exclude lines of a filter text.
#include <gtest/gtest.h>

#include "recording/ClassNameFilter.h"
#include "unit/services/LoggerCapture.h"

TEST(ClassNameFilterTest, AnIncludeLineWinsOverExcludesInEitherOrder) {
    for (const char* text : {"a.*\n+a.b\n", "+a.b\na.*\n"}) {
        ClassNameFilter filter{ZString(text)};
        EXPECT_FALSE(filter.isFilteredClassName(ZString("a.b"))) << text;
        EXPECT_TRUE(filter.isFilteredClassName(ZString("a.c"))) << text;
        EXPECT_FALSE(filter.isFilteredClassName(ZString("b.c"))) << text;
    }
}

TEST(ClassNameFilterTest, MethodLinesMatchClassNameAndParameters) {
    ClassNameFilter filter{ZString("a.B : get*(int)\n+a.B : getName(int)\nc.D\n")};
    EXPECT_TRUE(filter.isFilteredMethod(ZString("a.B"), ZString("getSize"), ZString("(int)")));
    EXPECT_FALSE(filter.isFilteredMethod(ZString("a.B"), ZString("getSize"), ZString("(long)")));
    EXPECT_FALSE(filter.isFilteredMethod(ZString("a.B"), ZString("getName"), ZString("(int)")));
    EXPECT_TRUE(filter.isFilteredMethod(ZString("c.D"), ZString("run"), ZString("()"))) << "a class alone: all methods";
    // By class name alone, an include line for one method of a.B keeps the class.
    EXPECT_FALSE(filter.isFilteredClassName(ZString("a.B")));
}

TEST(ClassNameFilterTest, EmptyAndUnreadableLinesAreSkippedWithAWarning) {
    CapturedLog log;
    ZVectorSafe<ZString> lines;
    for (const char* line : {"+", "+  ", "a.B : run(", "x.Y"}) lines.push(ZString(line));
    ZVector<Filter*> filters;
    Filter::createInclusiveAndExclusiveFiltersFromSpec(&lines, &filters);
    ASSERT_EQ(1, filters.getSize());
    EXPECT_EQ(Filter::EXCLUSIVE, filters[0]->getType());
    EXPECT_TRUE(filters[0]->accept(ZString("x.Y"), ZString("any"), ZString("(int)")));
    delete filters[0];
    EXPECT_EQ(1, log.count("warning: invalid filter specification 'a.B : run(': "
                           "invalid pattern syntax, must be <class>:<method>(<params>)"));
}
