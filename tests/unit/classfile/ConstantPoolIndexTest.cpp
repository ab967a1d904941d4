#include <gtest/gtest.h>

#include "ClassBuilder.h"

// The index answers as a scan from 1 would: the first of equal entries,
// entries appended later, and texts changed by a patch.
TEST(ConstantPoolIndex, FindsTheFirstOfEqualEntriesAndAppendedOnes) {
    ClassBuilder b;
    int text = b.utf8("twice");
    b.duplicateUtf8("twice");
    int seven = b.integer(7);
    b.integer(7);
    int big = b.longConstant(1LL << 40);
    int low = b.integer(0);  // the low half of the long, as an Integer
    int aClass = b.cls("p/A");
    b.method("m", "()V").code = {0xb1};
    auto cf = parseClass(b.build());

    EXPECT_EQ(text, cf->findOrCreateUtf8(ZString("twice")));
    EXPECT_EQ(seven, cf->findOrCreateIntInfo(7));
    EXPECT_EQ(big, cf->findOrCreateLongInfo(1LL << 40));
    EXPECT_EQ(low, cf->findOrCreateIntInfo(0));
    EXPECT_EQ(aClass, cf->findOrCreateConstantClass(cf->findOrCreateUtf8(ZString("p/A"))));

    // Keys that differ only where a cheap hash might not look.
    int size = cf->getConstantPool()->getSize();
    int longA = cf->findOrCreateUtf8(ZString("java/lang/a/very/long/name/Same"));
    int longB = cf->findOrCreateUtf8(ZString("java/lang/b/very/long/name/Same"));
    EXPECT_EQ(size, longA);
    EXPECT_EQ(size + 1, longB);
    EXPECT_EQ(longA, cf->findOrCreateUtf8(ZString("java/lang/a/very/long/name/Same")));
    EXPECT_EQ(size + 2, cf->findOrCreateLongInfo(7));  // an Integer 7 is no Long 7
    EXPECT_EQ(size + 4, cf->findOrCreateUtf8(ZString("")));
    EXPECT_EQ(size + 4, cf->findOrCreateUtf8(ZString("")));
    int stringIndex = cf->findOrCreateStringInfo(ZString(""));
    EXPECT_EQ(stringIndex, cf->findOrCreateStringInfo(ZString("")));

    int nameAndType = cf->findOrCreateNameAndType(longA, longB);
    int ref = cf->findOrCreateMethodRef(aClass, longA, longB);
    EXPECT_EQ(nameAndType + 1, ref);
    EXPECT_EQ(ref, cf->findOrCreateMethodRef(aClass, longA, longB));
    EXPECT_EQ(nameAndType, cf->findOrCreateNameAndType(longA, longB));

    // Many new constants: the index grows and still finds all of them.
    int firstNew = cf->findOrCreateIntInfo(100000);
    for (int i = 1; i < 3000; i++) cf->findOrCreateIntInfo(100000 + i);
    for (int i = 0; i < 3000; i++) ASSERT_EQ(firstNew + i, cf->findOrCreateIntInfo(100000 + i));
    EXPECT_EQ(seven, cf->findOrCreateIntInfo(7));

    // A patched text is found by its new value, and the old one is gone.
    ZVectorSafe<ZString> from, to;
    from.push("twice");
    to.push("thrice");
    cf->patchConstantPool(from, to);
    EXPECT_EQ(text, cf->findOrCreateUtf8(ZString("thrice")));
    int count = cf->getConstantPool()->getSize();
    EXPECT_EQ(count, cf->findOrCreateUtf8(ZString("twice")));
}

// String, NameAndType and MethodRef entries read with the class are found,
// the first of equal ones, also after appended entries were looked up.
TEST(ConstantPoolIndex, FindsCompositesReadWithTheClass) {
    ClassBuilder b;
    int owner = b.cls("p/Owner");
    int name = b.utf8("run");
    int descriptor = b.utf8("()V");
    auto pair = [](int tag, int a, int c) {
        Bytes e{(unsigned char)tag};
        putU2(e, a);
        if (c >= 0) putU2(e, c);
        return e;
    };
    int nameAndType = b.raw(pair(12, name, descriptor));
    b.raw(pair(12, name, descriptor));
    int ref = b.raw(pair(10, owner, nameAndType));
    int text = b.raw(pair(8, name, -1));
    b.method("m", "()V").code = {0xb1};
    auto cf = parseClass(b.build());

    int fresh = cf->findOrCreateUtf8(ZString("fresh"));
    int appended = cf->findOrCreateNameAndType(fresh, descriptor);
    EXPECT_EQ(fresh + 1, appended);
    EXPECT_EQ(nameAndType, cf->findOrCreateNameAndType(name, descriptor));
    EXPECT_EQ(ref, cf->findOrCreateMethodRef(owner, name, descriptor));
    EXPECT_EQ(text, cf->findOrCreateStringInfo(ZString("run")));
    EXPECT_EQ(appended, cf->findOrCreateNameAndType(fresh, descriptor));
}

// A frame type names its class by a Class entry of the first Utf8 entry of
// that text: one whose name is a later, equal Utf8 entry does not count. A new
// name adds a Utf8 and a Class entry once, whatever its length.
TEST(ConstantPoolIndex, FrameTypesFindClassesThroughTheFirstEqualText) {
    ClassBuilder b;
    int first = b.utf8("p/A");
    int second = b.duplicateUtf8("p/A");
    Bytes entry{7};
    putU2(entry, second);
    b.raw(entry);
    b.method("m", "()V").code = {0xb1};
    auto cf = parseClass(b.build());
    int size = cf->getConstantPool()->getSize();
    VerificationType a(ZString("Lp/A;"), cf.get());
    EXPECT_EQ(size, a.getData());
    EXPECT_EQ(first, static_cast<ConstantClassInfo*>((*cf->getConstantPool())[size])->getNameIndex());
    EXPECT_EQ(size, VerificationType(ZString("Lp/A;"), cf.get()).getData());
    EXPECT_EQ(size + 2, VerificationType(ZString("[Lp/B;"), cf.get()).getData());
    EXPECT_EQ(size + 2, VerificationType(ZString("[Lp/B;"), cf.get()).getData());
    std::string longName = "L" + std::string(300, 'x') + ";";
    int longClass = VerificationType(ZString(longName.c_str()), cf.get()).getData();
    EXPECT_EQ(longClass, VerificationType(ZString(longName.c_str()), cf.get()).getData());
    EXPECT_EQ(ZString(longName.substr(1, 300).c_str()), cf->getConstantClassSignature(longClass));
}
