#include "db/SignatureNames.h"

#include <cstring>

static const char* primitiveName(char letter) {
    switch (letter) {
        case 'B': return "byte";
        case 'C': return "char";
        case 'D': return "double";
        case 'F': return "float";
        case 'I': return "int";
        case 'J': return "long";
        case 'S': return "short";
        case 'V': return "void";
        case 'Z': return "boolean";
        default: return nullptr;
    }
}

// Whole package segments at a time: names are long and slashes few.
static void appendDotted(ZString& to, const char* from, int count) {
    const char* end = from + count;
    for (const char* slash; (slash = (const char*)memchr(from, '/', end - from)) != nullptr; from = slash + 1) {
        to.append(from, (int)(slash - from)).appendChar('.');
    }
    to.append(from, (int)(end - from));
}

static void appendArraySuffixes(ZString& to, int dimensions) {
    for (int i = 0; i < dimensions; i++) to.append("[]");
}

ZString convertClassSignatureToFullName(const char* signature) {
    ZString result;
    if (signature == nullptr) return result;
    int dimensions = 0;
    while (signature[dimensions] == '[') dimensions++;
    const char* rest = signature + dimensions;
    int length = (int)strlen(rest);
    const char* primitive = length == 1 ? primitiveName(rest[0]) : nullptr;
    if (primitive != nullptr) result.append(primitive);
    else if (length >= 2 && rest[0] == 'L' && rest[length - 1] == ';') appendDotted(result, rest + 1, length - 2);
    else appendDotted(result, rest, length);
    appendArraySuffixes(result, dimensions);
    return result;
}

ZString convertMethodSignatureToParameters(const ZString& descriptor) {
    // Mostly as long as the descriptor; one growth at most for many primitives.
    ZString result(descriptor.getLength() + 8);
    result.appendChar('(');
    int close = descriptor.lastIndexOfChar(')');
    const char* text = descriptor.c_str();
    bool first = true;
    for (int i = 1; close >= 2 && i < close;) {
        int dimensions = 0;
        while (i < close && text[i] == '[') {
            dimensions++;
            i++;
        }
        if (i >= close) break;
        if (!first) result.append(", ");
        first = false;
        if (text[i] == 'L') {
            int end = descriptor.indexOfChar(';', i);
            if (end < 0 || end > close) end = close;
            appendDotted(result, text + i + 1, end - i - 1);
            i = end + 1;
        } else {
            const char* primitive = primitiveName(text[i]);
            if (primitive != nullptr) result.append(primitive);
            else result.appendChar(text[i]);
            i++;
        }
        appendArraySuffixes(result, dimensions);
    }
    result.append(")");
    return result;
}

ZString getReturnTypeFromMethodSignature(const ZString& descriptor) {
    int close = descriptor.lastIndexOfChar(')');
    if (close <= 0) return ZString("void");
    return convertClassSignatureToFullName(descriptor.c_str() + close + 1);
}
