// Reads what a probe class says with the annotations of com.corvane.probes.
// They have the default retention, so they stand in the class file's
// "RuntimeInvisibleAnnotations" and "RuntimeInvisibleParameterAnnotations";
// the class is never loaded. A shape that no compiler makes (an annotation
// with other elements than declared) is an assertion failure.
#pragma once

#include "foundation/ZString.h"
#include "foundation/ZVector.h"
#include "probes/ProbeDescriptor.h"

class ClassFile;
class MethodInfo;

struct ProbeClassAnnotations {
    ZVectorSafe<ZString> methodPatterns;      // @MethodPattern, as written
    ZString instanceOf;                       // @InstanceOf, with "/"
    ZVectorSafe<ZString> retransformClasses;  // @RetransformIfInstanceOf
    bool discardThrownException = false;      // @DiscardThrownException
};

// The class annotations, from the class's first "RuntimeInvisibleAnnotations".
void fillMethodPatterns(const ClassFile* classFile, ProbeClassAnnotations& annotations);

// One entry per parameter of the method: its type and, from the method's
// "RuntimeInvisibleParameterAnnotations", its kind, @Param index and @Out.
void fillCallbackParameters(const MethodInfo* method, CallbackParameters& parameters);
