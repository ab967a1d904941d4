#include <gtest/gtest.h>

#include <cstdlib>

#include "services/LoadRules.h"

namespace {

class FullOptions : public ::testing::Test {
protected:
    void TearDown() override {
        unsetenv("KZT_STARTUP_OPTIONS_PRE");
        unsetenv("KZT_STARTUP_OPTIONS_POST");
    }
    static std::string full(const char* options) { return getFullOptions(options).c_str(); }
};

TEST_F(FullOptions, JoinsPreOptionsAndPostAndTrimsEveryOuterComma) {
    EXPECT_EQ("", full(nullptr));
    EXPECT_EQ("", full(""));
    setenv("KZT_STARTUP_OPTIONS_PRE", "a", 1);
    EXPECT_EQ("a,b", full("b"));
    setenv("KZT_STARTUP_OPTIONS_POST", ",,c,,", 1);
    EXPECT_EQ("a,b,,,c", full("b"));
    setenv("KZT_STARTUP_OPTIONS_PRE", ",,,", 1);
    unsetenv("KZT_STARTUP_OPTIONS_POST");
    EXPECT_EQ("", full(",,"));
    EXPECT_EQ("x,,y", full(",x,,y,"));
}

// Java 6 HotSpot numbering counts only below JVMTI 9; some vendors are refused
// whatever their version; old IBM by its version or its class version.
TEST(JvmRecognition, RefusedJvms) {
    struct Case {
        const char *vendor, *version;
        int jvmti;
        bool ibm;
        const char* classVersion;
        bool refused;
    } cases[] = {
        {"Sun Microsystems Inc.", "20.45-b01", 0x30020000, false, "", true},
        {"Oracle Corporation", "21.0-b17", 0x30020000, false, "", false},
        {"Oracle Corporation", "00.1-x", 0x30020000, false, "", false},
        {"Oracle Corporation", "ab.1-x", 0x30020000, false, "", false},
        {"Debian", "17.0.15+6", 0x30110000, false, "", false},
        {"Debian", "11.0.2", 0x30090000, false, "", false},
        {"BEA Systems", "R28.0", 0x30110000, false, "", true},
        {"Oracle Corporation", "R28.2.0-79", 0x30110000, false, "", true},
        {"Oracle Corporation", "25.0-b70", 0x30110000, false, "", false},
        {"IBM Corporation", "2.4", 0x30010200, true, "51.0", true},
        {"IBM Corporation", "2.6", 0x30010200, true, "50.0", true},
        {"IBM Corporation", "2.6", 0x30010200, true, "51.0", false},
        {"Other", "2.4", 0x30010200, false, "50.0", false},  // IBM's texts mean nothing elsewhere
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.refused, isTooOldJvm(c.vendor, c.version, c.jvmti, c.ibm, c.classVersion))
            << c.vendor << " " << c.version;
}

TEST(JvmRecognition, MajorVersionFromVmVersionThenSpecVersion) {
    EXPECT_EQ(13, detectJavaMajorVersion("13-ea", "13"));
    EXPECT_EQ(17, detectJavaMajorVersion("17.0.15+6-Debian-1deb12u1", "17"));
    EXPECT_EQ(21, detectJavaMajorVersion("21+35", "21"));
    // A vm.version that is no number falls back to the version the JVM says it implements.
    EXPECT_EQ(9, detectJavaMajorVersion("openj9-0.9.0", "9"));
    EXPECT_EQ(0, detectJavaMajorVersion("openj9-0.9.0", "x"));
}

}  // namespace
