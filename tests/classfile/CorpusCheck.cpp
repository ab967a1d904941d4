// Round trip of every class below a folder: parse, write with no edit, and
// check that exactly the promised parts may differ.
//
// What may differ, and nothing else:
//  - In a class of version 50 or newer, each "StackMapTable" is re-encoded
//    from the expanded frames and stands last among its "Code" attributes.
//    The frames it decodes to must equal the original ones: same offsets,
//    same locals, same stack, type by type. A table with no entries is
//    dropped.
//  - The "Code" attribute length follows its new table.
//  - The pool may grow at its end only by constants that a re-encoded frame
//    refers to (counted and reported; the original order and bytes stay).
// Classes with a pool tag the toolkit does not model (dynamic constants,
// modules, packages) are reported as invalid and not written; each must
// really hold such a constant, and there may be at most as many as the
// second argument says. Every written class must parse again and write
// to the same bytes a second time.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "ClassLayout.h"
#include "classfile/ClassFile.h"

namespace fs = std::filesystem;
using layout::Bytes;

struct Totals {
    long classes = 0, identical = 0, tablesReencoded = 0, invalid = 0, failed = 0, poolGrown = 0;
    long methodsWithFrames = 0, frames = 0;
    long long bytes = 0;
};

static bool writeBack(const Bytes& input, Bytes& output, bool& invalid) {
    ZVector<unsigned char, 10> in;
    in.resize((int)input.size());
    memcpy(in.getElements(), input.data(), input.size());
    DataInput din(in);
    ClassFile cf(din);
    invalid = cf.isInvalid();
    if (invalid) return false;
    ZVector<unsigned char, 10> out(4096);
    DataOutput dout(out);
    cf.writeClass(dout);
    output.assign(out.getElements(), out.getElements() + out.getSize());
    return true;
}

static std::string describe(const layout::Frame& f) {
    std::ostringstream s;
    s << "@" << f.offset << " [";
    for (auto& t : f.locals) s << t << " ";
    s << "] {";
    for (auto& t : f.stack) s << t << " ";
    s << "}";
    return s.str();
}

// Throws a text on the first difference that is not allowed.
static void compare(const Bytes& original, const Bytes& written, Totals& totals, bool& reencoded, bool& poolGrown) {
    using namespace layout;
    Class a = parse(original);
    Class b = parse(written);
    if (a.header != b.header) throw std::string("header differs");
    if (b.poolCount < a.poolCount) throw std::string("pool shrank");
    for (int i = 1; i < a.poolCount; i++) {
        if (a.pool[i] != b.pool[i]) throw "pool entry " + std::to_string(i) + " differs";
    }
    poolGrown = b.poolCount > a.poolCount;
    if (a.middle != b.middle) throw std::string("access, names or interfaces differ");
    if (a.fields.size() != b.fields.size() || a.methods.size() != b.methods.size()) throw std::string("member count");
    for (size_t i = 0; i < a.fields.size(); i++) {
        if (a.fields[i].head != b.fields[i].head) throw std::string("field differs");
        if (a.fields[i].attributes.size() != b.fields[i].attributes.size()) throw std::string("field attributes");
        for (size_t k = 0; k < a.fields[i].attributes.size(); k++) {
            if (a.fields[i].attributes[k].body != b.fields[i].attributes[k].body ||
                a.fields[i].attributes[k].nameIndex != b.fields[i].attributes[k].nameIndex) {
                throw std::string("field attribute differs");
            }
        }
    }
    if (a.attributes.size() != b.attributes.size()) throw std::string("class attribute count");
    for (size_t k = 0; k < a.attributes.size(); k++) {
        if (a.attributes[k].body != b.attributes[k].body || a.attributes[k].nameIndex != b.attributes[k].nameIndex) {
            throw "class attribute differs: " + a.attributes[k].name;
        }
    }
    for (size_t i = 0; i < a.methods.size(); i++) {
        const Member& ma = a.methods[i];
        const Member& mb = b.methods[i];
        std::string where = a.utf8.at(ma.nameIndex) + a.utf8.at(ma.descriptorIndex);
        if (ma.head != mb.head) throw "method head differs: " + where;
        if (ma.attributes.size() != mb.attributes.size()) throw "method attribute count: " + where;
        for (size_t k = 0; k < ma.attributes.size(); k++) {
            const Attribute& x = ma.attributes[k];
            const Attribute& y = mb.attributes[k];
            if (x.nameIndex != y.nameIndex) throw "method attribute order: " + where;
            if (x.name != "Code" || a.major < 50) {
                if (x.body != y.body) throw "method attribute differs: " + x.name + " in " + where;
                continue;
            }
            Code ca = parseCode(x, a);
            Code cb = parseCode(y, b);
            if (ca.head != cb.head) throw "code differs: " + where;
            std::vector<Attribute> restA, restB;
            const Attribute* tableA = nullptr;
            const Attribute* tableB = nullptr;
            for (auto& s : ca.attributes) (s.name == "StackMapTable" ? tableA = &s, (void)0 : restA.push_back(s));
            for (size_t s = 0; s < cb.attributes.size(); s++) {
                if (cb.attributes[s].name == "StackMapTable") {
                    if (s + 1 != cb.attributes.size() || tableB != nullptr) throw "stack map table not last: " + where;
                    tableB = &cb.attributes[s];
                } else {
                    restB.push_back(cb.attributes[s]);
                }
            }
            if (restA.size() != restB.size()) throw "code attribute count: " + where;
            for (size_t s = 0; s < restA.size(); s++) {
                if (restA[s].nameIndex != restB[s].nameIndex || restA[s].body != restB[s].body) {
                    throw "code attribute differs: " + restA[s].name + " in " + where;
                }
            }
            Frame initial = initialFrame(a, ma);
            std::vector<Frame> fa = tableA ? decodeFrames(tableA->body, a, initial) : std::vector<Frame>();
            std::vector<Frame> fb = tableB ? decodeFrames(tableB->body, b, initial) : std::vector<Frame>();
            if (fa.empty() && tableB != nullptr) throw "stack map table appeared: " + where;
            if (fa.size() != fb.size()) throw "frame count differs: " + where;
            for (size_t f = 0; f < fa.size(); f++) {
                if (!(fa[f] == fb[f])) throw "frame differs in " + where + ": " + describe(fa[f]) + " vs " + describe(fb[f]);
            }
            if (!fa.empty()) {
                totals.methodsWithFrames++;
                totals.frames += (long)fa.size();
            }
            if (tableA != nullptr && (tableB == nullptr || tableA->body != tableB->body ||
                                      &ca.attributes.back() != tableA)) {
                reencoded = true;
            }
        }
    }
}

