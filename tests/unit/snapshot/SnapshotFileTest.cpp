// The performance snapshot file as written, read back byte by byte.
#include <fcntl.h>
#include <unistd.h>

#include "unit/recording/RecordingTestSupport.h"
#include "snapshot/SnapshotFile.h"
#include "snapshot/TableStream.h"
#include "unit/StreamBytes.h"

namespace {

// Bytes of a live row's columns, by slot; -1 for the tables of variable rows.
const int ROW_BYTES[20] = {-1, 44, 24, 8, 32, 16, 16, 16, 0, 12, 24, 12, 8, -1, 24, -1, 8, 8, 8, 8};

struct TableRows {
    std::vector<int> indices;
    std::vector<int> stamps;
    std::map<int, std::string> texts;  // "string" rows
};

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
    // Reads the tables block after the header, checking the item structure.
    std::vector<TableRows> readTables(StreamReader& in) {
        EXPECT_EQ(0x25, in.readByte());
        EXPECT_EQ(0, in.readInt());
        size_t length = (uint32_t)in.readInt();
        size_t end = in.position() + length;
        std::vector<TableRows> tables(20);
        for (int slot = 0; slot < 20; slot++) {
            EXPECT_EQ(2, in.readByte()) << slot;
            EXPECT_EQ(slot, in.readInt());
            int count = in.readInt();
            for (int row = 0; row < count; row++) {
                int index = in.readInt();
                int stamp = in.readInt();
                tables[slot].indices.push_back(index);
                tables[slot].stamps.push_back(stamp);
                if (stamp <= 0) continue;
                if (slot == TABLE_STRING) {
                    tables[slot].texts[index] = in.readString();
                } else if (slot == TABLE_TELE) {
                    int pairs = in.readInt();
                    int states = in.readInt();
                    in.skip(48 + pairs * 8 + (states > 0 ? states * 20 : 0));
                } else if (slot == TABLE_EVENT) {
                    in.skip(8);
                    in.skip(in.readInt() * 4);
                } else {
                    in.skip(ROW_BYTES[slot]);
                }
            }
        }
        EXPECT_EQ(end, in.position()) << "the block ends where its length says";
        return tables;
    }

    std::string myPath;
};

}  // namespace

TEST_F(SnapshotFileTest, APerformanceSnapshotIsHeaderAndTablesAndNothingElse) {
    ThreadInfo* t = newThread("worker");
    int main = method("main"), a = method("a");
    enterWithStack(t, node(t, {{main, 0}}), base);
    enter(t, a, base + 10);
    exit(t, a, base + 25);
    int generationBefore = db->getCurrentGeneration();
    ASSERT_TRUE(write(0x20).isEmpty());

    StreamReader in(readFileBytes(myPath));
    std::string magic;
    for (int i = 0; i < 19; i++) magic.push_back((char)in.readByte());
    EXPECT_EQ(std::string("CORVANE_FILE_60000\0", 19), magic);
    EXPECT_EQ(4, in.readInt());
    int64_t creation = in.readLong();
    EXPECT_EQ(0, creation % 1000);
    EXPECT_GT(creation, 1500000000000LL);

    EXPECT_EQ(0x25, in.readByte());
    EXPECT_EQ(0, in.readInt());
    size_t headerEnd = in.position() + 4 + (uint32_t)in.readInt();
    EXPECT_EQ(1, in.readByte());
    ASSERT_EQ(11, in.readInt());
    std::vector<std::string> keys;
    std::map<std::string, std::string> header;
    for (int i = 0; i < 11; i++) {
        std::string key = in.readString();
        keys.push_back(key);
        header[key] = in.readString();
    }
    std::vector<std::string> expectedKeys = {"header",           "snapshot_version", "created_by_version",
                                             "agent_version",    "platform",         "session_id",
                                             "session_name",     "snapshot_flags",   "creation_time_ms",
                                             "sizeof_pointer",   "oid_count"};
    EXPECT_EQ(expectedKeys, keys);
    EXPECT_EQ("90", header["snapshot_version"]);
    EXPECT_EQ("linux-x86-64", header["platform"]);
    EXPECT_EQ("Corvane Java Profiler 2019.8-b109", header["agent_version"]);
    EXPECT_EQ(std::to_string(0x20 | 0x200 | 0x8000), header["snapshot_flags"]);
    EXPECT_EQ(std::to_string(creation), header["creation_time_ms"]);
    EXPECT_EQ(std::to_string(db->getSessionId()), header["session_id"]);
    EXPECT_EQ(std::string(32, '0'), header["oid_count"]);
    EXPECT_EQ("8", header["sizeof_pointer"]);
    EXPECT_EQ(headerEnd, in.position()) << "no event tables: the header block ends with the properties";

    std::vector<TableRows> tables = readTables(in);
    EXPECT_EQ(in.size(), in.position()) << "a performance snapshot ends after its tables";

    // The traced thread's data and names are in, and the generation moved on.
    EXPECT_EQ(generationBefore + 1, db->getCurrentGeneration());
    auto hasText = [&](const std::string& text) {
        for (const auto& entry : tables[TABLE_STRING].texts) {
            if (entry.second == text) return true;
        }
        return false;
    };
    EXPECT_TRUE(hasText("worker"));
    EXPECT_TRUE(hasText("VM Start"));
    EXPECT_TRUE(hasText("<Oldest finished threads>"));
    EXPECT_TRUE(hasText("kzt.cpu.profiling.start.ns.low") == false) << "no CPU mode was started";
    EXPECT_TRUE(hasText("kzt.uptime.ns.low"));
    EXPECT_EQ(2u, tables[TABLE_CPU_PROFILING].indices.size());
    // The root frame is stamped as the parent of the first frame and streamed.
    ASSERT_FALSE(tables[TABLE_FRAME].indices.empty());
    EXPECT_EQ(0, tables[TABLE_FRAME].indices[0]);
    // After the capture recording goes on: main is open again.
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

TEST_F(SnapshotFileTest, ALiveDeltaHoldsTheTablesOfTheMaskWithRowsNewerThanTheirStamps) {
    ThreadInfo* t = newThread("worker");
    int main = method("main");
    enterWithStack(t, node(t, {{main, 0}}), base);
    play(t);
    db->advanceGeneration();
    int before = db->getCurrentGeneration() - 1;
    int later = method("later");  // a method row of the new generation
    MemoryWriter writer(256, true);
    Progress progress(-1);
    int since[FIXED_TABLE_COUNT] = {};
    since[TABLE_METHOD] = before;
    writeTables(lock, nullptr, db, writer, (1 << TABLE_METHOD) | (1 << TABLE_CPU_PROFILING), 0, 0, &progress, since,
                false);
    // No kind bytes: slot, count, rows; least significant byte first.
    StreamReader r(writer.done(), true);
    EXPECT_EQ(TABLE_METHOD, r.readInt());
    EXPECT_EQ(1, r.readInt());
    EXPECT_EQ(later, r.readInt());
    r.skip(4 + 24);  // stamp and columns
    EXPECT_EQ(TABLE_CPU_PROFILING, r.readInt());
    EXPECT_EQ(1, r.readInt());
    r.skip(8 + 16);
    EXPECT_TRUE(r.atEnd());
}
