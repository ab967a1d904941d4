// Allocation recording against a scripted JVMTI: which objects are recorded,
// where they land, their ages, and the striped counters.
#include "RecordingTestSupport.h"
#include "recording/AllocationRecording.h"
#include "recording/CountingSupport.h"
#include "recording/EntryPoints.h"
#include "recording/ObjectEnumerator.h"
#include "unit/ScriptedJvmti.h"

namespace {

// Handles of the scripted JVMTI: methods from 1, classes from 100, objects from 1000.
const intptr_t SITE = 1;
const intptr_t CALLER = 2;
const intptr_t SMALL_CLASS = 100;

class AllocationRecordingTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        ourObjectEnumerator.resetForTests();
        AllocationRecording::resetForTests();
        CountingSupportBase::resetForTests(true);
        ourObjectEnumerator.setRecordingStarted();
        ourVmInitCalled = true;
        mySavedCapabilities = ourCapabilities.get();
        jvmti.define(SITE, {"site", "()V", "Lp/Alloc;", "Alloc.java", false, ScriptedJvmti::linesAsLocations()});
        jvmti.define(CALLER, {"caller", "()V", "Lp/Alloc;", "Alloc.java", false, ScriptedJvmti::linesAsLocations()});
        jvmti.define(SMALL_CLASS, {"", "", "Lp/Small;", "", false, {}});
        jvmti.push((jmethodID)SITE, 0);  // top first: site, called from caller at line 4
        jvmti.push((jmethodID)CALLER, 4);
    }
    void TearDown() override {
        ourVmInitCalled = false;
        ourCapabilities.set(mySavedCapabilities);
        ourObjectEnumerator.resetForTests();
        AllocationRecording::resetForTests();
        CountingSupportBase::resetForTests(false);
        RecordingTest::TearDown();
    }
    void mode(uint64_t allocation, int recordEach = 1, int sizeLimit = 4096) {
        ourStatus.set((ourStatus.get() & ~ALLOCATION_RECORDING_MASK) | allocation);
        ourAllocationRecordingSettings = {recordEach, sizeLimit};
    }
    // The current thread "worker", recording in the allocation mode.
    ThreadInfo* worker(uint64_t allocation, int recordEach = 1) {
        mode(allocation, recordEach);
        return current("worker");
    }
    ThreadInfo* current(const char* name) {
        ThreadInfo* thread = newThread(name);
        jvmti.threadLocal = thread;
        return thread;
    }
    int smallMethod() { return ZMethod::getByName(lock, "p.Small", "<<init>>", "()", "void", "", false); }
    // An object of the class, as the heap sampling hands it over.
    jint sampled(intptr_t object, int cached = -1) {
        return kztInitImpl(nullptr, (jobject)object, (jclass)SMALL_CLASS, 0, cached, 0, 0);
    }
    // An object from an instrumented site at a line.
    jint fromSite(intptr_t object, int cached, int line) {
        return kztInitImpl(nullptr, (jobject)object, nullptr, 0, cached, smallMethod(), line);
    }
    // "path": objects/bytes/age of each alloc_info row of the thread.
    std::map<std::string, std::string> allocations(ThreadInfo* thread) {
        std::map<std::string, std::string> rows;
        forEachRow(db->getAllocInfoTable(), thread->getTFIIndex(), [&](const std::string& path, AllocInfoRecord& row) {
            rows[path] = std::to_string(row.myObjectCount) + "/" + std::to_string(row.mySize) + "/" +
                         std::to_string(row.mySummedAge);
        });
        return rows;
    }
    // The alloc_info row of the thread at the path; zeros when there is none.
    AllocInfoRecord allocation(ThreadInfo* thread, const std::string& path) {
        AllocInfoRecord found;
        forEachRow(db->getAllocInfoTable(), thread->getTFIIndex(), [&](const std::string& at, AllocInfoRecord& row) {
            if (at == path) found = row;
        });
        return found;
    }

    CapturedLog log;
    ScriptedJvmti jvmti;
    uint64_t mySavedCapabilities = 0;
};

}  // namespace

