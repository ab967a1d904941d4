#include <gtest/gtest.h>

#include <initializer_list>

#include "foundation/Failure.h"
#include "session/SessionName.h"

static ZString nameOf(std::initializer_list<const char*> arguments, bool detectProfilerUi = true) {
    ZVectorSafe<ZString> vector;
    for (const char* argument : arguments) vector.push(ZString(argument));
    return getSessionNameByCommandLine(&vector, detectProfilerUi);
}

TEST(SessionName, JarsAndMainClasses) {
    EXPECT_STREQ("server", nameOf({"java", "-jar", "/opt/app/server.jar"}).c_str());
    EXPECT_STREQ("Main", nameOf({"java", "-cp", "a.jar", "com.acme.Main"}).c_str());
    EXPECT_STREQ("Main", nameOf({"/usr/bin/java", "-Xmx1g", "-classpath", "x", "Main", "arg.with.dots"}).c_str());
    EXPECT_STREQ("app.war", nameOf({"java", "-jar", "app.war"}).c_str());
}

TEST(SessionName, LauncherRecognition) {
    EXPECT_STREQ("Main", nameOf({"/usr/bin/JAVA.EXE", "a.b.Main"}).c_str());
    EXPECT_STREQ("Main", nameOf({"C:/jdk/bin/javaw", "a.b.Main"}).c_str());
    EXPECT_STREQ("Python3", nameOf({"/usr/bin/Python3", "a.b.Main"}).c_str());
    EXPECT_STREQ("java", nameOf({"/usr/lib/jvm/bin/java"}).c_str());
    EXPECT_STREQ("java", nameOf({"java", "-version", "-cp", "x"}).c_str());
    EXPECT_STREQ("unknown", nameOf({}).c_str());
    EXPECT_THROW(getSessionNameByCommandLine(nullptr, true), KZTRuntimeException);
}

TEST(SessionName, OptionValuesAreNeverTheMainClass) {
    EXPECT_STREQ("Main", nameOf({"java", "--module-path", "mods", "-p", "more", "x.Main"}).c_str());
    EXPECT_STREQ("Main", nameOf({"java", "--upgrade-module-path", "u", "--add-opens", "java.base/java.lang=ALL",
                                 "--add-exports", "a/b=c", "x.Main"}).c_str());
    EXPECT_STREQ("Real", nameOf({"java", "com.intellij.rt.execution.application.AppMain", "pkg.Real"}).c_str());
    EXPECT_STREQ("Real", nameOf({"java", "com.intellij.rt.execution.application.AppMainV2", "pkg.Real"}).c_str());
}

TEST(SessionName, KnownServers) {
    EXPECT_STREQ("Tomcat", nameOf({"java", "-Dcatalina.home=/t", "org.apache.catalina.startup.Bootstrap", "start",
                                   "-sharing"}).c_str());
    EXPECT_STREQ("GlassFish", nameOf({"java", "com.sun.enterprise.glassfish.bootstrap.ASMain"}).c_str());
    EXPECT_STREQ("Jetty", nameOf({"java", "org.eclipse.jetty.start.Main", "jetty.port=80"}).c_str());
    // A jar is named by its file, whatever it holds.
    EXPECT_STREQ("start", nameOf({"java", "-jar", "start.jar", "org.eclipse.jetty.start.Main"}).c_str());
}

TEST(SessionName, ProfilerItself) {
    EXPECT_STREQ("profiler-ui", nameOf({"java", "-jar", "/opt/corvane/lib/corvane.jar"}).c_str());
    EXPECT_STREQ("profiler-shsrv", nameOf({"java", "-jar", "corvane.jar", "x", "-sharing"}).c_str());
    EXPECT_STREQ("profiler-ui", nameOf({"java", "-cp", "c.jar", "com.corvane.Main"}).c_str());
    EXPECT_STREQ("profiler-shsrv", nameOf({"java", "com.corvane.Main", "-sharing"}).c_str());
    EXPECT_STREQ("corvane", nameOf({"java", "-jar", "corvane.jar"}, false).c_str());
    EXPECT_STREQ("Main", nameOf({"java", "com.corvane.Main", "-sharing"}, false).c_str());
    // "-sharing" before the main argument is only a JVM option.
    EXPECT_STREQ("profiler-ui", nameOf({"java", "-sharing", "com.corvane.Main"}).c_str());
}
