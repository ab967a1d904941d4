#include <gtest/gtest.h>

#include "ClassBuilder.h"
#include "classfile/ByteConversions.h"
#include "classfile/CodeEditor.h"

#include <vector>

static const unsigned char THREE[] = {0, 0, 0};

// static int f(int): a tableswitch, a conditional branch, four returns.
//  0 iload_0; 1 tableswitch (case 0 -> 20, default -> 22)
// 20 iconst_1; 21 ireturn; 22 iload_0; 23 ifeq 28; 26 iconst_2; 27 ireturn
// 28 iconst_3; 29 ireturn
static Bytes switchClass() {
    ClassBuilder b;
    MethodSpec& m = b.method("f", "(I)I");
    m.code = {0x1a, 0xaa, 0, 0, 0, 0, 0, 21, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 19,
              0x04, 0xac, 0x1a, 0x99, 0, 5, 0x05, 0xac, 0x06, 0xac};
    m.maxLocals = 1;
    m.exceptions = {{22, 28, 28, 0}};
    m.lines = {{0, 1}, {20, 2}, {22, 3}, {28, 4}};
    m.locals = {{0, 30, b.utf8("x"), b.utf8("I"), 0}};
    m.withStackMap = true;
    m.stackMap = {0, 3, 20, 1, 5};  // frames at 20, 22, 28
    return b.build();
}

static int s4(const unsigned char* p) { return ByteConversions::readS4(p, 0); }

TEST(CodeEditor, InsertsAndMovesEverythingThatHoldsAnOffset) {
    auto [cf, code] = firstCode(switchClass());
    CodeEditor editor;
    editor.begin(code);
    // Out of order on purpose; insertions are sorted by position.
    editor.insertBefore(27, THREE, 3);
    editor.insertBefore(21, THREE, 3);
    editor.insertAtStart(THREE, 3);
    editor.insertBefore(29, THREE, 3);
    ASSERT_TRUE(editor.apply());

    ASSERT_EQ(43, code->getCodeLength());
    const unsigned char* c = code->getCode();
    EXPECT_EQ(0x1a, c[3]);
    EXPECT_EQ(0xaa, c[4]);                  // switch now at 4: three bytes of padding
    EXPECT_EQ(0, c[5] | c[6] | c[7]);
    EXPECT_EQ(29 - 4, s4(c + 8));           // default: old 22, now 29
    EXPECT_EQ(0, s4(c + 12));
    EXPECT_EQ(0, s4(c + 16));
    EXPECT_EQ(24 - 4, s4(c + 20));          // case 0: old 20, now 24
    EXPECT_EQ(0xac, c[28]);                 // the first return behind its inserted code
    EXPECT_EQ(0x99, c[30]);
    EXPECT_EQ(38 - 30, ByteConversions::readS2(c, 31));  // to old 28, now 38
    EXPECT_EQ(0xac, c[42]);

    EXPECT_EQ(3, editor.getBlockOffset(0));
    EXPECT_EQ(25, editor.getBlockOffset(21));
    EXPECT_EQ(28, editor.getInstructionOffset(21));
    EXPECT_EQ(43, editor.getBlockOffset(30));

    auto* e = code->getExceptionTable()[0];
    EXPECT_EQ((std::vector<int>{29, 38, 38}), (std::vector<int>{e->startPc, e->endPc, e->handlerPc}));
    LineNumberTableAttribute* lines = code->getLineNumberTable();
    std::vector<int> lineStarts;
    for (int i = 0; i < 4; i++) lineStarts.push_back(lines->getLine(i).startPc);
    EXPECT_EQ((std::vector<int>{0, 24, 29, 38}), lineStarts);  // the first covers the code at the start
    LocalVariable& x = code->getLocalVariableTable()->getVariable(0);
    EXPECT_EQ((std::vector<int>{0, 43}), (std::vector<int>{x.getStartPc(), x.getLength()}));
    EXPECT_EQ((std::vector<int>{-1, 24, 29, 38}), frameOffsets(code));

    // The written class holds exactly that.
    auto again = parseClass(writeClass(*cf));
    CodeAttribute* written = again->getMethods()[0]->getCodeAttribute();
    EXPECT_EQ(0, memcmp(code->getCode(), written->getCode(), 43));
    EXPECT_EQ(frameOffsets(code), frameOffsets(written));
}

TEST(CodeEditor, CodeAtTheEndStandsOutsideEveryRangeAndEachInsertionIsFound) {
    auto [cf, code] = firstCode(switchClass());
    code->getExceptionTable()[0]->endPc = 30;  // to the end of the code
    CodeEditor editor;
    editor.begin(code);
    static const unsigned char HANDLER[] = {0x57, 0x06, 0xac};  // pop; iconst_3; ireturn
    int end = editor.insertAtEnd(HANDLER, 3);
    int start = editor.insertAtStart(THREE, 2);
    int before = editor.insertBefore(29, THREE, 1);
    EXPECT_EQ(-1, editor.insertBefore(21, THREE, 0));
    ASSERT_TRUE(editor.apply());
    // The switch moves from 1 to 3 and loses its two bytes of padding.
    ASSERT_EQ(34, code->getCodeLength());
    EXPECT_EQ(2, editor.getBlockOffset(0));
    EXPECT_EQ(31, editor.getBlockOffset(30));  // the old end: where the appended code begins
    EXPECT_EQ(0, editor.getInsertionOffset(start));
    EXPECT_EQ(29, editor.getInsertionOffset(before));
    EXPECT_EQ(31, editor.getInsertionOffset(end));
    EXPECT_EQ(0, memcmp(code->getCode() + 31, HANDLER, 3));
    auto* e = code->getExceptionTable()[0];
    EXPECT_EQ(22, e->startPc);
    EXPECT_EQ(31, e->endPc);  // a range to the old end stops before the appended code
}

