#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <pthread.h>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "foundation/Failure.h"
#include "foundation/System.h"
#include "unit/ScratchFolder.h"
#include "unit/StreamBytes.h"

namespace {

// Sets an environment variable for a scope and puts the old value back.
struct ScopedEnv {
    const char* name;
    bool hadValue;
    std::string oldValue;
    ScopedEnv(const char* name, const char* value)
        : name(name), hadValue(getenv(name) != nullptr), oldValue(hadValue ? getenv(name) : "") {
        setenv(name, value, 1);
    }
    ~ScopedEnv() { hadValue ? setenv(name, oldValue.c_str(), 1) : unsetenv(name); }
};

}  // namespace

TEST(Wildcards, Match) {
    struct Case {
        const char* pattern;
        const char* text;
        bool matches;
    };
    for (const Case& c : {Case{"a*b", "ab", true}, {"a*b", "axxb", true}, {"a*b", "a", false}, {"a*b", "abc", false},
                          {"", "", true}, {"", "a", false}, {"*", "", true}, {"a***", "a", true},
                          {"**x**y", "0x1y2y", true}, {"a*b*c", "abbcbc", true}, {"a*b*c", "acb", false},
                          {"ABC", "abc", false}, {nullptr, "anything", true}})
        EXPECT_EQ(c.matches, wildcardMatch(c.pattern, c.text)) << (c.pattern ? c.pattern : "null") << " " << c.text;
    EXPECT_TRUE(wildcardMatchW(L"*\u00e9", L"caf\u00e9"));
    EXPECT_FALSE(wildcardMatchW(L"a*", L"b"));
    EXPECT_TRUE(wildcardMatchZS(ZString("com.*.Main"), ZString("com.acme.Main")));
}

TEST(Time, NonDescendingAcrossThreads) {
    std::atomic<bool> descended(false);
    auto check = [&] {
        int64_t last = getTimeNs();
        for (int i = 0; i < 200000; i++) {
            int64_t now = getTimeNs();
            if (now < last) descended = true;
            last = now;
        }
    };
    std::thread a(check), b(check);
    a.join();
    b.join();
    EXPECT_FALSE(descended);
    int64_t now = getTimeNs();
    EXPECT_EQ(now, ensureNonDescendingTimeNs(1));
}

TEST(Time, EmulatedClockCountsOnlyBoundedSteps) {
    const int64_t hour = 3600LL * 1000000000LL;
    int64_t wall = 1700000000LL * 1000000000LL;
    int64_t start = emulateMonotonicTimeNs(wall);
    EXPECT_EQ(start + 5000000, emulateMonotonicTimeNs(wall + 5000000));
    wall += 5000000;
    EXPECT_EQ(start + 5000001, emulateMonotonicTimeNs(wall - hour));
    EXPECT_EQ(start + 5000002, emulateMonotonicTimeNs(wall - hour));
    EXPECT_EQ(start + 5000002 + 180000000000LL, emulateMonotonicTimeNs(wall + hour));
}

static void* sleepUntilReleased(void* flag) {
    while (!((std::atomic<bool>*)flag)->load()) z_sleep_ms(1);
    return nullptr;
}

TEST(CpuAndMemory, ThreadClocksAreTheThreadsOwn) {
    std::atomic<bool> release(false);
    pthread_t sleeper;
    ASSERT_EQ(0, pthread_create(&sleeper, nullptr, sleepUntilReleased, &release));
    int64_t before = getCurrentThreadCpuTimeNs();
    volatile uint64_t sink = 0;
    while (getCurrentThreadCpuTimeNs() - before < 50000000) sink = sink + 1;
    int64_t mine = getThreadCpuTimeNs(getCurrentThreadNativeID());
    int64_t sleepers = getThreadCpuTimeNs((int64_t)sleeper);
    release = true;
    pthread_join(sleeper, nullptr);
    EXPECT_GE(mine - before, 50000000);
    EXPECT_GE(sleepers, 0);
    EXPECT_LT(sleepers, 40000000);
    EXPECT_GE(getProcessCpuTimeNs(false), mine);
}

