// Objects that native code makes through JNI pass no instrumented site: the
// JNI functions that create objects are replaced, in every JNI environment,
// by ones that call the JVM's own and report a new object as an allocation.
#include <cstdarg>

#include "recording/AllocationRecording.h"
#include "recording/EntryPoints.h"
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"

// The JVM's functions, as they were before the redirect.
static jniNativeInterface* ourOriginalJniFunctions = nullptr;

// Nothing may be thrown back into native code.
template <typename T>
static T reported(JNIEnv* env, T object) {
    if (object == nullptr || env->ExceptionCheck()) return object;
    try {
        kztInitImpl(env, object, nullptr, 0, -1, 0, 0);
    } catch (...) {
        Logger::exceptionCaught(__FILE__, __LINE__);
    }
    return object;
}

static jobject JNICALL allocObject(JNIEnv* env, jclass klass) {
    return reported(env, ourOriginalJniFunctions->AllocObject(env, klass));
}

static jobject JNICALL newObjectV(JNIEnv* env, jclass klass, jmethodID constructor, va_list args) {
    return reported(env, ourOriginalJniFunctions->NewObjectV(env, klass, constructor, args));
}

static jobject JNICALL newObject(JNIEnv* env, jclass klass, jmethodID constructor, ...) {
    va_list args;
    va_start(args, constructor);
    jobject object = ourOriginalJniFunctions->NewObjectV(env, klass, constructor, args);
    va_end(args);
    return reported(env, object);
}

static jobject JNICALL newObjectA(JNIEnv* env, jclass klass, jmethodID constructor, const jvalue* args) {
    return reported(env, ourOriginalJniFunctions->NewObjectA(env, klass, constructor, args));
}

static jobjectArray JNICALL newObjectArray(JNIEnv* env, jsize length, jclass klass, jobject initial) {
    return reported(env, ourOriginalJniFunctions->NewObjectArray(env, length, klass, initial));
}

#define KZT_REDIRECT_PRIMITIVE_ARRAY(Name, Type) \
    static Type JNICALL redirected##Name(JNIEnv* env, jsize length) { return reported(env, ourOriginalJniFunctions->Name(env, length)); }

KZT_REDIRECT_PRIMITIVE_ARRAY(NewBooleanArray, jbooleanArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewByteArray, jbyteArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewCharArray, jcharArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewShortArray, jshortArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewIntArray, jintArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewLongArray, jlongArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewFloatArray, jfloatArray)
KZT_REDIRECT_PRIMITIVE_ARRAY(NewDoubleArray, jdoubleArray)

static jstring JNICALL newString(JNIEnv* env, const jchar* chars, jsize length) {
    return reported(env, ourOriginalJniFunctions->NewString(env, chars, length));
}

static jstring JNICALL newStringUTF(JNIEnv* env, const char* text) {
    return reported(env, ourOriginalJniFunctions->NewStringUTF(env, text));
}

static jclass JNICALL defineClass(JNIEnv* env, const char* name, jobject loader, const jbyte* bytes, jsize length) {
    return reported(env, ourOriginalJniFunctions->DefineClass(env, name, loader, bytes, length));
}

void redirectJniFunctions() {
    if (ourOriginalJniFunctions != nullptr) return;
    jniNativeInterface* originals = nullptr;
    jniNativeInterface* table = nullptr;
    check_JVMTI_error(ourJVMTI->GetJNIFunctionTable(&originals));
    check_JVMTI_error(ourJVMTI->GetJNIFunctionTable(&table));
    ourOriginalJniFunctions = originals;
    table->AllocObject = allocObject;
    table->NewObject = newObject;
    table->NewObjectV = newObjectV;
    table->NewObjectA = newObjectA;
    table->NewObjectArray = newObjectArray;
    table->NewBooleanArray = redirectedNewBooleanArray;
    table->NewByteArray = redirectedNewByteArray;
    table->NewCharArray = redirectedNewCharArray;
    table->NewShortArray = redirectedNewShortArray;
    table->NewIntArray = redirectedNewIntArray;
    table->NewLongArray = redirectedNewLongArray;
    table->NewFloatArray = redirectedNewFloatArray;
    table->NewDoubleArray = redirectedNewDoubleArray;
    table->NewString = newString;
    table->NewStringUTF = newStringUTF;
    table->DefineClass = defineClass;
    check_JVMTI_error(ourJVMTI->SetJNIFunctionTable(table));
}