TEST_F(AllocationRecordingTest, TheSkipCounterRecordsOneSmallObjectInNAndEveryLargeOne) {
    struct Case {
        int recordEach;
        int sizeLimit;
        std::vector<int> sizes;
        std::vector<bool> recorded;
    };
    const Case cases[] = {
        {3, 100, {8, 8, 8, 8, 8, 8, 8}, {true, false, false, true, false, false, true}},
        // A large object is recorded and leaves the counter as it was.
        {3, 100, {8, 100, 8, 8, 500, 8}, {true, true, false, false, true, true}},
        {1, 100, {8, 8, 8}, {true, true, true}},
        // Without N only large objects, and all are still counted as created.
        {0, 100, {8, 8, 200, 8}, {false, false, true, false}},
    };
    for (const Case& c : cases) {
        ThreadInfo* thread = newThread("worker");
        int64_t bytes = 0;
        for (size_t i = 0; i < c.sizes.size(); i++) {
            EXPECT_EQ(c.recorded[i], thread->countCreatedObject(c.sizes[i], c.recordEach, c.sizeLimit))
                << "N=" << c.recordEach << " object " << i;
            bytes += c.sizes[i];
        }
        EXPECT_EQ((int64_t)c.sizes.size(), thread->getCreatedObjectCount());
        EXPECT_EQ(bytes, thread->getCreatedObjectSize());
    }
}

TEST_F(AllocationRecordingTest, AnInstrumentedSiteWalksTheStackOnceForEachInvocation) {
    ThreadInfo* thread = worker(ALLOCATION_RECORDING_EXACT_STACKS);
    jvmti.sizes[1001] = 24;
    jint cached = fromSite(1000, -1, 7);
    EXPECT_GT(cached, 0);
    EXPECT_EQ(1, jvmti.stackTraceCalls);
    EXPECT_EQ(cached, fromSite(1001, cached, 9));
    EXPECT_EQ(1, jvmti.stackTraceCalls) << "the cached node serves";
    play(thread);
    EXPECT_EQ((std::map<std::string, std::string>{{"caller/site@4/<<own>>@7/<<init>>", "1/16/0"},
                                                  {"caller/site@4/<<own>>@9/<<init>>", "1/24/0"}}),
              allocations(thread));
    EXPECT_EQ(2, ourObjectEnumerator.getUsedCount());
    EXPECT_NE(0, jvmti.tags[1000]);
}

TEST_F(AllocationRecordingTest, HeapSamplingWalksEachRecordedObjectWithItsOwnLine) {
    ThreadInfo* thread = worker(ALLOCATION_RECORDING_EXACT_STACKS, 2);
    jvmti.stack[0].location = 12;
    for (int i = 0; i < 4; i++) EXPECT_EQ(-1, sampled(1000 + i));
    EXPECT_EQ(2, jvmti.stackTraceCalls) << "one in two recorded";
    play(thread);
    EXPECT_EQ((std::map<std::string, std::string>{{"caller/site@4/<<own>>@12/<<init>>", "2/32/0"}}),
              allocations(thread));
    EXPECT_EQ(4, thread->getCreatedObjectCount());
}

TEST_F(AllocationRecordingTest, SampledStacksHangBelowTheSamplersLastFrame) {
    ThreadInfo* thread = worker(ALLOCATION_RECORDING_SAMPLED_STACKS);
    sampled(1000);  // not sampled yet
    thread->setLastSampleFrame(ZFrameStorage::getChild(lock, 0, method("run"), 0));
    sampled(1001);
    sampled(1002);
    EXPECT_EQ(0, jvmti.stackTraceCalls);
    play(thread);
    EXPECT_EQ((std::map<std::string, std::string>{{"<Stack trace could not be retrieved>/<<init>>", "1/16/0"},
                                                  {"run/<<init>>", "2/32/0"}}),
              allocations(thread));
}

