// The rules of the load routine that need no JVM: how the option text is
// joined, and which JVM versions are refused.
#pragma once

#include "foundation/ZString.h"

// The newest Java major version admitted without `_no_java_version_check`.
const int MAX_SUPPORTED_JAVA_MAJOR = 25;

// KZT_STARTUP_OPTIONS_PRE, the options and KZT_STARTUP_OPTIONS_POST, joined.
ZString getFullOptions(const char* options);
// Reads the Java major version from the VM properties (0 below Java 9).
int detectJavaMajorVersion(const ZString& vmVersion, const ZString& specVersion);
// The JVMs refused as older than Java 7, whatever version they report.
bool isTooOldJvm(const ZString& vendor, const ZString& vmVersion, int jvmtiVersion, bool isIbm,
                 const ZString& classVersion);
