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

void ByteCodeGenerator::branch_start(int op) {
    myOpenIfs.push(myCode.getSize());
    myCode.push((unsigned char)op);
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

// The kinds of value by the letter of a type.
enum ValueKind { INT_VALUE = 0, LONG_VALUE = 1, FLOAT_VALUE = 2, DOUBLE_VALUE = 3, REFERENCE_VALUE = 4 };

static ValueKind valueKind(const ZString& type) {
    switch (type.isEmpty() ? 'V' : type[0]) {
    case 'J': return LONG_VALUE;
    case 'F': return FLOAT_VALUE;
    case 'D': return DOUBLE_VALUE;
    case 'L': case '[': return REFERENCE_VALUE;
    default: return INT_VALUE;
    }
}

int ByteCodeGenerator::zeroLoad(const ZString& type) {
    static const int ZEROS[] = {OpCodes::ICONST_0, OpCodes::LCONST_0, OpCodes::FCONST_0, OpCodes::DCONST_0,
                                OpCodes::ACONST_NULL};
    ValueKind kind = valueKind(type);
    opcode(ZEROS[kind]);
    return kind == LONG_VALUE || kind == DOUBLE_VALUE ? 2 : 1;
}

// The typed loads and stores follow each other in the order of ValueKind.
void ByteCodeGenerator::load(const ZString& type, int var) {
    int kind = valueKind(type);
    local(OpCodes::ILOAD + kind, OpCodes::ILOAD_0 + 4 * kind, var);
}

void ByteCodeGenerator::store(const ZString& type, int var) {
    int kind = valueKind(type);
    local(OpCodes::ISTORE + kind, OpCodes::ISTORE_0 + 4 * kind, var);
}

void ByteCodeGenerator::typedReturn(const ZString& type) {
    if (type.isEmpty() || type[0] == 'V') {
        opcode(OpCodes::RETURN);
        return;
    }
    opcode(OpCodes::IRETURN + valueKind(type));
}
