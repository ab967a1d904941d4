// The runtime class archive that the agent writes to its temporary folder
// and puts on the boot class path.
#include "AgentFixture.h"

namespace e2e {
namespace {

using RuntimeArchive = AgentTest;

TEST_F(RuntimeArchive, WrittenOnceReusedWhenEqualRewrittenWhenNot) {
    const std::string created = "Jar file created: " + archive();
    const std::string reused = "Reusing existing jar file: " + archive();
    const std::string differs = "Jar file exists but has wrong size or content: " + archive();

    ProcessResult first = runHello("tmpdir=" + tmp());
    ASSERT_EQ(0, first.exitCode) << first.err;
    std::vector<std::string> messages = logOf(first.pid);
    EXPECT_EQ(1, countStartingWith(messages, created));
    EXPECT_EQ(0, countStartingWith(messages, reused) + countStartingWith(messages, differs));
    EXPECT_IN_ORDER(messages, startSequence());
    const std::string written = readFile(archive());
    ASSERT_FALSE(written.empty());
    EXPECT_EQ(std::vector<std::string>{ARCHIVE_NAME}, listFolder(tmp()));
    EXPECT_EQ(readFile(runtimeArchive()), written) << "the archive stored in the library differs from the build's";

    ProcessResult second = runHello("tmpdir=" + tmp());
    ASSERT_EQ(0, second.exitCode) << second.err;
    messages = logOf(second.pid);
    EXPECT_EQ(1, countStartingWith(messages, reused)) << ::testing::PrintToString(messages);
    EXPECT_EQ(0, countStartingWith(messages, created) + countStartingWith(messages, differs));

    // Same size, other bytes: found different and written anew.
    std::string damaged = written;
    damaged[damaged.size() / 2] ^= 0x5A;
    damaged.back() ^= 0x01;
    writeFile(archive(), damaged);
    ProcessResult third = runHello("tmpdir=" + tmp());
    ASSERT_EQ(0, third.exitCode) << third.err;
    EXPECT_EQ(HELLO_OUTPUT, third.out);
    messages = logOf(third.pid);
    EXPECT_IN_ORDER(messages, std::vector<std::string>({differs, created, "agentStart: OK", "vmDeath: OK"}));
    EXPECT_TRUE(readFile(archive()) == written) << "the rewritten archive is not the original";

    // Shorter: likewise.
    writeFile(archive(), written.substr(0, written.size() - 1));
    ProcessResult fourth = runHello("tmpdir=" + tmp());
    ASSERT_EQ(0, fourth.exitCode) << fourth.err;
    EXPECT_IN_ORDER(logOf(fourth.pid), std::vector<std::string>({differs, created, "vmDeath: OK"}));
    EXPECT_TRUE(readFile(archive()) == written);
}

TEST_F(RuntimeArchive, UnwritableFolderStopsWithCode8AndAdvice) {
    std::string folder = unwritableFolder();
    ProcessResult result = runHello("tmpdir=" + folder);

    EXPECT_EQ(8, result.exitCode);
    EXPECT_EQ(std::string::npos, result.out.find("hello from e2e"));
    const std::string message = "Cannot start: failed to create jar file: " + folder + "/" + ARCHIVE_NAME +
                                "; to set alternate location for the file, use startup option "
                                "'tmpdir=<directory>'. To learn how to specify a startup option, read ";
    EXPECT_NE(std::string::npos, result.err.find(message)) << result.err;
    std::vector<std::string> messages = logOf(result.pid);
    EXPECT_EQ(1, countStartingWith(messages, message)) << ::testing::PrintToString(messages);
    EXPECT_EQ(0, countStartingWith(messages, "JVMTI "));
}

TEST_F(RuntimeArchive, GivenAgentClassPathIsUsedWithoutWritingTheArchive) {
    makeFolders(myDir / "given");
    std::string given = myDir / "given/runtime.jar";
    writeFile(given, readFile(runtimeArchive()));

    ProcessResult result = runHello("tmpdir=" + tmp() + ",_agent_cp=" + given);

    ASSERT_EQ(0, result.exitCode) << result.err;
    EXPECT_EQ(HELLO_OUTPUT, result.out);
    EXPECT_TRUE(listFolder(tmp()).empty());
    std::vector<std::string> messages = logOf(result.pid);
    // The runtime classes came from the given archive.
    EXPECT_IN_ORDER(messages, startSequence());
    EXPECT_EQ(0, countStartingWith(messages, "Jar file") + countStartingWith(messages, "Reusing"))
        << ::testing::PrintToString(messages);
}

}  // namespace
}  // namespace e2e
