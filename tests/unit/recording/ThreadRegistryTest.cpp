// Thread rows, names, the end of a thread, the merging of old finished
// threads and the collection of rows nothing refers to.
#include "RecordingTestSupport.h"

namespace {

class ThreadRegistryTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        setDeadThreadLimit(3);
    }
    void TearDown() override {
        setDeadThreadLimit(50);
        RecordingTest::TearDown();
    }
    static void setDeadThreadLimit(int limit) {
        parseOptions("deadthreadlimit=" + std::to_string(limit));
        ASSERT_EQ(limit, ourOptions.getDeadThreadLimit());
    }

    // A thread that called a once, `calls` times main/a for 10 ns each, and ended.
    int runAndEnd(const char* name, int calls = 1) {
        ThreadInfo* t = newThread(name);
        int main = method("main"), a = method("a");
        enterWithStack(t, node(t, {{main, 0}}), base);
        for (int i = 0; i < calls; i++) {
            enter(t, a, base + 100);
            exit(t, a, base + 110);
        }
        int trn = t->getTRN();
        t->onThreadEnd(lock);
        delete t;
        return trn;
    }
    ThreadRecord* rowOfTRN(int trn) {
        ThreadRecord* found = nullptr;
        db->getThreadTable()->forEachRecord([&](long long, ThreadRecord& record) {
            if (record.myStamp >= 1 && record.myTRN == trn) found = &record;
        });
        return found;
    }
};

}  // namespace

TEST_F(ThreadRegistryTest, AThreadGetsARowATRNAndATFIIndex) {
    // The four pseudo threads came with the database; three of them run.
    EXPECT_EQ(3, ourAllThreadInfos.getSize());
    EXPECT_EQ(ZString("<Oldest finished threads>"), ourOldestFinishedThreads->getName());
    EXPECT_EQ(1, ourOldestFinishedThreads->getTRN());
    ThreadInfo* t = newThread("worker");
    EXPECT_EQ(5, t->getTRN());
    EXPECT_EQ(t, ThreadInfo::findByTRN(5));
    ThreadRecord* row = db->getThreadTable()->getPtr(t->getThreadRow(), false);
    ASSERT_NE(nullptr, row);
    // TRN, index, no name until it is applied, no start time without a native id.
    EXPECT_EQ((std::vector<int64_t>{5, t->getTFIIndex(), 0, 0}),
              (std::vector<int64_t>{row->myTRN, row->myTFIIndex, row->myName, row->myStartUptime}));
    EXPECT_EQ("main", text(row->myGroup));

    t->applyThreadNameToDB(lock, db);
    EXPECT_EQ("worker", text(row->myName));
    row->myStamp = 1;
    db->advanceGeneration();
    t->applyThreadNameToDB(lock, db);
    EXPECT_EQ(1, row->myStamp) << "an unchanged name leaves the row alone";
    t->setThreadName(ZString("renamed"));
    t->applyThreadNameToDB(lock, db);
    EXPECT_EQ("renamed", text(row->myName));
    EXPECT_EQ(db->getCurrentGeneration(), row->myStamp);
}

TEST_F(ThreadRegistryTest, NamesDecideWhatIsLeftOut) {
    ThreadInfo* t = newThread("KZTAgent-Telemetry");
    EXPECT_TRUE(t->isAgentThread());
    EXPECT_TRUE(t->isExcludedFromTracing());
    EXPECT_FALSE(t->isExcludedFromSampling());
    t->setThreadName(ZString("KZTAgent-CpuSampler"));
    EXPECT_TRUE(t->isExcludedFromSampling());
    t->setThreadName(ZString("KZT-Process-Exit-Listener-1"));
    EXPECT_FALSE(t->isAgentThread());
    EXPECT_TRUE(t->isExcludedFromTracing());
    t->setThreadName(ZString("main"));
    EXPECT_FALSE(t->isExcludedFromTracing());
}

