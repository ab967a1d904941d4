// The writers: typed puts, buffer drains, the patched snapshot file, the
// socket writers, and what a failed write leaves behind.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "unit/DBTestSupport.h"
#include "services/Options.h"
#include "foundation/System.h"
#include "snapshot/FileBackedSocketWriter.h"
#include "snapshot/SnapshotWriter.h"
#include "snapshot/SocketWriter.h"
#include "TempFile.h"

namespace {

// Where a file-backed writer gathers its reply.
ZString replyBufferPath() {
    return ourOptions.getAgentTempFilePath((ZString("kzttmp") + ZString::fromLong(z_getpid()) + "_request_buf").c_str());
}

void writeEveryPut(AbstractWriter& w) {
    w.writeByte(0x81);
    w.writeShort(0x1234);
    w.writeInt(-2);
    w.writeLong(0x0102030405060708LL);
    w.writeFloat(1.5f);
    w.writeDouble(-2.25);
    w.writeOID(0x1122334455LL);
    w.writeString(ZString("hé"));
    w.writeString((const char*)nullptr);
    w.writeString("");
}

void readEveryPut(StreamReader& r, bool oid32) {
    EXPECT_EQ(0x81, r.readByte());
    EXPECT_EQ(0x1234, r.readShort());
    EXPECT_EQ(-2, r.readInt());
    EXPECT_EQ(0x0102030405060708LL, r.readLong());
    EXPECT_EQ(0x3FC00000, r.readInt());  // 1.5f
    EXPECT_EQ((int64_t)0xC002000000000000ULL, r.readLong());  // -2.25
    if (oid32) EXPECT_EQ(0x22334455, r.readInt());
    else EXPECT_EQ(0x1122334455LL, r.readLong());
    EXPECT_EQ("hé", r.readString());
    bool isNull = false;
    r.readString(&isNull);
    EXPECT_TRUE(isNull);
    EXPECT_EQ("", r.readString(&isNull));
    EXPECT_FALSE(isNull);
    EXPECT_TRUE(r.atEnd());
}

}  // namespace

TEST(AbstractWriter, PutsInBothByteOrders) {
    MemoryWriter big(64, false);
    writeEveryPut(big);
    StreamReader bigReader(big.done(), false);
    readEveryPut(bigReader, true);
    EXPECT_EQ(0x12, big.bytes[1]);  // most significant first

    MemoryWriter little(64, true);
    writeEveryPut(little);
    StreamReader littleReader(little.done(), true);
    readEveryPut(littleReader, true);
    EXPECT_EQ(0x34, little.bytes[1]);

    MemoryWriter nullOnly;
    nullOnly.writeString((const char*)nullptr);
    EXPECT_EQ(std::vector<uint8_t>(4, 0xFF), nullOnly.done());
}

TEST(AbstractWriter, DrainsBeforeAValueWouldSplit) {
    MemoryWriter w(16);
    for (int i = 0; i < 14; i++) w.writeByte(i);
    w.writeShort(0x0102);  // 14 + 2 reaches the capacity: drain first
    EXPECT_EQ(std::vector<int>{14}, w.flushes);
    for (int i = 0; i < 10; i++) w.writeByte(i);
    w.writeInt(7);  // 12 + 4 reaches it
    EXPECT_EQ((std::vector<int>{14, 12}), w.flushes);
    w.writeLong(1);  // 4 + 8 does not
    w.writeInt(2);   // 12 + 4 does
    EXPECT_EQ((std::vector<int>{14, 12, 12}), w.flushes);
    for (int i = 0; i < 12; i++) w.writeByte(i);  // a byte drains only at a full buffer
    EXPECT_EQ((std::vector<int>{14, 12, 12}), w.flushes);
    w.writeByte(99);
    EXPECT_EQ((std::vector<int>{14, 12, 12, 16}), w.flushes);

    // Strings go through as many drains as they need.
    MemoryWriter s(16);
    std::string text(100, 'x');
    for (int i = 0; i < 100; i++) text[i] = (char)('a' + i % 26);
    s.writeString(text.c_str());
    s.writeInt(5);
    StreamReader r(s.done());
    EXPECT_EQ(text, r.readString());
    EXPECT_EQ(5, r.readInt());
    for (int flushed : s.flushes) EXPECT_LE(flushed, 16);
}

