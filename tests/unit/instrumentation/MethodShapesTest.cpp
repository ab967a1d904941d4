// The shapes that the patcher leaves in a method, checked instruction by
// instruction on classes built byte by byte; the detectors; the skip rule;
// and classes that cannot be rewritten.
#include <map>
#include <sstream>

#include "InstrumentationTestSupport.h"
#include "classfile/OpCodes.h"

namespace {

Bytes op(int opcode, int u2) { return Bytes{(uint8_t)opcode, (uint8_t)(u2 >> 8), (uint8_t)u2}; }

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) append(out, p);
    return out;
}

// One token per instruction: a name, invokes with their method name, sipush
// with its value, the rest as "op<N>".
std::string disassemble(ClassFile& cf, const unsigned char* code, int length) {
    static const std::map<int, std::string> names = {
        {0, "nop"},        {2, "iconst_m1"},   {19, "ldc_w"},      {20, "ldc2_w"},        {42, "aload_0"},
        {75, "astore_0"},  {76, "astore_1"},   {87, "pop"},        {89, "dup"},           {90, "dup_x1"},
        {95, "swap"},      {167, "goto"},      {170, "tableswitch"}, {172, "ireturn"},    {176, "areturn"},
        {177, "return"},   {187, "new"},       {188, "newarray"},  {189, "anewarray"},    {191, "athrow"}};
    std::ostringstream out;
    for (int pc = 0; pc < length;) {
        int opcode = code[pc];
        int n = OpCodes::instructionLength(code, length, pc);
        if (pc > 0) out << ' ';
        if (opcode >= 182 && opcode <= 185) {
            int index = (code[pc + 1] << 8) | code[pc + 2];
            auto* ref = static_cast<ConstantRefInfo*>((*cf.getConstantPool())[index]);
            out << (opcode == 183 ? "invokespecial:" : "invoke:") << ref->getMethodName(cf.getConstantPool()).c_str();
        } else if (opcode == 17) {
            out << "sipush " << (int16_t)((code[pc + 1] << 8) | code[pc + 2]);
        } else if (opcode == 196) {
            out << "wide_" << (int)code[pc + 1];
        } else if (names.count(opcode)) {
            out << names.at(opcode);
        } else {
            out << "op" << opcode;
        }
        pc += n;
    }
    return out.str();
}

std::string disassemble(const Bytes& classBytes, const std::string& method) {
    std::unique_ptr<ClassFile> cf = parseClass(classBytes);
    for (MethodInfo* m : cf->getMethods()) {
        if (m->getName().equals(method.c_str())) {
            CodeAttribute* code = m->getCodeAttribute();
            return disassemble(*cf, code->getCode(), code->getCodeLength());
        }
    }
    return "<no method>";
}

const std::string ENTRY = "ldc_w ldc2_w invoke:kztMethodEntry wide_55";
const std::string ENTRY_WITH_FRAME = "iconst_m1 wide_54 " + ENTRY;
const std::string EXIT = "ldc_w wide_22 invoke:kztMethodExit";
const std::string ALLOCATION = "wide_21 ldc_w sipush 5 ldc2_w invoke:kztInit wide_54 nop nop nop";

class MethodShapesTest : public InstrumentationTest {};

}  // namespace

