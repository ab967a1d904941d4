// The Callback class as the modes want it: the bodies of its four public
// stubs are replaced by private variants of the same class, and the class is
// redefined. Application classes are never touched for a mode change.
#include "services/AgentState.h"
#include "services/JvmGlue.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "classfile/ClassFile.h"
#include "foundation/System.h"
#include "instrumentation/EmbeddedClass.h"
#include "instrumentation/Instrumentation.h"

EmbeddedClass ourCallbackBytecode = {nullptr, 0};
EmbeddedClass ourMethodListenerProbeBytecode = {nullptr, 0};


void loadEmbeddedClass(const EmbeddedClass& embedded, const char* relativePath, ZVector<unsigned char, 10>& bytes) {
    ZString agentClassPath = ourOptions.getInternalOption("_agent_cp");
    bytes.clear();
    if (!agentClassPath.isEmpty()) {
        readFile((agentClassPath + "/" + relativePath).c_str(), bytes);
    } else if (embedded.myBytes != nullptr) {
        bytes.resize(embedded.myLength);
        memcpy(bytes.getElements(), embedded.myBytes, embedded.myLength);
    }
    KZT_ASSERT(bytes.getSize() > 0);
}

void copyMethodBody(ClassFile* classFile, const char* target, const char* source, const char* descriptor) {
    KZT_ASSERT(classFile != nullptr && !classFile->isInvalid());
    MethodInfo* to = classFile->findMethod(ZString(target), ZString(descriptor));
    MethodInfo* from = classFile->findMethod(ZString(source), ZString(descriptor));
    KZT_ASSERT_NOT_NULL(to);
    KZT_ASSERT_NOT_NULL(from);
    to->copyAttributesFrom(from);
}

void buildRedefinedCallback(uint64_t status, int factor, bool adaptive, bool lines, ZVector<unsigned char, 10>& result) {
    ZVector<unsigned char, 10> bytes;
    loadEmbeddedClass(ourCallbackBytecode, (ZString(CALLBACK_CLASS) + ".class").c_str(), bytes);
    DataInput in(bytes);
    ClassFile cf(in);
    KZT_ASSERT(!cf.isInvalid());

    ZString factorText = ZString::fromLong(factor);
    uint64_t cpuMode = status & CPU_PROFILING_MASK;
    if (cpuMode == CPU_CALL_COUNTING) {
        // A counted method costs one increment; its exit stays empty.
        copyMethodBody(&cf, "kztMethodEntry", (ZString("methodEntry_CF") + factorText).c_str(), "(IJ)J");
    } else if (cpuMode == CPU_TRACING) {
        const char* suffix = adaptive ? "_A" : "_NA";
        copyMethodBody(&cf, "kztMethodEntry", (ZString("methodEntry") + suffix).c_str(), "(IJ)J");
        copyMethodBody(&cf, "kztMethodExit", (ZString("methodExit") + suffix).c_str(), "(IJ)V");
        if (lines) copyMethodBody(&cf, "kztMethodLine", "methodLine", "(IJ)V");
    }
    uint64_t allocationMode = status & ALLOCATION_RECORDING_MASK;
    const char* initDescriptor = "(Ljava/lang/Object;IISJ)I";
    if (allocationMode == ALLOCATION_RECORDING_OBJECT_COUNTING) {
        copyMethodBody(&cf, "kztInit", (ZString("init_CF") + factorText).c_str(), initDescriptor);
    } else if ((status & ALLOCATION_RECORDING_BIT) != 0) {
        copyMethodBody(&cf, "kztInit", "init_A", initDescriptor);
    }
    result.clear();
    DataOutput out(result);
    cf.writeClass(out);
}

void redefineCallback(JNIEnv* env) {
    LockHolder holder(&ourLock, LOCK_SITE);
    jclass callbackClass = findClass(env, CALLBACK_CLASS);
    int factor = ourCountingJoint.getFactor();
    bool adaptive = ourRecordingJoint.isAdaptiveTracing();
    bool lines = !ourOptions.isInternalOption("_tracing_disable_lines") && ourRecordingJoint.canSetLineNumbers();
    ZVector<unsigned char, 10> written(4096);
    buildRedefinedCallback(ourStatus.get(), factor, adaptive, lines, written);

    unsigned char* bytes = allocate(written.getSize());
    memcpy(bytes, written.getElements(), written.getSize());
    jvmtiClassDefinition definition;
    definition.klass = callbackClass;
    definition.class_byte_count = written.getSize();
    definition.class_bytes = bytes;
    jvmtiError error = ourJVMTI->RedefineClasses(1, &definition);
    env->DeleteLocalRef(callbackClass);
    deallocate(bytes);
    check_JVMTI_error(error);
}

bool patchTemplateClass(const ZVectorSafe<ZString>& from, const ZVectorSafe<ZString>& to,
                        ZVector<unsigned char, 10>& result) {
    ZVector<unsigned char, 10> bytes;
    loadEmbeddedClass(ourMethodListenerProbeBytecode, "com/corvane/probes/triggers/MethodListenerProbe.class", bytes);
    DataInput in(bytes);
    ClassFile cf(in);
    if (cf.isInvalid()) return false;
    cf.patchConstantPool(from, to);
    cf.removeUnusedMacroMethods();
    result.clear();
    DataOutput out(result);
    cf.writeClass(out);
    return true;
}

jbyteArray patchTemplateClassImpl(JNIEnv* env, jobjectArray macroAndValuePairs) {
    if (macroAndValuePairs == nullptr) {
        throwException(env, "macroAndValuePairs is null");
        return nullptr;
    }
    ZVectorSafe<ZString> pairs;
    fillStringVectorFromJArray(env, macroAndValuePairs, pairs);
    ZVectorSafe<ZString> from;
    ZVectorSafe<ZString> to;
    for (int i = 0; i + 1 < pairs.getSize(); i += 2) {
        from.push(pairs[i]);
        to.push(pairs[i + 1]);
    }
    ZVector<unsigned char, 10> written(4096);
    if (!patchTemplateClass(from, to, written)) {
        throwException(env, "method listener template is invalid");
        return nullptr;
    }
    return newJByteArray(env, written.getElements(), written.getSize());
}
