#include <gtest/gtest.h>

#include "ClassBuilder.h"

static VerificationType type(int tag, int data = -1) { return VerificationType(tag, data); }

static ZVector<int, 10> pcs(std::initializer_list<int> values) {
    ZVector<int, 10> v;
    for (int pc : values) v.push(pc);
    return v;
}

static StackMapFrame frame(int offset, std::vector<VerificationType> locals, std::vector<VerificationType> stack = {}) {
    StackMapFrame f(offset);
    for (auto& t : locals) f.getLocals().push(t);
    for (auto& t : stack) f.getStack().push(t);
    return f;
}

static Bytes encode(const StackMapFrame& f, const StackMapFrame& prev) {
    ZVector<unsigned char, 10> out;
    DataOutput dout(out);
    f.writeTo(prev, dout);
    return Bytes(out.getElements(), out.getElements() + out.getSize());
}

static bool sameFrame(const StackMapFrame& a, const StackMapFrame& b) {
    return a.getOffset() == b.getOffset() && VerificationType::compare(a.getLocals(), b.getLocals()) == 0 &&
           VerificationType::compare(a.getStack(), b.getStack()) == 0;
}

TEST(StackMapFrame, EncodesInTheShortestFormAndDecodesBack) {
    VerificationType i = type(VerificationType::INTEGER), f = type(VerificationType::FLOAT);
    VerificationType object = type(VerificationType::OBJECT, 300);
    StackMapFrame initial = frame(-1, {i});
    StackMapFrame at10 = frame(10, {i});
    struct Case {
        StackMapFrame current;
        const StackMapFrame* previous;
        Bytes expected;
    } cases[] = {
        {frame(0, {i}), &initial, {0}},                                      // first frame at offset 0: od 0
        {frame(74, {i}), &at10, {63}},                                       // delta 64: same
        {frame(75, {i}), &at10, {251, 0, 64}},                               // delta 65: same, extended
        {frame(74, {i}, {object}), &at10, {127, 7, 1, 44}},                  // delta 64: one stack item
        {frame(75, {i}, {i}), &at10, {247, 0, 64, 1}},                       // delta 65: extended
        {frame(11, {i, f, object}), &at10, {253, 0, 0, 2, 7, 1, 44}},       // append 2
        {frame(11, {}), &at10, {250, 0, 0}},                                 // chop 1
        {frame(11, {i, i, i, i, i}), &at10, {255, 0, 0, 0, 5, 1, 1, 1, 1, 1, 0, 0}},  // four more: full
        {frame(11, {f}), &at10, {255, 0, 0, 0, 1, 2, 0, 0}},                 // changed type: full
        {frame(11, {f}, {i}), &at10, {255, 0, 0, 0, 1, 2, 0, 1, 1}},         // stack and changed locals: full
    };
    for (auto& c : cases) {
        Bytes bytes = encode(c.current, *c.previous);
        EXPECT_EQ(c.expected, bytes) << "frame at " << c.current.getOffset();
        ZVector<unsigned char, 10> v = toVector(bytes);
        DataInput in(v);
        StackMapFrame decoded(*c.previous, in, 1);
        EXPECT_TRUE(sameFrame(c.current, decoded)) << "frame at " << c.current.getOffset();
    }
    // UninitializedThis writes its tag only; its class index is kept in memory.
    EXPECT_EQ(Bytes({255, 0, 0, 0, 1, 6, 0, 0}), encode(frame(11, {type(VerificationType::UNINITIALIZED_THIS, 9)}), at10));
    EXPECT_THROW(encode(frame(10, {i}), at10), KZTRuntimeException);  // no delta
}

TEST(StackMapFrame, ReservedFrameTypesAndTagsAreRejected) {
    StackMapFrame initial = frame(-1, {});
    for (Bytes bytes : {Bytes{128}, Bytes{246}, Bytes{64, 9}, Bytes{248, 0, 0}}) {
        ZVector<unsigned char, 10> v = toVector(bytes);
        DataInput in(v);
        EXPECT_THROW(StackMapFrame(initial, in, 1), KZTRuntimeException) << (int)bytes[0];
    }
}