TEST(AbstractWriter, PrimitivesBySignature) {
    MemoryWriter w;
    const char* signatures = "BZCSIFJD";
    for (const char* p = signatures; *p != 0; p++) w.writePrimitive(-1, *p);
    StreamReader r(w.done());
    std::vector<int64_t> read = {r.readByte(), r.readByte(), r.readShort(), r.readShort(),
                                 r.readInt(),  r.readInt(),  r.readLong(),  r.readLong()};
    EXPECT_EQ((std::vector<int64_t>{0xFF, 0xFF, -1, -1, -1, -1, -1, -1}), read);
    EXPECT_THROW(w.writePrimitive(1, 'L'), KZTRuntimeException);
    EXPECT_THROW(w.writePrimitives(nullptr, 'V', 1), KZTRuntimeException);

    for (const char* p = signatures; *p != 0; p++)
        EXPECT_EQ("11224488"[p - signatures] - '0', AbstractWriter::getPrimitiveSize(*p)) << *p;
    EXPECT_EQ(-1, AbstractWriter::getPrimitiveSize('L'));

    auto asLong = [](char signature, void (*set)(jvalue&)) {
        jvalue v;
        v.j = 0;
        set(v);
        return AbstractWriter::jvalueAsLong(signature, v);
    };
    EXPECT_EQ(-3, asLong('B', [](jvalue& v) { v.b = -3; }));
    EXPECT_EQ(0xFFFF, asLong('C', [](jvalue& v) { v.c = 0xFFFF; }));
    EXPECT_EQ(-4, asLong('S', [](jvalue& v) { v.s = -4; }));
    EXPECT_EQ(-5, asLong('I', [](jvalue& v) { v.i = -5; }));
    EXPECT_EQ((int64_t)(int32_t)0xBF800000, asLong('F', [](jvalue& v) { v.f = -1.0f; }));
    EXPECT_EQ(0x4000000000000000LL, asLong('D', [](jvalue& v) { v.d = 2.0; }));
    EXPECT_EQ(1LL << 40, asLong('J', [](jvalue& v) { v.j = 1LL << 40; }));
    EXPECT_EQ(1, asLong('Z', [](jvalue& v) { v.z = 1; }));
    EXPECT_EQ(0, asLong('Z', [](jvalue& v) { v.z = 2; }));
    EXPECT_EQ(0, asLong('L', [](jvalue& v) { v.z = 2; }));

    // Arrays element by element, in the writer's order.
    int16_t shorts[] = {1, -2};
    int32_t ints[] = {3, -4};
    int64_t longs[] = {5, -6};
    uint8_t bytes[] = {7, 8, 9};
    for (bool littleEndian : {false, true}) {
        MemoryWriter a(16, littleEndian);
        a.writePrimitives(shorts, 'S', 2);
        a.writePrimitives(ints, 'F', 2);
        a.writePrimitives(longs, 'J', 2);
        a.writePrimitives(bytes, 'B', 3);
        StreamReader ar(a.done(), littleEndian);
        std::vector<int64_t> read = {ar.readShort(), ar.readShort(), ar.readInt(), ar.readInt(), ar.readLong(),
                                     ar.readLong(),  ar.readByte(),  ar.readByte(), ar.readByte()};
        EXPECT_EQ((std::vector<int64_t>{1, -2, 3, -4, 5, -6, 7, 8, 9}), read) << littleEndian;
        EXPECT_TRUE(ar.atEnd());
    }
}