TEST(EnvironmentAndPaths, UserHomeAndTempFiles) {
    {
        ScopedEnv home("CORVANE_HOME", "/opt/home");
        EXPECT_STREQ("/opt/home", getUserHome().c_str());
        EXPECT_STREQ("/opt/home/.kzt/log", getFilePathInAppSettings("log").c_str());
    }
    ScopedEnv empty("CORVANE_HOME", "");
    EXPECT_STREQ(getpwuid(getuid())->pw_dir, getUserHome().c_str());
    for (const char* folder : {"", "/var/", "/var"})
        EXPECT_STREQ(*folder ? "/var/x" : "/tmp/x", getTempFilePath(ZString(folder), "x").c_str()) << folder;
}

TEST(Files, ReadingWholeFiles) {
    ScratchFolder dir;
    std::string big(100000, 'q');
    big[5] = 0;
    std::ofstream(dir.file("big"), std::ios::binary) << big;
    EXPECT_EQ(100000, getFileSize(dir.file("big").c_str()));
    EXPECT_EQ(-1, getFileSize(dir.path.c_str()));
    EXPECT_EQ(-1, getFileSize(dir.file("none").c_str()));
    ZVector<unsigned char, 10> bytes;
    ASSERT_TRUE(readFile(dir.file("big").c_str(), bytes));
    ASSERT_EQ(100000, bytes.getSize());
    EXPECT_EQ(0, bytes[5]);
    EXPECT_EQ('q', bytes[99999]);

    FILE* f = fopen(dir.file("big").c_str(), "rb");
    ZString text;
    ASSERT_TRUE(readFile(f, text));
    fclose(f);
    EXPECT_EQ(100000, text.getLength());

    EXPECT_FALSE(readFile(dir.file("none").c_str(), bytes));
    EXPECT_TRUE(readTextFileContentOrEmpty(dir.file("none").c_str()).isEmpty());
    // Files of /proc tell a size of 0 but have content.
    EXPECT_FALSE(readTextFileContentOrEmpty("/proc/self/statm").isEmpty());

    FileReader reader(dir.file("big").c_str());
    ASSERT_TRUE(reader.isOpen());
    EXPECT_TRUE(reader.seek(5));
    EXPECT_EQ(0, reader.readByte());
    EXPECT_TRUE(reader.seek(99999));
    EXPECT_EQ('q', reader.readByte());
    EXPECT_EQ(-1, reader.readByte());
    FileReader missing(dir.file("none").c_str());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(-1, missing.readByte());
}

TEST(Files, FoldersAndNames) {
    ScratchFolder dir;
    ZString nested = ZString(dir.path.c_str()) + "/a/b//c";
    z_mkdirs(nested);
    EXPECT_TRUE(FileSearch::isDirectory(nested.c_str()));
    z_mkdirs(nested);  // a second time is no fault
    EXPECT_THROW(z_mkdirs(ZString()), KZTRuntimeException);
    std::ofstream(dir.file("a/f.txt")) << "x";
    ZVectorSafe<ZString> names;
    FileSearch::listFiles((dir.path + "/a").c_str(), names);
    names.sort();
    ASSERT_EQ(2, names.getSize());
    EXPECT_EQ(std::string("b f.txt"), std::string(names[0].c_str()) + " " + names[1].c_str());
    EXPECT_FALSE(FileSearch::isDirectory(dir.file("a/f.txt").c_str()));

    EXPECT_STREQ("f.txt", getFileName(ZString("/x/y/f.txt")).c_str());
    EXPECT_STREQ("f.txt", getFileName(ZString("f.txt")).c_str());
    EXPECT_STREQ("/abs", getAbsoluteFilePath(ZString("/abs")).c_str());
    EXPECT_EQ(z_getcwd() + "/rel", getAbsoluteFilePath(ZString("rel")));
    EXPECT_STREQ("a-b-c-d-e-f-g-h-i-j-k", toFileNamePart(ZString("a\\b/c<d>e|f\"g:h?i*j\nk")).c_str());

    // A relative path is made below the current folder.
    ZString cwd = z_getcwd();
    ASSERT_EQ(0, chdir(dir.path.c_str()));
    z_mkdirs(ZString("r1/r2"));
    bool made = FileSearch::isDirectory((dir.path + "/r1/r2").c_str());
    ASSERT_EQ(0, chdir(cwd.c_str()));
    EXPECT_TRUE(made);
}

