#include "foundation/ZString.h"

#include <cstdlib>
#include <new>

#include "foundation/ZVector.h"

template <typename C>
static int textLength(const C* text) {
    int n = 0;
    while (text[n] != 0) n++;
    return n;
}

template <typename C>
ZStringImpl<C>::ZStringImpl(const C* text) : ZStringImpl() {
    if (text == nullptr) zstringFail(__LINE__);
    assign(text, textLength(text));
}

template <typename C>
ZStringImpl<C>::ZStringImpl(const C* chars, int count) : ZStringImpl() {
    if (chars == nullptr || count < 0) zstringFail(__LINE__);
    assign(chars, count);
}

template <typename C>
ZStringImpl<C>::ZStringImpl(int initialCapacity) : ZStringImpl() {
    if (initialCapacity < 0) zstringFail(__LINE__);
    if (initialCapacity > INLINE_CAPACITY) {
        data = new C[initialCapacity];
        capacity = initialCapacity;
        data[0] = 0;
    }
}

template <typename C>
ZStringImpl<C>::ZStringImpl(ZStringImpl&& other) noexcept : ZStringImpl() {
    if (other.isInline()) {
        memcpy(inlineBuffer, other.inlineBuffer, sizeof(inlineBuffer));
        length = other.length;
    } else {
        data = other.data;
        capacity = other.capacity;
        length = other.length;
        other.data = other.inlineBuffer;
        other.capacity = INLINE_CAPACITY;
        other.length = 0;
        other.inlineBuffer[0] = 0;
    }
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::operator=(const ZStringImpl& other) {
    if (this != &other) {
        release();
        assign(other.data, other.length);
    }
    return *this;
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::operator=(ZStringImpl&& other) noexcept {
    if (this != &other) {
        release();
        new (this) ZStringImpl(static_cast<ZStringImpl&&>(other));
    }
    return *this;
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::operator=(const C* text) {
    if (text == nullptr) zstringFail(__LINE__);
    if (text >= data && text < data + capacity) {
        ZStringImpl copy(text);
        return *this = static_cast<ZStringImpl&&>(copy);
    }
    release();
    assign(text, textLength(text));
    return *this;
}

template <typename C>
void ZStringImpl<C>::release() {
    if (data != inlineBuffer && data != nullptr) delete[] data;
    data = inlineBuffer;
    capacity = INLINE_CAPACITY;
    length = 0;
    inlineBuffer[0] = 0;
}

// Capacity 20 inline, or exactly count + 1 on the heap.
template <typename C>
void ZStringImpl<C>::assign(const C* chars, int count) {
    if (count + 1 > INLINE_CAPACITY) {
        data = new C[count + 1];
        capacity = count + 1;
    }
    memcpy(data, chars, count * sizeof(C));
    length = count;
    data[length] = 0;
}

template <typename C>
void ZStringImpl<C>::clear() {
    length = 0;
    data[0] = 0;
}

// Sizes are summed in 64 bits: doubling a large capacity must not overflow.
template <typename C>
void ZStringImpl<C>::ensureCapacity(long long needed) {
    if (needed <= capacity) return;
    if (needed > 0x7fffffff) zstringFail(__LINE__);
    long long grown = (long long)capacity * 2;
    if (grown < needed) grown = needed;
    if (grown > 0x7fffffff) grown = 0x7fffffff;
    C* bigger = new C[grown];
    memcpy(bigger, data, (length + 1) * sizeof(C));
    if (data != inlineBuffer) delete[] data;
    data = bigger;
    capacity = (int32_t)grown;
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::append(const C* text) {
    if (text == nullptr) zstringFail(__LINE__);
    return append(text, textLength(text));
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::append(const C* chars, int count) {
    if (chars == nullptr || count < 0) zstringFail(__LINE__);
    if (count == 0) return *this;
    if (chars >= data && chars < data + capacity) {
        ZStringImpl copy(chars, count);
        return append(copy.data, count);
    }
    ensureCapacity((long long)length + count + 1);
    memcpy(data + length, chars, count * sizeof(C));
    length += count;
    data[length] = 0;
    return *this;
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::appendChar(C c) {
    ensureCapacity((long long)length + 2);
    data[length++] = c;
    data[length] = 0;
    return *this;
}

template <typename C>
ZStringImpl<C>& ZStringImpl<C>::appendLong(long long value) {
    C digits[24];
    int n = 0;
    unsigned long long magnitude = value < 0 ? 0ULL - (unsigned long long)value : (unsigned long long)value;
    do {
        digits[n++] = (C)('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0) digits[n++] = '-';
    C text[24];
    for (int i = 0; i < n; i++) text[i] = digits[n - 1 - i];
    return append(text, n);
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::concat(const C* chars, int count) const {
    int needed = length + count + 1;
    ZStringImpl result(needed > INLINE_CAPACITY ? (needed > 40 ? needed : 40) : 0);
    result.append(data, length);
    result.append(chars, count);
    return result;
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::operator+(const C* text) const {
    if (text == nullptr) zstringFail(__LINE__);
    return concat(text, textLength(text));
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::substring(int from, int to) const {
    if (from < 0 || to < from || to > length) zstringFail(__LINE__);
    return ZStringImpl(data + from, to - from);
}

template <typename C>
int ZStringImpl<C>::indexOf(const C* needle, int needleLength, int from) const {
    if (from < 0) from = 0;
    if (needleLength == 0) return from <= length ? from : -1;
    for (int i = from; i + needleLength <= length; i++) {
        if (data[i] == needle[0] && memcmp(data + i, needle, needleLength * sizeof(C)) == 0) return i;
    }
    return -1;
}

template <typename C>
int ZStringImpl<C>::indexOf(const C* needle, int from) const {
    if (needle == nullptr) zstringFail(__LINE__);
    return indexOf(needle, textLength(needle), from);
}

template <typename C>
int ZStringImpl<C>::indexOfChar(C c, int from) const {
    for (int i = from < 0 ? 0 : from; i < length; i++)
        if (data[i] == c) return i;
    return -1;
}

template <typename C>
int ZStringImpl<C>::lastIndexOfChar(C c) const {
    for (int i = length - 1; i >= 0; i--)
        if (data[i] == c) return i;
    return -1;
}

template <typename C>
bool ZStringImpl<C>::contains(const C* needle) const {
    if (needle == nullptr) zstringFail(__LINE__);
    return indexOf(needle) >= 0;
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::replaceAll(const C* from, const C* to) const {
    if (from == nullptr || to == nullptr) zstringFail(__LINE__);
    int fromLength = textLength(from);
    if (fromLength == 0) return *this;
    int toLength = textLength(to);
    ZStringImpl result;
    int position = 0;
    for (;;) {
        int found = indexOf(from, fromLength, position);
        if (found < 0) break;
        result.append(data + position, found - position);
        result.append(to, toLength);
        position = found + fromLength;
    }
    result.append(data + position, length - position);
    return result;
}

template <typename C>
void ZStringImpl<C>::split(const C* delimiters, ZVectorSafe<ZStringImpl>& result) const {
    if (delimiters == nullptr) zstringFail(__LINE__);
    int delimiterCount = textLength(delimiters);
    int start = 0;
    for (int i = 0; i <= length; i++) {
        bool atDelimiter = false;
        if (i < length) {
            for (int d = 0; d < delimiterCount; d++) {
                if (data[i] == delimiters[d]) {
                    atDelimiter = true;
                    break;
                }
            }
        }
        if (i == length || atDelimiter) {
            if (i > start) result.push(ZStringImpl(data + start, i - start));
            start = i + 1;
        }
    }
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::trim() const {
    int from = 0;
    int to = length;
    while (from < to && data[from] >= 1 && data[from] <= 32) from++;
    while (to > from && data[to - 1] >= 1 && data[to - 1] <= 32) to--;
    return ZStringImpl(data + from, to - from);
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::getFirstToken(C c) const {
    int at = indexOfChar(c);
    return at < 0 ? *this : ZStringImpl(data, at);
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::getLastToken(C c) const {
    int at = lastIndexOfChar(c);
    return at < 0 ? *this : ZStringImpl(data + at + 1, length - at - 1);
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::cutPostfix(const C* postfix) const {
    if (!endsWith(postfix)) return *this;
    return ZStringImpl(data, length - textLength(postfix));
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::toLowerCase() const {
    ZStringImpl result(*this);
    for (int i = 0; i < result.length; i++) {
        C c = result.data[i];
        if (c >= 'A' && c <= 'Z') result.data[i] = (C)(c - 'A' + 'a');
    }
    return result;
}

template <typename C>
bool ZStringImpl<C>::startsWith(const C* prefix) const {
    if (prefix == nullptr) zstringFail(__LINE__);
    int n = textLength(prefix);
    return n <= length && memcmp(data, prefix, n * sizeof(C)) == 0;
}

template <typename C>
bool ZStringImpl<C>::endsWith(const C* suffix) const {
    if (suffix == nullptr) zstringFail(__LINE__);
    int n = textLength(suffix);
    return n <= length && memcmp(data + length - n, suffix, n * sizeof(C)) == 0;
}

template <typename C>
bool ZStringImpl<C>::equals(const C* text) const {
    if (text == nullptr) zstringFail(__LINE__);
    int n = textLength(text);
    return n == length && memcmp(data, text, n * sizeof(C)) == 0;
}

template <typename C>
int ZStringImpl<C>::compareTo(const ZStringImpl& other) const {
    int common = length < other.length ? length : other.length;
    for (int i = 0; i < common; i++) {
        signed char a = (signed char)data[i];
        signed char b = (signed char)other.data[i];
        if (a != b) return a < b ? -1 : 1;
    }
    return length == other.length ? 0 : (length < other.length ? -1 : 1);
}

// Four characters a step: the same value as one at a time, with a quarter
// of the multiplications in sequence.
int32_t hashText31(const char* chars, int length) {
    uint32_t h = 0;
    int i = 0;
    for (; i + 4 <= length; i += 4) {
        uint32_t c0 = (uint32_t)(int32_t)(signed char)chars[i];
        uint32_t c1 = (uint32_t)(int32_t)(signed char)chars[i + 1];
        uint32_t c2 = (uint32_t)(int32_t)(signed char)chars[i + 2];
        uint32_t c3 = (uint32_t)(int32_t)(signed char)chars[i + 3];
        h = h * (31u * 31u * 31u * 31u) + (c0 * (31u * 31u * 31u) + c1 * (31u * 31u)) + (c2 * 31u + c3);
    }
    for (; i < length; i++) h = h * 31 + (uint32_t)(int32_t)(signed char)chars[i];
    return (int32_t)h;
}

template <typename C>
int32_t ZStringImpl<C>::hashCode() const {
    return hashText31((const char*)data, length);
}

template <typename C>
long long ZStringImpl<C>::parseLong(bool* failed) const {
    if (failed != nullptr) *failed = false;
    int i = 0;
    bool negative = false;
    if (length > 0 && data[0] == '-') {
        negative = true;
        i = 1;
    }
    if (i == length) {
        if (failed != nullptr) *failed = true;
        return 0;
    }
    unsigned long long value = 0;
    for (; i < length; i++) {
        C c = data[i];
        if (c < '0' || c > '9') {
            if (failed != nullptr) *failed = true;
            return 0;
        }
        value = value * 10 + (unsigned)(c - '0');
    }
    return negative ? (long long)(0ULL - value) : (long long)value;
}

template <typename C>
bool ZStringImpl<C>::isPrefix(const ZStringImpl& s, const C* prefix, ZStringImpl* rest) {
    if (rest == nullptr) zstringFail(__LINE__);
    if (!s.startsWith(prefix)) {
        rest->clear();
        return false;
    }
    *rest = s.substring(textLength(prefix));
    return true;
}

template <typename C>
bool ZStringImpl<C>::isPrefixInt(const ZStringImpl& s, const C* prefix, int* value) {
    if (value == nullptr) zstringFail(__LINE__);
    long long v = 0;
    bool found = isPrefixLong(s, prefix, &v);
    *value = (int)v;
    return found;
}

template <typename C>
bool ZStringImpl<C>::isPrefixLong(const ZStringImpl& s, const C* prefix, long long* value) {
    if (value == nullptr) zstringFail(__LINE__);
    ZStringImpl rest;
    if (!isPrefix(s, prefix, &rest)) {
        *value = 0;
        return false;
    }
    *value = rest.parseLong();
    return true;
}

template <typename C>
bool ZStringImpl<C>::isPrefixDouble(const ZStringImpl& s, const C* prefix, double* value) {
    if (value == nullptr) zstringFail(__LINE__);
    ZStringImpl rest;
    if (!isPrefix(s, prefix, &rest)) {
        *value = 0;
        return false;
    }
    *value = atof((const char*)rest.c_str());
    return true;
}

// The pad stands left of the sign: -5 at width 4 with "0" gives "00-5".
template <typename C>
ZStringImpl<C> ZStringImpl<C>::formatLong(long long value, int width, const C* pad) {
    if (width < 1 || pad == nullptr) zstringFail(__LINE__);
    ZStringImpl digits;
    digits.appendLong(value);
    ZStringImpl result;
    for (int i = digits.length; i < width; i++) result.append(pad);
    result.append(digits);
    return result;
}

template <typename C>
ZStringImpl<C> ZStringImpl<C>::nanosAsMs(long long nanos) {
    ZStringImpl result;
    result.appendLong(nanos / 1000000);
    result.append("ms");
    return result;
}

template class ZStringImpl<char>;

long long parseLongSafe(const ZString& text) {
    const char* p = text.c_str();
    bool negative = false;
    if (*p == '-') {
        negative = true;
        p++;
    }
    unsigned long long value = 0;
    while (*p >= '0' && *p <= '9') value = value * 10 + (unsigned)(*p++ - '0');
    return negative ? (long long)(0ULL - value) : (long long)value;
}