// Whether the pool holds a constant of a kind the toolkit leaves alone.
static bool holdsUnmodelledConstant(const Bytes& bytes) {
    layout::Class c = layout::parse(bytes);
    for (const Bytes& constant : c.pool) {
        if (!constant.empty() && (constant[0] == 17 || constant[0] == 19 || constant[0] == 20)) return true;
    }
    return false;
}

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: classfile_corpus_check <folder of classes> <most classes that may be invalid>\n";
        return 2;
    }
    long mostInvalid = std::stol(argv[2]);
    std::vector<fs::path> files;
    for (auto& e : fs::recursive_directory_iterator(argv[1])) {
        if (e.is_regular_file() && e.path().extension() == ".class") files.push_back(e.path());
    }
    std::sort(files.begin(), files.end());
    Totals totals;
    int reported = 0;
    auto started = std::chrono::steady_clock::now();
    for (auto& path : files) {
        std::ifstream stream(path, std::ios::binary);
        Bytes original((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        totals.classes++;
        totals.bytes += (long long)original.size();
        std::string problem;
        try {
            Bytes written, again;
            bool invalid = false;
            if (!writeBack(original, written, invalid)) {
                if (!holdsUnmodelledConstant(original)) throw std::string("called invalid, but every constant is modelled");
                totals.invalid++;
                continue;
            }
            if (written == original) {
                totals.identical++;
            } else {
                bool reencoded = false, poolGrown = false;
                compare(original, written, totals, reencoded, poolGrown);
                if (reencoded) totals.tablesReencoded++;
                if (poolGrown) totals.poolGrown++;
                if (!reencoded && !poolGrown) problem = "differs, but in no allowed part";
            }
            if (problem.empty()) {
                if (!writeBack(written, again, invalid) || again != written) problem = "second write differs";
            }
            if (problem.empty() && written == original) {
                // Identical bytes still get their frames checked by meaning.
                bool reencoded = false, poolGrown = false;
                compare(original, written, totals, reencoded, poolGrown);
            }
        } catch (KZTRuntimeException&) {
            problem = "rejected by an assertion";
        } catch (std::string& text) {
            problem = text;
        } catch (std::exception& e) {
            problem = std::string("written class unreadable: ") + e.what();
        }
        if (!problem.empty()) {
            totals.failed++;
            if (reported++ < 20) std::cout << "FAIL " << path.string() << ": " << problem << "\n";
        }
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::cout << "classes: " << totals.classes << " (" << totals.bytes / 1024 / 1024 << " MB)\n"
              << "  byte-identical after write: " << totals.identical << "\n"
              << "  stack map tables re-encoded or moved, frames equal: " << totals.tablesReencoded << "\n"
              << "  methods with frames compared: " << totals.methodsWithFrames << ", frames: " << totals.frames << "\n"
              << "  pool grown by constants of re-encoded frames: " << totals.poolGrown << "\n"
              << "  invalid (pool tag not modelled), left alone: " << totals.invalid << "\n"
              << "  failed: " << totals.failed << "\n"
              << "  time: " << seconds << " s\n";
    if (totals.invalid > mostInvalid) {
        std::cout << "FAIL: " << totals.invalid << " classes invalid, more than the " << mostInvalid << " allowed\n";
        totals.failed++;
    }
    std::cout << (totals.classes - totals.failed - totals.invalid) << " passed, " << totals.failed << " failed\n";
    return totals.failed == 0 && totals.classes > 0 ? 0 : 1;
}