TEST(BytecodeDetectorsTest, ObjectCreationPatterns) {
    // iload_0; tableswitch at 1, padding to 4, default, low 0, high 1, two offsets; return
    Bytes table{0x1a, 0xaa, 0, 0, 0, 0, 0, 19, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 19, 0, 0, 0, 19, 0xb1};

    auto type = [](Bytes code) { return NewOpCodeDetector::getNewOpCodeType(code.data(), (int)code.size()); };
    EXPECT_EQ(0, type({0x2a, 0xb0}));
    EXPECT_EQ(0, type({0xbb, 0, 1, 0x59, 0x57, 0xb1}));          // new; dup; pop
    EXPECT_EQ(1, type({0xbb, 0, 1, 0x59, 0xb7, 0, 2, 0xb1}));    // new; dup; invokespecial
    EXPECT_EQ(1, type({0x04, 0xbc, 10, 0xb0}));                   // newarray
    EXPECT_EQ(2, type({0xbb, 0, 1, 0x5f, 0x9a, 0, 3, 0xb1}));    // new; swap; ifne
    EXPECT_EQ(3, type({0xbb, 0, 1, 0x5f, 0x4b, 0xbc, 10, 0xb1}));  // new; swap; astore_0: newarray unrecorded
    // A switch is skipped whole: its table holds a byte that reads as `new`.
    Bytes switchWithNew = table;
    switchWithNew[19] = 0xbb;
    EXPECT_EQ(0, type(switchWithNew));
    Bytes bad{0xcb, 0xb1};  // no opcode
    EXPECT_THROW(type(bad), KZTRuntimeException);
}

TEST_F(MethodShapesTest, ShortMethodsAreSkippedUntilTheyGrowLoopOrCall) {
    auto skipped = [](Bytes code, int* reason) {
        ClassBuilder b;
        MethodSpec& m = b.method("m", "()V");
        m.code = code;
        std::unique_ptr<ClassFile> cf = parseClass(b.build());
        return shouldSkipInstrumentationForTracingAndAllocation(cf->getMethods()[0], reason);
    };
    // 32 bytes of field access and arithmetic: skipped; one more byte is not.
    Bytes access;
    for (int i = 0; i < 10; i++) append(access, op(0xb2, 1));
    append(access, Bytes{0x60, 0xb1});
    Bytes longer = access;
    longer.insert(longer.begin(), 0x00);
    struct Case {
        const char* what;
        Bytes code;
        bool skipped;
        int reason;
    } cases[] = {
        {"access", access, true, 0},
        {"one byte longer", longer, false, -2},
        {"goto back", {0x00, 0xa7, 0xff, 0xff, 0xb1}, false, -3},
        {"a forward branch is harmless", {0x03, 0x99, 0x00, 0x04, 0x00, 0xb1}, true, 0},
        {"idiv", {0x04, 0x04, 0x6c, 0x57, 0xb1}, false, 0x6c},
        {"a call", concat({op(0xb8, 1), Bytes{0xb1}}), false, 0xb8},
    };
    for (const Case& c : cases) {
        int reason = 99;
        EXPECT_EQ(c.skipped, skipped(c.code, &reason)) << c.what;
        EXPECT_EQ(c.reason, reason) << c.what;
    }
    setOptions("_instrument_all_methods");
    int reason = 0;
    EXPECT_FALSE(skipped({0xb1}, &reason));
    EXPECT_EQ(-1, reason);
}

TEST_F(MethodShapesTest, EntryExitAndLineCallsWithAndWithoutSwitch) {
    setOptions("_instrument_all_methods");
    ClassBuilder b;
    int callee = methodRef(b, "T", "callee", "()V");
    {
        MethodSpec& m = b.method("plain", "()V");
        m.code = concat({op(0xb8, callee), Bytes{0xb1}});
        m.lines = {{0, 5}};
    }
    {
        // iload_0; tableswitch (padding 2) default/low/high/2 offsets -> return at 24; invokestatic; return
        MethodSpec& m = b.method("switching", "(I)V");
        m.code = {0x1a, 0xaa, 0, 0, 0, 0, 0, 23, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 23, 0, 0, 0, 23};
        append(m.code, op(0xb8, callee));
        append(m.code, Bytes{0xb1});
        m.lines = {{0, 5}, {24, 40000}};
    }
    Bytes out = hook(b.build());
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(ENTRY + " sipush 5 wide_22 invoke:kztMethodLine invoke:callee " + EXIT + " return",
              disassemble(out, "plain"));
    // Multiples of 4 keep the switch padding valid; a line above 32767 goes as a negative short.
    EXPECT_EQ(ENTRY + " nop nop nop op26 tableswitch sipush -25536 wide_22 invoke:kztMethodLine nop nop invoke:callee " +
                  EXIT + " nop nop return",
              disassemble(out, "switching"));
    std::unique_ptr<ClassFile> cf = parseClass(out);
    CodeAttribute* code = cf->getMethods()[1]->getCodeAttribute();
    const unsigned char* c = code->getCode();
    ASSERT_EQ(16 + 28 + 12 + 12, code->getCodeLength());
    // The switch at 17 keeps its padding; its targets are the line code at 40.
    EXPECT_EQ(0xaa, c[17]);
    EXPECT_EQ(23, (c[20] << 24) | (c[21] << 16) | (c[22] << 8) | c[23]);
    EXPECT_EQ(17, c[40]);
}

