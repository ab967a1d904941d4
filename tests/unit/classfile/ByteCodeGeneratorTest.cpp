#include <gtest/gtest.h>

#include "ClassBuilder.h"
#include "classfile/ByteCodeGenerator.h"


static Bytes bytesOf(const ByteCodeGenerator& g) { return Bytes(g.getCode(), g.getCode() + g.getLength()); }

template <typename Emit>
static Bytes emit(Emit e) {
    ByteCodeGenerator g;
    e(g);
    return bytesOf(g);
}

TEST(ByteCodeGenerator, PicksTheShortestFormsWhereAllowed) {
    EXPECT_EQ(Bytes({18, 255}), emit([](ByteCodeGenerator& g) { g.ldc(255); }));
    EXPECT_EQ(Bytes({19, 1, 0}), emit([](ByteCodeGenerator& g) { g.ldc(256); }));
    EXPECT_EQ(Bytes({45}), emit([](ByteCodeGenerator& g) { g.aload(3); }));
    EXPECT_EQ(Bytes({25, 4}), emit([](ByteCodeGenerator& g) { g.aload(4); }));
    EXPECT_EQ(Bytes({196, 25, 1, 0}), emit([](ByteCodeGenerator& g) { g.aload(256); }));
    EXPECT_EQ(Bytes({71}), emit([](ByteCodeGenerator& g) { g.dstore(0); }));
    EXPECT_EQ(Bytes({2}), emit([](ByteCodeGenerator& g) { g.sipushExt(-1); }));
    EXPECT_EQ(Bytes({8}), emit([](ByteCodeGenerator& g) { g.sipushExt(5); }));
    EXPECT_EQ(Bytes({16, 6}), emit([](ByteCodeGenerator& g) { g.sipushExt(6); }));
    EXPECT_EQ(Bytes({16, 0x80}), emit([](ByteCodeGenerator& g) { g.sipushExt(-128); }));
    EXPECT_EQ(Bytes({17, 0, 128}), emit([](ByteCodeGenerator& g) { g.sipushExt(128); }));
    EXPECT_EQ(Bytes({17, 0x80, 0}), emit([](ByteCodeGenerator& g) { g.sipush(32768); }));  // a line above 32767
}

TEST(ByteCodeGenerator, WideFormsHaveAFixedLength) {
    EXPECT_EQ(Bytes({196, 54, 0, 1}), emit([](ByteCodeGenerator& g) { g.wide_istore(1); }));
    EXPECT_EQ(Bytes({196, 22, 1, 2}), emit([](ByteCodeGenerator& g) { g.wide_lload(258); }));
    EXPECT_EQ(Bytes({184, 1, 2, 183, 0, 3, 182, 0, 4, 189, 0, 5, 192, 0, 6, 193, 0, 7, 20, 0, 8}),
              emit([](ByteCodeGenerator& g) {
                  g.invokestatic(258);
                  g.invokespecial(3);
                  g.invokevirtual(4);
                  g.anewarray(5);
                  g.checkCast(6);
                  g.instanceOf(7);
                  g.ldc2_w(8);
              }));
}

TEST(ByteCodeGenerator, TypedInstructionsFollowTheDescriptorLetter) {
    struct Case {
        const char* type;
        Bytes zero, load5, store0, ret;
    } cases[] = {
        {"I", {3}, {21, 5}, {59}, {172}},      {"Z", {3}, {21, 5}, {59}, {172}},
        {"J", {9}, {22, 5}, {63}, {173}},      {"F", {11}, {23, 5}, {67}, {174}},
        {"D", {14}, {24, 5}, {71}, {175}},     {"Ljava/lang/String;", {1}, {25, 5}, {75}, {176}},
        {"[I", {1}, {25, 5}, {75}, {176}},
    };
    for (const Case& c : cases) {
        ZString type(c.type);
        EXPECT_EQ(c.zero, emit([&](ByteCodeGenerator& g) { EXPECT_EQ(type[0] == 'J' || type[0] == 'D' ? 2 : 1, g.zeroLoad(type)); })) << c.type;
        EXPECT_EQ(c.load5, emit([&](ByteCodeGenerator& g) { g.load(type, 5); })) << c.type;
        EXPECT_EQ(c.store0, emit([&](ByteCodeGenerator& g) { g.store(type, 0); })) << c.type;
        EXPECT_EQ(c.ret, emit([&](ByteCodeGenerator& g) { g.typedReturn(type); })) << c.type;
    }
    EXPECT_EQ(Bytes({177}), emit([](ByteCodeGenerator& g) { g.typedReturn(ZString("V")); }));
    EXPECT_EQ(Bytes({177}), emit([](ByteCodeGenerator& g) { g.typedReturn(ZString()); }));
    EXPECT_EQ(Bytes({198, 0, 4, 0, 191}), emit([](ByteCodeGenerator& g) {
                  g.ifnull_start();
                  g.opcode(0);
                  g.if_end();
                  g.opcode(191);
              }));
}

