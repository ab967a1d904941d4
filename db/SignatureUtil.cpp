#include "db/SignatureUtil.h"

#include <cctype>

#include "foundation/ZVector.h"

static const char* const SYNTAX_MESSAGE = "invalid pattern syntax, must be <class>:<method>(<params>)";

static bool isTopBitSet(char c) { return ((unsigned char)c & 0x80) != 0; }

static bool isIdentifierStart(char c, bool wildcards) {
    return isTopBitSet(c) || isalpha((unsigned char)c) || c == '$' || c == '_' || (wildcards && c == '*');
}

bool isValidJavaIdentifier(const ZString& name, bool wildcards) {
    int length = name.getLength();
    if (length == 0) return false;
    const char* chars = name.c_str();
    if (chars[0] == '.' || chars[length - 1] == '.') return false;
    if (!isIdentifierStart(chars[0], wildcards)) return false;
    for (int i = 1; i < length; i++) {
        if (!isIdentifierStart(chars[i], wildcards) && !(chars[i] >= '0' && chars[i] <= '9')) return false;
    }
    return true;
}

bool isValidTypeName(const ZString& name, bool wildcards) {
    if (name.isEmpty() || name.startsWith(".") || name.endsWith(".") || name.contains("..")) return false;
    ZVectorSafe<ZString> pieces;
    name.split(".", pieces);
    for (const ZString& piece : pieces) {
        if (!isValidJavaIdentifier(piece, wildcards)) return false;
    }
    return true;
}

bool isValidParameterTypePattern(const ZString& pattern) {
    int open = pattern.indexOfChar('[');
    int close = pattern.indexOfChar(']');
    int bracket = open < 0 ? close : (close < 0 ? open : (open < close ? open : close));
    if (bracket < 0) return isValidTypeName(pattern, true);
    if (!isValidTypeName(pattern.substring(0, bracket), true)) return false;
    // Deliberately loose: int[]*, int[*] and int[]*[] pass.
    ZString suffix = pattern.substring(bracket);
    if (suffix.startsWith("]") || suffix.endsWith("[") || suffix.contains("[[") || suffix.contains("]]")) return false;
    for (int i = 0; i < suffix.getLength(); i++) {
        char c = suffix[i];
        if (c != '[' && c != ']' && c != '*') return false;
    }
    return true;
}

void expandJavaLangType(ZString* type) {
    KZT_ASSERT_NOT_NULL(type);
    // Class[] on purpose stays as written.
    static const char* const SHORT_NAMES[] = {"String", "String[]", "Object", "Object[]", "Class"};
    for (const char* name : SHORT_NAMES) {
        if (type->equals(name)) {
            *type = ZString("java.lang.") + name;
            return;
        }
    }
}

ZString className2signature(const ZString& name) {
    if (name.isEmpty()) return ZString();
    return ZString("L") + name.replaceAll(".", "/") + ";";
}

// "@annotation pattern" + blank + pattern; false when the form is broken.
static bool splitAnnotationForm(const ZString& part, ZString& annotation, ZString& pattern) {
    int blank = part.lastIndexOfChar(' ');
    if (blank < 2) return false;
    annotation = part.substring(1, blank).trim();
    pattern = part.substring(blank + 1);
    return true;
}

ZString SignatureUtil::parseMethodPattern(const ZString& pattern, ZString& classPattern, ZString& methodPattern,
                                          ZString& signaturePattern, ZString& returnTypePattern,
                                          ZString& classAnnotationPattern, ZString& methodAnnotationPattern) {
    int colon = pattern.indexOfChar(':');
    int open = pattern.indexOfChar('(');
    int close = pattern.indexOfChar(')');
    if (colon < 0 || open < 0 || close < 0 || colon > open || open > close) return ZString(SYNTAX_MESSAGE);

    classAnnotationPattern.clear();
    methodAnnotationPattern.clear();
    ZString classPart = pattern.substring(0, colon).trim();
    if (classPart.startsWith("@")) {
        if (!splitAnnotationForm(classPart, classAnnotationPattern, classPattern)) {
            return ZString("class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern>");
        }
    } else {
        classPattern = classPart;
    }
    if (!isValidTypeName(classPattern, true)) return ZString("class name pattern is invalid: ") + classPattern;
    if (!classAnnotationPattern.isEmpty() && !isValidTypeName(classAnnotationPattern, true)) {
        return ZString("class annotation pattern is invalid: ") + classAnnotationPattern;
    }

    ZString methodPart = pattern.substring(colon + 1, open).trim();
    if (methodPart.startsWith("@")) {
        if (!splitAnnotationForm(methodPart, methodAnnotationPattern, methodPattern)) {
            return ZString("method pattern with annotation is invalid, must be: @<annotation pattern> <method pattern>");
        }
    } else {
        methodPattern = methodPart;
    }
    if (!isValidJavaIdentifier(methodPattern, true) && !methodPattern.equals("<init>") && !methodPattern.equals("<clinit>")) {
        return ZString("method name pattern is invalid: ") + methodPattern;
    }
    if (!methodAnnotationPattern.isEmpty() && !isValidTypeName(methodAnnotationPattern, true)) {
        return ZString("method annotation pattern is invalid: ") + methodAnnotationPattern;
    }

    if (pattern.trim().endsWith(")")) {
        returnTypePattern = "*";
    } else {
        returnTypePattern = pattern.substring(close + 1).trim();
        if (!isValidParameterTypePattern(returnTypePattern)) {
            return ZString("return type pattern is invalid: ") + returnTypePattern;
        }
        expandJavaLangType(&returnTypePattern);
    }

    signaturePattern = ZString(128);
    signaturePattern.appendChar('(');
    ZVectorSafe<ZString> pieces;
    pattern.substring(open + 1, close).split(",", pieces);
    bool emptyList = pieces.getSize() == 1 && pieces[0].trim().isEmpty();
    for (int i = 0; i < pieces.getSize() && !emptyList; i++) {
        ZString piece = pieces[i].trim();
        if (!isValidParameterTypePattern(piece)) return ZString("parameter pattern is invalid: ") + piece;
        expandJavaLangType(&piece);
        if (i > 0) signaturePattern.append(", ");
        signaturePattern.append(piece);
    }
    signaturePattern.appendChar(')');
    return ZString();
}
