#include "session/SessionName.h"

#include "foundation/Failure.h"
#include "foundation/System.h"

static bool isJavaLauncher(const ZString& argument) {
    ZString name = getFileName(argument).toLowerCase();
    return name == "java" || name == "java.exe" || name == "javaw" || name == "javaw.exe";
}

// Options whose value follows as the next argument.
static bool takesValue(const ZString& argument) {
    return argument == "-cp" || argument == "-classpath" || argument == "--module-path" || argument == "-p" ||
           argument == "--upgrade-module-path" || argument.startsWith("--add");
}

// An IDE's launcher class: the real main class comes behind it.
static bool isIdeLauncher(const ZString& argument) {
    return argument == "com.intellij.rt.execution.application.AppMain" ||
           argument == "com.intellij.rt.execution.application.AppMainV2";
}

// Index of the main class or jar argument, or -1.
static int findMainArgument(const ZVectorSafe<ZString>& arguments) {
    for (int i = 1; i < arguments.getSize(); i++) {
        const ZString& argument = arguments[i];
        if (takesValue(argument)) {
            i++;
        } else if (!isIdeLauncher(argument) && !argument.startsWith("-")) {
            return i;
        }
    }
    return -1;
}

struct KnownServer {
    const char* mainClass;
    const char* sessionName;
};

static const KnownServer KNOWN_SERVERS[] = {
    {"com.sun.enterprise.glassfish.bootstrap.ASMain", "GlassFish"},
    {"org.apache.catalina.startup.Bootstrap", "Tomcat"},
    {"org.eclipse.jetty.start.Main", "Jetty"},
};

ZString getSessionNameByCommandLine(const ZVectorSafe<ZString>* arguments, bool detectProfilerUi) {
    KZT_ASSERT_NOT_NULL(arguments);
    if (arguments->isEmpty()) return ZString("unknown");
    const ZString& launcher = (*arguments)[0];
    if (!isJavaLauncher(launcher)) return getFileName(launcher);
    int mainIndex = findMainArgument(*arguments);
    if (mainIndex < 0) return getFileName(launcher);

    const ZString& mainArgument = (*arguments)[mainIndex];
    ZString name = getFileName(mainArgument);
    bool isProfiler;
    if ((*arguments)[mainIndex - 1] == "-jar") {
        isProfiler = name == "corvane.jar";
        name = name.cutPostfix(".jar");
    } else {
        for (const KnownServer& server : KNOWN_SERVERS) {
            if (mainArgument.contains(server.mainClass)) return ZString(server.sessionName);
        }
        isProfiler = name == "com.corvane.Main";
        name = name.getLastToken('.');
    }
    if (!isProfiler || !detectProfilerUi) return name;
    for (int i = mainIndex + 1; i < arguments->getSize(); i++) {
        if ((*arguments)[i] == "-sharing") return ZString("profiler-shsrv");
    }
    return ZString("profiler-ui");
}
