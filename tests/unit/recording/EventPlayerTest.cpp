// The player: call tree shape, times and invocation counts from event
// streams, and what disorder in a stream costs.
#include "db/EventTableRows.h"
#include "db/StringPool.h"
#include "db/ThreadFrameIndex.h"
#include "recording/PlayerEventAdding.h"
#include "RecordingTestSupport.h"

using Tree = std::map<std::string, FrameMeasure>;

// A thread "worker" and methods main and a for every case; the log captured.
class EventPlayerTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        t = newThread("worker");
        main = method("main");
        a = method("a");
    }
    CapturedLog log;
    ThreadInfo* t = nullptr;
    int main = 0, a = 0;
};

TEST_F(EventPlayerTest, EventsBuildTheTreeWithTimesAndCounts) {
    int b = method("b");
    enterWithStack(t, node(t, {{main, 0}}), base + 1000);
    enter(t, a, base + 1100, 5);
    enter(t, b, base + 1200);
    exit(t, b, base + 1500);
    enter(t, b, base + 1600);  // same caller, same line: the same frame
    exit(t, b, base + 1650);
    exit(t, a, base + 2000);
    enter(t, a, base + 2100, 7);  // another line of the caller: another frame
    exit(t, a, base + 2200);
    exit(t, main, base + 3000);
    play(t);
    Tree expected = {{"main", {2000, 1}}, {"main/a@5", {900, 1}}, {"main/a@5/b", {350, 2}}, {"main/a@7", {100, 1}}};
    EXPECT_EQ(expected, tree(t));
    // Back at the root with nothing open.
    EXPECT_EQ(0, t->getCurrentFrame());
    EXPECT_EQ(0, t->getTimeStackSize());
    EXPECT_EQ(t->getEventWriteIndex(), t->getEventReadIndex());
}

TEST_F(EventPlayerTest, RecursionGetsAFrameForEachDepth) {
    int f = method("f");
    enterWithStack(t, node(t, {{main, 0}}), base);
    for (int call = 0; call < 2; call++) {
        int64_t start = base + 100 + call * 1000;
        enter(t, f, start);
        enter(t, f, start + 10);
        enter(t, f, start + 20);
        exit(t, f, start + 30);
        exit(t, f, start + 50);
        exit(t, f, start + 80);
    }
    play(t);
    Tree expected = {{"main", {0, 1}}, {"main/f", {160, 2}}, {"main/f/f", {80, 2}}, {"main/f/f/f", {20, 2}}};
    EXPECT_EQ(expected, tree(t));
    // main is still open: its time counts from its first exit.
    EXPECT_EQ(1, t->getTimeStackSize());
}

TEST_F(EventPlayerTest, AStackEventStartsInTheMiddleAndCountsOnlyItsTopFrame) {
    int run = method("run"), loop = method("loop"), work = method("work");
    // Tracing began while run and loop were already running.
    enterWithStack(t, node(t, {{run, 0}, {loop, 12}, {work, 40}}), base + 100);
    exit(t, work, base + 150);
    exit(t, loop, base + 400);
    exit(t, run, base + 500);
    play(t);
    Tree expected = {{"run", {400, 0}}, {"run/loop@12", {300, 0}}, {"run/loop@12/work@40", {50, 1}}};
    EXPECT_EQ(expected, tree(t));
}

TEST_F(EventPlayerTest, ThreadsAreKeptApartInOneSharedFrameTree) {
    ThreadInfo* t2 = newThread("two");
    enterWithStack(t, node(t, {{main, 0}}), base);
    enterWithStack(t2, node(t2, {{main, 0}}), base);
    for (int i = 0; i < 3; i++) {
        enter(t, a, base + 10 * i);
        exit(t, a, base + 10 * i + 5);
    }
    enter(t2, a, base);
    exit(t2, a, base + 100);
    play(t);
    play(t2);
    EXPECT_EQ((Tree{{"main", {0, 1}}, {"main/a", {15, 3}}}), tree(t));
    EXPECT_EQ((Tree{{"main", {0, 1}}, {"main/a", {100, 1}}}), tree(t2));
    // One frame each for both threads: main is 1, a is 2.
    EXPECT_EQ(3, db->getFrameTable()->peekNextIndex());
}