TEST(SnapshotWriter, TagsAndTheOidCountArePatchedInPlace) {
    TempFile file;
    {
        SnapshotWriter w(file.fd);
        EXPECT_THROW(w.endTag(), KZTRuntimeException);
        w.writeInt(42);
        w.beginTag(0x25);
        EXPECT_THROW(w.beginTag(0x25), KZTRuntimeException);
        w.prepareOIDCountProperty();
        for (int i = 0; i < 300000; i++) w.writeInt(i);  // past one buffer
        w.endTag();
        EXPECT_FALSE(w.isTagOpen());
        w.beginTag(0x2C);
        w.endTag();
        w.commitOIDCountProperty(123456789012LL);
        w.writeByte(0x7F);
        w.flush();
        EXPECT_FALSE(w.hasError());
        EXPECT_EQ((int64_t)lseek(file.fd, 0, SEEK_END), w.getCurrentOffset());
    }
    std::vector<uint8_t> bytes = readFileBytes(file.path);
    StreamReader r(bytes);
    EXPECT_EQ(42, r.readInt());
    EXPECT_EQ(0x25, r.readByte());
    EXPECT_EQ(0, r.readInt());
    int length = r.readInt();
    size_t bodyStart = r.position();
    EXPECT_EQ("oid_count", r.readString());
    std::string count = r.readString();
    EXPECT_EQ(32u, count.size());
    EXPECT_EQ(std::string(20, '0') + "123456789012", count);
    for (int i = 0; i < 300000; i++) ASSERT_EQ(i, r.readInt());
    EXPECT_EQ((size_t)length, r.position() - bodyStart);
    EXPECT_EQ(0x2C, r.readByte());
    EXPECT_EQ(0, r.readInt());
    EXPECT_EQ(0, r.readInt());
    EXPECT_EQ(0x7F, r.readByte());
    EXPECT_TRUE(r.atEnd());

    // Before the commit the value is 32 characters of 0.
    TempFile fresh;
    SnapshotWriter w(fresh.fd);
    w.prepareOIDCountProperty();
    w.flush();
    StreamReader pr(readFileBytes(fresh.path));
    pr.readString();
    EXPECT_EQ(std::string(32, '0'), pr.readString());
}

TEST(SnapshotWriter, TagLengthsBeyondFourGigabytesAreCapped) {
    for (int64_t bodyLength : {0xFFFFFFFELL, 0xFFFFFFFFLL, 0x140000000LL}) {
        TempFile file;
        SnapshotWriter w(file.fd);
        w.beginTag(28);
        w.flush();
        // A sparse body: move the descriptor as a huge dump would have.
        ASSERT_EQ(9 + bodyLength, (int64_t)lseek(file.fd, 9 + bodyLength, SEEK_SET));
        w.forgetFilePosition();
        w.endTag();
        ASSERT_EQ(5, lseek(file.fd, 5, SEEK_SET));
        uint8_t field[4];
        ASSERT_EQ(4, read(file.fd, field, 4));
        uint32_t stored = ((uint32_t)field[0] << 24) | (field[1] << 16) | (field[2] << 8) | field[3];
        EXPECT_EQ(bodyLength >= 0xFFFFFFFFLL ? 0xFFFFFFFFu : (uint32_t)bodyLength, stored) << bodyLength;
    }
}

TEST(SnapshotWriter, TheFirstWriteErrorIsKeptAndWritingGoesOn) {
    TempFile file;
    int readOnly = open(file.path.c_str(), O_RDONLY);
    ASSERT_GE(readOnly, 0);
    SnapshotWriter w(readOnly);
    w.writeInt(1);
    w.flush();
    EXPECT_EQ(ZString("Bad file number"), w.getError());
    EXPECT_EQ(0, w.getPosition());
    int64_t offset = w.getCurrentOffset();
    EXPECT_EQ(4, offset);  // the position advanced by the lost bytes
    w.writeLong(2);
    w.flush();
    EXPECT_EQ(ZString("Bad file number"), w.getError());
    EXPECT_EQ(12, w.getCurrentOffset());
    close(readOnly);
}

