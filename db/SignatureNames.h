// Readable names from JVM type descriptors, as the method table stores them:
// "Ljava/lang/String;" -> "java.lang.String", "[I" -> "int[]",
// "(ILjava/lang/String;[J)V" -> parameters "(int, java.lang.String, long[])"
// and return type "void".
#pragma once

#include "foundation/ZString.h"

// A field descriptor or an internal class name, as a dotted name with "[]"
// per array dimension.
ZString convertClassSignatureToFullName(const char* signature);
ZString convertMethodSignatureToParameters(const ZString& descriptor);
ZString getReturnTypeFromMethodSignature(const ZString& descriptor);
