// The JNI and JVMTI glue against a small stand-in for the JVM: function
// tables with just the calls the glue makes, over objects that live in the
// test. What needs a real JVM is left to the end-to-end tests.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "LoggerCapture.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "unit/ScriptedJvmti.h"

namespace {

// One Java object of the stand-in. A jobject is a pointer to one of these.
struct FakeObject {
    std::string text;              // class name, or string value
    FakeObject* klass = nullptr;   // of a throwable
    FakeObject* message = nullptr; // of a throwable; null for none
};

const jmethodID GET_NAME = (jmethodID)1;
const jmethodID GET_MESSAGE = (jmethodID)2;

class FakeJvm;
FakeJvm* ourFake = nullptr;

class FakeJvm {
public:
    FakeJvm() {
        ourFake = this;
        myEnv.functions = &myTable;
        myTable.FindClass = [](JNIEnv*, const char* name) { return ourFake->findClass(name); };
        myTable.ExceptionOccurred = [](JNIEnv*) { return ourFake->pending; };
        myTable.ExceptionCheck = [](JNIEnv*) { return (jboolean)(ourFake->pending != nullptr); };
        myTable.ExceptionClear = [](JNIEnv*) {
            ourFake->calls.push_back("ExceptionClear");
            ourFake->pending = nullptr;
        };
        myTable.ThrowNew = [](JNIEnv*, jclass klass, const char* text) {
            ourFake->calls.push_back("ThrowNew " + object(klass)->text + ": " + text);
            ourFake->pending = ourFake->throwable(object(klass)->text, text);
            return (jint)0;
        };
        myTable.NewGlobalRef = [](JNIEnv*, jobject value) {
            ourFake->calls.push_back("NewGlobalRef " + object(value)->text);
            return value;
        };
        myTable.DeleteLocalRef = [](JNIEnv*, jobject) { ourFake->deletedLocalRefs++; };
        myTable.GetObjectClass = [](JNIEnv*, jobject value) { return (jclass)object(value)->klass; };
        myTable.GetMethodID = [](JNIEnv*, jclass, const char* name, const char*) {
            std::string wanted(name);
            return wanted == "getName" ? GET_NAME : wanted == "getMessage" ? GET_MESSAGE : (jmethodID)3;
        };
        myTable.CallObjectMethodV = [](JNIEnv*, jobject target, jmethodID method, va_list) -> jobject {
            if (method == GET_NAME) return ourFake->string(object(target)->text);
            return (jobject)object(target)->message;
        };
        myTable.GetStringUTFChars = [](JNIEnv*, jstring text, jboolean*) -> const char* {
            if (ourFake->utfCharsFail) return nullptr;
            return object(text)->text.c_str();
        };
        myTable.GetStringUTFLength = [](JNIEnv*, jstring text) { return (jsize)object(text)->text.size(); };
        // Texts of one-byte characters: as many characters as bytes.
        myTable.GetStringLength = [](JNIEnv*, jstring text) { return (jsize)object(text)->text.size(); };
        myTable.GetStringUTFRegion = [](JNIEnv*, jstring text, jsize start, jsize length, char* out) {
            std::string part = object(text)->text.substr(start, length);
            memcpy(out, part.c_str(), part.size() + 1);
            ourFake->regionReads++;
        };
        myTable.ReleaseStringUTFChars = [](JNIEnv*, jstring, const char*) { ourFake->releasedStrings++; };
        myTable.NewStringUTF = [](JNIEnv*, const char* text) { return ourFake->string(text); };
    }
    ~FakeJvm() { ourFake = nullptr; }

    JNIEnv* env() { return &myEnv; }

    static FakeObject* object(jobject value) { return (FakeObject*)value; }

    jobject make() {
        myObjects.emplace_back();
        return (jobject)&myObjects.back();
    }
    jstring string(const std::string& text) {
        jobject value = make();
        object(value)->text = text;
        return (jstring)value;
    }
    // Classes outlive the stand-in: the glue keeps a global reference to one.
    static jclass classNamed(const std::string& name) {
        static std::deque<FakeObject>& classes = *new std::deque<FakeObject>();
        classes.emplace_back();
        classes.back().text = name;
        return (jclass)&classes.back();
    }
    jthrowable throwable(const std::string& className, const char* message) {
        jobject value = make();
        object(value)->klass = object(classNamed(className));
        if (message != nullptr) object(value)->message = object(string(message));
        return (jthrowable)value;
    }
    jclass findClass(const char* name) {
        calls.push_back(std::string("FindClass ") + name);
        if (std::string(name) != missingClass) return classNamed(name);
        pending = throwable("java.lang.NoClassDefFoundError", name);
        return nullptr;
    }

