// How a sample charges the time since a thread's last sample to the frames
// of its stack, and how thread states remember where a thread stood.
#include "db/ZFrameStorage.h"
#include "recording/Sampling.h"
#include "unit/recording/RecordingTestSupport.h"

class SamplingTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        ourStatus.set(0x10600 | CPU_SAMPLING);
        Filter::ourAlwaysWallTime = false;
        thread = newThread("sampled");
        main = method("main");
        a = method("a");
        b = method("b");
        mainFrame = ZFrameStorage::getChild(lock, 0, main, 0);
        aFrame = ZFrameStorage::getChild(lock, mainFrame, a, 0);
        bFrame = ZFrameStorage::getChild(lock, aFrame, b, 0);
    }
    void setWallTimed(int m) { ZMethod::getRecord(m)->myFlags |= METHOD_FLAG_WALL_TIME; }
    // Two samples at `frame`: the first sets the times, the second charges
    // `cpu` and `wall` nanoseconds since.
    void sampleTwice(int frame, int64_t cpu, int64_t wall) {
        doThreadSample(lock, thread, frame, 1000, 1000000);
        doThreadSample(lock, thread, frame, 1000 + cpu, 1000000 + wall);
    }
    std::map<std::string, FrameMeasure> charged(int64_t main, int64_t a, int64_t b) {
        return {{"main", {main, 0}}, {"main/a", {a, 0}}, {"main/a/b", {b, 0}}};
    }

    ThreadInfo* thread = nullptr;
    int main = 0, a = 0, b = 0;
    int mainFrame = 0, aFrame = 0, bFrame = 0;
};

TEST_F(SamplingTest, TheFirstSampleChargesNothingAndLaterOnesChargeCpuToEveryFrameUpToTheRoot) {
    doThreadSample(lock, thread, bFrame, 5000, 900000);
    EXPECT_EQ(charged(0, 0, 0), tree(thread));
    EXPECT_EQ(5000, thread->getLastCpuSampleTime());
    EXPECT_EQ(900000, thread->getLastWallSampleTime());

    doThreadSample(lock, thread, bFrame, 5300, 950000);
    doThreadSample(lock, thread, aFrame, 5400, 990000);
    EXPECT_EQ(charged(400, 400, 300), tree(thread)) << "invocations stay 0: samples count no calls";
}

TEST_F(SamplingTest, AThreadWithoutAFrameHasItsTimesMovedButIsChargedNothing) {
    doThreadSample(lock, thread, bFrame, 1000, 1000);
    doThreadSample(lock, thread, 0, 9000, 90000);
    EXPECT_EQ(9000, thread->getLastCpuSampleTime());
    doThreadSample(lock, thread, bFrame, 9100, 90500);
    EXPECT_EQ(charged(100, 100, 100), tree(thread)) << "only the time since the frameless sample";

    // After a clear (times zeroed) the next sample charges nothing again.
    thread->resetSampleTimes();
    doThreadSample(lock, thread, bFrame, 99999, 999999);
    EXPECT_EQ(charged(100, 100, 100), tree(thread));
}

TEST_F(SamplingTest, AWallTimedMethodAndEveryCallerAboveItGetWallTimeAndItsCalleesCpu) {
    setWallTimed(a);
    sampleTwice(bFrame, 300, 5000);
    EXPECT_EQ(charged(5000, 5000, 300), tree(thread));

    setWallTimed(b);
    sampleTwice(bFrame, 300, 5000);
    EXPECT_EQ(charged(10000, 10000, 5300), tree(thread));
}

TEST_F(SamplingTest, AlwaysWallTimeChargesWallTimeEverywhere) {
    Filter::ourAlwaysWallTime = true;
    sampleTwice(bFrame, 300, 5000);
    EXPECT_EQ(charged(5000, 5000, 5000), tree(thread));
}

TEST_F(SamplingTest, ACpuDeltaAbove100SecondsIsAClockJumpAndWallTimeIsNeverBelowCpu) {
    const int64_t limit = 100000000000LL;
    setWallTimed(main);
    sampleTwice(aFrame, limit, limit - 7);
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"main", {limit, 0}}, {"main/a", {limit, 0}}}), tree(thread))
        << "exactly the limit is charged; wall time is raised to the CPU time";

    sampleTwice(aFrame, limit + 1, 20);
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"main", {limit + 20, 0}}, {"main/a", {limit, 0}}}), tree(thread));

    // A CPU clock that went back is a jump too.
    sampleTwice(aFrame, -500, 30);
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"main", {limit + 50, 0}}, {"main/a", {limit, 0}}}), tree(thread));
}

TEST_F(SamplingTest, ThreadStatesRememberSinceWhenAThreadStandsInOnePlace) {
    _ThreadState state;
    doThreadStateSample(thread, bFrame, &state);
    EXPECT_EQ(thread->getTRN(), state.myTRN);
    EXPECT_EQ(bFrame, state.myFrame);
    EXPECT_EQ(bFrame, thread->getLastStateFrame());
    int64_t since = thread->getLastStateUptime();
    EXPECT_GE(since, 0);
    EXPECT_EQ(state.myCpuTime, thread->getLastStateCpuTime());

    doThreadStateSample(thread, bFrame, &state);
    EXPECT_EQ(since, thread->getLastStateUptime()) << "still in the same place";

    doThreadStateSample(thread, -1, &state);
    EXPECT_EQ(0, state.myFrame) << "no frame is 0";
    EXPECT_EQ(0, thread->getLastStateFrame());

    // Excluded threads are marked unknown; the next state starts anew.
    thread->setLastState(-1, -1, -1);
    doThreadStateSample(thread, 0, &state);
    EXPECT_NE(-1, thread->getLastStateUptime());
}