TEST_F(AllocationRecordingTest, OddThreadsAndFailedTagsLoseNoCount) {
    mode(ALLOCATION_RECORDING_EXACT_STACKS);
    // Without its agent state a thread's objects go to the pseudo thread.
    jvmti.threadLocal = nullptr;
    sampled(1000);
    play(ourUnknownAllocatorThread);
    EXPECT_EQ((std::map<std::string, std::string>{{"caller/site@4/<<init>>", "1/16/0"}}),
              allocations(ourUnknownAllocatorThread));
    // A failed tag is logged; the object is still counted at its place.
    ThreadInfo* thread = current("worker");
    jvmti.tagError = JVMTI_ERROR_INVALID_OBJECT;
    sampled(1001);
    play(thread);
    EXPECT_EQ((std::map<std::string, std::string>{{"caller/site@4/<<init>>", "1/16/0"}}), allocations(thread));
    EXPECT_EQ(1, ourObjectEnumerator.getUsedCount()) << "the failed tag went back";
    EXPECT_EQ((std::vector<std::string>{"warning: ObjectEnumerator::createObjectAllocator: SetTag returned "
                                        "20:JVMTI_ERROR_INVALID_OBJECT"}),
              log.startingWith("warning: ObjectEnumerator"));
    // Before the live phase (a JNI allocation of the start phase) objects belong to the VM start.
    ourVmInitCalled = false;
    jvmti.phase = JVMTI_PHASE_START;
    int walks = jvmti.stackTraceCalls;
    sampled(1003);
    EXPECT_EQ(walks, jvmti.stackTraceCalls) << "no stack is walked in the start phase";
    play(ourVMStartThread);
    EXPECT_EQ((std::map<std::string, std::string>{{"<Objects allocated during JVM startup>/<<init>>", "1/16/0"}}),
              allocations(ourVMStartThread));
    jvmti.phase = JVMTI_PHASE_DEAD;
    EXPECT_EQ(0, sampled(1004)) << "nothing outside the start and live phases";
    jvmti.phase = JVMTI_PHASE_LIVE;
    ourVmInitCalled = true;
    // The agent's own threads are left out.
    ThreadInfo* agent = current("KZTAgent-Telemetry");
    sampled(1002);
    EXPECT_EQ(0, agent->getCreatedObjectCount());
}

TEST_F(AllocationRecordingTest, AgesGoToThePlaceAlsoAfterTheThreadEnded) {
    ThreadInfo* thread = worker(ALLOCATION_RECORDING_EXACT_STACKS);
    for (int i = 0; i < 3; i++) sampled(1000 + i);
    int tags[3];
    for (int i = 0; i < 3; i++) tags[i] = (int)jvmti.tags[1000 + i];
    usleep(5000);
    // Keyed by node while the thread lives.
    ourObjectEnumerator.onObjectFree(tags[0]);
    ourObjectEnumerator.flushCollectedObjectAgesToDB(lock);
    play(thread);
    AllocInfoRecord own = allocation(thread, "caller/site@4/<<init>>");
    EXPECT_EQ(3, own.myObjectCount);
    EXPECT_GE(own.mySummedAge, 5);
    // The thread ends: its live objects name frames from now on.
    jvmti.threadLocal = nullptr;
    thread->onThreadEnd(lock);
    delete thread;
    ourObjectEnumerator.onObjectFree(tags[1]);
    ourObjectEnumerator.onObjectFree(tags[2]);
    ourObjectEnumerator.onObjectFree(tags[2]);  // twice: unknown the second time
    ourObjectEnumerator.onObjectFree(0);        // not ours
    ourObjectEnumerator.flushCollectedObjectAgesToDB(lock);
    AllocInfoRecord oldest = allocation(ourOldestFinishedThreads, "caller/site@4/<<init>>");
    EXPECT_EQ(0, oldest.myObjectCount);
    EXPECT_GE(oldest.mySummedAge, 10);
    EXPECT_EQ(0, ourObjectEnumerator.getUsedCount());
    EXPECT_EQ((std::vector<std::string>{"warning: ObjectEnumerator::onObjectFree: unknown pureTag " +
                                        std::to_string(tags[2])}),
              log.startingWith("warning:"));
}

TEST_F(AllocationRecordingTest, AClearForgetsTheAgesOfObjectsAliveThen) {
    ThreadInfo* thread = worker(ALLOCATION_RECORDING_EXACT_STACKS);
    sampled(1000);
    AllocationRecording::clearAllocationDataImpl(lock);
    EXPECT_TRUE(allocations(thread).empty());
    JavaObjectInfo info;
    ASSERT_TRUE(ourObjectEnumerator.getJavaObjectInfo((int)jvmti.tags[1000], &info));
    EXPECT_EQ(0, info.myTime) << "its age belongs to the cleared data";
    EXPECT_EQ(thread->getTRN(), info.myTRN);
}

