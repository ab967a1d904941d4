// Assembles short injected sequences one instruction per call. The `wide_*`
// forms always take 4 bytes, so that a sequence's length is known in advance.
#pragma once

#include "classfile/ByteConversions.h"
#include "classfile/OffsetTable.h"
#include "classfile/OpCodes.h"
#include "foundation/ZString.h"
#include "foundation/ZVector.h"

class CodeAttribute;

class ByteCodeGenerator {
public:
    ByteCodeGenerator() : myCode(30) {}

    void ldc(int index);
    void ldc_w(int index) { opU2(OpCodes::LDC_W, index); }
    void ldc2_w(int index) { opU2(OpCodes::LDC2_W, index); }

    // Short form for 0 to 3, 2-byte form up to 255, else `wide`.
    void aload(int var) { local(OpCodes::ALOAD, OpCodes::ALOAD_0, var); }
    void astore(int var) { local(OpCodes::ASTORE, OpCodes::ASTORE_0, var); }
    void dload(int var) { local(OpCodes::DLOAD, OpCodes::DLOAD_0, var); }
    void dstore(int var) { local(OpCodes::DSTORE, OpCodes::DSTORE_0, var); }
    void fload(int var) { local(OpCodes::FLOAD, OpCodes::FLOAD_0, var); }
    void fstore(int var) { local(OpCodes::FSTORE, OpCodes::FSTORE_0, var); }
    void iload(int var) { local(OpCodes::ILOAD, OpCodes::ILOAD_0, var); }
    void istore(int var) { local(OpCodes::ISTORE, OpCodes::ISTORE_0, var); }
    void lload(int var) { local(OpCodes::LLOAD, OpCodes::LLOAD_0, var); }
    void lstore(int var) { local(OpCodes::LSTORE, OpCodes::LSTORE_0, var); }

    // Always the 4-byte `wide` form.
    void wide_aload(int var) { wide(OpCodes::ALOAD, var); }
    void wide_iload(int var) { wide(OpCodes::ILOAD, var); }
    void wide_lload(int var) { wide(OpCodes::LLOAD, var); }
    void wide_astore(int var) { wide(OpCodes::ASTORE, var); }
    void wide_istore(int var) { wide(OpCodes::ISTORE, var); }
    void wide_lstore(int var) { wide(OpCodes::LSTORE, var); }

    void bipush(int value);
    void sipush(int value) { opU2(OpCodes::SIPUSH, value); }
    // The shortest push of a small int: iconst, bipush or sipush.
    void sipushExt(int value);
    void pushShortValue(int value);

    // By type: the first letter of a field descriptor (B, C, I, S, Z, J, F,
    // D, L, [), or V. The zero value of the type, giving its stack slots.
    int zeroLoad(const ZString& type);
    void load(const ZString& type, int var);
    void store(const ZString& type, int var);
    // The return of a value of the type; `return` for V or an empty type.
    void typedReturn(const ZString& type);

    void invokestatic(int index) { opU2(OpCodes::INVOKESTATIC, index); }
    void invokespecial(int index) { opU2(OpCodes::INVOKESPECIAL, index); }
    void invokevirtual(int index) { opU2(OpCodes::INVOKEVIRTUAL, index); }
    void anewarray(int index) { opU2(OpCodes::ANEWARRAY, index); }
    void checkCast(int index) { opU2(OpCodes::CHECKCAST, index); }
    void instanceOf(int index) { opU2(OpCodes::INSTANCEOF, index); }
    // Any instruction of one byte (dup, pop, athrow, returns, ...).
    void opcode(int op) { myCode.push((unsigned char)op); }

    // `ifeq` (or `ifnull`) whose target is the position of the matching
    // if_end.
    void ifeq_start() { branch_start(OpCodes::IFEQ); }
    void ifnull_start() { branch_start(OpCodes::IFNULL); }
    void if_end();

    // Installs the bytes as the code of `code`; every `if` must be closed.
    void applyTo(CodeAttribute* code);
    // Fails unless every `if` is closed; for callers that copy the bytes.
    void assertClosed() const;

    const unsigned char* getCode() const { return myCode.getElements(); }
    int getLength() const { return myCode.getSize(); }
    // Offsets reached by closed ifs; each needs a stack map frame.
    const ZVector<int, 10>& getBranchTargets() const { return myBranchTargets; }
    void clear();

private:
    void branch_start(int op);
    void opU2(int op, int value);
    void local(int longForm, int shortForm, int var);
    void wide(int op, int var);

    ZVector<unsigned char, 10> myCode;
    ZVector<int, 10> myOpenIfs;
    ZVector<int, 10> myBranchTargets;
};