TEST(ByteCodeGenerator, IfEndPatchesTheDistanceAndRecordsTheTarget) {
    ByteCodeGenerator g;
    g.opcode(OpCodes::ICONST_0);
    g.ifeq_start();
    g.opcode(OpCodes::NOP);
    g.ifeq_start();
    g.opcode(OpCodes::NOP);
    g.if_end();
    g.if_end();
    EXPECT_EQ(Bytes({3, 153, 0, 8, 0, 153, 0, 4, 0}), bytesOf(g));
    ASSERT_EQ(2, g.getBranchTargets().getSize());
    EXPECT_EQ(9, g.getBranchTargets()[0]);
    EXPECT_EQ(9, g.getBranchTargets()[1]);
}

TEST(ByteCodeGenerator, ApplyNeedsEveryIfClosed) {
    ClassBuilder b;
    b.method("f", "()V").code = {0xb1};
    auto [cf, code] = firstCode(b.build());
    ByteCodeGenerator g;
    g.ifeq_start();
    EXPECT_THROW(g.applyTo(code), KZTRuntimeException);
    EXPECT_EQ(1, code->getCodeLength());
    g.if_end();
    g.opcode(OpCodes::RETURN);
    int length = code->getAttributeLength();
    g.applyTo(code);
    EXPECT_EQ(4, code->getCodeLength());
    EXPECT_EQ(length + 3, code->getAttributeLength());
}

// The lengths of the fixed-length instructions are read on every method of
// the JDK by the corpus test; here the variable and the unused ones.
TEST(OpCodes, LengthsFollowTheInstructionSet) {
    for (int op : {170, 171, 196}) EXPECT_EQ(-1, ourOpCodeLength[op]) << op;
    for (int op = 203; op <= 253; op++) EXPECT_EQ(-1, ourOpCodeLength[op]) << op;
    for (int op : {202, 254, 255}) EXPECT_EQ(1, ourOpCodeLength[op]) << op;

    // tableswitch at 1: two bytes of padding, default, low 0, high 1, two offsets
    Bytes table = {0, 170, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(23, OpCodes::instructionLength(table.data(), (int)table.size(), 1));
    Bytes lookup = {171, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // no pairs
    EXPECT_EQ(12, OpCodes::instructionLength(lookup.data(), (int)lookup.size(), 0));
    Bytes wide = {196, 132, 0, 1, 0, 1, 196, 21, 0, 1};
    EXPECT_EQ(6, OpCodes::instructionLength(wide.data(), (int)wide.size(), 0));
    EXPECT_EQ(4, OpCodes::instructionLength(wide.data(), (int)wide.size(), 6));
    Bytes bad = {230};
    EXPECT_THROW(OpCodes::instructionLength(bad.data(), 1, 0), KZTRuntimeException);
    Bytes cut = {17, 0};  // sipush without its second byte
    EXPECT_THROW(OpCodes::instructionLength(cut.data(), 2, 0), KZTRuntimeException);
    table[15] = 0x7f;  // a high bound far beyond the code
    EXPECT_THROW(OpCodes::instructionLength(table.data(), (int)table.size(), 1), KZTRuntimeException);
}

TEST(ByteConversions, ReadAndWriteBigEndianWithChecks) {
    unsigned char code[4] = {0xff, 0xfe, 0x01, 0x02};
    EXPECT_EQ(-2, ByteConversions::readS2(code, 0));
    EXPECT_EQ(0xfffe, ByteConversions::readU2(code, 0));
    EXPECT_EQ(-1, ByteConversions::readS1(code, 0));
    EXPECT_EQ((int)0xfffe0102, ByteConversions::readS4(code, 0));
    ByteConversions::writeS4(code, 0, -3);
    EXPECT_EQ(-3, ByteConversions::readS4(code, 0));
    EXPECT_THROW(ByteConversions::readU2(nullptr, 0), KZTRuntimeException);
    EXPECT_THROW(ByteConversions::writeU2(code, -1, 0), KZTRuntimeException);
}
