#include <gtest/gtest.h>

#include <vector>

#include "foundation/Failure.h"
#include "session/SessionName.h"

TEST(SessionName, ByCommandLine) {
    struct Case {
        std::vector<const char*> arguments;
        const char* name;
        bool detectProfilerUi = true;
    } cases[] = {
        // Jars by their file, whatever they hold; main classes by their simple name.
        {{"java", "-jar", "/opt/app/server.jar"}, "server"},
        {{"java", "-jar", "app.war"}, "app.war"},
        {{"java", "-jar", "start.jar", "org.eclipse.jetty.start.Main"}, "start"},
        {{"/usr/bin/java", "-Xmx1g", "-classpath", "x", "Main", "arg.with.dots"}, "Main"},
        // Launchers.
        {{"/usr/bin/JAVA.EXE", "a.b.Main"}, "Main"},
        {{"C:/jdk/bin/javaw", "a.b.Main"}, "Main"},
        {{"/usr/bin/Python3", "a.b.Main"}, "Python3"},
        {{"/usr/lib/jvm/bin/java"}, "java"},
        {{"java", "-version", "-cp", "x"}, "java"},
        {{}, "unknown"},
        // Option values are never the main class.
        {{"java", "--module-path", "mods", "-p", "more", "x.Main"}, "Main"},
        {{"java", "--upgrade-module-path", "u", "--add-opens", "java.base/java.lang=ALL", "--add-exports", "a/b=c",
          "x.Main"},
         "Main"},
        {{"java", "com.intellij.rt.execution.application.AppMain", "pkg.Real"}, "Real"},
        {{"java", "com.intellij.rt.execution.application.AppMainV2", "pkg.Real"}, "Real"},
        // Known servers.
        {{"java", "-Dcatalina.home=/t", "org.apache.catalina.startup.Bootstrap", "start", "-sharing"}, "Tomcat"},
        {{"java", "com.sun.enterprise.glassfish.bootstrap.ASMain"}, "GlassFish"},
        {{"java", "org.eclipse.jetty.start.Main", "jetty.port=80"}, "Jetty"},
        // The profiler itself; "-sharing" before the main argument is only a JVM option.
        {{"java", "-jar", "/opt/corvane/lib/corvane.jar"}, "profiler-ui"},
        {{"java", "-jar", "corvane.jar", "x", "-sharing"}, "profiler-shsrv"},
        {{"java", "-cp", "c.jar", "com.corvane.Main"}, "profiler-ui"},
        {{"java", "com.corvane.Main", "-sharing"}, "profiler-shsrv"},
        {{"java", "-sharing", "com.corvane.Main"}, "profiler-ui"},
        {{"java", "-jar", "corvane.jar"}, "corvane", false},
        {{"java", "com.corvane.Main", "-sharing"}, "Main", false},
    };
    for (const Case& c : cases) {
        ZVectorSafe<ZString> vector;
        for (const char* argument : c.arguments) vector.push(ZString(argument));
        EXPECT_STREQ(c.name, getSessionNameByCommandLine(&vector, c.detectProfilerUi).c_str())
            << (c.arguments.empty() ? "" : c.arguments.back());
    }
    EXPECT_THROW(getSessionNameByCommandLine(nullptr, true), KZTRuntimeException);
}