TEST_F(MethodShapesTest, AllocationsAreReportedBehindTheConstructorCall) {
    setOptions("_instrument_all_methods");
    ClassBuilder b;
    int x = b.cls("p/X");
    int init = methodRef(b, "p/X", "<init>", "()V");
    int helper = methodRef(b, "T", "helper", "()V");
    auto add = [&](const char* name, Bytes code) {
        MethodSpec& m = b.method(name, "()Ljava/lang/Object;");
        m.code = code;
        m.lines = {{0, 5}};
    };
    // new X; dup; invokespecial X.<init>; areturn: one block behind the call.
    add("withDup", concat({op(0xbb, x), Bytes{0x59}, op(0xb7, init), Bytes{0xb0}}));
    // new X; astore_0; aload_0; invokespecial; aload_0; areturn: the copy is made behind `new`.
    add("withoutDup", concat({op(0xbb, x), Bytes{0x4b, 0x2a}, op(0xb7, init), Bytes{0x2a, 0xb0}}));
    // new X; dup_x1 with the dup pattern pending is not given up.
    add("dupX1", concat({Bytes{0x01}, op(0xbb, x), Bytes{0x5a, 0x57}, op(0xb7, init), Bytes{0x57, 0xb0}}));
    // new X; astore_0; aload_0; dup_x1: the copy of injected code is out of reach, so the site is given up.
    add("givenUp", concat({Bytes{0x01}, op(0xbb, x), Bytes{0x4b, 0x2a, 0x5a, 0x57}, op(0xb7, init), Bytes{0x57, 0xb0}}));
    // newarray int[3]; a private helper call by invokespecial gets a line call only.
    add("array", concat({Bytes{0x06, 0xbc, 10}, op(0xb7, helper), Bytes{0xb0}}));
    Bytes out = hook(b.build());
    ASSERT_FALSE(out.empty());
    std::string line = " sipush 5 wide_22 invoke:kztMethodLine ";
    EXPECT_EQ(ENTRY_WITH_FRAME + " new dup" + line + "invokespecial:<init> dup " + ALLOCATION + " " + EXIT + " areturn",
              disassemble(out, "withDup"));
    EXPECT_EQ(ENTRY_WITH_FRAME + " new dup nop nop nop astore_0 aload_0" + line + "invokespecial:<init> nop " + ALLOCATION +
                  " aload_0 " + EXIT + " areturn",
              disassemble(out, "withoutDup"));
    EXPECT_EQ(ENTRY_WITH_FRAME + " op1 new dup_x1 pop" + line + "invokespecial:<init> dup " + ALLOCATION + " pop " + EXIT +
                  " areturn",
              disassemble(out, "dupX1"));
    EXPECT_EQ(ENTRY_WITH_FRAME + " op1 new nop nop nop nop astore_0 aload_0 dup_x1 pop" + line + "invokespecial:<init> pop " + EXIT +
                  " areturn",
              disassemble(out, "givenUp"));
    EXPECT_EQ(ENTRY_WITH_FRAME + " op6 newarray dup " + ALLOCATION + line + "invokespecial:helper " + EXIT + " areturn",
              disassemble(out, "array"));

    // The allocated class has its pseudo method, named after the class.
    int pseudo = ZMethod::getByName(LockHolder(&ourLock, LOCK_SITE), "p.X", "<<init>>", "()", "void", "", false);
    EXPECT_GE(pseudo, ZMethod::PAGE_SIZE);
    EXPECT_EQ("p.X.<<init>>", methodName(pseudo));
}