TEST(VerificationType, ComparesByTagAndData) {
    VerificationTypes a, b;
    a.push(type(VerificationType::INTEGER));
    b.push(type(VerificationType::INTEGER));
    EXPECT_EQ(0, VerificationType::compare(a, b));
    b.push(type(VerificationType::OBJECT, 3));
    EXPECT_EQ(-1, VerificationType::compare(a, b));
    a.push(type(VerificationType::OBJECT, 4));
    EXPECT_EQ(104, VerificationType::compare(a, b));
    EXPECT_TRUE(VerificationType::isSameType(type(VerificationType::UNINITIALIZED_THIS, 1), type(6, 2)));
    EXPECT_THROW(type(VerificationType::OBJECT, -1), KZTRuntimeException);
    EXPECT_EQ(-1, type(VerificationType::INTEGER, 5).getData());
}

// A static method (I)V of version `major` with one frame at 4.
static Bytes methodWithFrame(int major, bool withTable = true) {
    ClassBuilder b;
    b.major = major;
    MethodSpec& m = b.method("f", "(I)V");
    m.code = {0x1a, 0x99, 0x00, 0x03, 0xb1};  // iload_0; ifeq +3; return
    m.maxLocals = 2;
    m.lines = {{0, 5}, {4, 6}};
    m.exceptions = {{0, 5, 4, 0}};
    m.withStackMap = withTable;
    m.stackMap = {0, 1, 4};
    return b.build();
}

TEST(CodeAttribute, OldClassesHaveNoFrames) {
    auto [cf, code] = firstCode(methodWithFrame(49, false));
    EXPECT_FALSE(code->isStackMapsEnabled());
    code->addStackMapFrames(pcs({1}), 0, VerificationType(), -1, false, nullptr);
    code->duplicateUninitializedStackMapFramesItem(0);
    EXPECT_EQ(0, code->getFrames().getSize());
}

TEST(CodeAttribute, TableAppearsOnlyWhenFramesAreAdded) {
    Bytes bytes = methodWithFrame(51, false);
    auto cf = parseClass(bytes);
    EXPECT_EQ(bytes, writeClass(*cf));
    CodeAttribute* code = cf->getMethods()[0]->getCodeAttribute();
    code->addStackMapFrames(pcs({4}), 0, VerificationType(), -1, false, nullptr);
    auto again = parseClass(writeClass(*cf));
    CodeAttribute* written = again->getMethods()[0]->getCodeAttribute();
    EXPECT_EQ((std::vector<int>{-1, 4}), frameOffsets(written));
}

TEST(CodeAttribute, AddedFramesGoBetweenExistingOnes) {
    auto [cf, code] = firstCode(methodWithFrame(52));
    code->getPreservedVariables().push(0);
    // Frames go to each pc plus the base 1: 3 + 1 = 4 holds a frame already.
    code->addStackMapFrames(pcs({1, 3, 5}), 1, type(VerificationType::INTEGER), -1, true, nullptr);
    ZVector<StackMapFrame*, 10>& frames = code->getFrames();
    ASSERT_EQ((std::vector<int>{-1, 2, 4, 6}), frameOffsets(code));
    EXPECT_EQ(0, frames[2]->getStack().getSize());
    EXPECT_EQ(1, frames[3]->getStack().getSize());
    EXPECT_EQ(VerificationType::INTEGER, frames[3]->getLocals()[0].getTag());  // preserved
}