TEST_F(AllocationRecordingTest, HeapCountingCountsByTopMethodAndClass) {
    mode(ALLOCATION_RECORDING_OBJECT_COUNTING);
    ourCapabilities.add(CAPABILITY_HEAP_SAMPLING);
    ThreadInfo* thread = current("worker");
    for (int i = 0; i < 5; i++) EXPECT_EQ(0, sampled(1000 + i));
    EXPECT_EQ(0, thread->getEventWriteIndex()) << "counting makes no events";
    AllocObjectCounting::applyCounts(lock);
    int site = ZMethod::getByName(lock, "p.Alloc", "site", "()", "void", "Alloc.java", false);
    int point = AllocObjectCounting::getAllocPointIndex(lock, CodePointStorage::getCodePoint(lock, site, 0),
                                                        ZMethod::getRecord(smallMethod())->myClass);
    AllocObjectCountRecord* row = db->getAllocObjectCountTable()->getPtr(point, false);
    ASSERT_NE(nullptr, row);
    EXPECT_EQ(5, row->myCurrent);
    // Without heap sampling, counting is the Java stubs' work alone.
    ourCapabilities.remove(CAPABILITY_HEAP_SAMPLING);
    EXPECT_EQ(7, kztInitImpl(nullptr, (jobject)1010, (jclass)SMALL_CLASS, 0, 7, 0, 0));
}

// ---- striped counters ----

TEST_F(AllocationRecordingTest, CountersSumTheirStripesIntoRowsOnlyWhereSomethingWasCounted) {
    int64_t* counter = CountingSupportBase::getCounterPtrImpl(lock, 4096 * 2 + 5, CallCounting::ourCounterBlocks);
    EXPECT_EQ(3, CallCounting::ourCounterBlocks.getSize());
    EXPECT_EQ(nullptr, CallCounting::ourCounterBlocks[0]) << "blocks below stay unmade";
    // TRNs 1 and 9 share a stripe with 8 stripes.
    *CountingSupportBase::getStripe(counter, 1) += 2;
    *CountingSupportBase::getStripe(counter, 9) += 3;
    *CountingSupportBase::getStripe(counter, 2) += 4;
    EXPECT_EQ(5, *CountingSupportBase::getStripe(counter, 1));
    CallCounting::applyCounts(lock);
    CallCountRecord* row = db->getCallCountTable()->getPtr(4096 * 2 + 5, false);
    ASSERT_NE(nullptr, row);
    EXPECT_EQ(9, row->myCurrent);
    EXPECT_EQ(nullptr, db->getCallCountTable()->getPtr(4096 * 2 + 6, false)) << "no row for a sum of 0";

    // Unchanged sums change no stamp.
    row->myStamp = 1;
    CallCounting::applyCounts(lock);
    EXPECT_EQ(1, row->myStamp);
    // A clear makes the base the present value: the row then streams 0.
    CallCounting::clearCounts(lock);
    EXPECT_EQ(9, row->myBase);
    EXPECT_EQ(db->getCurrentGeneration(), row->myStamp);
    *CountingSupportBase::getStripe(counter, 3) += 1;
    CallCounting::applyCounts(lock);
    EXPECT_EQ(1, row->myCurrent - row->myBase);
}

TEST_F(AllocationRecordingTest, CountsStayOutOfTheTablesUntilUnsafeWorks) {
    CountingSupportBase::resetForTests(false);
    int64_t* counter = CountingSupportBase::getCounterPtrImpl(lock, 7, CallCounting::ourCounterBlocks);
    *counter = 5;
    CallCounting::applyCounts(lock);
    EXPECT_EQ(nullptr, db->getCallCountTable()->getPtr(7, false));
}

TEST_F(AllocationRecordingTest, AnAllocationPointIsOneRowForItsCodePointAndClass) {
    int a = AllocObjectCounting::getAllocPointIndex(lock, 0xC0000000 | (7 << 19) | 5, 11);
    EXPECT_EQ(a, AllocObjectCounting::getAllocPointIndex(lock, 0xC0000000 | (7 << 19) | 5, 11));
    int b = AllocObjectCounting::getAllocPointIndex(lock, 0xC0000000 | (7 << 19) | 5, 12);
    EXPECT_NE(a, b);
    AllocPointRecord* row = db->getAllocPointTable()->getPtr(b, false);
    ASSERT_NE(nullptr, row);
    EXPECT_EQ(12, row->myClass);
    EXPECT_EQ((int)(0xC0000000 | (7 << 19) | 5), row->myPoint);
    EXPECT_EQ(db->getCurrentGeneration(), row->myStamp);
}
