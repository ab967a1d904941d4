// The adaptive filter and the settings and wall-time filters it works with.
#include "RecordingTestSupport.h"
#include "foundation/UptimeProvider.h"

namespace {

class AdaptiveFilterTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        ourTracingSettings.myAdaptive = true;
        ourTracingSettings.myAdaptiveMinMethodInvocationCount = 100000;
        ourTracingSettings.myAdaptiveMaxAverageMethodTimeNs = 1000000;
        ourTracingSettings.myAdaptiveMinMethodTimePercent = 0;
        // A second of tracing so far.
        ourCpuProfilingStartNs = ourUptimeProvider.getUptimeNs() - 1000000000LL;
        thread = newThread("worker");
        main = method("main");
        a = method("a");
        enterWithStack(thread, node(thread, {{main, 0}}), base);
    }
    void TearDown() override {
        ourTracingSettings.setFromText(ZString());
        RecordingTest::TearDown();
    }
    // Brings the calls of a up to `count`, 10 ns each.
    void callUpTo(int count) {
        for (; myCalls < count; myCalls++) {
            enter(thread, a, base + 100);
            exit(thread, a, base + 110);
        }
        play(thread);
    }
    bool isExcluded(int m) { return (ZMethod::getFlags(m) & METHOD_FLAG_EXCLUDED) != 0; }

    ThreadInfo* thread = nullptr;
    int main = 0;
    int a = 0;
    int myCalls = 0;
};

}  // namespace

TEST_F(AdaptiveFilterTest, ACheapHotMethodIsExcludedAtTheMinimumCount) {
    callUpTo(99999);
    EXPECT_FALSE(isExcluded(a));
    callUpTo(100000);
    EXPECT_TRUE(isExcluded(a));
    EXPECT_FALSE(isExcluded(main));
}

TEST_F(AdaptiveFilterTest, AfterTheMinimumTheTestComesEvery32768Calls) {
    // At 100000 the method is not expensive enough in sum.
    ourTracingSettings.myAdaptiveMinMethodTimePercent = 100;
    callUpTo(100000);
    EXPECT_FALSE(isExcluded(a));
    ourTracingSettings.myAdaptiveMinMethodTimePercent = 0;
    callUpTo(131072);
    EXPECT_FALSE(isExcluded(a)) << "131072 is a power of two, not a test point";
    callUpTo(132767);
    EXPECT_FALSE(isExcluded(a));
    callUpTo(132768);
    EXPECT_TRUE(isExcluded(a));
}

TEST_F(AdaptiveFilterTest, ExpensiveCallsAndNeverExcludedNamesStay) {
    ourTracingSettings.myAdaptiveMaxAverageMethodTimeNs = 10;  // a call of a takes 10
    callUpTo(100000);
    EXPECT_FALSE(isExcluded(a));

    int invoke = method("invokeNext");
    enterWithStack(thread, node(thread, {{main, 0}}), base);
    for (int i = 0; i < 100000; i++) {
        enter(thread, invoke, base);
        exit(thread, invoke, base + 1);
    }
    play(thread);
    EXPECT_FALSE(isExcluded(invoke));
}

TEST_F(AdaptiveFilterTest, WhatAnExcludedMethodCallsLeavesTracingWithIt) {
    int b = method("b"), c = method("c"), invoke = method("invokeLater");
    enter(thread, a, base);
    enter(thread, b, base);
    enter(thread, c, base);
    exit(thread, c, base);
    exit(thread, b, base);
    enter(thread, invoke, base);
    exit(thread, invoke, base);
    exit(thread, a, base);
    myCalls = 1;
    callUpTo(100000);
    EXPECT_TRUE(isExcluded(a));
    EXPECT_EQ(METHOD_FLAG_EXCLUDED | METHOD_FLAG_EXCLUDED_CALLEE,
              ZMethod::getFlags(b) & (METHOD_FLAG_EXCLUDED | METHOD_FLAG_EXCLUDED_CALLEE));
    EXPECT_TRUE(isExcluded(c));
    EXPECT_FALSE(isExcluded(invoke));
    EXPECT_FALSE(isExcluded(main));
    // A reload of the filters takes every exclusion back.
    Filter::reloadFilters(lock, ZVectorSafe<ZString>());
    EXPECT_FALSE(isExcluded(a));
    EXPECT_FALSE(isExcluded(b));
}

