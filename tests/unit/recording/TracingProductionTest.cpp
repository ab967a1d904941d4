// Method events as the tracing natives make them, against a scripted JVMTI
// that reports the current stack.
#include "RecordingTestSupport.h"
#include "unit/ScriptedJvmti.h"

namespace {

class TracingProductionTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        ourTracingCanSetLineNumbers = true;
        t = newThread("worker");
    }
    // Fake method n is a.B.m<n>()V, whose line at location L is L.
    jmethodID fake(int n) {
        return jvmti.define(n, {"m" + std::to_string(n), "()V", "La/B;", "B.java", false, ScriptedJvmti::linesAsLocations()});
    }
    // The method index of fake method n, instrumented for tracing.
    int traced(int n) {
        fake(n);
        int m = method(("m" + std::to_string(n)).c_str());
        ZMethod::getRecord(m)->myFlags |= METHOD_FLAG_TRACED;
        return m;
    }
    // Enters fake method n from the present stack, at location `at` of the caller.
    void call(ThreadInfo* t, int n, int at = 0) {
        if (!jvmti.stack.empty()) jvmti.stack.front().location = at;
        jvmti.stack.insert(jvmti.stack.begin(), {fake(n), 0});
        t->setPendingLine(at);
        t->onMethodEntry(nullptr, traced(n));
    }
    void leave(ThreadInfo* t) {
        int n = (int)(intptr_t)jvmti.stack.front().method;
        jvmti.stack.erase(jvmti.stack.begin());
        t->onMethodExit(nullptr, traced(n));
    }

    ScriptedJvmti jvmti;
    ThreadInfo* t = nullptr;
};

}  // namespace

TEST_F(TracingProductionTest, TheFirstEntrySendsTheStackAndLaterOnesOnlyTheMethod) {
    traced(1);
    jvmti.push(fake(1), 7);  // running before tracing began
    call(t, 2, 7);
    EXPECT_TRUE(t->isStackKnown());
    EXPECT_EQ(7, t->getEventWriteIndex());
    call(t, 3, 11);
    EXPECT_EQ(7 + 6, t->getEventWriteIndex());
    leave(t);
    leave(t);
    EXPECT_EQ(7 + 6 + 5 + 5, t->getEventWriteIndex());
    play(t);
    std::map<std::string, FrameMeasure> measured = tree(t);
    // m1 was there before tracing and is still open: nothing measured yet.
    ASSERT_EQ(2u, measured.size());
    EXPECT_EQ(1, measured["m1/m2@7"].invocations);
    EXPECT_EQ(1, measured["m1/m2@7/m3@11"].invocations);
    EXPECT_GE(measured["m1/m2@7"].time, measured["m1/m2@7/m3@11"].time);
}

TEST_F(TracingProductionTest, UntracedFramesAreLeftOutOfTheStack) {
    method("m4");  // known, but not instrumented
    traced(1);
    jvmti.push(fake(1), 0);
    jvmti.push(fake(4), 3);
    call(t, 2, 5);
    play(t);
    // m1 stands at the root, with no line: its caller is not traced.
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"m1/m2@5", {0, 1}}}), tree(t));
}

TEST_F(TracingProductionTest, ANewGenerationMakesTheNextEventResendTheStack) {
    call(t, 1);
    call(t, 2, 4);
    ourCpuTracingGeneration = ourCpuTracingGeneration + 1;
    // An exit without a known stack is dropped.
    leave(t);
    EXPECT_FALSE(t->isStackKnown());
    int written = t->getEventWriteIndex();
    call(t, 3, 9);
    EXPECT_EQ(written + 7, t->getEventWriteIndex());
    EXPECT_TRUE(t->isStackKnown());
    // An exception unwound frames: the same happens.
    t->clearTracingEventWords();
    call(t, 5, 2);
    EXPECT_EQ(written + 14, t->getEventWriteIndex());
}

TEST_F(TracingProductionTest, LinesAreTakenOnlyWhenJavaCanSetThem) {
    ourTracingCanSetLineNumbers = false;
    call(t, 1);
    call(t, 2, 8);
    leave(t);
    leave(t);
    play(t);
    EXPECT_EQ(1, tree(t)["m1/m2"].invocations);
}

TEST_F(TracingProductionTest, UnderThePseudoLockEventsAreMadeHoldingTheLock) {
    call(t, 1);
    CpuTracingPseudoLockScope pseudoLock(lock);
    for (int i = 0; i < 3000; i++) {
        call(t, 2, 1);
        leave(t);
    }
    play(t);
    EXPECT_EQ(3000, tree(t)["m1/m2@1"].invocations);
}
