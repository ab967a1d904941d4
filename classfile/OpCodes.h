// Instruction lengths and the opcodes the toolkit itself needs to know.
#pragma once

// Length in bytes of each opcode's instruction, or -1 where the length is
// not fixed (tableswitch, lookupswitch, wide) or the byte is no opcode.
extern const int ourOpCodeLength[256];

namespace OpCodes {
enum {
    NOP = 0, ACONST_NULL = 1, ICONST_M1 = 2, ICONST_0 = 3, LCONST_0 = 9, FCONST_0 = 11, DCONST_0 = 14, BIPUSH = 16,
    SIPUSH = 17, LDC = 18, LDC_W = 19, LDC2_W = 20, ILOAD = 21, LLOAD = 22, FLOAD = 23, DLOAD = 24, ALOAD = 25,
    ILOAD_0 = 26, LLOAD_0 = 30, FLOAD_0 = 34, DLOAD_0 = 38, ALOAD_0 = 42, AALOAD = 50, ISTORE = 54, LSTORE = 55,
    FSTORE = 56, DSTORE = 57, ASTORE = 58, ISTORE_0 = 59, LSTORE_0 = 63, FSTORE_0 = 67, DSTORE_0 = 71, ASTORE_0 = 75,
    AASTORE = 83, POP = 87, POP2 = 88, DUP = 89, DUP_X1 = 90, DUP_X2 = 91, DUP2 = 92, DUP2_X1 = 93, DUP2_X2 = 94,
    SWAP = 95, LSUB = 101, IINC = 132, I2L = 133, F2D = 141, IFEQ = 153, GOTO = 167, JSR = 168, RET = 169,
    TABLESWITCH = 170, LOOKUPSWITCH = 171, IRETURN = 172, RETURN = 177, GETSTATIC = 178, INVOKEVIRTUAL = 182,
    INVOKESPECIAL = 183, INVOKESTATIC = 184, INVOKEINTERFACE = 185, INVOKEDYNAMIC = 186, NEW = 187, NEWARRAY = 188,
    ANEWARRAY = 189, ATHROW = 191, CHECKCAST = 192, INSTANCEOF = 193, WIDE = 196, MULTIANEWARRAY = 197, IFNULL = 198,
    IFNONNULL = 199, GOTO_W = 200, JSR_W = 201
};

// Branches with a 2-byte offset right behind the opcode.
inline bool isShortBranch(int opcode) { return (opcode >= IFEQ && opcode <= JSR) || opcode == IFNULL || opcode == IFNONNULL; }
inline bool isLongBranch(int opcode) { return opcode == GOTO_W || opcode == JSR_W; }
inline bool isReturn(int opcode) { return opcode >= IRETURN && opcode <= RETURN; }
// Padding after a switch opcode at `pc`: its operands start at a multiple of 4.
inline int switchPadding(int pc) { return (4 - ((pc + 1) & 3)) & 3; }

// Length of the instruction at `pc`, switches and `wide` included. Fails
// with "Wrong instruction opcode found: " on a byte that is no opcode, and
// on an instruction that runs past the end of the code.
int instructionLength(const unsigned char* code, int codeLength, int pc);
}  // namespace OpCodes