TEST_F(EventPlayerTest, StaleEventsResetTheStackAndCountNothing) {
    enterWithStack(t, node(t, {{main, 0}}), base);
    enter(t, a, base + 10);
    play(t);
    ourCpuTracingGeneration = 2;  // a clear came in between
    exit(t, a, base + 20, 1);
    enter(t, a, base + 30, 0, 1);
    play(t);
    EXPECT_EQ((Tree{{"main", {0, 1}}, {"main/a", {0, 1}}}), tree(t));
    EXPECT_EQ(-1, t->getCurrentFrame());
    EXPECT_FALSE(t->isStackKnown());
    std::string exitWarning = "warning: p_m_exit: 1: " + std::to_string(a) + " event_gen: 1 current: 2";
    std::string enterWarning = "warning: p_m_enter: 1: " + std::to_string(a) + " event_gen: 1 current: 2";
    EXPECT_EQ(std::vector<std::string>{exitWarning}, log.startingWith("warning: p_m_exit"));
    EXPECT_EQ(std::vector<std::string>{enterWarning}, log.startingWith("warning: p_m_enter"));
}

TEST_F(EventPlayerTest, AnExitThatTheTreeDoesNotKnowClosesTheOpenFramesNow) {
    int stray = method("stray");
    int64_t now = getTimeNsForTracing();
    enterWithStack(t, node(t, {{main, 0}}), now);
    enter(t, a, now);
    exit(t, stray, now + 10);
    // Until the next stack event nothing is placed.
    enter(t, a, now + 20);
    exit(t, a, now + 30);
    play(t);
    Tree measured = tree(t);
    EXPECT_EQ(1, measured["main"].invocations);
    EXPECT_EQ(1, measured["main/a"].invocations);
    EXPECT_GT(measured["main/a"].time, 0);  // closed with the present time
    EXPECT_GE(measured["main"].time, measured["main/a"].time);
    EXPECT_EQ(-1, t->getCurrentFrame());
    std::vector<std::string> expected = {"warning: p_m_exit: 3_2: " + std::to_string(stray) + " expected: " +
                                         std::to_string(a)};
    EXPECT_EQ(expected, log.startingWith("warning: p_m_exit"));
    EXPECT_TRUE(log.startingWith("warning: p_m_enter").empty());  // only under the "tracing" debug category
}

TEST_F(EventPlayerTest, AnExcludedMethodWithoutExitIsSkippedByItsCallersExit) {
    int hot = method("hot");
    enterWithStack(t, node(t, {{main, 0}}), base);
    enter(t, a, base + 100);
    enter(t, hot, base + 200);
    play(t);
    // Excluded while it runs: its exit never comes.
    ZMethod::getRecord(hot)->myFlags |= METHOD_FLAG_EXCLUDED;
    exit(t, a, base + 500);
    exit(t, main, base + 1000);
    play(t);
    EXPECT_EQ((Tree{{"main", {1000, 1}}, {"main/a", {400, 1}}, {"main/a/hot", {0, 1}}}), tree(t));
    EXPECT_TRUE(log.startingWith("warning:").empty());

    // With nothing but the excluded frame below the root the stack is lost.
    enterWithStack(t, node(t, {{hot, 0}}), base + 2000);
    exit(t, a, base + 2100);
    play(t);
    EXPECT_EQ(-1, t->getCurrentFrame());
    std::vector<std::string> expected = {"warning: p_m_exit: 3_1: " + std::to_string(a) + " _frame=0 size1=0"};
    EXPECT_EQ(expected, log.startingWith("warning:"));
}

TEST_F(EventPlayerTest, AnExitWithoutStartTimesLosesTheStack) {
    // Played while tracing was off: no start times were pushed.
    ourStatus.remove(CPU_PROFILING_MASK);
    enterWithStack(t, node(t, {{a, 0}}), base);
    play(t);
    ourStatus.add(CPU_TRACING);
    exit(t, a, base + 10);
    play(t);
    EXPECT_EQ(-1, t->getCurrentFrame());
    std::vector<std::string> warnings = log.startingWith("warning: p_m_exit: 4: " + std::to_string(a) + " ");
    ASSERT_EQ(1u, warnings.size());
    EXPECT_NE(std::string::npos, warnings[0].find("->-1 name=worker"));
}