TEST_F(ThreadRegistryTest, AnEndedThreadIsPlayedStampedAndListed) {
    int trn = runAndEnd("early", 4);
    ThreadRecord* row = rowOfTRN(trn);
    ASSERT_NE(nullptr, row);
    EXPECT_GT(row->myEndUptime, 0);
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"main", {0, 1}}, {"main/a", {40, 4}}}), tree(row->myTFIIndex));
    ASSERT_EQ(1, ourFinishedThreadTRNs.getSize());
    EXPECT_EQ(trn, ourFinishedThreadTRNs[0]);
    EXPECT_EQ(nullptr, ThreadInfo::findByTRN(trn));
    EXPECT_EQ(3, ourAllThreadInfos.getSize());
}

TEST_F(ThreadRegistryTest, OldFinishedThreadsAreMergedInBatchesLeavingTheLimit) {
    std::vector<int> trns;
    // L + 10 finished threads are listed without a merge.
    for (int i = 0; i < 13; i++) trns.push_back(runAndEnd("t", i + 1));
    EXPECT_EQ(13, ourFinishedThreadTRNs.getSize());
    EXPECT_TRUE(tree(ourOldestFinishedThreads).empty());
    // The next end merges all but the last L.
    trns.push_back(runAndEnd("t", 14));
    ASSERT_EQ(3, ourFinishedThreadTRNs.getSize());
    EXPECT_EQ(trns[11], ourFinishedThreadTRNs[0]);
    for (int i = 0; i < 14; i++) {
        ThreadRecord* row = rowOfTRN(trns[i]);
        ASSERT_NE(nullptr, row) << i;
        if (i < 11) EXPECT_EQ(0, row->myTFIIndex) << i;
        else EXPECT_GT(row->myTFIIndex, 0) << i;
    }
    // Calls 1 to 11 each, 10 ns a call.
    std::map<std::string, FrameMeasure> merged = {{"main", {0, 11}}, {"main/a", {660, 66}}};
    EXPECT_EQ(merged, tree(ourOldestFinishedThreads));
    // Nothing of the merged threads is left live in the CPU table.
    int liveRows = 0;
    db->getCpuProfilingTable()->forEachRecord([&](long long, CpuProfilingRecord& r) { liveRows += r.myStamp >= 1; });
    EXPECT_EQ(2 + 3 * 2, liveRows);
}

TEST_F(ThreadRegistryTest, ThreadsThatEndedWhileNothingWasRecordedStayUnmerged) {
    ourStatus.set(0);
    std::vector<int> trns;
    for (int i = 0; i < 14; i++) trns.push_back(runAndEnd("idle"));
    // The merge starts behind the threads listed when recording was first off.
    ASSERT_EQ(4, ourFinishedThreadTRNs.getSize());
    EXPECT_EQ(trns[0], ourFinishedThreadTRNs[0]);
    EXPECT_GT(rowOfTRN(trns[0])->myTFIIndex, 0);
    EXPECT_EQ(0, rowOfTRN(trns[1])->myTFIIndex);
}

TEST_F(ThreadRegistryTest, RowsOfMergedThreadsAreCollectedUnlessReferredTo) {
    CapturedLog log;
    std::vector<int> trns;
    for (int i = 0; i < 14; i++) trns.push_back(runAndEnd("t"));
    // A telemetry sample still names one merged thread.
    TelemetryRecord* sample = db->nextTelemetryRow(lock);
    sample->myHasThreadStates = true;
    _ThreadState state;
    state.myTRN = trns[2];
    sample->myThreadStates.push(state);
    int liveBefore = 0;
    db->getThreadTable()->forEachRecord([&](long long, ThreadRecord& r) { liveBefore += r.myStamp >= 1; });
    ThreadInfo::collectGarbageTRNs(lock);
    EXPECT_NE(nullptr, rowOfTRN(trns[2]));
    EXPECT_EQ(nullptr, rowOfTRN(trns[0]));
    EXPECT_NE(nullptr, rowOfTRN(trns[13])) << "not merged yet";
    std::string expected = " " + std::to_string(liveBefore) + "-10=" + std::to_string(liveBefore - 10) + " ms=";
    std::vector<std::string> lines = log.startingWith("TRN: gc #");
    ASSERT_EQ(1u, lines.size());
    EXPECT_NE(std::string::npos, lines[0].find(expected)) << lines[0];
}
