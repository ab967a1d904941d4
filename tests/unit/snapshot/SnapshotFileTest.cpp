// The performance snapshot file as written, read back byte by byte.
#include <fcntl.h>
#include <unistd.h>

#include "unit/recording/RecordingTestSupport.h"
#include "snapshot/SnapshotFile.h"
#include "snapshot/TableStream.h"
#include "unit/StreamBytes.h"

namespace {

// CPU recording takes part in captures as the agent's wiring has it.
const SnapshotParticipant ourCpuTracingParticipant = {CpuTracing::beginCapture, CpuTracing::endCapture};

class SnapshotFileTest : public RecordingTest {
protected:
    void SetUp() override {
        static bool registered = (registerSnapshotParticipant(&ourCpuTracingParticipant), true);
        (void)registered;
        RecordingTest::SetUp();
        myPath = "/tmp/corvane-snapshot-test-" + std::to_string(getpid()) + ".snapshot";
    }
    void TearDown() override {
        unlink(myPath.c_str());
        RecordingTest::TearDown();
    }
    ZString write(int64_t flags) {
        int fd = open(myPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0644);
        EXPECT_GE(fd, 0);
        ZString error;
        {
            ParticipantsCapture capture(lock);
            error = SnapshotFile::writeSnapshotNew(lock, nullptr, fd, -1, ZString(myPath.c_str()), flags, nullptr);
        }
        close(fd);
        return error;
    }
    std::string myPath;
};

}  // namespace

// What the file holds is read back by the reader's golden test, and live
// deltas by the protocol test through the reader; here, what a capture does
// to the recording around it.
TEST_F(SnapshotFileTest, ACaptureBringsTheOpenCallsInAndRecordingGoesOn) {
    ThreadInfo* t = newThread("worker");
    int main = method("main"), a = method("a");
    enterWithStack(t, node(t, {{main, 0}}), base);
    enter(t, a, base + 10);
    exit(t, a, base + 25);
    int generationBefore = db->getCurrentGeneration();
    ASSERT_TRUE(write(0x20).isEmpty());
    EXPECT_GT(readFileBytes(myPath).size(), 19u + 4 + 8);
    EXPECT_EQ(generationBefore + 1, db->getCurrentGeneration());
    // main (still open) and a have their rows; main is open again after the capture.
    EXPECT_EQ(2, (int)tree(t).size());
    EXPECT_EQ(15, tree(t)["main/a"].time);
    EXPECT_EQ(1, t->getTimeStackSize());
}

TEST_F(SnapshotFileTest, AWriteFailureIsReturnedAsText) {
    int fd = open("/dev/full", O_WRONLY);
    ASSERT_GE(fd, 0);
    ZString error = SnapshotFile::writeSnapshotNew(lock, nullptr, fd, -1, ZString("/dev/full"), 0, nullptr);
    close(fd);
    EXPECT_EQ(ZString("No space left on device"), error);
}

TEST_F(SnapshotFileTest, FlagsTellHowTheAgentCame) {
    uint64_t saved = ourCapabilities.get();
    ourCapabilities.add(CAPABILITY_ATTACHED_AGENT);
    EXPECT_EQ(0x4201, SnapshotFile::formSnapshotFlags(1));
    ourCapabilities.remove(CAPABILITY_ATTACHED_AGENT);
    EXPECT_EQ(0x8a00, SnapshotFile::formSnapshotFlags(0x800));
    ourCapabilities.set(saved);
}

TEST_F(SnapshotFileTest, SnapshotsAreFoundByFileName) {
    addSnapshotInfo(ZString("/tmp/a.snapshot"), 5);
    addSnapshotInfo(ZString("/tmp/b.snapshot"), 6);
    EXPECT_EQ(2, SnapshotFile::findSnapshot(lock, ZString("/tmp/b.snapshot")));
    EXPECT_EQ(0, SnapshotFile::findSnapshot(lock, ZString("/tmp/c.snapshot")));
}
