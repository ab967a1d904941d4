#include "services/JvmGlue.h"

#include "services/AgentState.h"
#include "services/Logger.h"

void check_JVMTI_error_impl(jvmtiError error, const char* file, int line) {
    if (error == JVMTI_ERROR_NONE) return;
    ZString text("ERROR: JVMTI error ");
    text.append(getJvmtiErrorName(ourJVMTI, error)).append(" at ").append(file).append(":").appendLong(line);
    Logger::error(text, file, line);
}

ZString getJvmtiErrorName(jvmtiEnv* env, jvmtiError error) {
    ZString text;
    text.appendLong(error).append(":");
    char* name = nullptr;
    if (env != nullptr && env->GetErrorName(error, &name) == JVMTI_ERROR_NONE && name != nullptr) {
        text.append(name);
        env->Deallocate((unsigned char*)name);
    } else {
        text.append("<null>");
    }
    return text;
}

void assertJniImpl(JNIEnv* env, const char* file, int line) {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) return;
    env->ExceptionClear();
    ZString text("assertJni failed at ");
    text.append(file).append(":").appendLong(line).append("\n").append(getExceptionMessage(env, pending));
    env->DeleteLocalRef(pending);
    Logger::error(text, file, line);
}

// Reading the message may itself throw; whatever goes wrong yields "".
ZString getExceptionMessage(JNIEnv* env, jthrowable throwable) {
    ZString result;
    if (throwable == nullptr) return result;
    jclass throwableClass = env->GetObjectClass(throwable);
    jclass classClass = env->FindClass("java/lang/Class");
    jmethodID getName = classClass != nullptr ? env->GetMethodID(classClass, "getName", "()Ljava/lang/String;") : nullptr;
    jmethodID getMessage = throwableClass != nullptr
                               ? env->GetMethodID(throwableClass, "getMessage", "()Ljava/lang/String;")
                               : nullptr;
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        return result;
    }
    if (getName == nullptr || getMessage == nullptr) return result;
    jstring className = (jstring)env->CallObjectMethod(throwableClass, getName);
    jstring message = env->ExceptionCheck() ? nullptr : (jstring)env->CallObjectMethod(throwable, getMessage);
    if (env->ExceptionCheck()) {
        env->ExceptionClear();
        return result;
    }
    if (className != nullptr && message != nullptr) {
        result = createZS(env, className) + ": " + createZS(env, message);
    }
    return result;
}

static jclass ourRuntimeExceptionClass = nullptr;

void throwException(JNIEnv* env, const char* text) {
    if (ourRuntimeExceptionClass == nullptr) {
        jclass local = env->FindClass("java/lang/RuntimeException");
        if (local == nullptr) return;
        ourRuntimeExceptionClass = (jclass)env->NewGlobalRef(local);
        env->DeleteLocalRef(local);
    }
    env->ThrowNew(ourRuntimeExceptionClass, text);
}

void throwExceptionAssertionFailed(JNIEnv* env) {
    throwException(env, "assertion failed in native code; see agent log for detail");
}

void throwOutOfMemoryException(JNIEnv* env) {
    throwException(env, "db::oome");
}

jclass findClass(JNIEnv* env, const char* name) {
    jclass result = env->FindClass(name);
    if (result == nullptr) {
        Logger::message(ZString("findClass failed: ") + name);
        assertJni(env);
    }
    return result;
}

ZString createZS(JNIEnv* env, jstring text) {
    if (text == nullptr) return ZString();
    const char* chars = env->GetStringUTFChars(text, nullptr);
    if (chars == nullptr) return ZString();
    ZString result(chars, env->GetStringUTFLength(text));
    env->ReleaseStringUTFChars(text, chars);
    return result;
}

ZString* createZSPtr(JNIEnv* env, jstring text) {
    if (text == nullptr) return new ZString();
    // A short text is converted on the stack: the JVM makes no copy of its own.
    char buffer[256];
    jsize length = env->GetStringLength(text);
    if (length <= (jsize)(sizeof(buffer) / 3)) {
        jsize bytes = env->GetStringUTFLength(text);
        env->GetStringUTFRegion(text, 0, length, buffer);
        return new ZString(buffer, bytes);
    }
    const char* chars = env->GetStringUTFChars(text, nullptr);
    if (chars == nullptr) {
        Logger::message("error: GetStringUTFChars failed");
        return new ZString();
    }
    ZString* result = new ZString(chars, env->GetStringUTFLength(text));
    env->ReleaseStringUTFChars(text, chars);
    return result;
}

