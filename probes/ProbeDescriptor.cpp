#include "probes/ProbeDescriptor.h"

#include "db/SignatureUtil.h"
#include "probes/TopProbe.h"
#include "services/SharedConstants.h"

ProbeDescriptor::ProbeDescriptor(const ZString& classSignature, const ZString& onEnterDescriptor,
                                 const ZString& returnDescriptor, const ZString& exceptionDescriptor,
                                 CallbackParameters* onEnterParameters, CallbackParameters* returnParameters,
                                 CallbackParameters* exceptionParameters, bool usesOnEnterResult, bool usesMethodTime,
                                 bool hasReturnValue, bool discardThrownException, const ZString& callbackReturnType,
                                 const ZString& instanceOf, const ZVectorSafe<ZString>& callbackExceptions,
                                 TopProbe* topProbe, bool isOnExit)
    : myIsCpuTracingSupport(classSignature.replaceAll("/", ".").equals(CPU_TRACING_SUPPORT_PROBE)),
      myClassSignature(classSignature),
      myInstanceOf(instanceOf),
      myCallbackReturnType(callbackReturnType),
      myCallbackExceptions(callbackExceptions),
      myOnEnterParameters(onEnterParameters),
      myOnEnterDescriptor(onEnterDescriptor),
      myReturnParameters(returnParameters),
      myReturnDescriptor(returnDescriptor),
      myExceptionParameters(exceptionParameters),
      myExceptionDescriptor(exceptionDescriptor),
      myStatus(PROBE_STATUS_NEW),
      myTopProbe(topProbe),
      myHasReturnValue(hasReturnValue),
      myDiscardThrownException(discardThrownException),
      myIsOnExit(isOnExit),
      myUsesOnEnterResult(usesOnEnterResult),
      myUsesMethodTime(usesMethodTime) {
    KZT_ASSERT_NOT_NULL(topProbe);
    topProbe->getDescriptors().push(this);
}

ProbeDescriptor::~ProbeDescriptor() {
    delete myOnEnterParameters;
    delete myReturnParameters;
    delete myExceptionParameters;
    ZVector<ProbeDescriptor*>& siblings = myTopProbe->getDescriptors();
    int at = siblings.indexOf(this);
    if (at >= 0) siblings.remove(at);
}

void ProbeDescriptor::addMethodPattern(const ZString& classPattern, const ZString& methodPattern,
                                       const ZString& signaturePattern, const ZString& returnTypePattern,
                                       const ZString& classAnnotation, const ZString& methodAnnotation, bool negative) {
    myClassPatterns.push(classPattern);
    myMethodNamePatterns.push(methodPattern);
    mySignaturePatterns.push(signaturePattern);
    myReturnTypePatterns.push(returnTypePattern);
    myClassAnnotationSignatures.push(className2signature(classAnnotation));
    myMethodAnnotationSignatures.push(className2signature(methodAnnotation));
    myNegativeFlags.push(negative);
}