TEST_F(EventPlayerTest, NegativeDeltasAddNothingAndAreLoggedTenTimes) {
    for (int i = 0; i < 12; i++) {
        enterWithStack(t, node(t, {{a, 0}}), base + 100);
        exit(t, a, base + 50);
    }
    play(t);
    EXPECT_EQ((Tree{{"a", {0, 12}}}), tree(t));
    std::vector<std::string> jumps = log.startingWith("warning: tracing time jump: (1) ");
    // Earlier tests of this process may have used some of the ten.
    EXPECT_LE(jumps.size(), 10u);
    EXPECT_EQ(0, CpuTracing::getTimeDeltaNs(5, 6, 2));
    EXPECT_EQ(7, CpuTracing::getTimeDeltaNs(13, 6, 2));
}

TEST_F(EventPlayerTest, AFullBufferIsPlayedAndRefilledWithoutLosingEvents) {
    enterWithStack(t, node(t, {{main, 0}}), base);  // 7 elements
    const int pairs = 5000;                          // 11 elements each, over five buffers
    for (int i = 0; i < pairs; i++) {
        enter(t, a, base + 10 * i);
        exit(t, a, base + 10 * i + 3);
    }
    play(t);
    EXPECT_EQ((Tree{{"main", {0, 1}}, {"main/a", {3 * pairs, pairs}}}), tree(t));
    EXPECT_LE(t->getEventWriteIndex(), ThreadInfo::EVENT_BUFFER_SIZE);
}

TEST_F(EventPlayerTest, AnEventThatExactlyFillsTheBufferWaitsForTheNext) {
    // 7 + 3 * 6 + 2043 * 5 = 10240
    enterWithStack(t, node(t, {{a, 0}}), base);
    for (int i = 0; i < 3; i++) enter(t, a, base);
    for (int i = 0; i < 2043; i++) exit(t, a, base);
    EXPECT_EQ(ThreadInfo::EVENT_BUFFER_SIZE, t->getEventWriteIndex());
    EXPECT_EQ(0, t->getEventReadIndex());
    exit(t, a, base);
    EXPECT_EQ(5, t->getEventWriteIndex());
    EXPECT_EQ(0, t->getEventReadIndex());
}

TEST_F(EventPlayerTest, OtherEventsArePlayedToo) {
    int n = node(t, {{a, 0}});
    int32_t allocation[4] = {EVENT_ALLOCATION, 48, 0, n};
    t->addEvent(allocation, 4, true);
    t->addEvent(allocation, 4, true);
    int frame = t->getFrameFromNode(lock, n);
    int32_t byFrame[4] = {EVENT_ALLOCATION, 16, 0, -frame};
    t->addEvent(byFrame, 4, true);
    // A close event without its string: nothing to delete.
    int32_t close[7] = {EVENT_TABLE_ROW_CLOSE, 40, 1, 0, 0, 0, 0};
    t->addEvent(close, 7, true);
    // A string handed over with the event is deleted after use.
    ZString* text = new ZString("column text");
    int64_t pointer = (int64_t)(intptr_t)text;
    int32_t setString[6] = {EVENT_TABLE_SET_STRING, 40, 1, 2, lowHalf(pointer), highHalf(pointer)};
    t->addEvent(setString, 6, true);
    play(t);
    int index = db->getThreadFrameIndex()->getTFI(lock, t->getTFIIndex(), frame, false);
    AllocInfoRecord* record = db->getAllocInfoTable()->getPtr(index, false);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(3, record->myObjectCount);
    EXPECT_EQ(112, record->mySize);

    int32_t unknown[1] = {99};
    t->addEvent(unknown, 1, true);
    EXPECT_THROW(play(t), KZTRuntimeException);
}