TEST(CodeAttribute, NewHandlersAreOrderedInsideTheirEnclosingRange) {
    auto [cf, code] = firstCode(methodWithFrame(52));
    int length = code->getAttributeLength();
    code->addExceptionHandler(0, 5, 5, type(VerificationType::OBJECT, 2));  // start 0: stays last
    EXPECT_EQ(5, code->getExceptionTable()[1]->handlerPc);
    code->addExceptionHandler(1, 4, 3, type(VerificationType::OBJECT, 2));  // inside [0, 5): goes first
    ASSERT_EQ(3, code->getExceptionTable().getSize());
    EXPECT_EQ(3, code->getExceptionTable()[0]->handlerPc);
    EXPECT_EQ(4, code->getExceptionTable()[1]->handlerPc);
    EXPECT_EQ(length + 16, code->getAttributeLength());
    ZVector<StackMapFrame*, 10>& frames = code->getFrames();
    ASSERT_EQ(4, frames.getSize());
    EXPECT_EQ(3, frames[1]->getOffset());
    EXPECT_EQ(VerificationType::TOP, frames[1]->getLocals()[0].getTag());  // wiped: nothing preserved
    EXPECT_EQ(VerificationType::OBJECT, frames[1]->getStack()[0].getTag());
    EXPECT_EQ(4, code->getCorrectExceptionHandlerIndex(2));
    EXPECT_EQ(5, code->getCorrectExceptionHandlerIndex(0));
    EXPECT_EQ(3, code->findHandlerIndexForInstruction(2));
    EXPECT_EQ(-1, code->findHandlerIndexForInstruction(7));
    EXPECT_THROW(code->addExceptionHandler(3, 3, 0, VerificationType()), KZTRuntimeException);
}

TEST(CodeAttribute, NewVariablesReachFramesOnlyWhenApplied) {
    auto [cf, code] = firstCode(methodWithFrame(52));
    EXPECT_EQ(2, code->addLocalVariableToTable(type(VerificationType::INTEGER), true));
    EXPECT_EQ(3, code->addLocalVariableToTable(type(VerificationType::LONG), true));
    EXPECT_EQ(5, code->getMaxLocals());
    code->rollbackAddedVariables();
    EXPECT_EQ(2, code->getMaxLocals());
    EXPECT_EQ(1, code->getFrames()[1]->getLocals().getSize());

    code->addLocalVariableToTable(type(VerificationType::INTEGER), true);
    code->addLocalVariableToTable(type(VerificationType::LONG), false);
    code->applyAddedVariables(0);
    VerificationTypes& locals = code->getFrames()[1]->getLocals();
    ASSERT_EQ(3, locals.getSize());  // I, Top filler, I; the unkept long leaves Tops that are cleaned up
    EXPECT_EQ(VerificationType::INTEGER, locals[0].getTag());
    EXPECT_EQ(VerificationType::TOP, locals[1].getTag());
    EXPECT_EQ(VerificationType::INTEGER, locals[2].getTag());
    EXPECT_EQ(1, code->getFrames()[0]->getLocals().getSize());  // the initial frame stays

    ClassBuilder b;
    MethodSpec& m = b.method("f", "()V");
    m.code = {0xb1};
    m.maxLocals = 32767;
    auto big = parseClass(b.build());
    CodeAttribute* full = big->getMethods()[0]->getCodeAttribute();
    EXPECT_EQ(32765, full->addLocalVariableToTable(type(VerificationType::DOUBLE), true));
    EXPECT_EQ(32767, full->getMaxLocals());
    full->incMaxStackCount(40000);
    EXPECT_EQ(32767, full->getMaxStack());
}

TEST(CodeAttribute, UninitializedItemIsDuplicatedOnlyAtTheBottom) {
    auto [cf, code] = firstCode(methodWithFrame(52));
    VerificationTypes& stack = code->getFrames()[1]->getStack();
    stack.push(type(VerificationType::UNINITIALIZED, 7));
    stack.push(type(VerificationType::INTEGER));
    code->duplicateUninitializedStackMapFramesItem(7);
    ASSERT_EQ(3, stack.getSize());
    EXPECT_EQ(VerificationType::UNINITIALIZED, stack[1].getTag());
    stack.clear();
    stack.push(type(VerificationType::INTEGER));
    stack.push(type(VerificationType::UNINITIALIZED, 7));
    code->duplicateUninitializedStackMapFramesItem(7);
    EXPECT_EQ(2, stack.getSize());
}

