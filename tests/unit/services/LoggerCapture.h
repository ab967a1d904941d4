// Sends the logger to a fresh folder for the life of one object, with a
// fixed session name, and puts the logger's settings back afterwards. The
// notice the logger prints to stderr is captured meanwhile.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "services/Logger.h"
#include "unit/ScratchFolder.h"

class CapturedLog {
public:
    static constexpr const char* SESSION = "sess";

    CapturedLog()
        : mySavedDirectory(Logger::ourCustomLogDirectory.c_str()),
          mySavedSession(Logger::ourSessionNameFromOptions.c_str()),
          mySavedLimit(Logger::ourLogFileSizeLimit),
          mySavedUnited(Logger::ourUnitedLog),
          mySavedQuiet(Logger::ourQuiet),
          mySavedQuietErrors(Logger::ourQuietErrorMode),
          mySavedSystemTime(Logger::ourWithSystemTime) {
        unsetenv("CORVANE_UNITED_LOG");
        Logger::resetForTests();
        Logger::ourCustomLogDirectory = logFolder().c_str();
        Logger::ourSessionNameFromOptions = SESSION;
        Logger::ourLogFileSizeLimit = 1048576;
        Logger::ourUnitedLog = false;
        Logger::ourQuiet = false;
        Logger::ourQuietErrorMode = false;
        Logger::ourWithSystemTime = false;
        testing::internal::CaptureStderr();
    }

    ~CapturedLog() {
        testing::internal::GetCapturedStderr();
        Logger::resetForTests();
        Logger::ourCustomLogDirectory = mySavedDirectory.c_str();
        Logger::ourSessionNameFromOptions = mySavedSession.c_str();
        Logger::ourLogFileSizeLimit = mySavedLimit;
        Logger::ourUnitedLog = mySavedUnited;
        Logger::ourQuiet = mySavedQuiet;
        Logger::ourQuietErrorMode = mySavedQuietErrors;
        Logger::ourWithSystemTime = mySavedSystemTime;
    }

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    const std::string& root() const { return myRoot.path; }
    std::string logFolder() const { return myRoot.file("log"); }
    std::string path() const { return logFolder() + "/" + SESSION + "-" + std::to_string(getpid()) + ".log"; }

    // What went to stderr since the last call.
    std::string takeStderr() {
        std::string text = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return text;
    }

    static std::string read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        return content.str();
    }
    std::string content() const { return read(path()); }
    bool has(const std::string& text) const { return content().find(text) != std::string::npos; }

    // The texts of the lines of a log, the line prefix (with the optional
    // process id and system time) taken away and continuation lines joined on.
    static std::vector<std::string> messagesIn(const std::string& log) {
        static const std::regex PREFIX(
            "^(\\d+ )?19\\.8-109 \\d+\\.\\d{3}( \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3})?: ");
        std::vector<std::string> messages;
        std::istringstream lines(log);
        std::string line;
        while (std::getline(lines, line)) {
            std::smatch match;
            if (std::regex_search(line, match, PREFIX)) {
                messages.push_back(match.suffix());
            } else if (!messages.empty()) {
                messages.back() += "\n" + line;
            }
        }
        return messages;
    }
    std::vector<std::string> messages() const { return messagesIn(content()); }
    // The messages that begin with `prefix`, and how many are exactly `text`.
    std::vector<std::string> startingWith(const std::string& prefix) const {
        std::vector<std::string> found;
        for (const std::string& message : messages()) {
            if (message.compare(0, prefix.size(), prefix) == 0) found.push_back(message);
        }
        return found;
    }
    int count(const std::string& text) const {
        std::vector<std::string> all = messages();
        return (int)std::count(all.begin(), all.end(), text);
    }

private:
    ScratchFolder myRoot;
    std::string mySavedDirectory;
    std::string mySavedSession;
    int mySavedLimit;
    bool mySavedUnited;
    bool mySavedQuiet;
    bool mySavedQuietErrors;
    bool mySavedSystemTime;
};
