// Shared pieces of the instrumentation tests: a fresh database and option
// set per test, the hook run on bytes, and a JDK to compile and verify with.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "services/AgentState.h"
#include "services/Options.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ZMethod.h"
#include "instrumentation/Instrumentation.h"
#include "unit/StreamBytes.h"
#include "unit/classfile/ClassBuilder.h"

inline std::string javaHome() {
    const char* home = getenv("CORVANE_TEST_JAVA_HOME");
    return home != nullptr ? home : "/usr/lib/jvm/java-17-openjdk-amd64";
}

// Runs a shell command, returning its exit code and its output (stdout and stderr).
inline int runCommand(const std::string& command, std::string* output) {
    std::string full = command + " 2>&1";
    FILE* pipe = popen(full.c_str(), "r");
    if (pipe == nullptr) return -1;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) output->append(buffer, n);
    int status = pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A CONSTANT_Methodref to owner.name(descriptor) in the builder's pool.
inline int methodRef(ClassBuilder& b, const std::string& owner, const std::string& name, const std::string& descriptor) {
    Bytes nat{12};
    putU2(nat, b.utf8(name));
    putU2(nat, b.utf8(descriptor));
    int nameAndType = b.raw(nat);
    Bytes ref{10};
    putU2(ref, b.cls(owner));
    putU2(ref, nameAndType);
    return b.raw(ref);
}

inline std::filesystem::path sourceRoot() {
    return std::filesystem::path(__FILE__).parent_path().parent_path().parent_path().parent_path();
}

// The Java sources below the folders of `root`: path relative to `root` -> text.
inline std::map<std::string, std::string> javaSources(const std::filesystem::path& root,
                                                      const std::vector<std::string>& folders) {
    std::map<std::string, std::string> sources;
    for (const std::string& folder : folders) {
        for (auto& entry : std::filesystem::recursive_directory_iterator(root / folder)) {
            if (entry.path().extension() != ".java") continue;
            std::ifstream in(entry.path());
            sources[std::filesystem::relative(entry.path(), root).string()] =
                std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
    }
    return sources;
}

// Writes the sources (path below `dir`/src -> text) and compiles them into
// `dir`/classes, with the probe API for the probes among them; fails the
// test on a compiler error.
inline void compileSources(const std::filesystem::path& dir, const std::map<std::string, std::string>& sources,
                           const std::string& options = "--release 11") {
    std::string files;
    for (const auto& [path, text] : sources) {
        std::filesystem::path file = dir / "src" / path;
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << text;
        files += " " + file.string();
    }
    std::filesystem::create_directories(dir / "classes");
    std::string output;
    std::string command = javaHome() + "/bin/javac " + options + " -g -encoding UTF-8 -sourcepath " +
                          (sourceRoot() / "probes/api").string() + " -d " + (dir / "classes").string() + files;
    ASSERT_EQ(0, runCommand(command, &output)) << output;
}

// Runs `java -Xverify:all` on a class path; the test fails on a non-zero exit.
inline std::string runJava(const std::string& classPath, const std::string& args) {
    std::string output;
    int code = runCommand(javaHome() + "/bin/java -Xverify:all -Xshare:off -cp " + classPath + " " + args, &output);
    EXPECT_EQ(0, code) << output;
    return output;
}

inline void writeBytes(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary).write((const char*)bytes.data(), bytes.size());
}

class InstrumentationTest : public testing::Test {
protected:
    void SetUp() override {
        Logger::ourQuietErrorMode = true;
        mySavedCapabilities = ourCapabilities.get();
        mySavedStatus = ourStatus.get();
        ourCapabilities.set(CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI);
        ourStatus.set(0);
        setOptions("");
        DB::resetForTests();
        DB::createAndInitializeDB(DBSettings{100});
    }
    void TearDown() override {
        DB::resetForTests();
        ourCapabilities.set(mySavedCapabilities);
        ourStatus.set(mySavedStatus);
        setOptions("");
    }

    // A fresh option set: internal options accumulate in a parsed instance.
    static void setOptions(const char* text) {
        ourOptions.~Options();
        new (&ourOptions) Options();
        uint64_t capabilities = ourCapabilities.get();
        bool showUsage = false;
        if (text[0] != 0) ourOptions.parseOptions(ZString(text), &capabilities, &showUsage, true);
    }

    // The hook on one class: the new bytes, or empty when the class stays as it came.
    static Bytes hook(const Bytes& in, const char* name = nullptr) {
        std::string className = name != nullptr ? name : "";
        if (name == nullptr) {
            std::unique_ptr<ClassFile> parsed = parseClass(in);
            className = parsed->getSignature().c_str();
        }
        int length = 0;
        unsigned char* bytes = nullptr;
        {
            LockHolder lock(&ourLock, LOCK_SITE);
            classFileLoadHookHandlerImpl(lock, ZString(className.c_str()), (int)in.size(), in.data(), &length, &bytes,
                                         false, false);
        }
        Bytes out(bytes, bytes + length);
        free(bytes);
        return out;
    }

    // Every class file below `in` that `wanted` names (by internal name)
    // through the hook into the same place below `out`, the others copied.
    // The names of the classes that changed.
    static std::vector<std::string> rewriteFolder(const std::filesystem::path& in, const std::filesystem::path& out,
                                                  const std::function<bool(const std::string&)>& wanted) {
        namespace fs = std::filesystem;
        std::vector<std::string> changed;
        for (auto& entry : fs::recursive_directory_iterator(in)) {
            if (!entry.is_regular_file()) continue;
            fs::path target = out / fs::relative(entry.path(), in);
            fs::create_directories(target.parent_path());
            Bytes original = readFileBytes(entry.path().string());
            std::string name = fs::relative(entry.path(), in).replace_extension("").string();
            Bytes rewritten = wanted(name) ? hook(original, name.c_str()) : Bytes();
            writeBytes(target.string(), rewritten.empty() ? original : rewritten);
            if (!rewritten.empty()) changed.push_back(name);
        }
        return changed;
    }

    static std::string methodName(int id) {
        MethodRecord* record = ZMethod::getRecord(id);
        if (record == nullptr) return "?";
        LockHolder lock(&ourLock, LOCK_SITE);
        const char* cls = StringPool::getString(lock, record->myClass);
        const char* name = StringPool::getString(lock, record->myName);
        return std::string(cls ? cls : "?") + "." + (name ? name : "?");
    }

    uint64_t mySavedCapabilities = 0;
    uint64_t mySavedStatus = 0;
};
