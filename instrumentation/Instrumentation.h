// Tracing and allocation instrumentation: every class the JVM loads passes
// the class load hook, which decides what may be touched and rewrites the
// methods so that they call the four stubs of com.corvane.runtime.Callback.
// What the stubs do is swapped at run time by redefineCallback, so no
// application class is ever rewritten twice for a mode change.
#pragma once

#include <jni.h>
#include <jvmti.h>
#include <cstdint>

#include "foundation/ZLock.h"
#include "foundation/ZString.h"
#include "foundation/ZStringSet.h"
#include "foundation/ZVector.h"
#include "instrumentation/BytecodeDetectors.h"
#include "instrumentation/InstrumentationJoints.h"

class ClassFile;
class MethodInfo;

// ---- class load hook ----

// Full names of classes that hold a method too long for line calls while
// tracing is off; retransformed when tracing starts and stops. Never emptied.
extern ZStringSet& ourClassesWithLargeMethods;

// The body of the JVMTI ClassFileLoadHook callback: takes ourLock, decides,
// rewrites. Nothing is ever thrown out of it; a failure leaves the outputs
// at 0 and null, and the class loads as it came.
void classFileLoadHook(jvmtiEnv* jvmti, JNIEnv* env, jclass classBeingRedefined, const char* name, jint length,
                       const unsigned char* bytes, jint* newLength, unsigned char** newBytes);

// The pipeline for one class under ourLock. The outputs stay untouched unless
// the class changed; then they hold bytes from JVMTI Allocate (malloc when
// no JVM is there, as in tools and tests).
void classFileLoadHookHandlerImpl(const LockHolder& lock, const ZString& name, int length, const unsigned char* bytes,
                                  int* newLength, unsigned char** newBytes, bool wrapNatives,
                                  bool skipTracingAndAllocation);

// Classes that are never handed to RetransformClasses: lambda forms and
// lambda proxies, which the JVM cannot retransform.
bool shouldNeverRetransform(const ZString& fullName);

void retransformClassesWithLargeMethods(JNIEnv* env);
void retransformClassesLoadedBeforeAgentAttached(JNIEnv* env);

struct ClassLoadHookCounters {
    int64_t myProcessed;
    int64_t myInstrumented;
    int64_t myTotalTimeNs;
};
// The hook's counters, for the log and for tests.
ClassLoadHookCounters getClassLoadHookCounters();

// ---- method patching ----

// Rewrites every method of the class for tracing and allocation recording.
// True when some method changed. A method that cannot be done even without
// line calls sets *tooLong and returns false at once: the caller then drops
// the whole class, since earlier methods may already be changed.
bool instrumentForTracingAndAllocation(const LockHolder& lock, ClassFile* classFile, bool* tooLong,
                                       bool withAllocation, bool withTracing);

// True for a method that can neither be slow nor reach other code (short,
// no loops, no calls, no allocation). `reason` tells why not, for the log.
bool shouldSkipInstrumentationForTracingAndAllocation(MethodInfo* method, int* reason);

// ---- the Callback class ----

// Replaces the bodies of the Callback stubs with the variants that the
// present ourStatus asks for, by one RedefineClasses. Takes ourLock.
void redefineCallback(JNIEnv* env);

// The Callback class as redefineCallback makes it for a status word: `factor`
// is the number of counter stripes, `adaptive` and `lines` the tracing
// settings. The bytes are a class file ready for RedefineClasses.
void buildRedefinedCallback(uint64_t status, int factor, bool adaptive, bool lines, ZVector<unsigned char, 10>& result);

// Gives the method `target` the code of `source`, both of `descriptor`.
void copyMethodBody(ClassFile* classFile, const char* target, const char* source, const char* descriptor);

// The method listener probe template with the macros replaced and the
// unused macro methods removed. False when the template is invalid.
bool patchTemplateClass(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to,
                        ZVector<unsigned char, 10>& result);

// The work of the native patchTemplateClass.
jbyteArray patchTemplateClassImpl(JNIEnv* env, jobjectArray macroAndValuePairs);
