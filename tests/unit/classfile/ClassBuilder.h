// Builds small class files byte by byte for the toolkit's tests, and helpers
// to parse and write them with the toolkit.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <ostream>
#include <memory>
#include <string>
#include <vector>

#include "foundation/Failure.h"
#include "classfile/ClassFile.h"

typedef std::vector<uint8_t> Bytes;

inline void putU2(Bytes& b, int v) {
    b.push_back((uint8_t)(v >> 8));
    b.push_back((uint8_t)v);
}
inline void putU2(Bytes& b, std::initializer_list<int> values) {
    for (int v : values) putU2(b, v);
}
inline void putU4(Bytes& b, uint32_t v) {
    putU2(b, (int)(v >> 16));
    putU2(b, (int)(v & 0xffff));
}
inline void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

struct MethodSpec {
    int access = 0x0009;  // public static
    std::string name = "m";
    std::string descriptor = "()V";
    Bytes code;
    int maxStack = 4, maxLocals = 4;
    std::vector<std::vector<int>> exceptions;  // start, end, handler, catch type
    std::vector<std::pair<int, int>> lines;    // start pc, line
    std::vector<std::vector<int>> locals;      // start, length, name, descriptor, index
    bool withStackMap = false;
    Bytes stackMap;  // body of the table: count and frames
    bool withCode = true;
};

class ClassBuilder {
public:
    int major = 52;
    std::string name = "T";

    int utf8(const std::string& s) {
        auto it = myUtf8.find(s);
        return it != myUtf8.end() ? it->second : (myUtf8[s] = duplicateUtf8(s));
    }
    // A second, equal Utf8 entry, which utf8() would not make.
    int duplicateUtf8(const std::string& s) {
        Bytes e{1};
        putU2(e, (int)s.size());
        e.insert(e.end(), s.begin(), s.end());
        return add(e);
    }
    int cls(const std::string& n) {
        Bytes e{7};
        putU2(e, utf8(n));
        return add(e);
    }
    int integer(int v) {
        Bytes e{3};
        putU4(e, (uint32_t)v);
        return add(e);
    }
    int longConstant(int64_t v) {
        Bytes e{5};
        putU4(e, (uint32_t)((uint64_t)v >> 32));
        putU4(e, (uint32_t)v);
        int index = add(e);
        myCount++;
        return index;
    }
    int raw(const Bytes& e) { return add(e); }

    MethodSpec& method(const std::string& n, const std::string& d, int access = 0x0009) {
        myMethods.push_back(MethodSpec());
        MethodSpec& m = myMethods.back();
        m.name = n;
        m.descriptor = d;
        m.access = access;
        return m;
    }

    Bytes build() {
        int thisClass = cls(name);
        int superClass = cls("java/lang/Object");
        Bytes body;
        putU2(body, {0x0021, thisClass, superClass, 0, 0, (int)myMethods.size()});  // no interfaces, no fields
        for (MethodSpec& m : myMethods) {
            putU2(body, {m.access, utf8(m.name), utf8(m.descriptor)});
            if (!m.withCode) {
                putU2(body, 0);
                continue;
            }
            putU2(body, 1);
            Bytes code;
            putU2(code, {m.maxStack, m.maxLocals});
            putU4(code, (uint32_t)m.code.size());
            append(code, m.code);
            putU2(code, (int)m.exceptions.size());
            for (auto& e : m.exceptions)
                for (int v : e) putU2(code, v);
            int attributes = (m.lines.empty() ? 0 : 1) + (m.locals.empty() ? 0 : 1) + (m.withStackMap ? 1 : 0);
            putU2(code, attributes);
            if (!m.lines.empty()) {
                putU2(code, utf8("LineNumberTable"));
                putU4(code, 2 + 4 * (uint32_t)m.lines.size());
                putU2(code, (int)m.lines.size());
                for (auto& l : m.lines) putU2(code, {l.first, l.second});
            }
            if (!m.locals.empty()) {
                putU2(code, utf8("LocalVariableTable"));
                putU4(code, 2 + 10 * (uint32_t)m.locals.size());
                putU2(code, (int)m.locals.size());
                for (auto& v : m.locals)
                    for (int x : v) putU2(code, x);
            }
            if (m.withStackMap) {
                putU2(code, utf8("StackMapTable"));
                putU4(code, (uint32_t)m.stackMap.size());
                append(code, m.stackMap);
            }
            putU2(body, utf8("Code"));
            putU4(body, (uint32_t)code.size());
            append(body, code);
        }
        putU2(body, 0);  // class attributes
        Bytes out{0xCA, 0xFE, 0xBA, 0xBE};
        putU2(out, {0, major, myCount});
        append(out, myPool);
        append(out, body);
        return out;
    }

private:
    int add(const Bytes& e) {
        append(myPool, e);
        return myCount++;
    }

    Bytes myPool;
    int myCount = 1;
    std::map<std::string, int> myUtf8;
    std::vector<MethodSpec> myMethods;
};

inline ZVector<unsigned char, 10> toVector(const Bytes& b) {
    ZVector<unsigned char, 10> v;
    v.resize((int)b.size());
    if (!b.empty()) memcpy(v.getElements(), b.data(), b.size());
    return v;
}

inline std::unique_ptr<ClassFile> parseClass(const Bytes& b) {
    ZVector<unsigned char, 10> v = toVector(b);
    DataInput in(v);
    return std::unique_ptr<ClassFile>(new ClassFile(in));
}

inline Bytes writeClass(ClassFile& cf) {
    ZVector<unsigned char, 10> out;
    DataOutput dout(out);
    cf.writeClass(dout);
    return Bytes(out.getElements(), out.getElements() + out.getSize());
}

// A parsed class and the code of its first method.
struct ParsedCode {
    std::unique_ptr<ClassFile> cf;
    CodeAttribute* code;
};
inline ParsedCode firstCode(const Bytes& b) {
    std::unique_ptr<ClassFile> cf = parseClass(b);
    CodeAttribute* code = cf->getMethods()[0]->getCodeAttribute();
    return {std::move(cf), code};
}

// The offsets of a method's stack map frames, the initial frame's -1 first.
inline std::vector<int> frameOffsets(CodeAttribute* code) {
    std::vector<int> offsets;
    for (int i = 0; i < code->getFrames().getSize(); i++) offsets.push_back(code->getFrames()[i]->getOffset());
    return offsets;
}

inline bool operator==(const char* text, const ZString& s) { return s.equals(text); }
inline void PrintTo(const ZString& s, std::ostream* os) { *os << '"' << s.c_str() << '"'; }

