// A probe as the agent holds it: the compiled form of one probe class, its
// method patterns and what each callback parameter receives. It keeps
// strings only; the probe class's bytes are gone once it is made.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"

// What a callback parameter receives, by its annotation.
enum CallbackParameterKind : int {
    CPK_PARAM = 0,                   // @Param(n): the target's parameter n (1-based)
    CPK_PARAMS = 1,                  // @Params: all parameters as Object[]
    CPK_THIS = 2,                    // @This
    CPK_RETURN_VALUE = 3,            // @ReturnValue
    CPK_THROWN_EXCEPTION = 4,        // @ThrownException
    CPK_ON_ENTER_RESULT = 5,         // @OnEnterResult
    CPK_METHOD_TIME_MS = 6,          // @MethodTimeMs
    CPK_METHOD_NAME = 7,             // @MethodName
    CPK_METHOD_SIGNATURE = 8,        // @MethodSignature
    CPK_METHOD_PARAMETER_TYPES = 9,  // @MethodParameterTypes
    CPK_CLASS_REF = 10,              // @ClassRef
    CPK_NOT_ANNOTATED = 11,          // no callback annotation
    CPK_SEVERAL = 12,                // more than one
};

struct CallbackParameter {
    ZString type;  // field descriptor, e.g. "Ljava/lang/Object;"
    CallbackParameterKind kind;
    int index;  // the value of @Param, else -1
    bool isOut;
};
typedef ZVectorSafe<CallbackParameter> CallbackParameters;

// Where a descriptor stands with the classes of the JVM.
enum PROBE_STATUS : int {
    PROBE_STATUS_SETTLED = 0,  // classes are in step with it
    PROBE_STATUS_NEW = 1,      // classes are to be retransformed for it
    PROBE_STATUS_REMOVED = 2,  // classes are to be retransformed without it, then it goes
};

class TopProbe;

class ProbeDescriptor {
public:
    // Takes the parameter vectors (any may be null: that callback role is
    // absent) and links itself into `topProbe`'s list.
    ProbeDescriptor(const ZString& classSignature, const ZString& onEnterDescriptor, const ZString& returnDescriptor,
                    const ZString& exceptionDescriptor, CallbackParameters* onEnterParameters,
                    CallbackParameters* returnParameters, CallbackParameters* exceptionParameters,
                    bool usesOnEnterResult, bool usesMethodTime, bool hasReturnValue, bool discardThrownException,
                    const ZString& callbackReturnType, const ZString& instanceOf,
                    const ZVectorSafe<ZString>& callbackExceptions, TopProbe* topProbe, bool isOnExit);
    // Unlinks itself from its top probe.
    ~ProbeDescriptor();
    ProbeDescriptor(const ProbeDescriptor&) = delete;
    ProbeDescriptor& operator=(const ProbeDescriptor&) = delete;

    // One parsed pattern (SignatureUtil::parseMethodPattern); the two
    // annotation patterns are kept as type descriptor patterns.
    void addMethodPattern(const ZString& classPattern, const ZString& methodPattern, const ZString& signaturePattern,
                          const ZString& returnTypePattern, const ZString& classAnnotation,
                          const ZString& methodAnnotation, bool negative);
    int getPatternCount() const { return myClassPatterns.getSize(); }
    const ZString& getClassPattern(int i) const { return myClassPatterns[i]; }
    const ZString& getMethodNamePattern(int i) const { return myMethodNamePatterns[i]; }
    const ZString& getSignaturePattern(int i) const { return mySignaturePatterns[i]; }
    const ZString& getReturnTypePattern(int i) const { return myReturnTypePatterns[i]; }
    const ZString& getClassAnnotationSignature(int i) const { return myClassAnnotationSignatures[i]; }
    const ZString& getMethodAnnotationSignature(int i) const { return myMethodAnnotationSignatures[i]; }
    bool isNegative(int i) const { return myNegativeFlags[i]; }

    bool isCpuTracingSupport() const { return myIsCpuTracingSupport; }
    // Internal name, with "/".
    const ZString& getClassSignature() const { return myClassSignature; }
    // Internal name that targets must derive from; empty for any.
    const ZString& getInstanceOf() const { return myInstanceOf; }
    ZVectorSafe<ZString>& getRetransformList() { return myRetransformList; }
    // Field descriptor; empty when void.
    const ZString& getCallbackReturnType() const { return myCallbackReturnType; }
    const ZVectorSafe<ZString>& getCallbackExceptions() const { return myCallbackExceptions; }

    // Null and empty when the role is absent. The return role is onExit's
    // when there is one, else onReturn's; the exception role likewise
    // onExit's, else onUncaughtException's.
    const CallbackParameters* getOnEnterParameters() const { return myOnEnterParameters; }
    const ZString& getOnEnterDescriptor() const { return myOnEnterDescriptor; }
    const CallbackParameters* getReturnParameters() const { return myReturnParameters; }
    const ZString& getReturnDescriptor() const { return myReturnDescriptor; }
    const CallbackParameters* getExceptionParameters() const { return myExceptionParameters; }
    const ZString& getExceptionDescriptor() const { return myExceptionDescriptor; }

    PROBE_STATUS getStatus() const { return myStatus; }
    void setStatus(PROBE_STATUS status) { myStatus = status; }
    TopProbe* getTopProbe() const { return myTopProbe; }
    // The return callback's result replaces the target's return value.
    bool hasReturnValue() const { return myHasReturnValue; }
    bool isDiscardThrownException() const { return myDiscardThrownException; }
    bool isOnExit() const { return myIsOnExit; }
    bool usesOnEnterResult() const { return myUsesOnEnterResult; }
    bool usesMethodTime() const { return myUsesMethodTime; }

private:
    ZVectorSafe<ZString> myClassPatterns;
    ZVectorSafe<ZString> myMethodNamePatterns;
    ZVectorSafe<ZString> mySignaturePatterns;
    ZVectorSafe<ZString> myReturnTypePatterns;
    ZVectorSafe<ZString> myClassAnnotationSignatures;
    ZVectorSafe<ZString> myMethodAnnotationSignatures;
    ZVector<bool> myNegativeFlags;
    bool myIsCpuTracingSupport;
    ZString myClassSignature;
    ZString myInstanceOf;
    ZVectorSafe<ZString> myRetransformList;
    ZString myCallbackReturnType;
    ZVectorSafe<ZString> myCallbackExceptions;
    CallbackParameters* myOnEnterParameters;
    ZString myOnEnterDescriptor;
    CallbackParameters* myReturnParameters;
    ZString myReturnDescriptor;
    CallbackParameters* myExceptionParameters;
    ZString myExceptionDescriptor;
    PROBE_STATUS myStatus;
    TopProbe* myTopProbe;
    bool myHasReturnValue;
    bool myDiscardThrownException;
    bool myIsOnExit;
    bool myUsesOnEnterResult;
    bool myUsesMethodTime;
};
