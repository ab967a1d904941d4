// Where the log goes when the file cannot be had, or must not be.
#include "AgentFixture.h"

namespace e2e {
namespace {

using LogPlacement = AgentTest;

TEST_F(LogPlacement, UnwritableLogdirFallsBackToStderrAndQuietSilencesIt) {
    std::string folder = unwritableFolder();

    ProcessResult loud = runHello("logdir=" + folder + ",tmpdir=" + tmp());
    ASSERT_EQ(0, loud.exitCode) << loud.err;
    EXPECT_EQ(HELLO_OUTPUT, loud.out);
    std::string notice = std::string(BANNER) + "Cannot create log file: " + folder + "/Hello-" +
                         std::to_string(loud.pid) +
                         ".log\n  Note: the log directory was altered using startup option 'logdir'\n";
    EXPECT_EQ(0u, loud.err.find(notice)) << loud.err;
    std::vector<std::string> badLines;
    std::vector<std::string> printed = messagesOf(parseLog(loud.err.substr(notice.size()), &badLines));
    EXPECT_TRUE(badLines.empty()) << ::testing::PrintToString(badLines);
    EXPECT_IN_ORDER(printed, startSequence());

    ProcessResult quiet = runHello("quiet,logdir=" + folder + ",tmpdir=" + tmp());
    ASSERT_EQ(0, quiet.exitCode);
    EXPECT_EQ(HELLO_OUTPUT, quiet.out);
    EXPECT_EQ("", quiet.err);
    EXPECT_TRUE(listTree(home()).empty()) << ::testing::PrintToString(listTree(home()));
}

TEST_F(LogPlacement, StdErrOnlyArgumentSendsEveryLineToStderrAndMakesNoFile) {
    ProcessResult result = runHello("tmpdir=" + tmp(), {"-Dqv.logger.stdErrOnly=true"});

    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(HELLO_OUTPUT, result.out);
    std::vector<std::string> badLines;
    std::vector<std::string> printed = messagesOf(parseLog(result.err, &badLines));
    EXPECT_TRUE(badLines.empty()) << ::testing::PrintToString(badLines);
    EXPECT_IN_ORDER(printed, startSequence());
    // No file means no notice and no header either.
    EXPECT_EQ(std::string::npos, result.err.find(BANNER)) << result.err;
    EXPECT_EQ(0, countStartingWith(printed, "Command line:"));
    EXPECT_TRUE(listTree(home()).empty()) << ::testing::PrintToString(listTree(home()));
}

}  // namespace
}  // namespace e2e