TEST_F(MethodShapesTest, AllocationOnlyLeavesMethodsWithoutAllocationsAsTheyWere) {
    setOptions("_instrument_all_methods");
    ourCapabilities.set(CAPABILITY_ALLOC_BCI);
    ClassBuilder b;
    int callee = methodRef(b, "T", "callee", "()V");
    MethodSpec& m = b.method("m", "()V");
    m.code = concat({op(0xb8, callee), Bytes{0xb1}});
    Bytes in = b.build();
    Bytes out = hook(in);
    ASSERT_FALSE(out.empty());  // counts as changed
    EXPECT_EQ("invoke:callee return", disassemble(out, "m"));
}

TEST_F(MethodShapesTest, TablesFollowTheCode) {
    setOptions("_instrument_all_methods");
    ClassBuilder b;
    int callee = methodRef(b, "T", "callee", "()V");
    MethodSpec& m = b.method("m", "()V");
    // 0 invokestatic; 3 goto 0 (back to the start); the last byte is a return in the try range.
    m.code = concat({op(0xb8, callee), op(0xa7, 0xfffd), Bytes{0xb1}});
    m.exceptions = {{0, 7, 6, 0}};
    m.lines = {{0, 5}, {3, 6}};
    m.locals = {{0, 7, b.utf8("x"), b.utf8("I"), 0}, {3, 4, b.utf8("y"), b.utf8("I"), 1}};
    Bytes out = hook(b.build());
    ASSERT_FALSE(out.empty());
    std::unique_ptr<ClassFile> cf = parseClass(out);
    CodeAttribute* code = cf->getMethods()[0]->getCodeAttribute();
    ASSERT_EQ(13 + 10 + 3 + 3 + 10 + 1, code->getCodeLength());
    // The loop goes back behind the entry code, to the line call.
    const unsigned char* c = code->getCode();
    EXPECT_EQ(0xa7, c[26]);
    EXPECT_EQ(13 - 26, (int16_t)((c[27] << 8) | c[28]));
    // The range starts behind the entry code and, ending with the code, covers the exit code.
    CodeAttribute::ExceptionTableElement* e = code->getExceptionTable()[0];
    EXPECT_EQ((std::vector<int>{13, 40, 29}), (std::vector<int>{e->startPc, e->endPc, e->handlerPc}));
    LineNumberTableAttribute* lines = code->getLineNumberTable();
    EXPECT_EQ((std::vector<int>{0, 26}), (std::vector<int>{lines->getLine(0).startPc, lines->getLine(1).startPc}));
    // The first variable is from 0: it covers the entry code too.
    LocalVariableTableAttribute* locals = code->getLocalVariableTable();
    std::vector<int> ranges;
    for (int i = 0; i < 2; i++) ranges.insert(ranges.end(), {locals->getVariable(i).getStartPc(), locals->getVariable(i).getLength()});
    EXPECT_EQ((std::vector<int>{0, 40, 26, 14}), ranges);
    EXPECT_EQ(4 + 12, code->getMaxStack());
}

