// Text helpers of the OS layer: wildcard matching, configuration files,
// number formatting.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/Failure.h"
#include "foundation/System.h"

// Only "*" is special; a run of them acts as one. Characters compare as
// they are, case included.
template <typename C>
static bool wildcardMatchImpl(const C* pattern, const C* text) {
    if (pattern == nullptr) return true;
    for (;;) {
        if (*pattern == '*') {
            while (*pattern == '*') pattern++;
            if (*pattern == 0) return true;
            for (; *text != 0; text++) {
                if (wildcardMatchImpl(pattern, text)) return true;
            }
            return false;
        }
        if (*text == 0) return *pattern == 0;
        if (*pattern != *text) return false;
        pattern++;
        text++;
    }
}

bool wildcardMatch(const char* pattern, const char* text) {
    return wildcardMatchImpl(pattern, text);
}

bool wildcardMatchW(const wchar_t* pattern, const wchar_t* text) {
    return wildcardMatchImpl(pattern, text);
}

bool wildcardMatchZS(const ZString& pattern, const ZString& text) {
    return wildcardMatchImpl(pattern.c_str(), text.c_str());
}

ZString readConfigFromFile(const ZString& path, const char* defaultName, const char* defaultContent) {
    ZString effectivePath = path.isEmpty() ? getFilePathInAppSettings(defaultName) : path;
    FILE* file = z_fopen(effectivePath.c_str(), "rb");
    if (file == nullptr) return ZString(defaultContent);
    ZString content;
    bool ok = readFile(file, content);
    fclose(file);
    return ok ? content : ZString(defaultContent);
}

// Trimmed lines without empty ones and "#" comments.
void splitConfigFile(ZVectorSafe<ZString>* result, const ZString& text) {
    KZT_ASSERT_NOT_NULL(result);
    result->clear();
    ZVectorSafe<ZString> lines;
    text.split("\n\r", lines);
    for (int i = 0; i < lines.getSize(); i++) {
        ZString line = lines[i].trim();
        if (line.isEmpty() || line.startsWith("#")) continue;
        result->push(line);
    }
}

ZString doubleToString(double value, int digits) {
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%.*f", digits < 0 ? 0 : digits, value);
    return ZString(buffer);
}

char* z_strdup(const char* text) {
    KZT_ASSERT_NOT_NULL(text);
    size_t size = strlen(text) + 1;
    char* copy = (char*)malloc(size);
    if (copy != nullptr) memcpy(copy, text, size);
    return copy;
}
