#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include "LoggerCapture.h"
#include "services/Logger.h"

namespace {

namespace fs = std::filesystem;

const std::string NO_STACK = "\n  <getting stack trace is not supported on linux-x86-64>";

std::string bytes(const char* text, size_t length) { return std::string(text, length); }

ZString zs(const std::string& text) { return ZString(text.data(), (int)text.size()); }


// What printToConsole makes of a text.
std::string printed(const std::string& text) {
    FILE* file = tmpfile();
    Logger::printToConsole(file, zs(text));
    std::string result(64, '\0');
    rewind(file);
    result.resize(fread(&result[0], 1, result.size(), file));
    fclose(file);
    return result;
}

void writeSized(const std::string& path, size_t size) {
    std::ofstream(path, std::ios::binary) << std::string(size, 'x');
}

TEST(LoggerTest, EmptyTextPrintsNothingAndOpensNoFile) {
    CapturedLog log;
    testing::internal::CaptureStdout();
    Logger::message("", stderr);
    Logger::message(ZString(), stdout);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("", log.takeStderr());
    EXPECT_FALSE(Logger::ourLogFileCreated);
    EXPECT_FALSE(fs::exists(log.logFolder()));
}

// The notice on stderr, the header's lines one by one and the prefix of every
// line are the end-to-end start test's; here: ten header lines, the message,
// and no second header.
TEST(LoggerTest, FirstMessageOpensTheFileAndWritesTheHeaderFirst) {
    CapturedLog log;
    Logger::message("first");
    std::vector<std::string> messages = log.messages();
    ASSERT_EQ(11u, messages.size()) << testing::PrintToString(messages);
    EXPECT_EQ("Log file: " + log.path(), messages[0]);
    EXPECT_EQ("first", messages[10]);
    Logger::message("second");
    messages = log.messages();
    EXPECT_EQ(12u, messages.size());
    EXPECT_EQ("second", messages.back());
}

TEST(LoggerTest, ProcessListJoinsTheHeaderOnRequest) {
    CapturedLog log;
    setenv("Z_PS", "1", 1);
    Logger::message("first");
    unsetenv("Z_PS");
    std::vector<std::string> messages = log.messages();
    ASSERT_EQ(12u, messages.size()) << testing::PrintToString(messages);
    EXPECT_EQ(0u, messages[8].find("Agent library path: "));
    EXPECT_EQ(0u, messages[9].find("DebugPS: ")) << messages[9];
    EXPECT_NE(std::string::npos, messages[9].find("\n* " + std::to_string(getpid()) + " ")) << messages[9];
    EXPECT_EQ(0u, messages[10].find("getTimeNsInfo: "));
}

TEST(LoggerTest, LineFormatsAndTheExtraStream) {
    CapturedLog log;
    Logger::message("opened");
    log.takeStderr();

    testing::internal::CaptureStdout();
    Logger::message("to both", stdout);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(out, std::regex("19\\.8-109 \\d+\\.\\d{3}: to both\n"))) << out;
    std::string content = log.content();
    EXPECT_TRUE(std::regex_search(content, std::regex("\n19\\.8-109 \\d+\\.\\d{3}: to both\n$"))) << content;

    // The file keeps NUL bytes; the console shows them as ".".
    testing::internal::CaptureStdout();
    Logger::message(zs(bytes("a\0b", 3)), stdout);
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find(": a.b\n"));
    EXPECT_NE(std::string::npos, log.content().find(bytes(": a\0b\n", 6)));

    Logger::ourWithSystemTime = true;
    Logger::message("with time");
    std::regex withTime("\n19\\.8-109 \\d+\\.\\d{3} \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}: with time\n$");
    EXPECT_TRUE(std::regex_search(log.content(), withTime)) << log.content();

    // Quiet keeps the file but nothing else.
    Logger::ourQuiet = true;
    testing::internal::CaptureStdout();
    Logger::message("quietly", stdout);
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ("quietly", log.messages().back());
    EXPECT_EQ("", log.takeStderr());
}

