// Native wrapping on classes built byte by byte: the wrapper's code, stack
// and locals by descriptor and access, which natives of the core classes are
// wrapped, and the class exclusion list.
#include "InstrumentationTestSupport.h"
#include "instrumentation/NativeWrapping.h"

namespace {

constexpr int ANY = -1;  // an operand byte of the call, checked apart

class NativeWrappingTest : public InstrumentationTest {
protected:
    // A class with the given natives, and a "Code" name in its pool as any
    // class with a constructor has.
    static std::unique_ptr<ClassFile> classWithNatives(const std::string& name,
                                                       const std::vector<std::pair<std::string, std::string>>& natives,
                                                       int access = 0x0109) {
        ClassBuilder b;
        b.name = name;
        b.utf8("Code");
        for (auto& n : natives) b.method(n.first, n.second, access).withCode = false;
        return parseClass(b.build());
    }

    static std::vector<std::string> wrappedNames(ClassFile* cf) {
        std::vector<std::string> names;
        for (MethodInfo* m : cf->getMethods()) {
            if (!m->isNative() && m->getCodeAttribute() != nullptr) names.push_back(m->getName().c_str());
        }
        return names;
    }
};

struct WrapperCase {
    int access;
    std::string descriptor;
    std::vector<int> code;  // the call's two index bytes are ANY
    int maxStack;
    int maxLocals;
};

}  // namespace

TEST_F(NativeWrappingTest, WrapperLoadsEveryArgumentCallsTheRenamedNativeAndReturnsItsValue) {
    // 128 longs fill slots 0 to 255, so the int behind them needs `wide iload`.
    std::string manyLongs = "(" + std::string(128, 'J') + "I)I";
    std::vector<int> manyLongsCode{0x1e, 0x20};  // lload_0, lload_2
    for (int slot = 4; slot < 256; slot += 2) manyLongsCode.insert(manyLongsCode.end(), {0x16, slot});
    manyLongsCode.insert(manyLongsCode.end(), {0xc4, 0x15, 0x01, 0x00, 0xb8, ANY, ANY, 0xac});

    const WrapperCase cases[] = {
        // static long f(int, long): iload_0 lload_1 invokestatic lreturn
        {0x0109, "(IJ)J", {0x1a, 0x1f, 0xb8, ANY, ANY, 0xad}, 3, 3},
        // private void p(Object, double[]): aload_0..2 invokespecial return
        {0x0102, "(Ljava/lang/Object;[D)V", {0x2a, 0x2b, 0x2c, 0xb7, ANY, ANY, 0xb1}, 3, 3},
        // public double d(float, double, byte): the byte is at slot 4, past the short forms
        {0x0101, "(FDB)D", {0x2a, 0x23, 0x28, 0x15, 4, 0xb6, ANY, ANY, 0xaf}, 5, 5},
        // protected synchronized String s(short, char, boolean)
        {0x0124, "(SCZ)Ljava/lang/String;", {0x2a, 0x1b, 0x1c, 0x1d, 0xb6, ANY, ANY, 0xb0}, 4, 4},
        // static int[] none(): the value alone needs the stack
        {0x0108, "()[I", {0xb8, ANY, ANY, 0xb0}, 1, 0},
        {0x0108, "()D", {0xb8, ANY, ANY, 0xaf}, 2, 0},
        {0x0108, manyLongs, manyLongsCode, 257, 257},
    };
    for (const WrapperCase& c : cases) {
        SCOPED_TRACE(c.descriptor);
        std::unique_ptr<ClassFile> cf = classWithNatives("com/acme/N", {{"f", c.descriptor}}, c.access | 0x0100);
        ASSERT_TRUE(wrapNativeMethods(LockHolder(&ourLock, LOCK_SITE), cf.get()));
        std::unique_ptr<ClassFile> written = parseClass(writeClass(*cf));
        ASSERT_EQ(2, written->getMethods().getSize());
        MethodInfo* wrapper = written->getMethods()[0];
        MethodInfo* renamed = written->getMethods()[1];
        EXPECT_EQ("f", wrapper->getName());
        EXPECT_EQ(c.access & ~0x0100, wrapper->getAccessFlags());
        EXPECT_EQ("$$KZT$$f", renamed->getName());
        EXPECT_EQ(c.descriptor.c_str(), renamed->getDescriptor());
        EXPECT_EQ(c.access | 0x0100, renamed->getAccessFlags());
        EXPECT_EQ(nullptr, renamed->getCodeAttribute());

        CodeAttribute* code = wrapper->getCodeAttribute();
        ASSERT_NE(nullptr, code);
        EXPECT_EQ(c.maxStack, code->getMaxStack());
        EXPECT_EQ(c.maxLocals, code->getMaxLocals());
        std::vector<int> actual(code->getCode(), code->getCode() + code->getCodeLength());
        // The call is the one instruction with ANY operand bytes; they name the renamed native.
        size_t call = std::find(c.code.begin(), c.code.end(), ANY) - c.code.begin() - 1;
        ASSERT_LT(call + 2, actual.size());
        int index = (actual[call + 1] << 8) | actual[call + 2];
        actual[call + 1] = actual[call + 2] = ANY;
        EXPECT_EQ(c.code, actual);
        auto* ref = static_cast<ConstantRefInfo*>((*written->getConstantPool())[index]);
        EXPECT_EQ("$$KZT$$f", ref->getMethodName(written->getConstantPool()));
    }
}

