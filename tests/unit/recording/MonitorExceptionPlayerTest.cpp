// The player's side of monitor profiling and exception telemetry: event
// streams into "monitor" and "exception" rows, and the folding of finished
// threads' rows into "<Oldest finished threads>".
#include <functional>

#include "RecordingTestSupport.h"
#include "recording/Exceptions.h"
#include "recording/Monitors.h"

namespace {

class MonitorExceptionPlayerTest : public RecordingTest {
protected:
    void SetUp() override {
        RecordingTest::SetUp();
        Monitors::resetForTests();
        Exceptions::resetForTests();
        ourStatus.set(INITIAL_STATUS | MONITORS_BIT);
        run = method("run");
        a = method("a");
        b = method("b");
        lockClass = StringPool::getStrIDImpl(lock, "p.Lock", true);
        failure = StringPool::getStrIDImpl(lock, "p.Failure", true);
    }
    void TearDown() override {
        Monitors::resetForTests();
        Exceptions::resetForTests();
        RecordingTest::TearDown();
    }

    void begin(ThreadInfo* t, int node, int64_t time, int owner, int cls = -1) {
        int32_t e[6] = {EVENT_MONITOR_ENTER_BEGIN, cls < 0 ? lockClass : cls, node, lowHalf(time), highHalf(time),
                        owner};
        t->addEvent(e, 6, true);
    }
    void end(ThreadInfo* t, int node, int64_t time) {
        int32_t e[5] = {EVENT_MONITOR_ENTER_END, lockClass, node, lowHalf(time), highHalf(time)};
        t->addEvent(e, 5, true);
    }
    void thrown(ThreadInfo* t, int throwNode, int catchNode, int id, int cls = -1) {
        int32_t e[5] = {EVENT_EXCEPTION, throwNode, catchNode, cls < 0 ? failure : cls, id};
        t->addEvent(e, 5, true);
    }

    // Live "monitor" rows as "trn<-owner class path" to "time/count".
    std::map<std::string, std::string> monitors() {
        std::map<std::string, std::string> rows;
        db->getMonitorTable()->forEachRecord([&](long long, MonitorRecord& r) {
            if (r.myStamp < 1) return;
            rows[std::to_string(r.myBlockedTRN) + "<-" + std::to_string(r.myOwnerTRN) + " " +
                 text(r.myMonitorClass) + " " + pathOf(r.myFrame)] =
                std::to_string(r.myTime) + "/" + std::to_string(r.myCount);
        });
        return rows;
    }
    // Live "exception" rows as "trn class throw-path -> catch-path" to the count.
    std::map<std::string, int64_t> exceptions() {
        std::map<std::string, int64_t> rows;
        db->getExceptionTable()->forEachRecord([&](long long, ExceptionRecord& r) {
            if (r.myStamp < 1) return;
            rows[std::to_string(r.myTRN) + " " + text(r.myExceptionClass) + " " + pathOf(r.myThrowFrame) + " -> " +
                 pathOf(r.myCatchFrame)] = r.myCount;
        });
        return rows;
    }
    std::string trn(ThreadInfo* t) { return std::to_string(t->getTRN()); }