jstring newJavaString(JNIEnv* env, const ZString& text) {
    return env->NewStringUTF(text.c_str());
}

jstring newJavaString(JNIEnv* env, const char* text) {
    return env->NewStringUTF(text);
}

jobjectArray newStringArray(JNIEnv* env, const ZVectorSafe<ZString>& strings) {
    jclass stringClass = findClass(env, "java/lang/String");
    jobjectArray array = env->NewObjectArray(strings.getSize(), stringClass, nullptr);
    assertJni(env);
    for (int i = 0; i < strings.getSize(); i++) {
        jstring element = newJavaString(env, strings[i]);
        env->SetObjectArrayElement(array, i, element);
        env->DeleteLocalRef(element);
    }
    env->DeleteLocalRef(stringClass);
    return array;
}

void fillStringVectorFromJArray(JNIEnv* env, jobjectArray array, ZVectorSafe<ZString>& result) {
    if (array == nullptr) return;
    jsize length = env->GetArrayLength(array);
    for (jsize i = 0; i < length; i++) {
        jstring element = (jstring)env->GetObjectArrayElement(array, i);
        result.push(createZS(env, element));
        env->DeleteLocalRef(element);
    }
}

void fillVectorFromJArray(JNIEnv* env, jintArray array, ZVector<int>& result) {
    if (array == nullptr) return;
    jsize length = env->GetArrayLength(array);
    jint* elements = env->GetIntArrayElements(array, nullptr);
    for (jsize i = 0; i < length; i++) result.push(elements[i]);
    env->ReleaseIntArrayElements(array, elements, JNI_ABORT);
}

jintArray newJIntArray(JNIEnv* env, const ZVector<int>& values) {
    jintArray array = env->NewIntArray(values.getSize());
    if (array != nullptr) env->SetIntArrayRegion(array, 0, values.getSize(), (const jint*)values.getElements());
    return array;
}

jbyteArray newJByteArray(JNIEnv* env, const unsigned char* bytes, int length) {
    jbyteArray array = env->NewByteArray(length);
    if (array != nullptr) env->SetByteArrayRegion(array, 0, length, (const jbyte*)bytes);
    return array;
}

void cleanupAfterRetransformClassesFailure(JNIEnv* env) {
    jthrowable pending = env->ExceptionOccurred();
    if (pending == nullptr) return;
    env->DeleteLocalRef(pending);
    env->ExceptionClear();
    Logger::message("warning: (additional info) retransform failed with JNI exception");
}

jthread createThread(JNIEnv* env, const char* name) {
    jclass threadClass = findClass(env, "java/lang/Thread");
    jmethodID constructor = env->GetMethodID(threadClass, "<init>", "(Ljava/lang/String;)V");
    assertJni(env);
    jstring threadName = newJavaString(env, name);
    jthread thread = env->NewObject(threadClass, constructor, threadName);
    assertJni(env);
    env->DeleteLocalRef(threadName);
    env->DeleteLocalRef(threadClass);
    return thread;
}

ZString getClassNameJvmti(jclass klass, const char* file) {
    JvmtiMemory<char> signature;
    check_JVMTI_error_impl(ourJVMTI->GetClassSignature(klass, signature.out(), nullptr), file, 0);
    return ZString(signature.get() != nullptr ? signature.get() : "");
}

ZString getSystemProperty(const char* name) {
    JvmtiMemory<char> value;
    if (ourJVMTI == nullptr || ourJVMTI->GetSystemProperty(name, value.out()) != JVMTI_ERROR_NONE ||
        value.get() == nullptr)
        return ZString();
    return ZString(value.get());
}

unsigned char* allocate(jlong size) {
    unsigned char* memory = nullptr;
    check_JVMTI_error(ourJVMTI->Allocate(size, &memory));
    return memory;
}

void deallocate(void* pointer) {
    if (pointer != nullptr && ourJVMTI != nullptr) ourJVMTI->Deallocate((unsigned char*)pointer);
}
