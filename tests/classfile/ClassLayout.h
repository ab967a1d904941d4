// A small class-file splitter written for the tests, independent of the
// toolkit: it cuts a class into its parts as raw bytes and decodes stack map
// tables into full frames with types spelled as text, so that two encodings
// can be compared by meaning.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace layout {

typedef std::vector<uint8_t> Bytes;

struct Reader {
    const Bytes& b;
    size_t p = 0;
    explicit Reader(const Bytes& bytes, size_t at = 0) : b(bytes), p(at) {}
    void need(size_t n) const {
        if (p + n > b.size()) throw std::runtime_error("truncated");
    }
    int u1() { need(1); return b[p++]; }
    int u2() { need(2); int v = (b[p] << 8) | b[p + 1]; p += 2; return v; }
    uint32_t u4() { need(4); uint32_t v = ((uint32_t)b[p] << 24) | (b[p + 1] << 16) | (b[p + 2] << 8) | b[p + 3]; p += 4; return v; }
    Bytes take(size_t n) { need(n); Bytes r(b.begin() + p, b.begin() + p + n); p += n; return r; }
};

struct Attribute {
    int nameIndex;
    std::string name;
    Bytes body;
};

struct Member {
    Bytes head;  // access, name, descriptor
    int access, nameIndex, descriptorIndex;
    std::vector<Attribute> attributes;
};

struct Code {
    Bytes head;  // max stack, max locals, code length, code, exception table
    std::vector<Attribute> attributes;
};

struct Class {
    int major = 0;
    Bytes header;  // magic, minor, major
    int poolCount = 0;
    std::vector<Bytes> pool;  // raw entries; index 0 and the slots after wide entries empty
    std::map<int, std::string> utf8;
    std::map<int, int> classNames;  // Class index to Utf8 index
    Bytes middle;                   // access, this, super, interfaces
    int thisClass = 0;
    std::vector<Member> fields, methods;
    std::vector<Attribute> attributes;
};

inline std::vector<Attribute> readAttributes(Reader& r, const Class& c) {
    std::vector<Attribute> list;
    int n = r.u2();
    for (int i = 0; i < n; i++) {
        Attribute a;
        a.nameIndex = r.u2();
        auto it = c.utf8.find(a.nameIndex);
        if (it == c.utf8.end()) throw std::runtime_error("attribute name is no Utf8");
        a.name = it->second;
        uint32_t length = r.u4();
        a.body = r.take(length);
        list.push_back(a);
    }
    return list;
}

inline Class parse(const Bytes& bytes) {
    Class c;
    Reader r(bytes);
    c.header = r.take(8);
    c.major = (c.header[6] << 8) | c.header[7];
    c.poolCount = r.u2();
    c.pool.resize(c.poolCount);
    for (int i = 1; i < c.poolCount; i++) {
        size_t start = r.p;
        int tag = r.u1();
        int extra = 0;
        switch (tag) {
        case 1: {
            int n = r.u2();
            Bytes text = r.take(n);
            c.utf8[i] = std::string(text.begin(), text.end());
            break;
        }
        case 3: case 4: r.take(4); break;
        case 5: case 6: r.take(8); extra = 1; break;
        case 7: c.classNames[i] = r.u2(); break;
        case 8: case 16: case 19: case 20: r.u2(); break;
        case 9: case 10: case 11: case 12: case 17: case 18: r.u4(); break;
        case 15: r.u1(); r.u2(); break;
        default: throw std::runtime_error("unknown tag " + std::to_string(tag));
        }
        c.pool[i] = Bytes(bytes.begin() + start, bytes.begin() + r.p);
        i += extra;
    }
    size_t middleStart = r.p;
    r.u2();
    c.thisClass = r.u2();
    r.u2();
    int interfaces = r.u2();
    r.take(2 * interfaces);
    c.middle = Bytes(bytes.begin() + middleStart, bytes.begin() + r.p);
    for (int kind = 0; kind < 2; kind++) {
        int n = r.u2();
        for (int i = 0; i < n; i++) {
            Member m;
            size_t start = r.p;
            m.access = r.u2();
            m.nameIndex = r.u2();
            m.descriptorIndex = r.u2();
            m.head = Bytes(bytes.begin() + start, bytes.begin() + r.p);
            m.attributes = readAttributes(r, c);
            (kind == 0 ? c.fields : c.methods).push_back(m);
        }
    }
    c.attributes = readAttributes(r, c);
    if (r.p != bytes.size()) throw std::runtime_error("trailing bytes");
    return c;
}

