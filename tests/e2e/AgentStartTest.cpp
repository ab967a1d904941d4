// A JVM started with -agentpath: the load sequence, the log it leaves, and
// how the startup option text is put together and checked.
#include <regex>

#include "AgentFixture.h"

namespace e2e {
namespace {

const std::string USAGE =
    "\nCorvane Java Profiler 2019.8-b109 JVMTI agent usage: -agentpath:<path to agent library>=[<option>, ...]\n"
    "\nAvailable options are described here:\nhttps://github.com/corvane/corvane#startup-options\n";

bool isNondecreasing(const std::vector<LogEntry>& entries, size_t from, size_t to) {
    for (size_t i = from + 1; i < to && i < entries.size(); i++) {
        if (entries[i].uptimeMs < entries[i - 1].uptimeMs) return false;
    }
    return true;
}

using AgentStart = AgentTest;

TEST_F(AgentStart, WithoutOptionsRunsTheWholeLoadSequenceAndLogsIt) {
    ProcessResult result = run(javaCommand({agentPath("")}, "Hello", {"one", "two"}), environment());

    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(HELLO_OUTPUT, result.out);
    std::string path = logPathOf(result.pid);
    EXPECT_EQ(std::vector<std::string>{"Hello-" + std::to_string(result.pid) + ".log"}, listFolder(logFolder()));
    // The log file, then the control port.
    std::string logLine = std::string(BANNER) + "Log file: " + path + "\n";
    ASSERT_EQ(0u, result.err.find(logLine)) << result.err;
    EXPECT_TRUE(std::regex_match(result.err.substr(logLine.size()),
                                 std::regex("\\[Corvane Java Profiler 2019\\.8-b109\\] Corvane Java Profiler agent is "
                                            "listening on port \\d+, \"listen=localhost\"\n")))
        << result.err;

    std::vector<std::string> badLines;
    std::vector<LogEntry> entries = parseLog(readFile(path), &badLines);
    EXPECT_TRUE(badLines.empty()) << ::testing::PrintToString(badLines);
    std::vector<std::string> messages = messagesOf(entries);
    ASSERT_GE(messages.size(), 11u);
    // The first message takes its time before it opens the file and writes
    // the header, so it may read earlier than the header itself.
    EXPECT_TRUE(isNondecreasing(entries, 0, 10));
    EXPECT_TRUE(isNondecreasing(entries, 10, entries.size()));
    EXPECT_LE(entries[10].uptimeMs, entries[0].uptimeMs);

    // The header, in its order, then the entry.
    EXPECT_EQ("Log file: " + path, messages[0]);
    EXPECT_EQ("Command line:\n  " + javaHome() + "/bin/java\n  -agentpath:" + agentLibrary() + "\n  -cp\n  " +
                  testClasses() + "\n  Hello\n  one\n  two",
              messages[1]);
    EXPECT_TRUE(std::regex_match(messages[2], std::regex("Executable: /.*/java"))) << messages[2];
    EXPECT_TRUE(std::regex_match(messages[3], std::regex("uname:\n  sysname: Linux\n  release: .*\n  version: .*\n"
                                                         "  machine: x86_64")))
        << messages[3];
    EXPECT_EQ("Linux; linux-x86-64; 64-bit process", messages[4]);
    EXPECT_EQ(" 64-bit machine", messages[5]);
    EXPECT_TRUE(std::regex_match(messages[6], std::regex("Today is \\d{8}"))) << messages[6];
    EXPECT_EQ("full_build_stamp: 2019.8.109 201908051358", messages[7]);
    EXPECT_EQ("Agent library path: " + agentLibrary(), messages[8]);
    EXPECT_EQ("getTimeNsInfo: \"monotonic\"", messages[9]);
    EXPECT_EQ("Agent_OnLoad: orig_options=\n  full_options=", messages[10]);

    EXPECT_IN_ORDER(messages, startSequence());
    // Without tmpdir the archive goes to the system's temporary folder.
    EXPECT_EQ(1, countStartingWith(messages, std::string("Jar file created: /tmp/") + ARCHIVE_NAME) +
                     countStartingWith(messages, std::string("Reusing existing jar file: /tmp/") + ARCHIVE_NAME));
    EXPECT_EQ(0, countStartingWith(messages, "error")) << ::testing::PrintToString(messages);
    EXPECT_EQ(0, countStartingWith(messages, "warning")) << ::testing::PrintToString(messages);
}

// PRE, the command line and POST are one text; the last session name wins.
TEST_F(AgentStart, OptionVariablesWrapTheCommandLineOptions) {
    ProcessResult result = runHello("tmpdir=" + tmp(), {},
                                    {{"KZT_STARTUP_OPTIONS_PRE", ",,sessionname=fromPre,_pre_marker,"},
                                     {"KZT_STARTUP_OPTIONS_POST", "sessionname=fromPost,,"}});

    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(HELLO_OUTPUT, result.out);
    EXPECT_EQ(std::vector<std::string>{"fromPost-" + std::to_string(result.pid) + ".log"}, listFolder(logFolder()));
    std::vector<std::string> messages = logOf(result.pid, "fromPost");
    EXPECT_EQ(1, countStartingWith(messages, "Agent_OnLoad: orig_options=tmpdir=" + tmp() +
                                                 "\n  full_options=sessionname=fromPre,_pre_marker,,tmpdir=" + tmp() +
                                                 ",sessionname=fromPost"))
        << ::testing::PrintToString(messages);
    EXPECT_IN_ORDER(messages, startSequence());
}

TEST_F(AgentStart, InvalidOptionOrHelpStopsWithCode3AndTheUsage) {
    ProcessResult invalid = runHello("tmpdir=" + tmp() + ",foo");
    EXPECT_EQ(3, invalid.exitCode);
    EXPECT_TRUE(std::regex_search(invalid.out, std::regex("^19\\.8-109 \\d+\\.\\d{3}: Cannot start: invalid option: "
                                                          "foo\n")))
        << invalid.out;
    EXPECT_TRUE(endsWith(invalid.out, USAGE)) << invalid.out;
    EXPECT_EQ(std::string::npos, invalid.out.find("hello from e2e"));
    std::vector<std::string> messages = logOf(invalid.pid);
    EXPECT_IN_ORDER(messages, std::vector<std::string>({"Agent_OnLoad: ", "Cannot start: invalid option: foo"}));
    EXPECT_EQ(0, countStartingWith(messages, "agentStart"));
    // Refused before the archive is written.
    EXPECT_TRUE(listFolder(tmp()).empty());

    // The variables' options are checked the same way.
    ProcessResult fromPost = runHello("tmpdir=" + tmp(), {}, {{"KZT_STARTUP_OPTIONS_POST", "bar"}});
    EXPECT_EQ(3, fromPost.exitCode);
    EXPECT_NE(std::string::npos, fromPost.out.find("Cannot start: invalid option: bar\n")) << fromPost.out;

    ProcessResult help = runHello("help");
    EXPECT_EQ(3, help.exitCode);
    EXPECT_EQ(USAGE, help.out);
}

TEST_F(AgentStart, DeprecatedOptionsWarnAndTheAgentStarts) {
    ProcessResult result = runHello("tmpdir=" + tmp() + ",noj2ee,probe=classloading");

    ASSERT_EQ(0, result.exitCode) << result.err;
    const std::string ignored =
        "warning: deprecated option \"noj2ee\" ignored; use probe_off=* or probe_disable=* options instead";
    const std::string rewritten =
        "warning: deprecated option: \"probe=classloading\"; using "
        "\"probe_on=com.corvane.probes.builtin.ClassLoading\" instead";
    std::vector<std::string> printed = logMessages(result.out);
    EXPECT_IN_ORDER(printed, std::vector<std::string>({ignored, rewritten}));
    EXPECT_EQ(std::string::npos, result.out.find("Cannot start")) << result.out;
    // The program's own output comes after the agent's lines, untouched.
    EXPECT_TRUE(endsWith(result.out, HELLO_OUTPUT)) << result.out;

    std::vector<std::string> messages = logOf(result.pid);
    EXPECT_IN_ORDER(messages, std::vector<std::string>({ignored, rewritten}));
    EXPECT_IN_ORDER(messages, startSequence());
}

}  // namespace
}  // namespace e2e