TEST(LoggerTest, ConsoleShowsNulAndItsModifiedUtf8FormAsDots) {
    EXPECT_EQ("plain text", printed("plain text"));
    EXPECT_EQ("a.b", printed(bytes("a\0b", 3)));
    EXPECT_EQ("x.y", printed("x\xC0\x80y"));
    EXPECT_EQ("...", printed(bytes("\0\xC0\x80\0", 4)));
    // Only the pair C0 80 is a NUL.
    EXPECT_EQ("\xC0\x81 \xC0", printed("\xC0\x81 \xC0"));
    EXPECT_EQ(bytes("\x80\xC0.", 3), printed(bytes("\x80\xC0\0", 3)));
}

TEST(LoggerTest, LimitedLoggerLogsEachTextOnceAndAtMostTwenty) {
    CapturedLog log;
    LimitedLogger same;
    for (int i = 0; i < 100; i++) same.message("the same text");
    EXPECT_EQ(1, log.count("the same text"));

    LimitedLogger distinct;
    for (int i = 1; i <= 25; i++) distinct.message(ZString("text ") + ZString::fromLong(i));
    distinct.message("text 1");
    std::vector<std::string> messages = log.messages();
    for (int i = 1; i <= 19; i++) EXPECT_EQ(1, log.count("text " + std::to_string(i))) << i;
    EXPECT_EQ(1, log.count("text 20\n    (further similar messages will be skipped...)"));
    for (int i = 20; i <= 25; i++) EXPECT_EQ(0, log.count("text " + std::to_string(i))) << i;
    EXPECT_EQ("text 20\n    (further similar messages will be skipped...)", messages.back());
}

TEST(LoggerTest, UnitedLogStartsFromTheLargestNumberAndSkipsFullFiles) {
    CapturedLog log;
    setenv("CORVANE_UNITED_LOG", "1", 1);
    Logger::ourLogFileSizeLimit = 4096;
    fs::create_directories(log.logFolder());
    writeSized(log.logFolder() + "/sess.3.log", 10);
    writeSized(log.logFolder() + "/sess.7.log", 4097);
    writeSized(log.logFolder() + "/sess.x.log", 10);
    writeSized(log.logFolder() + "/other.20.log", 10);

    Logger::message("united");
    unsetenv("CORVANE_UNITED_LOG");
    EXPECT_TRUE(Logger::ourUnitedLog);
    std::string eight = log.logFolder() + "/sess.8.log";
    ASSERT_TRUE(fs::exists(eight));
    EXPECT_EQ(10u, fs::file_size(log.logFolder() + "/sess.3.log"));
    EXPECT_EQ(4097u, fs::file_size(log.logFolder() + "/sess.7.log"));
    // In the shared file each line names its process.
    std::string content = CapturedLog::read(eight);
    EXPECT_EQ(0u, content.find(std::to_string(getpid()) + " 19.8-109 ")) << content;
    EXPECT_TRUE(std::regex_search(content, std::regex("\n" + std::to_string(getpid()) +
                                                      " 19\\.8-109 \\d+\\.\\d{3}: united\n$")))
        << content;

    // Once the file has passed the limit the next message moves on.
    std::string filler(1000, 'f');
    while (fs::file_size(eight) <= 4096) Logger::message(zs(filler));
    Logger::message("moved on");
    std::string nine = log.logFolder() + "/sess.9.log";
    ASSERT_TRUE(fs::exists(nine));
    EXPECT_NE(std::string::npos, CapturedLog::read(eight).find("warning: log file will be changed\n"));
    std::vector<std::string> messages = CapturedLog::messagesIn(CapturedLog::read(nine));
    ASSERT_GE(messages.size(), 3u);
    EXPECT_EQ("Log file: " + nine, messages[0]);
    EXPECT_EQ("warning: log file changed from " + eight, messages[1]);
    EXPECT_EQ("moved on", messages.back());
}

