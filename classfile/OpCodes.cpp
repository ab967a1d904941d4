#include "classfile/OpCodes.h"

#include "foundation/Failure.h"
#include "foundation/ZString.h"
#include "classfile/ByteConversions.h"

// clang-format off
const int ourOpCodeLength[256] = {
    // 0: nop, aconst_null, iconst_m1..iconst_5, lconst, fconst, dconst
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 16: bipush, sipush, ldc, ldc_w, ldc2_w, iload..aload, iload_0..
    2, 3, 2, 3, 3, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1, 1,
    // 32
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 48: ..., istore..astore at 54..58
    1, 1, 1, 1, 1, 1, 2, 2, 2, 2, 2, 1, 1, 1, 1, 1,
    // 64
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 80
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 96
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 112
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 128: ..., iinc at 132
    1, 1, 1, 1, 3, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    // 144: ..., ifeq at 153
    1, 1, 1, 1, 1, 1, 1, 1, 1, 3, 3, 3, 3, 3, 3, 3,
    // 160: ... jsr 168, ret 169, tableswitch 170, lookupswitch 171, returns 172..177
    3, 3, 3, 3, 3, 3, 3, 3, 3, 2, -1, -1, 1, 1, 1, 1,
    // 176: ..., field access 178..181, invokes 182..186, new 187, newarray 188, anewarray 189, arraylength 190, athrow 191
    1, 1, 3, 3, 3, 3, 3, 3, 3, 5, 5, 3, 2, 3, 1, 1,
    // 192: checkcast, instanceof, monitorenter, monitorexit, wide, multianewarray, ifnull, ifnonnull, goto_w, jsr_w, breakpoint
    3, 3, 1, 1, -1, 4, 3, 3, 5, 5, 1, -1, -1, -1, -1, -1,
    // 208
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    // 224
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    // 240: ..., impdep1 254, impdep2 255
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 1,
};
// clang-format on

namespace OpCodes {

static void wrongOpcode(int opcode) {
    ZString text("Wrong instruction opcode found: ");
    text.appendLong(opcode);
    failFatal(text.c_str(), __FILE__, __LINE__);
}

int instructionLength(const unsigned char* code, int codeLength, int pc) {
    KZT_ASSERT(pc >= 0 && pc < codeLength);
    int opcode = code[pc];
    long long length;
    if (opcode == TABLESWITCH || opcode == LOOKUPSWITCH) {
        int operands = pc + 1 + switchPadding(pc);
        // default and low/high, or default and the pair count
        KZT_ASSERT(operands + (opcode == TABLESWITCH ? 12 : 8) <= codeLength);
        if (opcode == TABLESWITCH) {
            long long low = ByteConversions::readS4(code, operands + 4);
            long long high = ByteConversions::readS4(code, operands + 8);
            KZT_ASSERT(high >= low);
            length = operands - pc + 12 + 4 * (high - low + 1);
        } else {
            long long pairs = ByteConversions::readS4(code, operands + 4);
            KZT_ASSERT(pairs >= 0);
            length = operands - pc + 8 + 8 * pairs;
        }
    } else if (opcode == WIDE) {
        KZT_ASSERT(pc + 1 < codeLength);
        length = code[pc + 1] == IINC ? 6 : 4;
    } else {
        length = ourOpCodeLength[opcode];
        if (length < 1) wrongOpcode(opcode);
    }
    KZT_ASSERT(pc + length <= codeLength);
    return (int)length;
}

}  // namespace OpCodes
