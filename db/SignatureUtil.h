// Method patterns: "class:method(parameters) return", each part a wildcard
// pattern, the class and method parts optionally "@annotation pattern"
// ahead. Probes choose their target methods with them, and the filters of
// the settings files read their lines through the same parser. A parsed
// pattern is kept in the textual form that readable descriptors have
// (see SignatureNames.h), so that matching is a plain wildcard match.
#pragma once

#include "foundation/ZString.h"

class SignatureUtil {
public:
    // Parses `pattern`; the result is empty on success, else the message.
    // On success the signature pattern is "(" + the trimmed parameter
    // patterns joined by ", " + ")", and the return pattern is "*" when the
    // pattern names none. After a failure the outputs hold whatever the
    // steps before it filled in.
    static ZString parseMethodPattern(const ZString& pattern, ZString& classPattern, ZString& methodPattern,
                                      ZString& signaturePattern, ZString& returnTypePattern,
                                      ZString& classAnnotationPattern, ZString& methodAnnotationPattern);
};

// A name judged byte by byte: a letter, "$", "_" (or "*" with wildcards)
// first, then digits too; bytes with the top bit set always pass.
bool isValidJavaIdentifier(const ZString& name, bool wildcards);
// Dotted identifiers, no empty piece.
bool isValidTypeName(const ZString& name, bool wildcards);
// A type name pattern, optionally followed by array brackets and stars.
bool isValidParameterTypePattern(const ZString& pattern);
// String, String[], Object, Object[] and Class become their java.lang names.
void expandJavaLangType(ZString* type);
// "com.acme.*" -> "Lcom/acme/*;"; empty stays empty.
ZString className2signature(const ZString& name);