// A full disk, made with a file size limit in a child process: the writers
// report "File too large" and nothing crashes.
TEST_F(DBTest, AFullDiskGivesTheWriterErrorAndNoCrash) {
    for (int i = 0; i < 5000; i++) *db->getFrameTable()->getPtr(i + 1, true) = FrameRecord{1, i, i, -1, -1};
    TempFile file;
    fflush(nullptr);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        struct rlimit limit = {30000, 30000};
        setrlimit(RLIMIT_FSIZE, &limit);
        int status = 0;
        {
            SnapshotWriter w(file.fd);
            Progress progress(-1);
            w.beginTag(37);
            db->getFrameTable()->writeTable(w, 0, 0, 90, &progress);
            // Offsets go on as if the bytes had been written.
            if (w.getCurrentOffset() < 5000 * 24) status |= 2;
            w.endTag();
            w.flush();
            if (!w.getError().equals("File too large")) status |= 1;
        }
        {
            // The reply buffer of a live view fails the same way.
            SocketPair sockets;
            FileBackedSocketWriter w(sockets.writer(), 1024);
            for (int i = 0; i < 20000; i++) w.writeInt(i);
            w.flush();
            if (!w.getError().equals("File too large")) status |= 4;
        }
        _exit(status);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST(SocketWriters, SocketWriterSendsEachBufferAsItFills) {
    SocketPair sockets;
    {
        SocketWriter w(sockets.writer(), 32, false);
        for (int i = 0; i < 10; i++) w.writeInt(i);  // one drain on the way
        uint8_t first[28];
        ASSERT_EQ(28, read(sockets.reader(), first, sizeof(first)));
        w.flush();
    }
    sockets.closeWriter();
    std::vector<uint8_t> rest = sockets.readAll();
    EXPECT_EQ(12u, rest.size());
    EXPECT_EQ(9, rest.back());
}

TEST(SocketWriters, FileBackedWriterGathersInATempFileAndSendsOnDestruction) {
    SocketPair sockets;
    ZString expectedPath = replyBufferPath();
    std::vector<uint8_t> bytes;
    std::thread reader;
    {
        FileBackedSocketWriter w(sockets.writer(), 64);
        for (int i = 0; i < 100000; i++) w.writeInt(i);
        EXPECT_EQ(expectedPath, w.getTempFilePath());
        EXPECT_GT(getFileSize(expectedPath.c_str()), 0);
        // Nothing reaches the socket while the reply is gathered.
        uint8_t pending = 0;
        EXPECT_EQ(-1, recv(sockets.reader(), &pending, 1, MSG_DONTWAIT));
        w.writeInt(-1);
        reader = std::thread([&] { bytes = sockets.readAll(); });
    }
    sockets.closeWriter();
    reader.join();
    ASSERT_EQ(4u * 100001, bytes.size());
    StreamReader r(bytes, true);
    for (int i = 0; i < 100000; i++) ASSERT_EQ(i, r.readInt());
    EXPECT_EQ(-1, r.readInt());
    EXPECT_EQ(-1, getFileSize(expectedPath.c_str()));  // deleted
}

TEST(SocketWriters, FileBackedWriterWithoutTempFileDiscardsAndSaysSo) {
    // A folder where the file should be makes the creation fail.
    ZString path = replyBufferPath();
    ASSERT_EQ(0, mkdir(path.c_str(), 0700));
    SocketPair sockets;
    {
        FileBackedSocketWriter w(sockets.writer(), 16);
        for (int i = 0; i < 10; i++) w.writeInt(i);
        EXPECT_EQ(ZString("Failed to create temp file"), w.getError());
        EXPECT_LT(w.getPosition(), 16);
    }
    rmdir(path.c_str());
    sockets.closeWriter();
    EXPECT_TRUE(sockets.readAll().empty());
}