TEST(CodeAttribute, WipedParametersAreRestoredFromTheEntry) {
    ClassBuilder b;
    MethodSpec& m = b.method("f", "(IJ)V");
    m.code = {0x1a, 0x99, 0x00, 0x03, 0xb1};
    m.maxLocals = 3;
    m.withStackMap = true;
    m.stackMap = {0, 1, 255, 0, 4, 0, 3, 0, 0, 0, 0, 0};  // full frame at 4: Top Top Top
    auto [cf, code] = firstCode(b.build());
    EXPECT_FALSE(code->tryRestoreWipedVariablesInStackMapTable(-1));  // nothing preserved
    code->getPreservedVariables().push(0);
    code->getPreservedVariables().push(1);
    EXPECT_TRUE(code->tryRestoreWipedVariablesInStackMapTable(-1));
    VerificationTypes& locals = code->getFrames()[1]->getLocals();
    ASSERT_EQ(2, locals.getSize());
    EXPECT_EQ(VerificationType::INTEGER, locals[0].getTag());
    EXPECT_EQ(VerificationType::LONG, locals[1].getTag());
    EXPECT_FALSE(code->tryRestoreWipedVariablesInStackMapTable(-1));
}

TEST(CodeAttribute, EmptiedBodyDropsTablesAndFrames) {
    auto cf = parseClass(methodWithFrame(52));
    MethodInfo* method = cf->getMethods()[0];
    CodeAttribute* code = method->getCodeAttribute();
    unsigned char body[] = {0xb1};
    code->setCode(body, 1);
    code->resetForEmptyMethodBody(cf.get(), *method, 1, 0);
    EXPECT_EQ(0, code->getExceptionTable().getSize());
    EXPECT_EQ(nullptr, code->getLineNumberTable());
    EXPECT_EQ(1, code->getFrames().getSize());
    auto again = parseClass(writeClass(*cf));
    CodeAttribute* written = again->getMethods()[0]->getCodeAttribute();
    EXPECT_EQ(1, written->getCodeLength());
    EXPECT_EQ(1, written->getMaxLocals());
    EXPECT_EQ(0, written->getAttributes().getSize());
}

TEST(LineNumberTable, LookupStopsAtTheFirstEntryPastThePc) {
    ClassBuilder b;
    MethodSpec& m = b.method("f", "()V");
    m.code = {0, 0, 0, 0, 0, 0, 0xb1};
    m.lines = {{0, 1}, {4, 3}, {2, 2}};
    auto cf = parseClass(b.build());
    LineNumberTableAttribute* lines = cf->getMethods()[0]->getCodeAttribute()->getLineNumberTable();
    EXPECT_EQ(1, lines->getLineNumber(0));
    EXPECT_EQ(1, lines->getLineNumber(3));  // the walk stops at the entry for 4
    EXPECT_EQ(2, lines->getLineNumber(6));
}

TEST(CodeAttribute, StreamedTableEqualsAddWriteRemove) {
    auto [cf, code] = firstCode(methodWithFrame(52));
    code->addStackMapFrames(pcs({2}), 0, type(VerificationType::INTEGER), -1, false, nullptr);
    ZVector<unsigned char, 10> streamed, stepwise;
    DataOutput a(streamed), b(stepwise);
    code->writeWithStackMapTable(a);
    int length = code->getAttributeLength();
    code->addStackMapTableAttributeBeforeWrite();
    code->write(b);
    code->removeAttributes("StackMapTable");
    EXPECT_EQ(length, code->getAttributeLength());
    ASSERT_EQ(streamed.getSize(), stepwise.getSize());
    EXPECT_EQ(0, memcmp(streamed.getElements(), stepwise.getElements(), streamed.getSize()));
}
