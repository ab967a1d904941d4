#include <gtest/gtest.h>

#include "ClassBuilder.h"

// iload_0; ifne +5; iconst_1; ireturn; iconst_0; ireturn, with a frame at 6.
static Bytes branchingClass(int major) {
    ClassBuilder b;
    b.major = major;
    MethodSpec& m = b.method("f", "(ILjava/lang/String;)I");
    m.code = {0x1a, 0x9a, 0x00, 0x05, 0x04, 0xac, 0x03, 0xac};
    m.lines = {{0, 10}, {6, 12}};
    m.withStackMap = major >= 50;
    m.stackMap = {0, 1, 6};
    return b.build();
}

// The corpus test round-trips the JDK's own classes, all of them with frames;
// here a class from before stack maps.
TEST(ClassFile, UneditedOldClassWritesBackTheSameBytes) {
    Bytes bytes = branchingClass(49);
    auto cf = parseClass(bytes);
    ASSERT_FALSE(cf->isInvalid());
    EXPECT_EQ(bytes, writeClass(*cf));
    EXPECT_EQ(bytes, writeClass(*cf)) << "second write";
    CodeAttribute* code = cf->getMethods()[0]->getCodeAttribute();
    EXPECT_FALSE(code->isStackMapsEnabled());
    EXPECT_EQ(0, code->getFrames().getSize());
}

TEST(ClassFile, ConstantsAddedWhileParsingAreWrittenOnlyWhenUsed) {
    ClassBuilder b;
    b.method("g", "(Ljava/lang/String;)V").code = {0xb1};
    Bytes bytes = b.build();
    auto cf = parseClass(bytes);
    int parsedSize = cf->getConstantPool()->getSize();
    EXPECT_EQ(bytes, writeClass(*cf));

    // An edit that asks for one of them makes it part of the class.
    int name = cf->findOrCreateUtf8(ZString("java/lang/String"));
    int index = cf->findOrCreateConstantClass(name);
    EXPECT_LT(index, parsedSize);
    Bytes written = writeClass(*cf);
    EXPECT_GT(written.size(), bytes.size());
    auto again = parseClass(written);
    EXPECT_EQ("java/lang/String", again->getConstantClassSignature(index));
}

TEST(ClassFile, UnknownPoolTagLeavesTheClassInvalid) {
    for (int tag : {17, 19, 2}) {
        ClassBuilder b;
        b.utf8("x");
        b.raw(Bytes{(uint8_t)tag, 0, 1, 0, 1});
        b.method("m", "()V").code = {0xb1};
        auto cf = parseClass(b.build());
        EXPECT_TRUE(cf->isInvalid()) << tag;
        EXPECT_EQ(0, cf->getMethods().getSize());
    }
}

TEST(ClassFile, EveryTruncationIsRejectedByAnAssertion) {
    Bytes bytes = branchingClass(52);
    for (size_t length = 0; length < bytes.size(); length++) {
        Bytes cut(bytes.begin(), bytes.begin() + length);
        EXPECT_THROW(parseClass(cut), KZTRuntimeException) << length;
    }
}

TEST(ClassFile, CorruptCountsAndIndicesAreRejected) {
    ClassBuilder b;
    b.method("m", "()V").code = {0xb1};
    Bytes bytes = b.build();
    // The method's attribute name index points at slot 0 of the pool.
    Bytes broken = bytes;
    size_t code = bytes.size() - 2 - 4 - 13 - 2;  // name index of the one Code attribute
    broken[code] = 0;
    broken[code + 1] = 0;
    EXPECT_THROW(parseClass(broken), KZTRuntimeException);
    // A code length of zero.
    broken = bytes;
    broken[bytes.size() - 2 - 13 + 4 + 3] = 0;
    EXPECT_THROW(parseClass(broken), KZTRuntimeException);
}

TEST(ClassFile, LongTakesTwoSlots) {
    ClassBuilder b;
    b.method("m", "()V").code = {0xb1};
    auto cf = parseClass(b.build());
    int longIndex = cf->findOrCreateLongInfo(1234567890123LL);
    EXPECT_EQ(nullptr, (*cf->getConstantPool())[longIndex + 1]);
    EXPECT_EQ(longIndex + 2, cf->findOrCreateIntInfo(7));
    EXPECT_EQ(longIndex, cf->findOrCreateLongInfo(1234567890123LL));
    auto again = parseClass(writeClass(*cf));
    EXPECT_EQ(cf->getConstantPool()->getSize(), again->getConstantPool()->getSize());
    EXPECT_EQ(longIndex + 2, again->findOrCreateIntInfo(7));
}

