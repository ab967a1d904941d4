// The common ground of the end-to-end tests: each test has its own folder
// with a CORVANE_HOME ("home") and an archive folder ("tmp"), and runs the
// Java programs of tests/e2e/java with the agent.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "JvmProcess.h"

namespace e2e {

// What Hello prints when it is given the arguments "one two".
const char HELLO_OUTPUT[] = "hello from e2e\nargs: one two\n";
const char ARCHIVE_NAME[] = "kzt201908051358.jar";
const char BANNER[] = "[Corvane Java Profiler 2019.8-b109] ";

// The load sequence of a start with -agentpath, from the entry to VMDeath.
inline std::vector<std::string> startSequence() {
    return {"Agent_OnLoad: orig_options=",
            "jvmtiVersion: ",
            "phase: ",
            "vendor: ",
            "version: ",
            "specVersion: ",
            "info: ",
            "heap_sampling: capability is",
            "asynchronous sampling: unsupported on linux-x86-64",
            "JVMTI ",
            "agentStart: 1",
            "agentStart: 2",
            "agentStart: OK",
            "vmInit: 1",
            "vmInit: 2",
            "agentInit: 1",
            "agentInit: Core loaded",
            "agentInit: Core.init() called",
            "Retransform early class: java/io/FileInputStream",
            "Retransform early class: java/io/FileOutputStream",
            "agentInit: OK",
            "vmInit: 3",
            "onStartProfiling: entering...",
            "onStartProfiling: done",
            "vmInit: OK",
            "vmDeath: 1",
            "vmDeath: 2",
            "vmDeath: 3",
            "vmDeath: 4",
            "vmDeath: OK"};
}

inline bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

class AgentTest : public ::testing::Test {
protected:
    void SetUp() override {
        makeFolders(home());
        makeFolders(tmp());
    }

    std::string home() const { return myDir / "home"; }
    std::string tmp() const { return myDir / "tmp"; }
    std::string logFolder() const { return home() + "/.kzt/log"; }
    std::string archive() const { return tmp() + "/" + ARCHIVE_NAME; }
    // A path below a regular file: no one can create it, not even root.
    std::string unwritableFolder() const {
        writeFile(myDir / "a-file", "not a folder");
        return myDir / "a-file/sub";
    }

    std::map<std::string, std::string> environment(std::map<std::string, std::string> extra = {}) const {
        extra.emplace("CORVANE_HOME", home());
        return extra;
    }

    // Runs Hello with the agent and the given options (and JVM arguments
    // ahead of the agent).
    ProcessResult runHello(const std::string& options, std::vector<std::string> jvmArguments = {},
                           const std::map<std::string, std::string>& extraEnvironment = {}) const {
        jvmArguments.push_back(agentPath(options));
        return run(javaCommand(jvmArguments, "Hello", {"one", "two"}), environment(extraEnvironment));
    }

    std::string logPathOf(pid_t pid, const std::string& session = "Hello") const {
        return logFolder() + "/" + session + "-" + std::to_string(pid) + ".log";
    }
    std::vector<std::string> logOf(pid_t pid, const std::string& session = "Hello") const {
        return logMessages(readFile(logPathOf(pid, session)));
    }

    TempDir myDir;
};

// Gives the missing message along with the whole log when an order check fails.
#define EXPECT_IN_ORDER(messages, expected)                                          \
    do {                                                                              \
        std::string missing_;                                                         \
        EXPECT_TRUE(::e2e::containsInOrder((messages), (expected), &missing_))        \
            << "missing (in order): \"" << missing_ << "\"\n"                         \
            << ::testing::PrintToString(messages);                                    \
    } while (0)

}  // namespace e2e
