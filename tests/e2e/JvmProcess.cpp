#include "JvmProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace e2e {

namespace fs = std::filesystem;

std::string javaHome() { return CORVANE_E2E_JAVA_HOME; }
std::string agentLibrary() { return CORVANE_E2E_LIBRARY; }
std::string testClasses() { return CORVANE_E2E_CLASSES; }
std::string runtimeArchive() { return CORVANE_E2E_RUNTIME_JAR; }

// Variables that would change what the agent or the JVM does or prints.
static const char* const SCRUBBED_VARIABLES[] = {
    "KZT_STARTUP_OPTIONS_PRE", "KZT_STARTUP_OPTIONS_POST", "CORVANE_UNITED_LOG", "CORVANE_HOME", "Z_PS",
    "JAVA_TOOL_OPTIONS",       "_JAVA_OPTIONS",            "JDK_JAVA_OPTIONS",   "CLASSPATH",
};

static std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; entry++) {
        std::string text(*entry);
        std::string name = text.substr(0, text.find('='));
        bool scrubbed = overrides.count(name) != 0;
        for (const char* variable : SCRUBBED_VARIABLES) scrubbed = scrubbed || name == variable;
        if (!scrubbed) result.push_back(text);
    }
    for (const auto& [name, value] : overrides) result.push_back(name + "=" + value);
    return result;
}

static std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment) {
    std::vector<std::string> argumentCopy = arguments;
    std::vector<std::string> environmentCopy = childEnvironment(environment);
    std::vector<char*> argv = pointers(argumentCopy);
    std::vector<char*> envp = pointers(environmentCopy);
    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    myPid = fork();
    if (myPid < 0) throw std::runtime_error("fork failed");
    if (myPid == 0) {
        int devNull = open("/dev/null", O_RDONLY);
        dup2(devNull, 0);
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    myResult.pid = myPid;
    close(outPipe[1]);
    close(errPipe[1]);
    myOut = outPipe[0];
    myErr = errPipe[0];
}

ChildProcess::~ChildProcess() {
    if (!myReaped) killAndReap();
    if (myOut >= 0) close(myOut);
    if (myErr >= 0) close(myErr);
}

bool ChildProcess::pump(int timeoutMs) {
    pollfd fds[2];
    int count = 0;
    if (myOut >= 0) fds[count++] = {myOut, POLLIN, 0};
    if (myErr >= 0) fds[count++] = {myErr, POLLIN, 0};
    if (count == 0) return false;
    int ready = poll(fds, count, timeoutMs);
    if (ready < 0 && errno != EINTR) throw std::runtime_error("poll failed");
    for (int i = 0; i < count && ready > 0; i++) {
        if (fds[i].revents == 0) continue;
        char buffer[65536];
        ssize_t length = read(fds[i].fd, buffer, sizeof(buffer));
        bool isOut = fds[i].fd == myOut;
        if (length > 0) {
            (isOut ? myResult.out : myResult.err).append(buffer, length);
        } else if (length == 0 || errno != EINTR) {
            close(fds[i].fd);
            (isOut ? myOut : myErr) = -1;
        }
    }
    return myOut >= 0 || myErr >= 0;
}

using Clock = std::chrono::steady_clock;

static int millisLeft(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? (int)left : 0;
}

bool ChildProcess::waitForStdout(const std::string& text, int timeoutMs) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (myResult.out.find(text) == std::string::npos) {
        if (millisLeft(deadline) == 0 || !pump(millisLeft(deadline))) return myResult.out.find(text) != std::string::npos;
    }
    return true;
}

void ChildProcess::killAndReap() {
    if (myPid <= 0 || myReaped) return;
    kill(myPid, SIGKILL);
    int status = 0;
    waitpid(myPid, &status, 0);
    myReaped = true;
}

ProcessResult ChildProcess::finish(int timeoutMs) {
    Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (millisLeft(deadline) > 0 && pump(millisLeft(deadline))) {
    }
    // The pipes may close before the process has quite ended.
    int status = 0;
    while (!myReaped) {
        pid_t done = waitpid(myPid, &status, WNOHANG);
        if (done == myPid) {
            myReaped = true;
            myResult.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        } else if (millisLeft(deadline) == 0) {
            myResult.timedOut = true;
            killAndReap();
        } else {
            usleep(2000);
        }
    }
    return myResult;
}

ProcessResult run(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
                  int timeoutMs) {
    ChildProcess process(arguments, environment);
    return process.finish(timeoutMs);
}

std::vector<std::string> javaCommand(const std::vector<std::string>& jvmArguments, const std::string& mainClass,
                                     const std::vector<std::string>& programArguments) {
    std::vector<std::string> command{javaHome() + "/bin/java"};
    command.insert(command.end(), jvmArguments.begin(), jvmArguments.end());
    command.push_back("-cp");
    command.push_back(testClasses());
    command.push_back(mainClass);
    command.insert(command.end(), programArguments.begin(), programArguments.end());
    return command;
}

std::string agentPath(const std::string& options) {
    return "-agentpath:" + agentLibrary() + (options.empty() ? "" : "=" + options);
}

TempDir::TempDir() {
    char pattern[] = "/tmp/corvane-e2e-XXXXXX";
    if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp failed");
    myPath = pattern;
}

TempDir::~TempDir() {
    // Left behind on request, to look at after a failure.
    if (getenv("CORVANE_E2E_KEEP") != nullptr) return;
    std::error_code ignored;
    fs::remove_all(myPath, ignored);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path);
}

void makeFolders(const std::string& path) { fs::create_directories(path); }

std::vector<std::string> listFolder(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(path, error)) names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> listTree(const std::string& path) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::recursive_directory_iterator(path, error)) {
        if (entry.is_regular_file()) names.push_back(fs::relative(entry.path(), path).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<LogEntry> parseLog(const std::string& log, std::vector<std::string>* badLines) {
    static const std::regex PREFIX("^19\\.8-109 (\\d+)\\.(\\d{3}): ");
    std::vector<LogEntry> entries;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, PREFIX)) {
            long long uptime = std::stoll(match[1]) * 1000 + std::stoll(match[2]);
            entries.push_back({uptime, match.suffix()});
        } else if (!entries.empty() && (line.empty() || line.rfind("  ", 0) == 0)) {
            // A message of several lines: its lines go on indented, and an
            // empty trigger text leaves "setTriggers:" followed by an empty line.
            entries.back().text += "\n" + line;
        } else if (badLines != nullptr) {
            badLines->push_back(line);
        }
    }
    return entries;
}

std::vector<std::string> messagesOf(const std::vector<LogEntry>& entries) {
    std::vector<std::string> texts;
    for (const LogEntry& entry : entries) texts.push_back(entry.text);
    return texts;
}

std::vector<std::string> logMessages(const std::string& log) { return messagesOf(parseLog(log)); }

bool containsInOrder(const std::vector<std::string>& messages, const std::vector<std::string>& expected,
                     std::string* missing) {
    size_t at = 0;
    for (const std::string& wanted : expected) {
        while (at < messages.size() && messages[at].rfind(wanted, 0) != 0) at++;
        if (at == messages.size()) {
            if (missing != nullptr) *missing = wanted;
            return false;
        }
        at++;
    }
    return true;
}

int countStartingWith(const std::vector<std::string>& messages, const std::string& prefix) {
    return (int)std::count_if(messages.begin(), messages.end(),
                              [&](const std::string& message) { return message.rfind(prefix, 0) == 0; });
}

}  // namespace e2e
