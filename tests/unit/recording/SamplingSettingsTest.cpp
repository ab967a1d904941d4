// The sampling settings text and the settings read at each start of CPU
// profiling, with the wall-time filters they leave behind.
#include <fstream>

#include "recording/CpuProfilingSettings.h"
#include "recording/SamplingSettings.h"
#include "unit/ScratchFolder.h"
#include "unit/recording/RecordingTestSupport.h"

class SamplingSettingsTest : public RecordingTest {
protected:
    void TearDown() override {
        ourSamplingSettings.setFromText(ZString(SamplingSettings::DEFAULT_TEXT));
        Filter::reloadFilters(lock, ZVectorSafe<ZString>());
        setSettingsPaths(MISSING_FILE);
        RecordingTest::TearDown();
    }
    // The settings folder of the user mustn't count here.
    static constexpr const char* MISSING_FILE = "/nonexistent/corvane-settings.txt";
    static void setSettingsPaths(const std::string& path) {
        parseOptions("sampling_settings_path=" + path + ",tracing_settings_path=" + path);
    }
};

// The sampling test finds the default's log line.
TEST_F(SamplingSettingsTest, TheDefaultTextGivesThePeriodAndTheWallTimeMethodsOfIo) {
    SamplingSettings settings;
    settings.setFromText(ZString(SamplingSettings::DEFAULT_TEXT));
    EXPECT_EQ(20, settings.mySamplingPeriodMs);
    EXPECT_EQ(10, settings.myCpuThresholdMs);
    ASSERT_EQ(7, settings.myWallTimeSpecs.getSize());
    EXPECT_EQ(ZString("java.io.RandomAccessFile : readBytes(byte[], int, int)"), settings.myWallTimeSpecs[0]);
    EXPECT_EQ(ZString("java.lang.Thread : sleep(*)"), settings.myWallTimeSpecs[6]);
}

TEST_F(SamplingSettingsTest, NumbersMustBePositiveAndAreClampedAndAGivenTextAloneGivesWallTimeLines) {
    CapturedLog log;
    SamplingSettings settings;
    settings.setFromText(ZString("sampling_period_ms=5\ncpu_threshold_ms=99999999999\n"));
    EXPECT_EQ(5, settings.mySamplingPeriodMs);
    EXPECT_EQ(0x7fffffff, settings.myCpuThresholdMs);
    EXPECT_EQ(0, settings.myWallTimeSpecs.getSize()) << "no walltime line, no wall-time method";

    // Zero, negative and unreadable values leave the defaults; unknown keys are ignored.
    settings.setFromText(ZString("sampling_period_ms=0\ncpu_threshold_ms=-3\nsampling_period_ms=x\nfoo=1\n"
                                 "# walltime=a.B\n  walltime=a.C : run  \n"));
    EXPECT_EQ(20, settings.mySamplingPeriodMs);
    EXPECT_EQ(10, settings.myCpuThresholdMs);
    ASSERT_EQ(1, settings.myWallTimeSpecs.getSize());
    EXPECT_EQ(ZString("a.C : run"), settings.myWallTimeSpecs[0]);

    std::vector<std::string> lines = log.startingWith("SamplingSettings: ");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("SamplingSettings: sampling_period_ms = 5\nsampling_period_ms=5\ncpu_threshold_ms=99999999999\n", lines[0]);
}

TEST_F(SamplingSettingsTest, SettingsTextsComeFromTheGivenTextOrTheFileOrTheDefault) {
    ZString given("sampling_period_ms=7");
    EXPECT_EQ(given, getSamplingSettingsText(&given));

    ScratchFolder folder;
    std::string path = folder.file("settings.txt");
    setSettingsPaths(path);
    EXPECT_EQ(ZString(SamplingSettings::DEFAULT_TEXT), getSamplingSettingsText(nullptr)) << "a missing file";
    EXPECT_EQ(ZString(TracingSettings::DEFAULT_TEXT), getTracingSettingsText(nullptr));
    std::ofstream(path) << "walltime=a.B\n";
    EXPECT_EQ(ZString("walltime=a.B\n"), getSamplingSettingsText(nullptr));
    EXPECT_EQ(ZString("walltime=a.B\n"), getTracingSettingsText(nullptr));
}

TEST_F(SamplingSettingsTest, EachCpuModeReloadsTheWallTimeFiltersOfItsOwnSettings) {
    CapturedLog log;
    setSettingsPaths(MISSING_FILE);
    int sleep = method("sleep", "java.lang.Thread");
    int run = method("run", "a.B");
    ZString text("walltime=a.B\nsampling_period_ms=15\n");

    EXPECT_EQ(text, readCpuProfilingSettingsAndReloadFilters(lock, CPU_SAMPLING, &text));
    EXPECT_EQ(15, ourSamplingSettings.mySamplingPeriodMs);
    EXPECT_TRUE(Filter::isWallTimed(run));
    EXPECT_FALSE(Filter::isWallTimed(sleep));

    // Asynchronous cpu sampling measures CPU only.
    readCpuProfilingSettingsAndReloadFilters(lock, CPU_SAMPLING | 0x20000, &text);
    EXPECT_FALSE(Filter::isWallTimed(run));
    readCpuProfilingSettingsAndReloadFilters(lock, CPU_SAMPLING | 0x40000, &text);
    EXPECT_TRUE(Filter::isWallTimed(run));

    // The default sampling text: sleeping counts wall time.
    readCpuProfilingSettingsAndReloadFilters(lock, CPU_SAMPLING, nullptr);
    EXPECT_TRUE(Filter::isWallTimed(sleep));
    EXPECT_FALSE(Filter::isWallTimed(run));
    EXPECT_EQ(20, ourSamplingSettings.mySamplingPeriodMs);

    EXPECT_EQ(ZString(TracingSettings::DEFAULT_TEXT), readCpuProfilingSettingsAndReloadFilters(lock, CPU_TRACING, nullptr));
    EXPECT_TRUE(Filter::ourAlwaysWallTime);

    EXPECT_EQ(ZString(), readCpuProfilingSettingsAndReloadFilters(lock, CPU_CALL_COUNTING, &text));
    EXPECT_FALSE(Filter::ourAlwaysWallTime);
    EXPECT_FALSE(Filter::isWallTimed(run));
}