    jthrowable pending = nullptr;
    std::vector<std::string> calls;
    int deletedLocalRefs = 0;
    int releasedStrings = 0;
    int regionReads = 0;
    bool utfCharsFail = false;
    std::string missingClass;

private:
    JNINativeInterface_ myTable{};
    JNIEnv myEnv{};
    std::deque<FakeObject> myObjects;
};

std::string str(const ZString& text) { return std::string(text.c_str(), text.getLength()); }

class JvmGlueTest : public ::testing::Test {
protected:
    CapturedLog log;
    FakeJvm jvm;
};

TEST_F(JvmGlueTest, JvmtiErrorCheckPassesNoneAndNamesAnyOther) {
    EXPECT_NO_THROW(check_JVMTI_error_impl(JVMTI_ERROR_NONE, nullptr, -1));
    EXPECT_FALSE(Logger::ourLogFileCreated);

    // Without an environment there is no name to be had.
    EXPECT_EQ("10:<null>", str(getJvmtiErrorName(nullptr, JVMTI_ERROR_INVALID_THREAD)));
    ScriptedJvmti jvmti;
    EXPECT_THROW(check_JVMTI_error_impl(JVMTI_ERROR_INVALID_THREAD, "Caller.cpp", 12), KZTRuntimeException);
    EXPECT_EQ(0u, log.messages().back().find("error at Caller.cpp:12: ERROR: JVMTI error "
                                             "10:JVMTI_ERROR_INVALID_THREAD at Caller.cpp:12"))
        << log.messages().back();
    EXPECT_EQ(1, jvmti.deallocated);
    EXPECT_EQ("99:<null>", str(getJvmtiErrorName(ourJVMTI, (jvmtiError)99)));
}

TEST_F(JvmGlueTest, PendingJavaExceptionIsFatalWithItsMessage) {
    EXPECT_NO_THROW(assertJniImpl(jvm.env(), "Caller.cpp", 3));

    jvm.pending = jvm.throwable("java.lang.IllegalStateException", "boom");
    EXPECT_THROW(assertJniImpl(jvm.env(), "Caller.cpp", 4), KZTRuntimeException);
    EXPECT_EQ(nullptr, jvm.pending);
    EXPECT_NE(std::string::npos,
              log.messages().back().find("assertJni failed at Caller.cpp:4\njava.lang.IllegalStateException: boom"))
        << log.messages().back();
}

TEST_F(JvmGlueTest, ExceptionMessageIsEmptyWithoutAMessage) {
    EXPECT_EQ("java.io.IOException: disk full",
              str(getExceptionMessage(jvm.env(), jvm.throwable("java.io.IOException", "disk full"))));
    EXPECT_EQ("", str(getExceptionMessage(jvm.env(), jvm.throwable("java.io.IOException", nullptr))));
    EXPECT_EQ("", str(getExceptionMessage(jvm.env(), nullptr)));
}

TEST_F(JvmGlueTest, ThrownRuntimeExceptionsReplaceEachOtherAndShareOneClass) {
    throwException(jvm.env(), "first");
    throwException(jvm.env(), "second");
    EXPECT_EQ("java/lang/RuntimeException: second", jvm.object(jvm.pending)->klass->text + ": " +
                                                        jvm.object(jvm.pending)->message->text);
    throwExceptionAssertionFailed(jvm.env());
    throwOutOfMemoryException(jvm.env());
    std::vector<std::string> throws;
    int lookups = 0;
    for (const std::string& call : jvm.calls) {
        if (call.rfind("ThrowNew ", 0) == 0) throws.push_back(call);
        if (call == "FindClass java/lang/RuntimeException") lookups++;
    }
    EXPECT_LE(lookups, 1);
    EXPECT_EQ(std::vector<std::string>({"ThrowNew java/lang/RuntimeException: first",
                                        "ThrowNew java/lang/RuntimeException: second",
                                        "ThrowNew java/lang/RuntimeException: assertion failed in native code; see "
                                        "agent log for detail",
                                        "ThrowNew java/lang/RuntimeException: db::oome"}),
              throws);
}

TEST_F(JvmGlueTest, JavaStringsBecomeZStringsByteForByte) {
    EXPECT_TRUE(createZS(jvm.env(), nullptr).isEmpty());
    EXPECT_TRUE(jvm.calls.empty());
    // Modified UTF-8 keeps its two-byte NUL.
    ZString text = createZS(jvm.env(), jvm.string("a\xC0\x80z"));
    EXPECT_EQ("a\xC0\x80z", str(text));
    EXPECT_EQ(1, jvm.releasedStrings);

    // A short text is read into the agent's own buffer, a long one through the
    // JVM's copy; both whole.
    std::string longText(200, 'x');
    for (const std::string& value : {std::string("on the heap"), std::string(85, 's'), longText}) {
        ZString* copy = createZSPtr(jvm.env(), jvm.string(value));
        EXPECT_EQ(value, str(*copy));
        delete copy;
    }
    EXPECT_EQ(2, jvm.regionReads);
    EXPECT_EQ(2, jvm.releasedStrings);
    ZString* none = createZSPtr(jvm.env(), nullptr);
    EXPECT_TRUE(none->isEmpty());
    delete none;
    jvm.utfCharsFail = true;
    ZString* failed = createZSPtr(jvm.env(), jvm.string(longText));
    EXPECT_TRUE(failed->isEmpty());
    delete failed;
    EXPECT_EQ("error: GetStringUTFChars failed", log.messages().back());
    EXPECT_TRUE(createZS(jvm.env(), jvm.string("lost")).isEmpty());
}

TEST_F(JvmGlueTest, MissingClassIsLoggedAndFatalWhileAnExceptionIsPending) {
    EXPECT_NE(nullptr, findClass(jvm.env(), "java/lang/Thread"));
    jvm.missingClass = "com/acme/Missing";
    EXPECT_THROW(findClass(jvm.env(), "com/acme/Missing"), KZTRuntimeException);
    std::vector<std::string> messages = log.messages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ("findClass failed: com/acme/Missing", messages[messages.size() - 2]);
    EXPECT_EQ(nullptr, jvm.pending);
}

TEST_F(JvmGlueTest, RetransformCleanupTakesOnlyAPendingException) {
    cleanupAfterRetransformClassesFailure(jvm.env());
    EXPECT_FALSE(Logger::ourLogFileCreated);
    EXPECT_TRUE(jvm.calls.empty());

    jvm.pending = jvm.throwable("java.lang.UnsupportedOperationException", "no");
    cleanupAfterRetransformClassesFailure(jvm.env());
    EXPECT_EQ(nullptr, jvm.pending);
    EXPECT_EQ(1, jvm.deletedLocalRefs);
    EXPECT_EQ("warning: (additional info) retransform failed with JNI exception", log.messages().back());
}

TEST_F(JvmGlueTest, SystemPropertiesAndMemoryGoThroughTheMainEnvironment) {
    jvmtiEnv* saved = ourJVMTI;
    ourJVMTI = nullptr;
    EXPECT_TRUE(getSystemProperty("java.vm.vendor").isEmpty());
    deallocate(nullptr);
    ourJVMTI = saved;

    ScriptedJvmti jvmti;
    jvmti.systemProperties["java.vm.vendor"] = "Vendor";
    jvmti.allocationLimit = 1024;
    EXPECT_EQ("Vendor", str(getSystemProperty("java.vm.vendor")));
    EXPECT_EQ(1, jvmti.deallocated);
    EXPECT_TRUE(getSystemProperty("java.vm.info").isEmpty());
    deallocate(nullptr);
    EXPECT_EQ(1, jvmti.deallocated);
    unsigned char* memory = allocate(16);
    ASSERT_NE(nullptr, memory);
    deallocate(memory);
    EXPECT_EQ(2, jvmti.deallocated);
    EXPECT_THROW(allocate(1 << 20), KZTRuntimeException);
}

}  // namespace
