// Shared pieces of the recording tests: a fresh database with its pseudo
// threads and tracing switched on for each test, threads to play events on,
// events built by hand, and the call tree of a thread read back by paths.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "services/AgentState.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "recording/CpuTracing.h"
#include "recording/EventEncoding.h"
#include "recording/ThreadInfo.h"
#include "recording/TracingSettings.h"
#include "unit/DBTestSupport.h"
#include "unit/services/LoggerCapture.h"

// Time and invocations of one frame of one thread.
struct FrameMeasure {
    int64_t time = 0;
    int64_t invocations = 0;
    bool operator==(const FrameMeasure& other) const {
        return time == other.time && invocations == other.invocations;
    }
};
inline std::ostream& operator<<(std::ostream& out, const FrameMeasure& m) {
    return out << "{time=" << m.time << " invocations=" << m.invocations << "}";
}

class RecordingTest : public DBTest {
protected:
    void SetUp() override {
        resetAll();
        DBTest::SetUp();
        mySavedStatus = ourStatus.get();
        ourStatus.set(INITIAL_STATUS | CPU_TRACING);
        ourCpuTracingGeneration = 1;
        ourTracingSettings.myAdaptive = false;
        Filter::ourAlwaysWallTime = true;
        base = getTimeNsForTracing();
    }
    // The joints by which the database reaches recording, as the agent's wiring installs them.
    void installJoints() override {
        DB::ourCreatePseudoThreads = ThreadInfo::createPseudoThreads;
        ZMethod::ourApplyFilters = Filter::applyFilters;
    }
    void TearDown() override {
        resetAll();
        ourStatus.set(mySavedStatus);
        Filter::ourAlwaysWallTime = false;
        ourTracingSettings.myAdaptive = true;
    }
    static void resetAll() {
        ThreadInfo::resetForTests();
        DB::resetForTests();
        StackCapture::resetForTests();
        CpuTracing::resetForTests();
    }

    // Options given to the agent at this point of the run.
    static void parseOptions(const std::string& text) {
        uint64_t capabilities = 0;
        bool usage = false;
        ourOptions.parseOptions(ZString(text.c_str()), &capabilities, &usage, false);
    }

    ThreadInfo* newThread(const char* name) {
        ThreadInfo* thread = new ThreadInfo(lock, ZString(name), ZString("main"), 0, 0, nullptr, false);
        thread->onThreadStart(lock);
        return thread;
    }

    // A node of the thread's own tree for a path of (method, line) calls.
    int node(ThreadInfo* thread, const std::vector<std::pair<int, int>>& path) {
        int current = 0;
        for (const auto& call : path) {
            current = thread->getNodeTree()->getChildNode(current, CodePointStorage::getCodePoint(lock, call.first,
                                                                                                  call.second));
        }
        return current;
    }

    // ---- events, appended as the producer would ----
    int generation() const { return ourCpuTracingGeneration; }
    void enterWithStack(ThreadInfo* t, int nodeIndex, int64_t wall, int64_t cpu = 0) {
        int32_t e[7] = {EVENT_METHOD_ENTER_WITH_STACK, nodeIndex, lowHalf(wall), highHalf(wall),
                        lowHalf(cpu), highHalf(cpu), generation()};
        t->addEvent(e, 7, true);
    }
    void enter(ThreadInfo* t, int m, int64_t time, int line = 0, int gen = -1) {
        int32_t e[6] = {EVENT_METHOD_ENTER, m, lowHalf(time), highHalf(time), gen < 0 ? generation() : gen, line};
        t->addEvent(e, 6, true);
    }
    void exit(ThreadInfo* t, int m, int64_t time, int gen = -1) {
        int32_t e[5] = {EVENT_METHOD_EXIT, m, lowHalf(time), highHalf(time), gen < 0 ? generation() : gen};
        t->addEvent(e, 5, true);
    }
    void play(ThreadInfo* t) { t->playEvents(lock); }

    // f(path, row) for each live row of a table indexed as the thread-frame
    // table, of the thread's frames; the path is "a/b@3/c" (a call's line after "@").
    template <class Table, class F>
    void forEachRow(Table* table, int tfiIndex, F f) {
        db->getThreadFrameTable()->forEachRecord([&](long long index, ThreadFrameRecord& link) {
            if (link.myStamp < 1 || link.myTFIIndex != tfiIndex) return;
            auto* row = table->getPtr((int)index, false);
            if (row != nullptr && row->myStamp >= 1) f(pathOf(link.myFrame), *row);
        });
    }
    // The thread's measured frames by path.
    std::map<std::string, FrameMeasure> tree(int tfiIndex) {
        std::map<std::string, FrameMeasure> result;
        forEachRow(db->getCpuProfilingTable(), tfiIndex, [&](const std::string& path, CpuProfilingRecord& cpu) {
            result[path] = {cpu.myTime, cpu.myInvocations};
        });
        return result;
    }
    std::map<std::string, FrameMeasure> tree(ThreadInfo* t) { return tree(t->getTFIIndex()); }
    int64_t base = 0;
    uint64_t mySavedStatus = 0;
};