TEST_F(MethodShapesTest, TooLongMethodsLoseLinesThenTheClass) {
    setOptions("_instrument_all_methods");
    ClassBuilder b;
    int callee = methodRef(b, "T", "callee", "()V");
    // goto over 2000 calls and nops to a return 30000 bytes on: with line calls the branch no longer fits.
    {
        MethodSpec& m = b.method("lines", "()V");
        Bytes body;
        for (int i = 0; i < 2000; i++) append(body, op(0xb8, callee));
        body.resize(30000 - 3, 0x00);
        m.code = concat({op(0xa7, 30000), body, Bytes{0xb1}});
        m.lines = {{0, 5}};
    }
    Bytes once = hook(b.build());
    ASSERT_FALSE(once.empty());
    std::string shape = disassemble(once, "lines");
    EXPECT_EQ(std::string::npos, shape.find("kztMethodLine"));
    EXPECT_NE(std::string::npos, shape.find("kztMethodExit"));

    // 3300 returns to jump over: even without lines the branch does not fit, the class stays as it came.
    {
        MethodSpec& m = b.method("returns", "()V");
        Bytes body(3300, 0xb1);
        body.resize(30000 - 3, 0x00);
        m.code = concat({op(0xa7, 30000), body, Bytes{0xb1}});
    }
    EXPECT_TRUE(hook(b.build()).empty());
}

TEST_F(MethodShapesTest, LargeMethodsGetLinesOnlyWhileTracing) {
    ClassBuilder b;
    b.name = "big/Large";
    int callee = methodRef(b, "T", "callee", "()V");
    MethodSpec& m = b.method("big", "()V");
    for (int i = 0; i < 700; i++) append(m.code, op(0xb8, callee));
    append(m.code, Bytes{0xb1});
    m.lines = {{0, 5}};
    Bytes in = b.build();
    EXPECT_FALSE(ourClassesWithLargeMethods.contains("big.Large"));
    EXPECT_EQ(std::string::npos, disassemble(hook(in), "big").find("kztMethodLine"));
    EXPECT_TRUE(ourClassesWithLargeMethods.contains("big.Large"));
    ourStatus.set(12);
    EXPECT_NE(std::string::npos, disassemble(hook(in), "big").find("kztMethodLine"));
}

TEST_F(MethodShapesTest, ClassesThatCannotBeRewrittenLoadAsTheyCame) {
    setOptions("_instrument_all_methods");
    ClassBuilder b;
    MethodSpec& m = b.method("m", "()V");
    m.code = {0x00, 0xcb, 0xb1};  // 0xcb is no opcode
    Bytes bad = b.build();
    EXPECT_THROW(hook(bad), KZTRuntimeException);  // the handler's caller logs and moves on

    // Through the JVM's hook: what cannot be rewritten, or is no class, comes back as no new bytes.
    Bytes garbage{0xCA, 0xFE, 0xBA, 0xBE, 0, 0, 0, 52, 0, 3, 99, 1, 2};
    Bytes notAClass{1, 2, 3, 4, 5};
    EXPECT_TRUE(hook(notAClass, "T").empty());
    for (auto [in, name] : {std::pair{&bad, "T"}, {&garbage, "T"}, {&notAClass, nullptr}}) {
        jint length = 7;
        unsigned char* bytes = (unsigned char*)1;
        classFileLoadHook(nullptr, nullptr, nullptr, name, (jint)in->size(), in->data(), &length, &bytes);
        EXPECT_EQ(0, length) << in->size();
        EXPECT_EQ(nullptr, bytes) << in->size();
    }

    // The agent's own classes and Unsafe are never touched.
    for (auto [name, left] : {std::pair{"com/corvane/runtime/Thing", true}, {"sun/misc/Unsafe", true}, {"p/Fine", false}}) {
        ClassBuilder own;
        own.name = name;
        own.method("m", "()V").code = {0xb1};
        EXPECT_EQ(left, hook(own.build()).empty()) << name;
    }

    // An interface below version 52 has no code to instrument.
    ClassBuilder old;
    old.major = 51;
    old.method("m", "()V", 0x0401).withCode = false;
    EXPECT_TRUE(hook(old.build()).empty());
}