TEST(ClassFile, MacroMethodsAreRemovedAndTheirNamesBlanked) {
    ClassBuilder b;
    b.method("$$template$$", "()V").code = {0xb1};
    b.method("keep", "()V").code = {0xb1};
    b.method("$$half", "()V").code = {0xb1};
    int name = b.utf8("$$template$$");
    auto cf = parseClass(b.build());
    cf->removeUnusedMacroMethods();
    ASSERT_EQ(2, cf->getMethods().getSize());
    EXPECT_EQ("keep", cf->getMethods()[0]->getName());
    EXPECT_EQ("$$half", cf->getMethods()[1]->getName());
    EXPECT_EQ("", ConstantPoolInfo::getUtf8(cf->getConstantPool(), name));

    ClassBuilder two;
    two.method("$$", "()V").code = {0xb1};
    auto shortName = parseClass(two.build());
    shortName->removeUnusedMacroMethods();
    EXPECT_EQ(0, shortName->getMethods().getSize());
}

TEST(ClassFile, CreateCodeAttributeNeedsTheCodeConstant) {
    ClassBuilder b;
    b.method("n", "()V", 0x0109).withCode = false;
    auto cf = parseClass(b.build());
    EXPECT_EQ(nullptr, cf->getMethods()[0]->getCodeAttribute());
    EXPECT_THROW(cf->getMethods()[0]->createCodeAttribute(), KZTRuntimeException);

    ClassBuilder withName;
    withName.utf8("Code");
    withName.method("n", "()V", 0x0109).withCode = false;
    auto native = parseClass(withName.build());
    MethodInfo* m = native->getMethods()[0];
    m->makeNotNative();
    CodeAttribute* code = m->createCodeAttribute();
    EXPECT_EQ(1, code->getCodeLength());
    EXPECT_EQ(177, code->getCode()[0]);
    EXPECT_EQ(13, code->getAttributeLength());
    auto again = parseClass(writeClass(*native));
    ASSERT_NE(nullptr, again->getMethods()[0]->getCodeAttribute());
    EXPECT_FALSE(again->getMethods()[0]->isNative());
}

TEST(ClassFile, PatchedPoolIsFoundByItsNewText) {
    ClassBuilder b;
    int owner = b.utf8("sun/misc/Unsafe");
    int descriptor = b.utf8("(Lsun/misc/Unsafe;J)V");
    b.method("m", "()V").code = {0xb1};
    auto cf = parseClass(b.build());
    EXPECT_EQ(owner, cf->findOrCreateUtf8(ZString("sun/misc/Unsafe")));
    ZVectorSafe<ZString> from, to;
    from.push(ZString("sun/misc/Unsafe"));
    to.push(ZString("jdk/internal/misc/Unsafe"));
    cf->patchConstantPool(from, to);
    EXPECT_EQ("(Ljdk/internal/misc/Unsafe;J)V", ConstantPoolInfo::getUtf8(cf->getConstantPool(), descriptor));
    EXPECT_EQ(owner, cf->findOrCreateUtf8(ZString("jdk/internal/misc/Unsafe")));
    auto again = parseClass(writeClass(*cf));
    EXPECT_EQ("jdk/internal/misc/Unsafe", ConstantPoolInfo::getUtf8(again->getConstantPool(), owner));
}

TEST(ClassFile, FindsMethodsAndAddsBareOnes) {
    ClassBuilder b;
    b.method("over", "()V").code = {0xb1};
    b.method("over", "(I)V").code = {0xb1};
    b.method("single", "()I").code = {0x03, 0xac};
    auto cf = parseClass(b.build());
    bool multiple = false;
    EXPECT_EQ(cf->getMethods()[0], cf->findFirstMethod(ZString("over"), &multiple));
    EXPECT_TRUE(multiple);
    EXPECT_EQ(cf->getMethods()[2], cf->findFirstMethod(ZString("single"), &multiple));
    EXPECT_FALSE(multiple);
    EXPECT_EQ(cf->getMethods()[1], cf->findMethod(ZString("over"), ZString("(I)V")));
    EXPECT_EQ(nullptr, cf->findMethod(ZString("over"), ZString("(J)V")));
    EXPECT_EQ(1, cf->findOrCreateMethod(ZString("over"), ZString("(I)V"), 9));
    EXPECT_EQ(3, cf->findOrCreateMethod(ZString("added"), ZString("()V"), 0x0109));
    EXPECT_EQ("I", cf->getMethods()[2]->getReturnType());
    EXPECT_FALSE(cf->getMethods()[2]->isVoid());
    auto again = parseClass(writeClass(*cf));
    ASSERT_EQ(4, again->getMethods().getSize());
    EXPECT_EQ(nullptr, again->getMethods()[3]->getCodeAttribute());
    EXPECT_TRUE(again->getMethods()[3]->isNative());
}