TEST(CodeEditor, UninitializedItemsFollowTheirNewInstruction) {
    ClassBuilder b;
    int cls = b.cls("java/lang/Object");
    MethodSpec& m = b.method("f", "()V");
    // nop x4; new; nop; pop; return, with a frame at 7 holding the new object
    m.code = {0, 0, 0, 0, 0xbb, (uint8_t)(cls >> 8), (uint8_t)cls, 0, 0x57, 0xb1};
    m.withStackMap = true;
    m.stackMap = {0, 1, 255, 0, 7, 0, 0, 0, 1, 8, 0, 4};
    auto [cf, code] = firstCode(b.build());
    CodeEditor editor;
    editor.begin(code);
    editor.insertBefore(4, THREE, 2);
    editor.insertAfter(4, THREE, 1);
    ASSERT_TRUE(editor.apply());
    StackMapFrame* frame = code->getFrames()[1];
    EXPECT_EQ(10, frame->getOffset());
    EXPECT_EQ(6, frame->getStack()[0].getData());
    EXPECT_EQ(0xbb, code->getCode()[6]);
}

TEST(CodeEditor, RefusesWhatDoesNotFitAndChangesNothing) {
    Bytes bytes = switchClass();
    auto [cf, code] = firstCode(bytes);
    std::vector<unsigned char> big(32770, 0);
    CodeEditor editor;
    editor.begin(code);
    editor.insertBefore(26, big.data(), (int)big.size());  // inside the ifeq's reach
    EXPECT_FALSE(editor.apply());
    EXPECT_EQ(bytes, writeClass(*cf));

    editor.begin(code);
    std::vector<unsigned char> huge(65510, 0);
    editor.insertAtStart(huge.data(), (int)huge.size());
    EXPECT_FALSE(editor.apply());
    EXPECT_EQ(bytes, writeClass(*cf));

    editor.begin(code);
    editor.insertBefore(24, THREE, 3);  // inside the ifeq at 23
    EXPECT_THROW(editor.apply(), KZTRuntimeException);
    editor.begin(code);
    EXPECT_THROW(editor.insertAfter(30, THREE, 3), KZTRuntimeException);
}

TEST(CodeEditor, LongBranchesStretch) {
    ClassBuilder b;
    MethodSpec& m = b.method("f", "()V");
    m.code = {0xc8, 0, 0, 0, 5, 0xb1};  // goto_w +5; return
    m.withStackMap = true;
    m.stackMap = {0, 1, 5};
    auto [cf, code] = firstCode(b.build());
    std::vector<unsigned char> big(40000, 0);
    CodeEditor editor;
    editor.begin(code);
    editor.insertBefore(5, big.data(), (int)big.size());
    ASSERT_TRUE(editor.apply());
    // A branch to the return now lands on the inserted code in front of it.
    EXPECT_EQ(5, ByteConversions::readS4(code->getCode(), 1));
    EXPECT_EQ(5, code->getFrames()[1]->getOffset());
    EXPECT_EQ(40006, code->getCodeLength());
}

// A visitor that reserves room in front of every return; its filler writes
// nops and notes the order in which it was asked.
struct ReturnsVisitor {
    CodeEditor* editor;
    std::vector<int> seen;
    const bool* interest() const {
        static bool flags[256] = {};
        for (int op = 0xac; op <= 0xb1; op++) flags[op] = true;
        return flags;
    }
    void visit(int opcode, int pc, int next) {
        seen.push_back(pc);
        editor->reserveBefore(pc, 0, pc);
    }
};
struct NopFiller : CodeEditor::Filler {
    std::vector<int> tags;
    void fill(int tag, unsigned char* at, int length) override {
        tags.push_back(tag);
        memset(at, 0, length);
    }
};

TEST(CodeEditor, ScanShowsTheVisitorItsInstructionsAndFillsWhatWasReserved) {
    auto [cf, code] = firstCode(switchClass());
    CodeEditor editor;
    ReturnsVisitor visitor{&editor, {}};
    editor.begin(code);
    int start = editor.reserveAtStart(0, -1);
    editor.scan(visitor);
    EXPECT_EQ(std::vector<int>({21, 27, 29}), visitor.seen);  // no return inside the switch table
    EXPECT_TRUE(editor.hasSwitch());
    editor.setLength(start, 4);  // a multiple of four keeps the switch padding
    NopFiller filler;
    ASSERT_TRUE(editor.apply(&filler));
    EXPECT_EQ(std::vector<int>({-1}), filler.tags);  // the others kept length 0
    EXPECT_EQ(34, code->getCodeLength());
    EXPECT_EQ(0xaa, code->getCode()[5]);
    EXPECT_EQ(24, editor.getBlockOffset(20));

    // A `wide iinc` whose operand bytes look like a switch is stepped over.
    ClassBuilder b;
    MethodSpec& m = b.method("g", "()V");
    m.code = {0xc4, 0x84, 0, 0xaa, 0, 1, 0xb1};
    m.maxLocals = 200;
    auto other = parseClass(b.build());
    ReturnsVisitor second{&editor, {}};
    editor.begin(other->getMethods()[0]->getCodeAttribute());
    editor.scan(second);
    EXPECT_FALSE(editor.hasSwitch());
    EXPECT_EQ(std::vector<int>({6}), second.seen);
}
