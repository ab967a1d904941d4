// Method events as the tracing natives make them, against a scripted JVMTI
// that reports the current stack.
#include <cstdlib>
#include <cstring>

#include "RecordingTestSupport.h"

namespace {

// Stack of the "current thread", top first; a method id is a small number
// whose method is p.C.m<number>()V.
std::vector<jvmtiFrameInfo> ourStack;

char* copyOf(const std::string& text) {
    char* copy = (char*)malloc(text.size() + 1);
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

jvmtiError JNICALL fakeDeallocate(jvmtiEnv*, unsigned char* memory) {
    free(memory);
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeGetStackTrace(jvmtiEnv*, jthread, jint start, jint max, jvmtiFrameInfo* frames, jint* count) {
    int n = 0;
    for (size_t i = start; i < ourStack.size() && n < max; i++) frames[n++] = ourStack[i];
    *count = n;
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeGetMethodName(jvmtiEnv*, jmethodID method, char** name, char** signature, char** generic) {
    if (name != nullptr) *name = copyOf("m" + std::to_string((intptr_t)method));
    if (signature != nullptr) *signature = copyOf("()V");
    if (generic != nullptr) *generic = nullptr;
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeGetMethodDeclaringClass(jvmtiEnv*, jmethodID, jclass* klass) {
    *klass = (jclass)1;
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeGetClassSignature(jvmtiEnv*, jclass, char** signature, char** generic) {
    *signature = copyOf("Lp/C;");
    if (generic != nullptr) *generic = nullptr;
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeGetSourceFileName(jvmtiEnv*, jclass, char** name) {
    *name = copyOf("C.java");
    return JVMTI_ERROR_NONE;
}
jvmtiError JNICALL fakeIsMethodNative(jvmtiEnv*, jmethodID, jboolean* native) {
    *native = JNI_FALSE;
    return JVMTI_ERROR_NONE;
}
// Line = location, so that a frame's line is where the test says it stands.
jvmtiError JNICALL fakeGetLineNumberTable(jvmtiEnv*, jmethodID, jint* count, jvmtiLineNumberEntry** table) {
    *count = 100;
    *table = (jvmtiLineNumberEntry*)malloc(sizeof(jvmtiLineNumberEntry) * 100);
    for (int i = 0; i < 100; i++) (*table)[i] = {(jlocation)i, (jint)i};
    return JVMTI_ERROR_NONE;
}

class TracingProductionTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        memset(&myFunctions, 0, sizeof(myFunctions));
        myFunctions.Deallocate = fakeDeallocate;
        myFunctions.GetStackTrace = fakeGetStackTrace;
        myFunctions.GetMethodName = fakeGetMethodName;
        myFunctions.GetMethodDeclaringClass = fakeGetMethodDeclaringClass;
        myFunctions.GetClassSignature = fakeGetClassSignature;
        myFunctions.GetSourceFileName = fakeGetSourceFileName;
        myFunctions.IsMethodNative = fakeIsMethodNative;
        myFunctions.GetLineNumberTable = fakeGetLineNumberTable;
        myEnv.functions = &myFunctions;
        mySavedJvmti = ourJVMTI;
        ourJVMTI = &myEnv;
        ourStack.clear();
        ourTracingCanSetLineNumbers = true;
    }
    void TearDown() override {
        ourJVMTI = mySavedJvmti;
        RecordingTest::TearDown();
    }
    // The method index of fake method n, instrumented for tracing.
    int traced(int n) {
        int m = method(("m" + std::to_string(n)).c_str());
        ZMethod::getRecord(m)->myFlags |= METHOD_FLAG_TRACED;
        return m;
    }
    // Enters fake method n from the present stack, at location `at` of the caller.
    void call(ThreadInfo* t, int n, int at = 0) {
        if (!ourStack.empty()) ourStack.front().location = at;
        ourStack.insert(ourStack.begin(), {(jmethodID)(intptr_t)n, 0});
        t->setPendingLine(at);
        t->onMethodEntry(nullptr, traced(n));
    }
    void leave(ThreadInfo* t) {
        int n = (int)(intptr_t)ourStack.front().method;
        ourStack.erase(ourStack.begin());
        t->onMethodExit(nullptr, traced(n));
    }

    jvmtiInterface_1_ myFunctions;
    _jvmtiEnv myEnv;
    jvmtiEnv* mySavedJvmti = nullptr;
};

}  // namespace

TEST_F(TracingProductionTest, TheFirstEntrySendsTheStackAndLaterOnesOnlyTheMethod) {
    ThreadInfo* t = newThread("worker");
    traced(1);
    ourStack.push_back({(jmethodID)1, 7});  // running before tracing began
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
    ThreadInfo* t = newThread("worker");
    method("m4");  // known, but not instrumented
    traced(1);
    ourStack.push_back({(jmethodID)4, 3});
    ourStack.insert(ourStack.begin(), {(jmethodID)1, 0});
    call(t, 2, 5);
    play(t);
    // m1 stands at the root, with no line: its caller is not traced.
    EXPECT_EQ((std::map<std::string, FrameMeasure>{{"m1/m2@5", {0, 1}}}), tree(t));
}

TEST_F(TracingProductionTest, ANewGenerationMakesTheNextEventResendTheStack) {
    ThreadInfo* t = newThread("worker");
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
    ThreadInfo* t = newThread("worker");
    ourTracingCanSetLineNumbers = false;
    call(t, 1);
    call(t, 2, 8);
    leave(t);
    leave(t);
    play(t);
    EXPECT_EQ(1, tree(t)["m1/m2"].invocations);
}

TEST_F(TracingProductionTest, UnderThePseudoLockEventsAreMadeHoldingTheLock) {
    ThreadInfo* t = newThread("worker");
    call(t, 1);
    CpuTracingPseudoLockScope pseudoLock(lock);
    for (int i = 0; i < 3000; i++) {
        call(t, 2, 1);
        leave(t);
    }
    play(t);
    EXPECT_EQ(3000, tree(t)["m1/m2@1"].invocations);
}