TEST(ClassFile, CopiedCodeKeepsItsTableRaw) {
    ClassBuilder b;
    MethodSpec& m = b.method("f", "(I)I");
    m.code = {0x1a, 0x9a, 0x00, 0x05, 0x04, 0xac, 0x03, 0xac};
    m.withStackMap = true;
    m.stackMap = {0, 1, 6};
    b.method("g", "(I)I").code = {0x03, 0xac};
    auto cf = parseClass(b.build());
    MethodInfo* g = cf->getMethods()[1];
    g->copyAttributesFrom(cf->getMethods()[0]);
    CodeAttribute* code = g->getCodeAttribute();
    EXPECT_FALSE(code->isStackMapsEnabled());
    EXPECT_NE(nullptr, code->findAttribute("StackMapTable"));
    Bytes once = writeClass(*cf);
    EXPECT_EQ(once, writeClass(*cf));
    auto again = parseClass(once);
    EXPECT_EQ((std::vector<int>{-1, 6}), frameOffsets(again->getMethods()[1]->getCodeAttribute()));
}

TEST(ClassFile, ParameterTypesComeFromTheDescriptor) {
    ZVectorSafe<ZString> types;
    MethodInfo::getParameterTypesBySignature(ZString("(I[[Ljava/lang/String;JLx;[D)V"), types);
    std::vector<std::string> read;
    for (int i = 0; i < types.getSize(); i++) read.push_back(types[i].c_str());
    EXPECT_EQ((std::vector<std::string>{"I", "[[Ljava/lang/String;", "J", "Lx;", "[D"}), read);
    ZVectorSafe<ZString> broken;
    EXPECT_THROW(MethodInfo::getParameterTypesBySignature(ZString("(Ljava/lang/String"), broken), KZTRuntimeException);
}

TEST(ClassFile, AnnotationsMatchByTypeDescriptor) {
    ClassBuilder b;
    b.method("m", "()V").code = {0xb1};
    int visible = b.utf8("RuntimeVisibleAnnotations");
    int first = b.utf8("Lcom/acme/Other;");
    int second = b.utf8("Lcom/acme/Traced;");
    int element = b.utf8("value");
    Bytes bytes = b.build();
    // One class attribute: two annotations, the first with a nested
    // annotation, an array and an enum among its pairs.
    Bytes body;
    putU2(body, {2, first, 3, element});
    body.push_back('@');
    putU2(body, {first, 0, element});
    body.push_back('[');
    putU2(body, 2);
    body.push_back('I');
    putU2(body, element);
    body.push_back('s');
    putU2(body, {element, element});
    body.push_back('e');
    putU2(body, {first, element, second, 0});
    bytes.resize(bytes.size() - 2);
    putU2(bytes, {1, visible});
    putU4(bytes, (uint32_t)body.size());
    append(bytes, body);
    auto cf = parseClass(bytes);
    EXPECT_TRUE(cf->hasMatchingAnnotation(ZString("")));
    EXPECT_TRUE(cf->hasMatchingAnnotation(ZString("Lcom/acme/Traced;")));
    EXPECT_TRUE(cf->hasMatchingAnnotation(ZString("Lcom/acme/*")));
    EXPECT_FALSE(cf->hasMatchingAnnotation(ZString("Lorg/*")));
    EXPECT_FALSE(cf->getMethods()[0]->hasMatchingAnnotation(ZString("Lcom/acme/*")));
    EXPECT_EQ(bytes, writeClass(*cf));
}

TEST(ClassFile, TinyAndEmptyPoolsFailCleanly) {
    // Found by fuzzing: an empty pool once copied zero bytes from nowhere.
    Bytes emptyPool = {0, 0, 0, 0, 0x28, 0, 0xcb, 0, 0, 0, 0, 0, 0, 0, 0x67};
    EXPECT_THROW(parseClass(emptyPool), KZTRuntimeException);
    Bytes minimal = {0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 52, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_THROW(parseClass(minimal), KZTRuntimeException);  // this class 0
    // A Long whose second slot would lie past the pool's end.
    Bytes lastLong = {0xca, 0xfe, 0xba, 0xbe, 0, 0, 0, 52, 0, 2, 5, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_THROW(parseClass(lastLong), KZTRuntimeException);
}
