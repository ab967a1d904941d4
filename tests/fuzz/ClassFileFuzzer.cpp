// Parses arbitrary bytes as a class, writes it, edits every method and writes
// again. Bad input may only end in the toolkit's assertion (caught here);
// a crash, a sanitizer report or a broken invariant aborts the run.
//
// Invariants checked:
//  - a class written from a parsed class parses again and writes to the
//    same bytes;
//  - after a successful edit the written class parses again.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "classfile/ByteCodeGenerator.h"
#include "classfile/ClassFile.h"
#include "classfile/CodeEditor.h"

static void fail(const char* what) {
    fprintf(stderr, "invariant broken: %s\n", what);
    abort();
}

static bool write(ClassFile& cf, ZVector<unsigned char, 10>& out) {
    DataOutput dout(out);
    cf.writeClass(dout);
    return true;
}

// Calls at the start and before each return, the way the tracer edits.
static bool edit(ClassFile& cf, CodeEditor& editor) {
    ByteCodeGenerator call;
    call.invokestatic(cf.findOrCreateMethodRef(cf.findOrCreateConstantClass(cf.findOrCreateUtf8(ZString("F"))),
                                               cf.findOrCreateUtf8(ZString("f")), cf.findOrCreateUtf8(ZString("()V"))));
    for (int m = 0; m < cf.getMethods().getSize(); m++) {
        CodeAttribute* code = cf.getMethods()[m]->getCodeAttribute();
        if (code == nullptr) continue;
        editor.begin(code);
        editor.insertAtStart(call.getCode(), call.getLength());
        const unsigned char* bytes = code->getCode();
        int length = code->getCodeLength();
        for (int pc = 0; pc < length; pc += OpCodes::instructionLength(bytes, length, pc)) {
            if (OpCodes::isReturn(bytes[pc])) editor.insertBefore(pc, call.getCode(), call.getLength());
        }
        if (!editor.apply()) return false;
        code->incMaxStackCount(1);
        if (m == 0) code->addLocalVariableToTable(VerificationType(VerificationType::LONG, -1), true);
        code->applyAddedVariables(0);
    }
    return true;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 1 << 20) return 0;
    ZVector<unsigned char, 10> input;
    input.resize((int)size);
    if (size > 0) memcpy(input.getElements(), data, size);

    ZVector<unsigned char, 10> first(4096);
    try {
        DataInput in(input);
        ClassFile cf(in);
        if (cf.isInvalid()) return 0;
        write(cf, first);
    } catch (KZTRuntimeException&) {
        return 0;
    }

    ZVector<unsigned char, 10> second(4096);
    try {
        DataInput in(first);
        ClassFile cf(in);
        if (cf.isInvalid()) fail("written class is invalid");
        write(cf, second);
    } catch (KZTRuntimeException&) {
        fail("written class does not parse");
    }
    if (second.getSize() != first.getSize() || memcmp(first.getElements(), second.getElements(), first.getSize()) != 0) {
        fail("second write differs");
    }

    ZVector<unsigned char, 10> edited(4096);
    bool done = false;
    try {
        DataInput in(first);
        ClassFile cf(in);
        CodeEditor editor;
        done = edit(cf, editor) && write(cf, edited);
    } catch (KZTRuntimeException&) {
        return 0;
    }
    if (done) {
        try {
            DataInput in(edited);
            ClassFile cf(in);
        } catch (KZTRuntimeException&) {
            fail("edited class does not parse");
        }
    }
    return 0;
}
