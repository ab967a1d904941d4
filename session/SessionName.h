// The session name derived from a JVM command line: the main class or jar,
// or a known server's name.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// `arguments` holds the command line with the launcher first. With
// `detectProfilerUi`, the profiler's own processes get "profiler-ui" or
// "profiler-shsrv".
ZString getSessionNameByCommandLine(const ZVectorSafe<ZString>* arguments, bool detectProfilerUi);