TEST_F(EventPlayerTest, TextsKeptInTheThreadsStoreReachTheirRowsAcrossRefills) {
    PlayerEventAdding::installPlayers();
    int table = EventTableRows::createTableByDescription(lock, db, "Texts\n3\nuptime_ns\n1\nthread\n0\nText\n2\n");
    // Texts of some 1000 bytes: the store is played and emptied every 32 or so.
    std::vector<std::pair<int, std::string>> rows;
    for (int i = 0; i < 100; i++) {
        int eventId = EventTableRows::nextEventId();
        int32_t create[6] = {EVENT_TABLE_ROW_CREATE, table, eventId, 0, 0, 0};
        t->addEvent(create, 6, true);
        std::string value = std::to_string(i) + std::string(1000 + i % 7, 'x');
        char* stored = t->reserveText((int)value.size());
        ASSERT_NE(nullptr, stored);
        ASSERT_EQ(0u, (uintptr_t)stored & 1);
        memcpy(stored, value.c_str(), value.size() + 1);
        int64_t text = (int64_t)(intptr_t)stored | 1;
        int32_t set[6] = {EVENT_TABLE_SET_STRING, table, eventId, 2, lowHalf(text), highHalf(text)};
        t->addEvent(set, 6, true);
        rows.emplace_back(eventId, value);
    }
    EXPECT_EQ(nullptr, t->reserveText(ThreadInfo::TEXT_STORE_SIZE / 4));
    play(t);
    EventTable* texts = db->getEventTable(table);
    for (const auto& [eventId, value] : rows) {
        EventRecord* row = EventTableRows::findOrCreateRow(lock, db, eventId, texts);
        ASSERT_NE(nullptr, row);
        EXPECT_STREQ(value.c_str(), StringPool::getString(lock, texts->getInt32Column(*row, 2))) << eventId;
    }
}

TEST_F(EventPlayerTest, NodesBecomeFramesOnceAndShareTheirCallers) {
    int b = method("b"), c = method("c");
    int ab = node(t, {{a, 0}, {b, 3}});
    int ac = node(t, {{a, 0}, {c, 4}});
    int frameAB = t->getFrameFromNode(lock, ab);
    int frameAC = t->getFrameFromNode(lock, ac);
    EXPECT_EQ("a/b@3", pathOf(frameAB));
    EXPECT_EQ("a/c@4", pathOf(frameAC));
    EXPECT_EQ(ZFrameStorage::getParent(frameAB), ZFrameStorage::getParent(frameAC));
    EXPECT_EQ(frameAB, t->getFrameFromNode(lock, ab));
    EXPECT_EQ(0, t->getFrameFromNode(lock, 0));
}

TEST_F(EventPlayerTest, AClearMakesBufferedEventsStaleAndEmptiesTheTable) {
    enterWithStack(t, node(t, {{main, 0}}), base);
    enter(t, a, base + 10);
    exit(t, a, base + 20);
    enter(t, a, base + 30);
    CpuTracing::clearCpuDataImpl(lock);
    EXPECT_EQ(2, ourCpuTracingGeneration);
    EXPECT_TRUE(tree(t).empty());
    EXPECT_EQ(-1, t->getCurrentFrame());
    EXPECT_EQ(db->getCurrentGeneration(), db->getTableGenerationTable()->getRecordModificationStamp(TABLE_CPU_PROFILING));
    // An exit made before the clear arrives after it: it touches nothing.
    exit(t, a, base + 40, 1);
    play(t);
    EXPECT_TRUE(tree(t).empty());
    EXPECT_EQ(1u, log.startingWith("warning: p_m_exit: 1: ").size());
    // The same calls again land in the new table, not in records of the old one.
    enterWithStack(t, node(t, {{main, 0}}), base + 50);
    enter(t, a, base + 60);
    exit(t, a, base + 65);
    play(t);
    EXPECT_EQ((Tree{{"main", {0, 1}}, {"main/a", {5, 1}}}), tree(t));
}

TEST_F(EventPlayerTest, ACaptureClosesOpenFramesAndReopensThemWithoutCounting) {
    int64_t now = getTimeNsForTracing();
    enterWithStack(t, node(t, {{main, 0}}), now);
    enter(t, a, now);
    CpuTracing::foldOpenStacks(lock);
    Tree folded = tree(t);
    EXPECT_EQ(1, folded["main/a"].invocations);
    EXPECT_GT(folded["main/a"].time, 0);
    EXPECT_EQ(0, t->getTimeStackSize());
    CpuTracing::reopenStacks(lock);
    EXPECT_EQ(2, t->getTimeStackSize());
    exit(t, a, getTimeNsForTracing());
    play(t);
    EXPECT_EQ(1, tree(t)["main/a"].invocations);
    EXPECT_GE(tree(t)["main/a"].time, folded["main/a"].time);
}

TEST_F(EventPlayerTest, StoppingClosesFramesAndForgetsTheStack) {
    enterWithStack(t, node(t, {{main, 0}}), getTimeNsForTracing() - 1000);
    CpuTracing::stopTracingThreads(lock);
    EXPECT_EQ(-1, t->getCurrentFrame());
    EXPECT_EQ(0, t->getTimeStackSize());
    EXPECT_GE(tree(t)["main"].time, 1000);
}