inline Code parseCode(const Attribute& a, const Class& c) {
    Code code;
    Reader r(a.body);
    r.u2();
    r.u2();
    uint32_t length = r.u4();
    r.take(length);
    int exceptions = r.u2();
    r.take(8 * exceptions);
    code.head = Bytes(a.body.begin(), a.body.begin() + r.p);
    code.attributes = readAttributes(r, c);
    if (r.p != a.body.size()) throw std::runtime_error("code attribute length");
    return code;
}

inline std::string className(const Class& c, int classIndex) {
    auto it = c.classNames.find(classIndex);
    if (it == c.classNames.end()) throw std::runtime_error("not a Class entry: " + std::to_string(classIndex));
    return c.utf8.at(it->second);
}

struct Frame {
    int offset;
    std::vector<std::string> locals, stack;
    bool operator==(const Frame& o) const { return offset == o.offset && locals == o.locals && stack == o.stack; }
};

inline std::string fieldType(const std::string& d) {
    switch (d[0]) {
    case 'B': case 'C': case 'I': case 'S': case 'Z': return "I";
    case 'F': return "F";
    case 'J': return "J";
    case 'D': return "D";
    case 'L': return "L" + d.substr(1, d.size() - 2);
    default: return "L" + d;
    }
}

inline Frame initialFrame(const Class& c, const Member& m) {
    Frame f;
    f.offset = -1;
    const std::string& name = c.utf8.at(m.nameIndex);
    const std::string& d = c.utf8.at(m.descriptorIndex);
    if (!(m.access & 0x0008)) f.locals.push_back(name == "<init>" ? "UT" : "L" + className(c, c.thisClass));
    size_t i = 1;
    while (d[i] != ')') {
        size_t start = i;
        while (d[i] == '[') i++;
        if (d[i] == 'L') i = d.find(';', i);
        i++;
        f.locals.push_back(fieldType(d.substr(start, i - start)));
    }
    return f;
}

inline std::string readType(Reader& r, const Class& c) {
    int tag = r.u1();
    switch (tag) {
    case 0: return "T";
    case 1: return "I";
    case 2: return "F";
    case 3: return "D";
    case 4: return "J";
    case 5: return "N";
    case 6: return "UT";
    case 7: return "L" + className(c, r.u2());
    case 8: return "U" + std::to_string(r.u2());
    default: throw std::runtime_error("bad verification tag");
    }
}

// Decodes a "StackMapTable" body against the method's initial frame.
inline std::vector<Frame> decodeFrames(const Bytes& body, const Class& c, const Frame& initial) {
    std::vector<Frame> frames;
    Reader r(body);
    int n = r.u2();
    Frame prev = initial;
    for (int i = 0; i < n; i++) {
        Frame f;
        f.locals = prev.locals;
        int t = r.u1();
        int delta;
        if (t < 64) {
            delta = t;
        } else if (t < 128) {
            delta = t - 64;
            f.stack.push_back(readType(r, c));
        } else if (t < 247) {
            throw std::runtime_error("reserved frame type");
        } else {
            delta = r.u2();
            if (t == 247) {
                f.stack.push_back(readType(r, c));
            } else if (t < 251) {
                f.locals.resize(f.locals.size() - (251 - t));
            } else if (t > 251 && t < 255) {
                for (int k = 251; k < t; k++) f.locals.push_back(readType(r, c));
            } else if (t == 255) {
                f.locals.clear();
                int nl = r.u2();
                for (int k = 0; k < nl; k++) f.locals.push_back(readType(r, c));
                int ns = r.u2();
                for (int k = 0; k < ns; k++) f.stack.push_back(readType(r, c));
            }
        }
        f.offset = prev.offset + delta + 1;
        frames.push_back(f);
        prev = f;
    }
    if (r.p != body.size()) throw std::runtime_error("stack map length");
    return frames;
}

}  // namespace layout
