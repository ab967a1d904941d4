#include "classfile/ByteCodeGenerator.h"

#include "foundation/Failure.h"
#include "classfile/CodeAttribute.h"

void ByteCodeGenerator::opU2(int op, int value) {
    myCode.push((unsigned char)op);
    pushShortValue(value);
}

void ByteCodeGenerator::pushShortValue(int value) {
    myCode.push((unsigned char)(value >> 8));
    myCode.push((unsigned char)value);
}

void ByteCodeGenerator::ldc(int index) {
    if (index > 255) {
        ldc_w(index);
        return;
    }
    myCode.push(OpCodes::LDC);
    myCode.push((unsigned char)index);
}

void ByteCodeGenerator::local(int longForm, int shortForm, int var) {
    if (var >= 0 && var <= 3) {
        myCode.push((unsigned char)(shortForm + var));
    } else if (var >= 0 && var <= 255) {
        myCode.push((unsigned char)longForm);
        myCode.push((unsigned char)var);
    } else {
        wide(longForm, var);
    }
}

void ByteCodeGenerator::wide(int op, int var) {
    myCode.push(OpCodes::WIDE);
    opU2(op, var);
}

void ByteCodeGenerator::bipush(int value) {
    myCode.push(OpCodes::BIPUSH);
    myCode.push((unsigned char)value);
}

void ByteCodeGenerator::sipushExt(int value) {
    if (value >= -1 && value <= 5) {
        myCode.push((unsigned char)(OpCodes::ICONST_0 + value));
    } else if (value >= -128 && value <= 127) {
        bipush(value);
    } else {
        sipush(value);
    }
}

void ByteCodeGenerator::ifeq_start() {
    myOpenIfs.push(myCode.getSize());
    myCode.push(OpCodes::IFEQ);
    myCode.push(0);
    myCode.push(0);
}

void ByteCodeGenerator::if_end() {
    int at = myOpenIfs.pop();
    int distance = myCode.getSize() - at;
    myCode[at + 1] = (unsigned char)(distance / 256);
    myCode[at + 2] = (unsigned char)distance;
    myBranchTargets.push(myCode.getSize());
}

void ByteCodeGenerator::assertClosed() const { KZT_ASSERT(myOpenIfs.isEmpty()); }

void ByteCodeGenerator::applyTo(CodeAttribute* code) {
    assertClosed();
    KZT_ASSERT_NOT_NULL(code);
    code->setCode(myCode.getElements(), myCode.getSize());
}

void ByteCodeGenerator::clear() {
    myCode.clear();
    myOpenIfs.clear();
    myBranchTargets.clear();
}
