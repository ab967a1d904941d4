#include "services/LoadRules.h"

#include "foundation/System.h"

// PRE, the options, POST, joined by "," with every comma at the two ends
// removed: an option in POST wins wherever the last occurrence counts.
ZString getFullOptions(const char* options) {
    ZString joined = z_getenv("KZT_STARTUP_OPTIONS_PRE");
    joined.append(",").append(options != nullptr ? options : "").append(",");
    joined.append(z_getenv("KZT_STARTUP_OPTIONS_POST"));
    int from = 0;
    int to = joined.getLength();
    while (from < to && joined[from] == ',') from++;
    while (to > from && joined[to - 1] == ',') to--;
    return joined.substring(from, to);
}

bool isTooOldJvm(const ZString& vendor, const ZString& vmVersion, int jvmtiVersion, bool isIbm,
                 const ZString& classVersion) {
    // These JVMs are refused whatever version they report.
    if (vendor.startsWith("BEA") || (vendor.startsWith("Oracle") && vmVersion.contains("R2"))) return true;
    if (jvmtiVersion < 0x30090000 && vmVersion.getLength() >= 4 && vmVersion[2] == '.') {
        bool failed = false;
        long long hotspotMajor = vmVersion.substring(0, 2).parseLong(&failed);
        // HotSpot 20 and below belong to Java 6.
        if (!failed && hotspotMajor != 0 && hotspotMajor < 21) return true;
    }
    if (isIbm && (vmVersion.equals("2.4") || classVersion.equals("50.0"))) return true;
    return false;
}

int detectJavaMajorVersion(const ZString& vmVersion, const ZString& specVersion) {
    ZString head = vmVersion.getFirstToken('-').getFirstToken('+').getFirstToken('.');
    bool failed = false;
    long long major = head.parseLong(&failed);
    if (!failed && major != 0) return (int)major;
    major = specVersion.parseLong(&failed);
    return failed ? 0 : (int)major;
}

