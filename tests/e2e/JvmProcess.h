// Helpers of the end-to-end tests: start a JVM (or any program) with its own
// arguments and environment, collect what it prints with a time limit, and
// work with the temporary folders and log files the agent leaves behind.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace e2e {

// Paths fixed at build time.
std::string javaHome();
std::string agentLibrary();
std::string testClasses();
// The runtime archive as built, or "" when the build does not say.
std::string runtimeArchive();

struct ProcessResult {
    pid_t pid = -1;
    int exitCode = -1;  // -1 when killed by a signal
    bool timedOut = false;
    std::string out;
    std::string err;
};

// One child process with its stdout and stderr on pipes and stdin from
// /dev/null. The environment is this process's own, less the variables that
// change the agent or the JVM by themselves, plus `environment`.
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return myPid; }
    // Reads output until stdout holds `text`; false on timeout or end of output.
    bool waitForStdout(const std::string& text, int timeoutMs);
    // Reads until the process ends; kills it after `timeoutMs`.
    ProcessResult finish(int timeoutMs);

private:
    // Reads what is there within `timeoutMs`; false once both pipes are closed.
    bool pump(int timeoutMs);
    void killAndReap();

    pid_t myPid = -1;
    int myOut = -1;
    int myErr = -1;
    ProcessResult myResult;
    bool myReaped = false;
};

ProcessResult run(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
                  int timeoutMs = 30000);

// `java <jvmArguments> -cp <test classes> <mainClass> <programArguments>`.
std::vector<std::string> javaCommand(const std::vector<std::string>& jvmArguments, const std::string& mainClass,
                                     const std::vector<std::string>& programArguments = {});
// "-agentpath:<library>", with "=<options>" unless the options are empty.
std::string agentPath(const std::string& options);

// A fresh folder under /tmp, removed with its content.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return myPath; }
    std::string operator/(const std::string& name) const { return myPath + "/" + name; }

private:
    std::string myPath;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);
void makeFolders(const std::string& path);
// Names of the entries of a folder, sorted; empty when it does not exist.
std::vector<std::string> listFolder(const std::string& path);
// Every regular file below a folder, as a path relative to it, sorted.
std::vector<std::string> listTree(const std::string& path);

// One log line: its uptime and text, continuation lines included.
struct LogEntry {
    long long uptimeMs;
    std::string text;
};
// Each line that starts with "19.8-109 <s>.<mmm>: " opens an entry; a line
// that does not, and starts with two blanks, continues the one before.
// Any other line is returned in `badLines`.
std::vector<LogEntry> parseLog(const std::string& log, std::vector<std::string>* badLines = nullptr);
std::vector<std::string> messagesOf(const std::vector<LogEntry>& entries);
std::vector<std::string> logMessages(const std::string& log);

// Whether each of `expected` begins some message, in this order; otherwise
// `missing` names the first one not found after its predecessor.
bool containsInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& expected,
                     std::string* missing);
int countStartingWith(const std::vector<std::string>& messages, const std::string& prefix);

}  // namespace e2e