TEST(LoggerTest, UnitedLogBeginsAtOneAndReusesAFileUnderTheLimit) {
    CapturedLog log;
    Logger::ourUnitedLog = true;
    Logger::message("one");
    std::string one = log.logFolder() + "/sess.1.log";
    ASSERT_TRUE(fs::exists(one));

    Logger::resetForTests();
    Logger::ourUnitedLog = true;
    Logger::message("again");
    EXPECT_EQ(std::vector<std::string>{"sess.1.log"}, [&] {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(log.logFolder())) names.push_back(entry.path().filename());
        return names;
    }());
    std::vector<std::string> messages = CapturedLog::messagesIn(CapturedLog::read(one));
    EXPECT_EQ(1, std::count(messages.begin(), messages.end(), "one"));
    EXPECT_EQ("again", messages.back());
}

// With logdir, and quiet, the end-to-end log placement test has the exact lines.
TEST(LoggerTest, UnwritableHomeSendsLinesToStderrWithAdvice) {
    CapturedLog log;
    std::ofstream(log.root() + "/a-file") << "not a folder";
    Logger::ourCustomLogDirectory = "";
    std::string savedHome = getenv("CORVANE_HOME") != nullptr ? getenv("CORVANE_HOME") : "";
    setenv("CORVANE_HOME", (log.root() + "/a-file").c_str(), 1);
    Logger::message("on stderr");
    std::string err = log.takeStderr();
    EXPECT_NE(std::string::npos, err.find("\n  To specify alternate log directory use startup option 'logdir'\n"))
        << err;
    EXPECT_EQ("on stderr", CapturedLog::messagesIn(err).back());
    if (savedHome.empty()) unsetenv("CORVANE_HOME"); else setenv("CORVANE_HOME", savedHome.c_str(), 1);
}

TEST(LoggerTest, ErrorLogsWithPositionAndThrowsUnlessQuiet) {
    CapturedLog log;
    Logger::installFailureReporting();
    EXPECT_THROW(Logger::error("broken", "Some.cpp", 42), KZTRuntimeException);
    EXPECT_EQ("error at Some.cpp:42: broken" + NO_STACK, log.messages().back());
    EXPECT_THROW(KZT_ASSERT(1 + 1 == 3), KZTRuntimeException);
    EXPECT_NE(std::string::npos, log.messages().back().find(": assertion failed" + NO_STACK));
    const char* nothing = nullptr;
    EXPECT_THROW(KZT_ASSERT_NOT_NULL(nothing), KZTRuntimeException);
    EXPECT_NE(std::string::npos, log.messages().back().find(": assertion failed: value is NULL" + NO_STACK));
    EXPECT_NO_THROW(KZT_ASSERT(true));

    Logger::ourQuietErrorMode = true;
    std::string before = log.content();
    EXPECT_THROW(Logger::error(ZString("silent"), "Some.cpp", 43), KZTRuntimeException);
    EXPECT_EQ(before, log.content());
}

TEST(LoggerTest, QuietErrorBeforeAnyMessageOpensNoFile) {
    CapturedLog log;
    Logger::ourQuietErrorMode = true;
    EXPECT_THROW(Logger::error("silent", "Some.cpp", 1), KZTRuntimeException);
    EXPECT_FALSE(fs::exists(log.logFolder()));
    EXPECT_EQ("", log.takeStderr());
}

TEST(LoggerTest, StatsCaughtExceptionsAndStackDumps) {
    CapturedLog log;
    Logger::messageWithStats("busy");
    EXPECT_TRUE(std::regex_match(log.messages().back(), std::regex("\\[m: (\\d+|\\?) (\\d+|\\?)\\] busy")))
        << log.messages().back();
    Logger::exceptionCaught("Native.cpp", 7);
    EXPECT_TRUE(std::regex_match(log.messages().back(),
                                 std::regex("\\[m: (\\d+|\\?) (\\d+|\\?)\\] error: exception caught at Native.cpp:7")))
        << log.messages().back();
    Logger::dumpStack("why");
    EXPECT_EQ("Stack dump: why" + NO_STACK, log.messages().back());
    Logger::dumpStack("");
    EXPECT_EQ("Stack dump" + NO_STACK, log.messages().back());
}

}  // namespace