    int run = 0, a = 0, b = 0, lockClass = 0, failure = 0;
};

TEST_F(MonitorExceptionPlayerTest, MonitorBeginAndEndMakeARowAtTheStackOfTheEnd) {
    ThreadInfo* t = newThread("blocked");
    ThreadInfo* owner = newThread("owner");
    int atA = node(t, {{run, 0}, {a, 3}});
    int atB = node(t, {{run, 0}, {b, 4}});
    struct Case {
        const char* what;
        std::vector<std::function<void()>> events;
        std::map<std::string, std::string> rows;
    };
    std::string o = trn(owner), self = trn(t);
    std::vector<Case> cases = {
        {"a block", {[&] { begin(t, atA, 1000, owner->getTRN()); }, [&] { end(t, atA, 1700); }},
         {{self + "<-" + o + " p.Lock run/a@3", "700/1"}}},
        {"a negative duration counts with no time",
         {[&] { begin(t, atA, 5000, owner->getTRN()); }, [&] { end(t, atA, 4000); }},
         {{self + "<-" + o + " p.Lock run/a@3", "0/1"}}},
        {"an end without a begin does nothing", {[&] { end(t, atA, 4000); }}, {}},
        {"a second begin replaces the first",
         {[&] { begin(t, atA, 1000, owner->getTRN()); }, [&] { begin(t, atA, 3000, owner->getTRN()); },
          [&] { end(t, atA, 3500); }},
         {{self + "<-" + o + " p.Lock run/a@3", "500/1"}}},
        {"a wait ends in another stack: charged there, the begin's row keeps nothing",
         {[&] { begin(t, atA, 1000, t->getTRN()); }, [&] { end(t, atB, 1900); }},
         {{self + "<-" + self + " p.Lock run/a@3", "0/0"}, {self + "<-" + self + " p.Lock run/b@4", "900/1"}}},
        {"an owner that left gives frame 0: no row", {[&] { begin(t, 0, 1000, owner->getTRN()); }}, {}},
    };
    for (const Case& c : cases) {
        Monitors::resetForTests();
        ourStatus.set(INITIAL_STATUS | MONITORS_BIT);
        db->getMonitorTable()->clearTable();
        for (const auto& event : c.events) event();
        play(t);
        EXPECT_EQ(c.rows, monitors()) << c.what;
    }
}

TEST_F(MonitorExceptionPlayerTest, MonitorEventsPlayedWhileProfilingIsOffLeaveNoRow) {
    ThreadInfo* t = newThread("blocked");
    int atA = node(t, {{run, 0}, {a, 3}});
    begin(t, atA, 1000, 99);
    ourStatus.set(INITIAL_STATUS);
    end(t, atA, 2000);
    play(t);
    EXPECT_TRUE(monitors().empty());
}

TEST_F(MonitorExceptionPlayerTest, ExceptionRowsFoldRethrowsAndKeepPlacesApart) {
    ThreadInfo* t = newThread("thrower");
    int atA = node(t, {{run, 0}, {a, 3}});
    int atB = node(t, {{run, 0}, {b, 4}});
    int atRun = node(t, {{run, 7}});
    std::string self = trn(t);
    struct Case {
        const char* what;
        std::vector<std::function<void()>> events;
        std::map<std::string, int64_t> rows;
    };
    std::vector<Case> cases = {
        {"caught, rethrown and caught again: once, first throw to last catch",
         {[&] { thrown(t, atA, atB, 11); }, [&] { thrown(t, atB, atRun, 11); }},
         {{self + " p.Failure run/a@3 -> run/b@4", 0}, {self + " p.Failure run/a@3 -> run@7", 1}}},
        {"id 0 never matches as a rethrow",
         {[&] { thrown(t, atA, atB, 0); }, [&] { thrown(t, atA, atB, 0); }},
         {{self + " p.Failure run/a@3 -> run/b@4", 2}}},
        {"another object is another exception",
         {[&] { thrown(t, atA, atB, 11); }, [&] { thrown(t, atB, atRun, 12); }},
         {{self + " p.Failure run/a@3 -> run/b@4", 1}, {self + " p.Failure run/b@4 -> run@7", 1}}},
        {"uncaught: catch frame 0", {[&] { thrown(t, atA, 0, 13); }}, {{self + " p.Failure run/a@3 -> ", 1}}},
        {"an unknown class", {[&] { thrown(t, atA, atB, 14, 0); }}, {{self + " <unknown> run/a@3 -> run/b@4", 1}}},
    };
    for (const Case& c : cases) {
        Exceptions::resetForTests();
        db->getExceptionTable()->clearTable();
        t->resetStack();
        for (const auto& event : c.events) event();
        play(t);
        EXPECT_EQ(c.rows, exceptions()) << c.what;
    }
}

TEST_F(MonitorExceptionPlayerTest, AThrowAtThePlayersFrameWithoutAKnownFrameIsDroppedWithAWarning) {
    ThreadInfo* t = newThread("thrower");
    CapturedLog log;
    thrown(t, -1, node(t, {{run, 7}}), 5);
    play(t);
    EXPECT_TRUE(exceptions().empty());
    EXPECT_EQ(1u, log.startingWith("warning: p_e: 1: -1 ").size());
}

TEST_F(MonitorExceptionPlayerTest, MergedThreadsFoldIntoOneRowForEachOwnerFrameAndClass) {
    ThreadInfo* first = newThread("first");
    ThreadInfo* second = newThread("second");
    ThreadInfo* owner = newThread("owner");
    for (ThreadInfo* t : {first, second}) {
        int atA = node(t, {{run, 0}, {a, 3}});
        begin(t, atA, 1000, owner->getTRN());
        end(t, atA, 1100);
        thrown(t, atA, node(t, {{run, 7}}), 0);
        play(t);
    }
    ZSet<int> merged;
    merged.add(first->getTRN());
    merged.add(second->getTRN());
    Monitors::mergeMonitorUsage(lock, merged);
    Exceptions::mergeExceptionUsage(lock, merged);
    std::string oldest = trn(ourOldestFinishedThreads);
    std::map<std::string, std::string> expectedMonitors = {{oldest + "<-" + trn(owner) + " p.Lock run/a@3", "200/2"}};
    EXPECT_EQ(expectedMonitors, monitors());
    std::map<std::string, int64_t> expectedExceptions = {{oldest + " p.Failure run/a@3 -> run@7", 2}};
    EXPECT_EQ(expectedExceptions, exceptions());
    // The merged rows stay in the stream as deleted.
    int deleted = 0;
    db->getMonitorTable()->forEachRecord([&](long long, MonitorRecord& r) { deleted += r.myStamp < 0 ? 1 : 0; });
    db->getExceptionTable()->forEachRecord([&](long long, ExceptionRecord& r) { deleted += r.myStamp < 0 ? 1 : 0; });
    EXPECT_EQ(4, deleted);
}

}  // namespace
