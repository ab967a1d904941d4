// A real program compiled by javac, rewritten class by class through the
// hook, and run under -Xverify:all: it must print what it printed before,
// and every call the stubs received must make sense.
#include <filesystem>
#include <regex>
#include <sstream>

#include "InstrumentationTestSupport.h"
#include "unit/ScratchFolder.h"

namespace fs = std::filesystem;

namespace {

class RewrittenProgramTest : public InstrumentationTest {
protected:
    // Compiles the test program for a release into <work>/classes.
    void compile(const std::string& release) {
        myWork = fs::path(myScratch.path) / release;
        compileSources(myWork, javaSources(sourceRoot() / "tests/unit/instrumentation/java", {"."}),
                       "--release " + release + " -Xlint:-options");
    }

    // Every class but the stand-in Callback, through the hook; the count of rewritten ones.
    int rewriteAll() {
        return (int)rewriteFolder(myWork / "classes", myWork / "patched", [](const std::string& name) {
                   return name.rfind("com/corvane/", 0) != 0;
               }).size();
    }

    std::string run(const std::string& folder, const std::string& args) {
        return runJava((myWork / folder).string(), "Shapes " + args);
    }

    // Runs both programs and checks what the stubs saw; returns the report.
    std::string runAndCompare() {
        std::string original = run("classes", "");
        std::string rewritten = run("patched", "report");
        EXPECT_EQ(0u, rewritten.find(original)) << "original:\n" << original << "\nrewritten:\n" << rewritten;
        std::string report = rewritten.substr(std::min(original.size(), rewritten.size()));
        std::smatch calls;
        EXPECT_TRUE(std::regex_search(report, calls, std::regex("errors=0"))) << report;
        // Each allocation reports the class it made, under the pseudo method of that class.
        std::istringstream lines(report);
        std::string line;
        int allocated = 0;
        while (std::getline(lines, line)) {
            std::smatch m;
            if (!std::regex_match(line, m, std::regex("allocated (-?[0-9]+) (.*)"))) continue;
            allocated++;
            EXPECT_EQ(m[2].str() + ".<<init>>", methodName(std::stoi(m[1].str()))) << line;
        }
        EXPECT_GE(allocated, 10) << report;
        return report;
    }

    static long count(const std::string& report, const std::string& key) {
        std::smatch m;
        if (!std::regex_search(report, m, std::regex(key + "=([0-9]+)"))) return -1;
        return std::stol(m[1].str());
    }

    ScratchFolder myScratch;
    fs::path myWork;
};

}  // namespace

TEST_F(RewrittenProgramTest, EveryShapeVerifiesAndRunsTheSame) {
    setOptions("_instrument_all_methods");
    for (const char* release : {"17", "8"}) {
        SCOPED_TRACE(release);
        compile(release);
        EXPECT_GE(rewriteAll(), 6);
        std::string report = runAndCompare();
        EXPECT_GT(count(report, "entries"), 50) << report;
        EXPECT_GT(count(report, "exits"), 50) << report;
        EXPECT_GT(count(report, "lines"), 100) << report;
        EXPECT_GT(count(report, "vanished"), 3) << report;  // the frames an exception left
    }
}

TEST_F(RewrittenProgramTest, AllocationOnlyAndTracingOnlyVerifyToo) {
    setOptions("");
    compile("11");
    ourCapabilities.set(CAPABILITY_ALLOC_BCI);
    rewriteAll();
    std::string report = runAndCompare();
    EXPECT_EQ(0, count(report, "entries"));
    EXPECT_GT(count(report, "inits"), 20);

    fs::remove_all(myWork / "patched");
    ourCapabilities.set(CAPABILITY_TRACING);
    rewriteAll();
    std::string original = run("classes", "");
    std::string rewritten = run("patched", "report");
    EXPECT_EQ(0u, rewritten.find(original)) << rewritten;
    EXPECT_EQ(0, count(rewritten, "inits"));
}