TEST(ConfigText, ReadAndSplit) {
    ScratchFolder dir;
    std::ofstream(dir.file("given.txt")) << "given";
    EXPECT_STREQ("given", readConfigFromFile(ZString(dir.file("given.txt").c_str()), "x.txt", "default").c_str());
    EXPECT_STREQ("default", readConfigFromFile(ZString(dir.file("none").c_str()), "x.txt", "default").c_str());
    ScopedEnv home("CORVANE_HOME", dir.path.c_str());
    z_mkdirs(ZString(dir.path.c_str()) + "/.kzt");
    std::ofstream(dir.file(".kzt/sampling.txt")) << "from settings";
    EXPECT_STREQ("from settings", readConfigFromFile(ZString(), "sampling.txt", "default").c_str());
    EXPECT_STREQ("default", readConfigFromFile(ZString(), "tracing.txt", "default").c_str());

    ZVectorSafe<ZString> lines;
    lines.push(ZString("stale"));
    splitConfigFile(&lines, ZString("# comment\r\n  walltime=*  \r\n\n\t\n # indented comment\nlast"));
    ASSERT_EQ(2, lines.getSize());
    EXPECT_STREQ("walltime=*", lines[0].c_str());
    EXPECT_STREQ("last", lines[1].c_str());
    EXPECT_THROW(splitConfigFile(nullptr, ZString("")), KZTRuntimeException);
}

TEST(Errors, EnglishTextsByCode) {
    // The table's own text where it has one; the C library's for codes it lacks.
    EXPECT_TRUE(getEnglishErrorMessage(ECONNRESET).isEmpty());
    EXPECT_EQ(z_strerror(ECONNRESET), getLastSocketErrorText(ECONNRESET));
    ASSERT_FALSE(getEnglishErrorMessage(EAGAIN).isEmpty());
    EXPECT_EQ(getEnglishErrorMessage(EAGAIN), getLastSocketErrorText(EAGAIN));
}

namespace {
std::atomic<int> ourSigpipeCount(0);
void countSigpipe(int) { ourSigpipeCount++; }
std::string ourReported;
void keepMessage(const char* text) { ourReported += std::string(text) + "\n"; }
}  // namespace

TEST(Sockets, SendToGonePeerFailsWithoutSignal) {
    installFailureReporting({nullptr, keepMessage});
    ourReported.clear();
    struct sigaction counting = {}, old = {};
    counting.sa_handler = countSigpipe;
    sigaction(SIGPIPE, &counting, &old);

    SocketPair pair;
    pair.closeReader();
    EXPECT_FALSE(z_send(pair.writer(), "hello", 5));
    EXPECT_TRUE(z_send(pair.writer(), "", 0));

    sigaction(SIGPIPE, &old, nullptr);
    EXPECT_EQ(0, ourSigpipeCount.load());
    EXPECT_EQ("error: send failed: Broken pipe\n", ourReported);
    installFailureReporting({nullptr, nullptr});
}

TEST(Sockets, SendDeliversLargeBuffersWhole) {
    SocketPair pair;
    const int size = 4 << 20;
    std::vector<uint8_t> data(size), received;
    for (int i = 0; i < size; i++) data[i] = (uint8_t)(i * 7);
    std::thread reader([&] { received = pair.readAll(); });
    EXPECT_TRUE(z_send(pair.writer(), (const char*)data.data(), size));
    pair.closeWriter();
    reader.join();
    EXPECT_TRUE(received == data);
}
