// Helpers through which the agent talks to JNI and JVMTI: error checks that
// every JVM call goes through, conversions between ZString and Java values,
// and the throwing of Java exceptions from natives.
#pragma once

#include <jni.h>
#include <jvmti.h>

#include <new>

#include "services/Logger.h"

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

void check_JVMTI_error_impl(jvmtiError error, const char* file, int line);
#define check_JVMTI_error(error) check_JVMTI_error_impl((error), __FILE__, __LINE__)

ZString getJvmtiErrorName(jvmtiEnv* env, jvmtiError error);

void assertJniImpl(JNIEnv* env, const char* file, int line);
#define assertJni(env) assertJniImpl((env), __FILE__, __LINE__)

ZString getExceptionMessage(JNIEnv* env, jthrowable throwable);
void throwException(JNIEnv* env, const char* text);
void throwExceptionAssertionFailed(JNIEnv* env);
void throwOutOfMemoryException(JNIEnv* env);
jclass findClass(JNIEnv* env, const char* name);

ZString createZS(JNIEnv* env, jstring text);
ZString* createZSPtr(JNIEnv* env, jstring text);
jstring newJavaString(JNIEnv* env, const ZString& text);
jstring newJavaString(JNIEnv* env, const char* text);
jobjectArray newStringArray(JNIEnv* env, const ZVectorSafe<ZString>& strings);
void fillStringVectorFromJArray(JNIEnv* env, jobjectArray array, ZVectorSafe<ZString>& result);
void fillVectorFromJArray(JNIEnv* env, jintArray array, ZVector<int>& result);
jintArray newJIntArray(JNIEnv* env, const ZVector<int>& values);
jbyteArray newJByteArray(JNIEnv* env, const unsigned char* bytes, int length);

void cleanupAfterRetransformClassesFailure(JNIEnv* env);
jthread createThread(JNIEnv* env, const char* name);
ZString getClassNameJvmti(jclass klass, const char* file);
ZString getSystemProperty(const char* name);

unsigned char* allocate(jlong size);
void deallocate(void* pointer);

// Frees JVMTI memory at scope exit.
template <typename T>
class JvmtiMemory {
public:
    JvmtiMemory() : myPointer(nullptr) {}
    ~JvmtiMemory() { deallocate((void*)myPointer); }
    JvmtiMemory(const JvmtiMemory&) = delete;
    JvmtiMemory& operator=(const JvmtiMemory&) = delete;
    T** out() { return &myPointer; }
    T* get() const { return myPointer; }

private:
    T* myPointer;
};

// The boundary rule: every native and JVM event handler runs its body inside
// this, so that no C++ exception ever unwinds into the JVM.
#define KZT_NATIVE_BEGIN try {
#define KZT_NATIVE_END(env, neutral)                                        \
    }                                                                       \
    catch (KZTRuntimeException&) {                                          \
        Logger::exceptionCaught(__FILE__, __LINE__);                        \
        if ((env) != nullptr) throwExceptionAssertionFailed(env);           \
        return neutral;                                                     \
    }                                                                       \
    catch (std::bad_alloc&) {                                               \
        Logger::exceptionCaught(__FILE__, __LINE__);                        \
        if ((env) != nullptr) throwOutOfMemoryException(env);               \
        return neutral;                                                     \
    }                                                                       \
    catch (...) {                                                           \
        Logger::exceptionCaught(__FILE__, __LINE__);                        \
        return neutral;                                                     \
    }