TEST_F(NativeWrappingTest, OnlyChosenNativesOfTheCoreClassesAreWrapped) {
    struct Case {
        const char* className;
        std::vector<std::string> natives;
        std::vector<std::string> wrapped;
    };
    const Case cases[] = {
        // nanoTime stays native without _with_nanoTime.
        {"java/lang/System", {"arraycopy", "currentTimeMillis", "nanoTime", "identityHashCode"},
         {"arraycopy", "currentTimeMillis"}},
        {"java/lang/Object", {"wait", "notify", "hashCode"}, {"wait"}},
        {"java/lang/Thread", {"currentThread", "isInterrupted", "interruptedImpl", "start0", "registerNatives"},
         {"start0"}},
        {"java/lang/Runtime", {"registerNatives", "gc"}, {"gc"}},
        {"com/acme/Own", {"registerNatives", "compute"}, {"registerNatives", "compute"}},
        // The exclusion list holds prefixes.
        {"java/lang/Classy", {"compute"}, {}},
        {"java/lang/invoke/MethodHandleNatives", {"compute"}, {}},
        {"sun/reflect/Anything", {"compute"}, {}},
        {"jdk/internal/misc/UnsafeConstants", {"compute"}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.className);
        std::vector<std::pair<std::string, std::string>> natives;
        for (const std::string& n : c.natives) natives.push_back({n, "()V"});
        std::unique_ptr<ClassFile> cf = classWithNatives(c.className, natives);
        EXPECT_EQ(!c.wrapped.empty(), wrapNativeMethods(LockHolder(&ourLock, LOCK_SITE), cf.get()));
        EXPECT_EQ(c.wrapped, wrappedNames(cf.get()));
    }
    EXPECT_TRUE(isClassExcludedFromNativeWrapping(LockHolder(&ourLock, LOCK_SITE), ZString("java/lang/ClassLoader$1")));
    EXPECT_FALSE(isClassExcludedFromNativeWrapping(LockHolder(&ourLock, LOCK_SITE), ZString("java/lang/Clas")));
}

TEST_F(NativeWrappingTest, WrappedNativeIsRecordedAsNativeUnderItsOwnName) {
    std::unique_ptr<ClassFile> cf = classWithNatives("com/acme/Own", {{"compute", "(I)J"}});
    LockHolder lock(&ourLock, LOCK_SITE);
    ASSERT_TRUE(wrapNativeMethods(lock, cf.get()));
    int id = ZMethod::getByName(lock, ZString("com.acme.Own"), ZString("compute"), ZString("(int)"), ZString("long"),
                                ZString(), true);
    ASSERT_NE(nullptr, ZMethod::getRecord(id));
    EXPECT_NE(0, ZMethod::getRecord(id)->myFlags & METHOD_FLAG_NATIVE);
}

TEST_F(NativeWrappingTest, ClassWithoutCodeNameOrWithCodeOnANativeFailsAnAssertion) {
    ClassBuilder bare;
    bare.name = "com/acme/Bare";
    bare.method("f", "()V", 0x0109).withCode = false;
    std::unique_ptr<ClassFile> cf = parseClass(bare.build());
    EXPECT_THROW(wrapNativeMethods(LockHolder(&ourLock, LOCK_SITE), cf.get()), KZTRuntimeException);

    ClassBuilder broken;
    broken.name = "com/acme/Broken";
    broken.method("f", "()V", 0x0109).code = {0xb1};
    std::unique_ptr<ClassFile> withCode = parseClass(broken.build());
    EXPECT_THROW(wrapNativeMethods(LockHolder(&ourLock, LOCK_SITE), withCode.get()), KZTRuntimeException);
}
