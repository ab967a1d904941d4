#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "foundation/System.h"
#include "session/InterProcessMutex.h"
#include "session/SessionMarkers.h"

namespace {

const int AGENT_ROLE = 1;

// Tables of this test process's own: parallel runs and the machine's real
// agents never meet them. The segments go at the end.
class SessionMarkersTest : public ::testing::Test {
protected:
    void SetUp() override {
        markersKey = (key_t)(0x4d000000 | ((getpid() & 0x7fffff) << 1));
        useSessionMarkerKeysForTests(markersKey, markersKey + 1);
    }
    void TearDown() override {
        for (key_t key : {markersKey, markersKey + 1}) {
            int id = shmget(key, 0, 0);
            if (id >= 0) shmctl(id, IPC_RMID, nullptr);
        }
        useSessionMarkerKeysForTests(SESSION_MARKERS_KEY, SESSION_MARKERS_MUTEX_KEY);
    }
    SessionMarker* slots() {
        return (SessionMarker*)createSharedMemoryUnix(markersKey, MARKER_SLOT_COUNT * sizeof(SessionMarker));
    }
    static std::vector<int> freePorts(int from, int to, bool checkMarkers = true) {
        ZVector<int> ports;
        fillFreePorts(ports, from, to, checkMarkers);
        return std::vector<int>(ports.getElements(), ports.getElements() + ports.getSize());
    }

    key_t markersKey;
};

pid_t runChild(int (*body)()) {
    pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return child;
}

TEST_F(SessionMarkersTest, NamesUpTo46BytesStayWholeLongerOnesAreCut) {
    struct Case {
        std::string name;
        std::string stored;
    } cases[] = {
        {std::string(46, 'a'), std::string(46, 'a')},
        {std::string(47, 'b'), std::string(44, 'b') + "..."},
        {std::string(80, 'c'), std::string(44, 'c') + "..."},
        {"", ""},
    };
    for (const Case& c : cases) {
        createMarker(10005, AGENT_ROLE, ZString(c.name.c_str()));
        EXPECT_EQ(c.stored, std::string(getSessionNameFromMarker(z_getpid()).c_str())) << c.name;
    }
    ZVector<int> pids;
    fillMarked(AGENT_ROLE, pids);
    ASSERT_EQ(1, pids.getSize());  // the same slot each time
    EXPECT_EQ(z_getpid(), pids[0]);
}

TEST_F(SessionMarkersTest, PortsOfLiveMarkersAreTakenFromTheFreeRange) {
    const std::vector<int> all = {10001, 10002, 10003, 10004};
    EXPECT_EQ(all, freePorts(10001, 10004));
    createMarker(0, AGENT_ROLE, ZString("idle"));
    EXPECT_EQ(all, freePorts(10001, 10004)) << "port 0 takes nothing";
    createMarker(10002, AGENT_ROLE, ZString("app"));
    EXPECT_EQ((std::vector<int>{10001, 10003, 10004}), freePorts(10001, 10004));
    EXPECT_EQ(all, freePorts(10001, 10004, false));
}

TEST_F(SessionMarkersTest, MaskSelectsTheMarkers) {
    createMarker(10007, 4, ZString("tool"));
    ZVector<int> agents, tools;
    fillMarked(AGENT_ROLE, agents);
    fillMarked(4 | 8, tools);
    EXPECT_EQ(0, agents.getSize());
    ASSERT_EQ(1, tools.getSize());
    ZVector<SessionMarker> markers;
    fillMarkedSessions(4, markers);
    ASSERT_EQ(1, markers.getSize());
    EXPECT_EQ(10007, markers[0].myPort);
    EXPECT_STREQ("tool", markers[0].mySessionName);
}

// A process that died without a word leaves its slot; the next use by
// anybody clears it, and the slot is taken again.
TEST_F(SessionMarkersTest, ADeadProcessesSlotIsClearedAndReused) {
    pid_t dead = runChild([] {
        createMarker(10003, AGENT_ROLE, ZString("crashed"));
        return 0;
    });
    SessionMarker* table = slots();
    ASSERT_NE(nullptr, table);
    int deadSlot = (dead & 0x7fffffff) % MARKER_SLOT_COUNT;
    ASSERT_EQ(dead, table[deadSlot].myPid);
    EXPECT_EQ("crashed", std::string(getSessionNameFromMarker(dead).c_str())) << "reading clears nothing";

    EXPECT_EQ(std::vector<int>{10003}, freePorts(10003, 10003)) << "a dead marker's port is free";
    EXPECT_EQ(0, table[deadSlot].myPid);
    EXPECT_EQ(0, table[deadSlot].myPort);
    EXPECT_EQ("", std::string(getSessionNameFromMarker(dead).c_str()));

    // The slot is free for whoever's start slot it is.
    ASSERT_NE(nullptr, findMarkerByPid(0, dead + MARKER_SLOT_COUNT, true));
    EXPECT_EQ(dead + MARKER_SLOT_COUNT, table[deadSlot].myPid);
}

// The search is linear, so pids that collide modulo the slot count sit side
// by side and are both found.
TEST_F(SessionMarkersTest, CollidingPidsTakeAdjacentSlots) {
    SessionMarker* table = slots();
    ASSERT_NE(nullptr, table);
    int first = 1000003, second = first + MARKER_SLOT_COUNT;
    SessionMarker* a = findMarkerByPid(0, first, true);
    SessionMarker* b = findMarkerByPid(0, second, true);
    ASSERT_NE(nullptr, a);
    ASSERT_NE(nullptr, b);
    EXPECT_EQ(first, table[first % MARKER_SLOT_COUNT].myPid);
    EXPECT_EQ(second, table[first % MARKER_SLOT_COUNT + 1].myPid);
    EXPECT_EQ(a + 1, b);
    EXPECT_EQ(a, findMarkerByPid(0, first, false));
    EXPECT_EQ(b, findMarkerByPid(0, second, false));
    EXPECT_EQ(nullptr, findMarkerByPid(0, second + MARKER_SLOT_COUNT, false));
}

TEST_F(SessionMarkersTest, WithoutTheSegmentNothingIsMarkedAndEveryPortIsFree) {
    // A segment too small for the table under the key: attaching fails.
    int id = shmget(markersKey, 16, IPC_CREAT | 0600);
    ASSERT_GE(id, 0);
    createMarker(10001, AGENT_ROLE, ZString("app"));
    ZVector<int> pids;
    fillMarked(-1, pids);
    EXPECT_EQ(0, pids.getSize());
    EXPECT_EQ((std::vector<int>{10001, 10002, 10003}), freePorts(10001, 10003));
    EXPECT_EQ("", std::string(getSessionNameFromMarker(z_getpid()).c_str()));
}

}  // namespace
