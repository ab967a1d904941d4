// Rewrites every class below a folder: a call of a static no-argument void
// method goes in at the start of every method and in front of every return.
// Every class with code must come out rewritten: the tool fails, naming
// them, when a class is invalid or rejected or a method could not take the
// calls.
// Usage: classfile_instrument <in-folder> <out-folder> <owner class> <method>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "classfile/CodeEditor.h"

namespace fs = std::filesystem;

struct Counts {
    long classes = 0, invalid = 0, rejected = 0, methods = 0, tooLong = 0, calls = 0, withoutCode = 0;
};

// Returns false when a method with code could not be rewritten.
static bool rewrite(ClassFile& cf, CodeEditor& editor, const char* owner, const char* method, Counts& counts) {
    int ownerIndex = cf.findOrCreateConstantClass(cf.findOrCreateUtf8(ZString(owner)));
    int ref = cf.findOrCreateMethodRef(ownerIndex, cf.findOrCreateUtf8(ZString(method)), cf.findOrCreateUtf8(ZString("()V")));
    ByteCodeGenerator call;
    call.invokestatic(ref);
    bool complete = true, anyCode = false;
    for (int m = 0; m < cf.getMethods().getSize(); m++) {
        CodeAttribute* code = cf.getMethods()[m]->getCodeAttribute();
        if (code == nullptr) continue;
        anyCode = true;
        editor.begin(code);
        editor.insertAtStart(call.getCode(), call.getLength());
        int inserted = 1;
        const unsigned char* bytes = code->getCode();
        for (int pc = 0; pc < code->getCodeLength(); pc += OpCodes::instructionLength(bytes, code->getCodeLength(), pc)) {
            if (OpCodes::isReturn(bytes[pc])) {
                editor.insertBefore(pc, call.getCode(), call.getLength());
                inserted++;
            }
        }
        if (editor.apply()) {
            counts.methods++;
            counts.calls += inserted;
        } else {
            counts.tooLong++;
            complete = false;
        }
    }
    if (!anyCode) counts.withoutCode++;
    return complete;
}

int main(int argc, char** argv) {
    if (argc < 5) {
        std::cerr << "usage: classfile_instrument <in> <out> <owner class> <method>\n";
        return 2;
    }
    fs::path in(argv[1]), out(argv[2]);
    Counts counts;
    CodeEditor editor;
    for (auto& e : fs::recursive_directory_iterator(in)) {
        if (!e.is_regular_file() || e.path().extension() != ".class") continue;
        if (e.path().filename() == "module-info.class") continue;
        std::ifstream stream(e.path(), std::ios::binary);
        std::vector<char> original((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
        counts.classes++;
        ZVector<unsigned char, 10> bytes;
        bytes.resize((int)original.size());
        memcpy(bytes.getElements(), original.data(), original.size());
        ZVector<unsigned char, 10> written(4096);
        try {
            DataInput din(bytes);
            ClassFile cf(din);
            if (cf.isInvalid()) {
                counts.invalid++;
                std::cerr << "invalid: " << e.path() << "\n";
                continue;
            }
            if (!rewrite(cf, editor, argv[3], argv[4], counts)) std::cerr << "method too long: " << e.path() << "\n";
            DataOutput dout(written);
            cf.writeClass(dout);
        } catch (KZTRuntimeException&) {
            counts.rejected++;
            std::cerr << "rejected: " << e.path() << "\n";
            continue;
        }
        fs::path target = out / fs::relative(e.path(), in);
        fs::create_directories(target.parent_path());
        std::ofstream(target, std::ios::binary).write((const char*)written.getElements(), written.getSize());
    }
    std::cout << "rewritten classes: " << counts.classes - counts.invalid - counts.rejected << " of " << counts.classes
              << " (without code: " << counts.withoutCode << "), methods: " << counts.methods << ", calls inserted: " << counts.calls
              << ", methods too long: " << counts.tooLong << ", invalid: " << counts.invalid
              << ", rejected: " << counts.rejected << "\n";
    return counts.rejected == 0 && counts.invalid == 0 && counts.tooLong == 0 && counts.classes > 0 ? 0 : 1;
}
