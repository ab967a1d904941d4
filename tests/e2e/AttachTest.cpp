// The agent attached to a running JVM with jcmd JVMTI.agent_load.
#include "AgentFixture.h"

namespace e2e {
namespace {

using Attach = AgentTest;

// jcmd splits "name=value" words into its own arguments; quotes keep the
// option text whole.
ProcessResult attach(pid_t pid, const std::string& options) {
    return run({javaHome() + "/bin/jcmd", std::to_string(pid), "JVMTI.agent_load", agentLibrary(),
                "\"" + options + "\""},
               {}, 60000);
}

TEST_F(Attach, LoadsIntoARunningJvmOnceAndTheJvmGoesOn) {
    std::string stopFile = myDir / "stop";
    ChildProcess target(javaCommand({}, "Waiter", {stopFile}), environment());
    ASSERT_TRUE(target.waitForStdout("ready\n", 30000));
    std::string log = logPathOf(target.pid(), "Waiter");

    // A refused attach returns its code and leaves the JVM running.
    ProcessResult refused = attach(target.pid(), "tmpdir=" + tmp() + ",foo");
    EXPECT_EQ(0, refused.exitCode) << refused.err;
    EXPECT_NE(std::string::npos, refused.out.find("return code: 3")) << refused.out;
    EXPECT_EQ(0, countStartingWith(logMessages(readFile(log)), "on_attach"));

    ProcessResult attached = attach(target.pid(), "tmpdir=" + tmp());
    EXPECT_EQ(0, attached.exitCode) << attached.err;
    EXPECT_NE(std::string::npos, attached.out.find("return code: 0")) << attached.out;
    std::vector<std::string> messages = logMessages(readFile(log));
    EXPECT_IN_ORDER(messages, std::vector<std::string>({"Agent_OnAttach: orig_options=tmpdir=" + tmp() +
                                                            "\n  full_options=tmpdir=" + tmp(),
                                                        "jvmtiVersion: ",
                                                        "phase: 4",
                                                        "Jar file created: " + archive(),
                                                        "JVMTI ",
                                                        "on_attach: 1",
                                                        "on_attach: 2",
                                                        "agentStart: 1",
                                                        "agentStart: OK",
                                                        "agentInit: 1",
                                                        "agentInit: Core loaded",
                                                        "agentInit: Core.init() called",
                                                        "agentInit: OK",
                                                        "on_attach: 3",
                                                        "on_attach: 4",
                                                        "on_attach: 5",
                                                        "on_attach: 6",
                                                        "onStartProfiling: entering...",
                                                        "onStartProfiling: done",
                                                        "on_attach: OK"}));
    // What only a start does.
    EXPECT_EQ(0, countStartingWith(messages, "vmInit"));
    EXPECT_EQ(0, countStartingWith(messages, "Retransform early class"));

    // A second attach keeps the first agent and its log file: its session
    // name is not taken up.
    ProcessResult again = attach(target.pid(), "tmpdir=" + tmp() + ",sessionname=other");
    EXPECT_EQ(0, again.exitCode) << again.err;
    EXPECT_NE(std::string::npos, again.out.find("return code: 0")) << again.out;
    EXPECT_EQ(std::vector<std::string>{"Waiter-" + std::to_string(target.pid()) + ".log"}, listFolder(logFolder()));
    messages = logMessages(readFile(log));
    const std::string secondEntry = "Agent_OnAttach: orig_options=tmpdir=" + tmp() +
                                    ",sessionname=other\n  full_options=tmpdir=" + tmp() + ",sessionname=other";
    EXPECT_IN_ORDER(messages, std::vector<std::string>({"on_attach: OK", secondEntry, "Agent already loaded"}));
    EXPECT_EQ(1, countStartingWith(messages, secondEntry));
    EXPECT_EQ(1, countStartingWith(messages, "on_attach: OK"));

    writeFile(stopFile, "");
    ProcessResult end = target.finish(30000);
    EXPECT_EQ(0, end.exitCode) << end.err;
    EXPECT_EQ(0u, end.out.find("ready\n")) << end.out;
    EXPECT_NE(std::string::npos, end.out.find("Cannot start: invalid option: foo\n")) << end.out;
    EXPECT_TRUE(endsWith(end.out, "worker ran\nfinished\n")) << end.out;
    messages = logMessages(readFile(log));
    EXPECT_IN_ORDER(messages, std::vector<std::string>(
                                  {"Agent already loaded", "vmDeath: 1", "vmDeath: 2", "vmDeath: 4", "vmDeath: OK"}));
}

// Tracing started on attach hands the classes loaded before it back to the
// JVM, the program's own among them, and the JVM goes on.
TEST_F(Attach, TracingOnAttachRetransformsTheClassesLoadedBefore) {
    std::string stopFile = myDir / "stop";
    ChildProcess target(javaCommand({}, "Waiter", {stopFile}), environment());
    ASSERT_TRUE(target.waitForStdout("ready\n", 30000));
    ProcessResult attached = attach(target.pid(), "tmpdir=" + tmp() + ",tracing");
    EXPECT_NE(std::string::npos, attached.out.find("return code: 0")) << attached.out;
    writeFile(stopFile, "");
    ProcessResult end = target.finish(30000);
    EXPECT_EQ(0, end.exitCode) << end.err;
    EXPECT_TRUE(endsWith(end.out, "worker ran\nfinished\n")) << end.out;
    std::string log = readFile(logPathOf(target.pid(), "Waiter"));
    size_t listed = log.find(" (loaded before agent attached)\n");
    ASSERT_NE(std::string::npos, listed) << log;
    EXPECT_NE(std::string::npos, log.find("\n  Waiter\n", listed)) << log;
    EXPECT_NE(std::string::npos, log.find(" done, 0 remains\n", listed)) << log;
    EXPECT_EQ(std::string::npos, log.find("retransform failed")) << log;
}

}  // namespace
}  // namespace e2e