TEST_F(RecordingTest, TracingSettingsTakeNumbersFromTheDefaultsAndWallTimeFromTheText) {
    CapturedLog log;
    ourTracingSettings.setFromText(ZString(TracingSettings::DEFAULT_TEXT));
    ASSERT_EQ(1, ourTracingSettings.myWallTimeSpecs.getSize());
    EXPECT_EQ(ZString("*"), ourTracingSettings.myWallTimeSpecs[0]);
    EXPECT_TRUE(ourTracingSettings.myAdaptive);
    EXPECT_EQ(20000, ourTracingSettings.myAdaptiveMinMethodInvocationCount);

    ourTracingSettings.setFromText(ZString("adaptive=yes\nadaptive_max_average_method_time_ns=250\n"
                                           "adaptive_min_method_time_percent=2.5\nwalltime=java.lang.Thread\n"));
    EXPECT_TRUE(ourTracingSettings.myAdaptive) << "only true and false are read";
    EXPECT_EQ(250, ourTracingSettings.myAdaptiveMaxAverageMethodTimeNs);
    EXPECT_DOUBLE_EQ(2.5, ourTracingSettings.myAdaptiveMinMethodTimePercent);
    ASSERT_EQ(1, ourTracingSettings.myWallTimeSpecs.getSize());

    // An empty text: default numbers, no wall-time filter at all.
    ourTracingSettings.setFromText(ZString("adaptive=false"));
    ourTracingSettings.setFromText(ZString());
    EXPECT_TRUE(ourTracingSettings.myAdaptive);
    EXPECT_EQ(0, ourTracingSettings.myWallTimeSpecs.getSize());
    std::vector<std::string> lines = log.startingWith("TracingSettings: ");
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("TracingSettings: a=1 min_cnt=20000 max_avg=1000 min_%=0.100 (default)", lines[0]);
    EXPECT_EQ("TracingSettings: a=0 min_cnt=20000 max_avg=1000 min_%=0.100\nadaptive=false", lines[2]);
    EXPECT_EQ(lines[0], lines[3]);
}

TEST_F(RecordingTest, WallTimeFiltersSetTheTimingFlagsOfMethods) {
    int a = method("a"), b = method("b"), other = method("run", "q.D");
    auto patterns = [](std::initializer_list<const char*> texts) {
        ZVectorSafe<ZString> result;
        for (const char* text : texts) result.push(ZString(text));
        return result;
    };
    Filter::reloadFilters(lock, patterns({"*"}));
    EXPECT_TRUE(Filter::ourAlwaysWallTime);
    EXPECT_EQ(METHOD_FLAG_WALL_TIME | METHOD_FLAG_ALL_WALL_TIME,
              ZMethod::getFlags(a) & (METHOD_FLAG_WALL_TIME | METHOD_FLAG_ALL_WALL_TIME));

    Filter::reloadFilters(lock, patterns({"a.B : a(*)"}));
    EXPECT_FALSE(Filter::ourAlwaysWallTime);
    EXPECT_TRUE(Filter::isWallTimed(a));
    EXPECT_FALSE(Filter::isWallTimed(b));
    EXPECT_EQ(0, ZMethod::getFlags(a) & METHOD_FLAG_ALL_WALL_TIME);

    // A class alone means all its methods; "*" beside another pattern is no longer "always".
    Filter::reloadFilters(lock, patterns({"q.D", "*"}));
    EXPECT_FALSE(Filter::ourAlwaysWallTime);
    EXPECT_TRUE(Filter::isWallTimed(other));
    EXPECT_TRUE(Filter::isWallTimed(a)) << "\"*\" is a filter of its own";

    // A new method gets its flags as it is made.
    Filter::reloadFilters(lock, patterns({"q.*"}));
    int later = method("later", "q.E");
    EXPECT_TRUE(Filter::isWallTimed(later));
    EXPECT_FALSE(Filter::isWallTimed(a));
    Filter::reloadFilters(lock, patterns({}));
}
