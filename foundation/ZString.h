// ZString: the system's own byte string. Up to 19 characters live inside the
// object, so the short strings built on hot paths cost no allocation.
#pragma once

#include <cstdint>
#include <cstring>

template <typename T, int N> class ZVector;
template <typename T> class ZVectorSafe;

#include "foundation/Failure.h"

// h = h * 31 + c over `length` signed characters, in 32 bits; 0 when empty.
int32_t hashText31(const char* chars, int length);

template <typename C>
class ZStringImpl {
public:
    static const int INLINE_CAPACITY = 20;

    ZStringImpl() : data(inlineBuffer), capacity(INLINE_CAPACITY), length(0) { inlineBuffer[0] = 0; }
    ZStringImpl(const C* text);
    ZStringImpl(const C* chars, int count);
    explicit ZStringImpl(int initialCapacity);
    ZStringImpl(const ZStringImpl& other) : ZStringImpl(other.data, other.length) {}
    ZStringImpl(ZStringImpl&& other) noexcept;
    ~ZStringImpl() { release(); }

    ZStringImpl& operator=(const ZStringImpl& other);
    ZStringImpl& operator=(ZStringImpl&& other) noexcept;
    ZStringImpl& operator=(const C* text);

    const C* c_str() const { return data; }
    int getLength() const { return length; }
    int getCapacity() const { return capacity; }
    bool isEmpty() const { return length == 0; }
    bool isInline() const { return data == inlineBuffer; }

    C operator[](int index) const {
        if (index < 0 || index >= length) zstringFail(__LINE__);
        return data[index];
    }
    C charAt(int index) const { return (*this)[index]; }

    void clear();
    ZStringImpl& append(const ZStringImpl& other) { return append(other.data, other.length); }
    ZStringImpl& append(const C* text);
    ZStringImpl& append(const C* chars, int count);
    ZStringImpl& appendChar(C c);
    ZStringImpl& appendLong(long long value);
    ZStringImpl& operator+=(const ZStringImpl& other) { return append(other); }
    ZStringImpl& operator+=(const C* text) { return append(text); }

    ZStringImpl operator+(const ZStringImpl& other) const { return concat(other.data, other.length); }
    ZStringImpl operator+(const C* text) const;

    ZStringImpl substring(int from, int to) const;
    ZStringImpl substring(int from) const { return substring(from, length); }
    int indexOf(const ZStringImpl& needle, int from = 0) const { return indexOf(needle.data, needle.length, from); }
    int indexOf(const C* needle, int from = 0) const;
    int indexOfChar(C c, int from = 0) const;
    int lastIndexOfChar(C c) const;
    bool contains(const C* needle) const;
    bool contains(const ZStringImpl& needle) const { return indexOf(needle) >= 0; }
    ZStringImpl replaceAll(const C* from, const C* to) const;
    void split(const C* delimiters, ZVectorSafe<ZStringImpl>& result) const;
    ZStringImpl trim() const;
    ZStringImpl getFirstToken(C c) const;
    ZStringImpl getLastToken(C c) const;
    ZStringImpl cutPostfix(const C* postfix) const;
    ZStringImpl toLowerCase() const;

    bool startsWith(const C* prefix) const;
    bool startsWith(const ZStringImpl& prefix) const { return startsWith(prefix.data); }
    bool endsWith(const C* suffix) const;
    bool endsWith(const ZStringImpl& suffix) const { return endsWith(suffix.data); }

    bool equals(const ZStringImpl& other) const {
        return length == other.length && memcmp(data, other.data, length * sizeof(C)) == 0;
    }
    bool equals(const C* text) const;
    bool operator==(const ZStringImpl& other) const { return equals(other); }
    bool operator!=(const ZStringImpl& other) const { return !equals(other); }
    bool operator==(const C* text) const { return equals(text); }
    bool operator!=(const C* text) const { return !equals(text); }
    // Byte order on signed chars; shorter first on a common prefix.
    int compareTo(const ZStringImpl& other) const;
    bool operator<(const ZStringImpl& other) const { return compareTo(other) < 0; }

    // h = h * 31 + c over the signed characters, in 32 bits; 0 when empty.
    int32_t hashCode() const;

    // Optional "-" and digits to the end. An empty text or a non-digit sets
    // *failed (when given) and gives 0. Overflow wraps.
    long long parseLong(bool* failed = nullptr) const;
    int parseInt(bool* failed = nullptr) const { return (int)parseLong(failed); }

    static bool isPrefix(const ZStringImpl& s, const C* prefix, ZStringImpl* rest);
    static bool isPrefixInt(const ZStringImpl& s, const C* prefix, int* value);
    static bool isPrefixLong(const ZStringImpl& s, const C* prefix, long long* value);
    static bool isPrefixDouble(const ZStringImpl& s, const C* prefix, double* value);
    static ZStringImpl formatLong(long long value, int width, const C* pad);
    static ZStringImpl nanosAsMs(long long nanos);
    static ZStringImpl fromLong(long long value) { ZStringImpl s; s.appendLong(value); return s; }

private:
    void release();
    void ensureCapacity(long long needed);
    void assign(const C* chars, int count);
    int indexOf(const C* needle, int needleLength, int from) const;
    ZStringImpl concat(const C* chars, int count) const;

    C* data;
    C inlineBuffer[INLINE_CAPACITY];
    int32_t capacity;
    int32_t length;
};

typedef ZStringImpl<char> ZString;

inline ZString operator+(const char* left, const ZString& right) { return ZString(left) + right; }

// Stops at the first non-digit and returns what it has, with the sign applied.
long long parseLongSafe(const ZString& text);
