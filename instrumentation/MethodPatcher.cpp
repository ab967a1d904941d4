// Rewrites the methods of a class so that they report entry, exit, lines and
// allocations to the Callback stubs. Each method is rewritten in two passes
// over its code: the first decides every insertion and builds an old-to-new
// offset map, the second assembles the new code. Injected sequences are
// straight-line and of fixed length, so no stack map frame is ever added;
// frames, exception table, line and variable tables follow through the map.
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"
#include "classfile/ByteConversions.h"
#include "classfile/ClassFile.h"
#include "classfile/OffsetTable.h"
#include "classfile/OpCodes.h"
#include "db/CodePointStorage.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZMethod.h"
#include "foundation/ZMap.h"
#include "instrumentation/Instrumentation.h"

namespace {

const char* const JSP_SERVICE_DESCRIPTOR =
    "(Ljavax/servlet/http/HttpServletRequest;Ljavax/servlet/http/HttpServletResponse;)V";

// What an insertion does, by the old instruction it belongs to.
enum RecordKind {
    KIND_EXIT = 1,             // before a return: exit code
    KIND_NEW_WITHOUT_DUP = 2,  // after `new`: dup and 3 nop
    KIND_NEW_GIVEN_UP = 3,     // after `new`: 4 nop
    KIND_NEW_ARRAY = 4,        // after an array creation: dup, allocation code
    KIND_INIT_AFTER_DUP = 5,   // after <init> of a `new; dup`: dup, allocation code
    KIND_INIT_AFTER_COPY = 6,  // after <init> of a `new` copied by injected code: nop, allocation code
    KIND_LINE = 7,             // before an invoke: line code
    KIND_NEW_WITH_SWAP = 8,    // after `new` followed by swap: dup_x1 and 3 nop
};

// A `new` whose constructor call has not been reached yet.
enum NewInstructionKind {
    NEW_DUP_FOLLOWS = 0,  // the `dup` behind `new` keeps the object for the constructor call to report
    NEW_COPIED = 1,       // injected code made the copy
    NEW_GIVEN_UP = 2,
};

const int EXIT_CODE_LENGTH = 10;
const int EXIT_CODE_LENGTH_SWITCH = 12;
const int ALLOCATION_CODE_LENGTH = 24;
const int NEW_START_LENGTH = 4;

int entryCodeLength(bool withCachedFrame, bool withSwitch) {
    if (withSwitch) return withCachedFrame ? 20 : 16;
    return withCachedFrame ? 18 : 13;
}

int allocOnlyEntryCodeLength(bool withCachedFrame) { return withCachedFrame ? 8 : 0; }

struct PatchOptions {
    bool instrumentAllMethods;
    bool disableLines;
    bool jspWithLines;
    bool disableObfuscatedAllocations;
    bool debugBci;
    int largeMethodThreshold;
};

PatchOptions readPatchOptions() {
    PatchOptions o;
    o.instrumentAllMethods = ourOptions.isInternalOption("_instrument_all_methods");
    o.disableLines = ourOptions.isInternalOption("_tracing_disable_lines");
    o.jspWithLines = ourOptions.isInternalOption("_jsp_with_lines");
    o.disableObfuscatedAllocations = ourOptions.isInternalOption("_disable_obfuscated_allocations");
    o.debugBci = ourOptions.isDebug("bci");
    o.largeMethodThreshold = ourOptions.getInternalInt("_tracing_clt", 2048);
    return o;
}

// Per class: the names and the references to the stubs.
struct ClassContext {
    ClassContext(const LockHolder& lock, ClassFile* classFile) : lock(lock), classFile(classFile) {}
    const LockHolder& lock;
    ClassFile* classFile;
    PatchOptions options;
    ZString fullName;
    ZString sourceFile;
    int entryRef = 0;
    int exitRef = 0;
    int lineRef = -1;
    int allocRef = 0;
    // Pseudo method ids of allocated classes, by pool index of the Class entry.
    ZMap<int, int> pseudoMethodByClassIndex{16};
    // The class and source file strings of the method records.
    ZMethod::ClassStrings strings;
    // The method being rewritten, its name, and its parameters in readable
    // form once something asked for them.
    MethodInfo* method = nullptr;
    const ConstantUtf8Info* name = nullptr;
    ZString parameters;
    bool parametersMade = false;
};

const ZString& methodName(const ClassContext& c) { return c.method->getName(); }

const ZString& methodParameters(ClassContext& c) {
    if (!c.parametersMade) {
        c.parameters = convertMethodSignatureToParameters(c.method->getDescriptor());
        c.parametersMade = true;
    }
    return c.parameters;
}

// One insertion point of the first pass.
struct Record {
    int kind;
    int oldOffset;
    int newOffset;  // where the inserted code (before) or the instruction (after) begins
    int instructionLength;
    int pseudoMethodId;
};

// Scratch storage of one method's rewrite, kept between methods and classes
// (the hook runs under ourLock, one class at a time).
struct PatchScratch {
    ZVector<int, 10> map{1024};
    ZVector<Record, 10> records{64};
    ZVector<int, 10> pendingKinds{32};
    ZVector<int, 10> pendingIds{32};
    ZVector<int, 10> uninitializedToDuplicate{8};
    OffsetTable branches;
};

PatchScratch& scratch() {
    static PatchScratch* instance = new PatchScratch();
    return *instance;
}

// The text is made only when the bci log is on.
template <typename Text>
void verboseMessage(const ClassContext& c, Text text) {
    if (c.options.debugBci) Logger::message(text());
}

// ---- pseudo methods of allocated classes ----

int getPerClassMethodByName(const LockHolder& lock, const ZString& className) {
    return ZMethod::getByName(lock, convertClassSignatureToFullName(className.c_str()), "<<init>>", "()", "void", "",
                              false);
}

int getPerClassMethodForClass(ClassContext& c, int classIndex, const char* prefix) {
    int key = prefix[0] == 0 ? classIndex : -classIndex;
    int* known = c.pseudoMethodByClassIndex.getPtr(key);
    if (known != nullptr) return *known;
    int id = getPerClassMethodByName(c.lock, ZString(prefix) + c.classFile->getConstantClassSignature(classIndex));
    c.pseudoMethodByClassIndex.put(key, id);
    return id;
}

int getPerClassMethodForPrimitiveArray(const LockHolder& lock, int atype) {
    static const char* const names[] = {"[Z", "[C", "[F", "[D", "[B", "[S", "[I", "[J"};
    if (atype < 4 || atype > 11) Logger::error(ZString("unexpected primitive type: ") + ZString::fromLong(atype), __FILE__, __LINE__);
    return getPerClassMethodByName(lock, ZString(names[atype - 4]));
}

// ---- the injected sequences ----

class CodeWriter {
public:
    CodeWriter(unsigned char* code, int at) : myCode(code), myStart(at), myPos(at) {}
    void op(int opcode) { myCode[myPos++] = (unsigned char)opcode; }
    void opU2(int opcode, int value) {
        myCode[myPos] = (unsigned char)opcode;
        myCode[myPos + 1] = (unsigned char)(value >> 8);
        myCode[myPos + 2] = (unsigned char)value;
        myPos += 3;
    }
    // The 4-byte `wide` form, whatever the variable.
    void wide(int opcode, int var) {
        myCode[myPos] = (unsigned char)OpCodes::WIDE;
        myCode[myPos + 1] = (unsigned char)opcode;
        myCode[myPos + 2] = (unsigned char)(var >> 8);
        myCode[myPos + 3] = (unsigned char)var;
        myPos += 4;
    }
    void padTo(int length) {
        while (written() < length) op(OpCodes::NOP);
    }
    int written() const { return myPos - myStart; }
    // Each sequence has exactly its length, or the offset map would lie.
    void expectLength(int length) const { KZT_ASSERT(written() == length); }

private:
    unsigned char* myCode;
    int myStart;
    int myPos;
};

enum { ISTORE_OP = 54, LSTORE_OP = 55, ILOAD_OP = 21, LLOAD_OP = 22, DUP_X1_OP = 90 };

struct MethodConstants {
    int methodIdConstant;
    int callCounterConstant;
    int cachedFrameVar;
    int entryResultVar;
    bool withSwitch;
};

void insertEntryCode(unsigned char* code, const ClassContext& c, const MethodConstants& k, int length) {
    CodeWriter w(code, 0);
    if (k.cachedFrameVar >= 0) {
        w.op(OpCodes::ICONST_M1);
        w.wide(ISTORE_OP, k.cachedFrameVar);
    }
    w.opU2(OpCodes::LDC_W, k.methodIdConstant);
    w.opU2(OpCodes::LDC2_W, k.callCounterConstant);
    w.opU2(OpCodes::INVOKESTATIC, c.entryRef);
    w.wide(LSTORE_OP, k.entryResultVar);
    w.padTo(length);
    w.expectLength(length);
}

void insertAllocOnlyEntryCode(unsigned char* code, const MethodConstants& k, int length) {
    CodeWriter w(code, 0);
    if (k.cachedFrameVar >= 0) {
        w.op(OpCodes::ICONST_M1);
        w.wide(ISTORE_OP, k.cachedFrameVar);
        w.padTo(length);
    }
    w.expectLength(length);
}

void insertExitCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k) {
    w.opU2(OpCodes::LDC_W, k.methodIdConstant);
    w.wide(LLOAD_OP, k.entryResultVar);
    w.opU2(OpCodes::INVOKESTATIC, c.exitRef);
    w.padTo(k.withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH);
}

// A line above 32767 goes through sipush as a negative short, as it always has.
void insertInvokeLineNumberCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int line) {
    w.opU2(OpCodes::SIPUSH, line & 0xffff);
    w.wide(LLOAD_OP, k.entryResultVar);
    w.opU2(OpCodes::INVOKESTATIC, c.lineRef);
    w.padTo(k.withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH);
}

void insertAllocationCode(CodeWriter& w, const ClassContext& c, const MethodConstants& k, int leadingOpcode,
                          int idConstant, int line, int counterConstant) {
    w.op(leadingOpcode);
    w.wide(ILOAD_OP, k.cachedFrameVar);
    w.opU2(OpCodes::LDC_W, idConstant);
    w.opU2(OpCodes::SIPUSH, line & 0xffff);
    w.opU2(OpCodes::LDC2_W, counterConstant);
    w.opU2(OpCodes::INVOKESTATIC, c.allocRef);
    w.wide(ISTORE_OP, k.cachedFrameVar);
    w.padTo(ALLOCATION_CODE_LENGTH);
}

void insertNewCodeStart(CodeWriter& w, int leadingOpcode) {
    w.op(leadingOpcode);
    w.padTo(NEW_START_LENGTH);
}

// ---- the first pass ----

class FirstPass {
public:
    FirstPass(ClassContext& c, PatchScratch& s, const unsigned char* code, int length, int base)
        : c(c), s(s), code(code), length(length), delta(base) {}

    // False when it met a switch though told there was none: the lengths of
    // the inserted code depend on it, so the pass must run again.
    bool run(bool withTracing, bool lineFlag, bool instrumentAllocations, bool withSwitch);
    int getDelta() const { return delta; }

private:
    void insert(int kind, int pc, int instructionLength, int n, int id) {
        s.records.push(Record{kind, pc, delta + pc, instructionLength, id});
        delta += n;
    }
    int stepOverSpecial(int opcode, int pc, bool withSwitch);
    void onNew(int pc);
    void onInvokeSpecial(int pc);
    void onDupX();
    int readS4(int at) const {
        KZT_ASSERT(at + 4 <= length);
        return ByteConversions::readS4(code, at);
    }

    ClassContext& c;
    PatchScratch& s;
    const unsigned char* code;
    int length;
    int delta;  // new offset of old offset 0, plus everything inserted so far
};

// Opcodes that the first pass only steps over: all but branches, switches,
// `wide` and bytes that are no opcode.
// Slack behind the offset map, so that each instruction can write its first
// four entries at once: the next instruction overwrites what was too many.
const int MAP_SLACK = 4;

// What the first pass needs of an opcode, by table: the length of a plain
// instruction (fixed, at most MAP_SLACK bytes, no branch offset; 0 for the
// others), whether it does anything besides stepping over it, and the
// length of those that are plain and do nothing else, which most are.
struct OpcodeSteps {
    unsigned char plainLength[256];
    bool action[256];
    unsigned char quietLength[256];
    OpcodeSteps() {
        for (int opcode = 0; opcode < 256; opcode++) {
            int n = ourOpCodeLength[opcode];
            bool plain = n > 0 && n <= MAP_SLACK && !OpCodes::isShortBranch(opcode) && !OpCodes::isLongBranch(opcode);
            plainLength[opcode] = plain ? (unsigned char)n : 0;
            action[opcode] = OpCodes::isReturn(opcode) || (opcode >= OpCodes::INVOKEVIRTUAL && opcode <= OpCodes::ANEWARRAY) ||
                             opcode == OpCodes::MULTIANEWARRAY || (opcode >= OpCodes::DUP_X1 && opcode <= OpCodes::DUP2_X2);
            quietLength[opcode] = action[opcode] ? 0 : plainLength[opcode];
        }
    }
};

// Steps over an instruction that is not plain, noting its branch offsets:
// the offset after it, or -1 at a switch when told there was none.
int FirstPass::stepOverSpecial(int opcode, int pc, bool withSwitch) {
    if (OpCodes::isShortBranch(opcode)) {
        s.branches.addOffsetToTable(pc, pc + 1, true);
        return pc + 3;
    }
    if ((opcode == OpCodes::TABLESWITCH || opcode == OpCodes::LOOKUPSWITCH) && !withSwitch) return -1;
    if (opcode == OpCodes::TABLESWITCH) {
        int d = pc + 1 + OpCodes::switchPadding(pc);
        long long low = readS4(d + 4);
        long long high = readS4(d + 8);
        KZT_ASSERT(high >= low && d + 12 + 4 * (high - low + 1) <= length);
        s.branches.addOffsetToTable(pc, d, false);
        for (long long i = 0; i < high - low + 1; i++) s.branches.addOffsetToTable(pc, d + 12 + 4 * (int)i, false);
        return d + 12 + 4 * (int)(high - low + 1);
    }
    if (opcode == OpCodes::LOOKUPSWITCH) {
        int d = pc + 1 + OpCodes::switchPadding(pc);
        long long pairs = readS4(d + 4);
        KZT_ASSERT(pairs >= 0 && d + 8 + 8 * pairs <= length);
        s.branches.addOffsetToTable(pc, d, false);
        for (int i = 0; i < (int)pairs; i++) s.branches.addOffsetToTable(pc, d + 12 + 8 * i, false);
        return d + 8 + 8 * (int)pairs;
    }
    if (opcode == OpCodes::WIDE) return pc + (pc + 1 < length && code[pc + 1] == OpCodes::IINC ? 6 : 4);
    if (opcode == OpCodes::GOTO_W || opcode == OpCodes::JSR_W) {
        s.branches.addOffsetToTable(pc, pc + 1, false);
        return pc + 5;
    }
    int n = ourOpCodeLength[opcode];
    if (n < 1) Logger::error(ZString("Wrong instruction opcode found: ") + ZString::fromLong(opcode), __FILE__, __LINE__);
    return pc + n;
}

bool FirstPass::run(bool withTracing, bool lineFlag, bool instrumentAllocations, bool withSwitch) {
    static const OpcodeSteps steps;
    int exitLength = withSwitch ? EXIT_CODE_LENGTH_SWITCH : EXIT_CODE_LENGTH;
    int* map = s.map.getElements();
    // Locals, so that the stores into the map cannot make the compiler read
    // the members again.
    const unsigned char* const bytes = code;
    const int end = length;
    int pc = 0;
    while (pc < end) {
        int opcode = bytes[pc];
        // The bytes of this instruction move by what was inserted before it;
        // what it inserts itself moves only the instructions after it.
        int moved = pc + delta;
        for (int i = 0; i < MAP_SLACK; i++) map[pc + i] = moved + i;
        if (steps.quietLength[opcode] != 0) {
            pc += steps.quietLength[opcode];
            continue;
        }
        int next;
        if (steps.plainLength[opcode] != 0) {
            next = pc + steps.plainLength[opcode];
        } else {
            next = stepOverSpecial(opcode, pc, withSwitch);
            if (next < 0) return false;
            for (int i = pc + MAP_SLACK; i < next; i++) map[i] = i + delta;
        }
        KZT_ASSERT(next <= length);
        if (!steps.action[opcode]) {
            pc = next;
            continue;
        }
        switch (opcode) {
            case 172: case 173: case 174: case 175: case 176: case 177:
                if (withTracing) insert(KIND_EXIT, pc, 1, exitLength, 0);
                break;
            case OpCodes::INVOKEVIRTUAL: case OpCodes::INVOKESTATIC: case OpCodes::INVOKEINTERFACE:
            case OpCodes::INVOKEDYNAMIC:
                if (lineFlag) insert(KIND_LINE, pc, next - pc, exitLength, 0);
                break;
            case OpCodes::INVOKESPECIAL:
                if (lineFlag) insert(KIND_LINE, pc, 3, exitLength, 0);
                if (instrumentAllocations && !s.pendingKinds.isEmpty()) onInvokeSpecial(pc);
                break;
            case OpCodes::NEW:
                if (instrumentAllocations) onNew(pc);
                break;
            case OpCodes::NEWARRAY:
                if (instrumentAllocations)
                    insert(KIND_NEW_ARRAY, pc, 2, ALLOCATION_CODE_LENGTH,
                           getPerClassMethodForPrimitiveArray(c.lock, code[pc + 1]));
                break;
            case OpCodes::ANEWARRAY:
                if (instrumentAllocations)
                    insert(KIND_NEW_ARRAY, pc, 3, ALLOCATION_CODE_LENGTH,
                           getPerClassMethodForClass(c, ByteConversions::readU2(code, pc + 1), "["));
                break;
            case OpCodes::MULTIANEWARRAY:
                if (instrumentAllocations)
                    insert(KIND_NEW_ARRAY, pc, 4, ALLOCATION_CODE_LENGTH,
                           getPerClassMethodForClass(c, ByteConversions::readU2(code, pc + 1), ""));
                break;
            case OpCodes::DUP_X1: case OpCodes::DUP_X2: case OpCodes::DUP2_X1: case OpCodes::DUP2_X2:
                if (!s.pendingKinds.isEmpty() && s.pendingKinds.peek() == NEW_COPIED) onDupX();
                break;
            default:
                break;
        }
        pc = next;
    }
    KZT_ASSERT(pc == end);
    map[length] = length + delta;
    return true;
}

void FirstPass::onNew(int pc) {
    int id = getPerClassMethodForClass(c, ByteConversions::readU2(code, pc + 1), "");
    int next = pc + 3 < length ? code[pc + 3] : -1;
    int afterNext = pc + 4 < length ? code[pc + 4] : -1;
    if (next == OpCodes::DUP && afterNext == OpCodes::POP) {
        Logger::message(ZString("warning: cannot inject object allocation callback due to a bad bytecode pattern (scala?): ") +
                        c.classFile->getSignature() + " " + methodName(c));
    } else if (next == OpCodes::DUP || next == OpCodes::DUP_X1 || next == OpCodes::DUP_X2) {
        s.pendingKinds.push(NEW_DUP_FOLLOWS);
        s.pendingIds.push(id);
    } else if (next == OpCodes::SWAP) {
        for (int i = 0; i < 2; i++) {
            s.pendingKinds.push(NEW_COPIED);
            s.pendingIds.push(id);
        }
        insert(KIND_NEW_WITH_SWAP, pc, 3, NEW_START_LENGTH, id);
    } else {
        s.pendingKinds.push(NEW_COPIED);
        s.pendingIds.push(id);
        insert(KIND_NEW_WITHOUT_DUP, pc, 3, NEW_START_LENGTH, id);
    }
}

void FirstPass::onInvokeSpecial(int pc) {
    const ConstantPool* pool = c.classFile->getConstantPool();
    int index = ByteConversions::readU2(code, pc + 1);
    KZT_ASSERT(index > 0 && index < pool->getSize());
    ConstantPoolInfo* entry = (*pool)[index];
    KZT_ASSERT_NOT_NULL(entry);
    int tag = entry->getTag();
    if (tag != ConstantPoolInfo::METHOD_REF && tag != ConstantPoolInfo::INTERFACE_METHOD_REF) {
        Logger::message(ZString("warning: INVOKESPECIAL in ") + c.classFile->getSignature() + ": unexpected tag " +
                        ZString::fromLong(tag));
        return;
    }
    if (!static_cast<ConstantRefInfo*>(entry)->getMethodName(pool).equals("<init>")) return;
    int kind = s.pendingKinds.pop();
    int id = s.pendingIds.pop();
    if (kind == NEW_GIVEN_UP) return;
    if (kind == NEW_DUP_FOLLOWS) {
        insert(KIND_INIT_AFTER_DUP, pc, 3, ALLOCATION_CODE_LENGTH, id);
    } else if (kind == NEW_COPIED) {
        insert(KIND_INIT_AFTER_COPY, pc, 3, ALLOCATION_CODE_LENGTH, id);
    } else {
        Logger::error(ZString("unexpected instruction kind ") + ZString::fromLong(kind), __FILE__, __LINE__);
    }
}

// A dup_x of an object that injected code copied moves the copy out of reach:
// the allocation of the innermost such `new` is given up, and its inserted
// bytes stay as nop.
void FirstPass::onDupX() {
    int i = s.records.getSize() - 1;
    while (i >= 0 && s.records[i].kind != KIND_NEW_WITHOUT_DUP && s.records[i].kind != KIND_NEW_WITH_SWAP) i--;
    KZT_ASSERT(i >= 0);
    int copies = s.records[i].kind == KIND_NEW_WITH_SWAP ? 2 : 1;
    for (int k = 0; k < copies; k++) {
        s.pendingKinds.pop();
        s.pendingIds.pop();
    }
    for (int k = 0; k < copies; k++) {
        s.pendingKinds.push(NEW_GIVEN_UP);
        s.pendingIds.push(0);
    }
    s.records[i].kind = KIND_NEW_GIVEN_UP;
}

// ---- one method ----

void logLargeMethod(ClassContext& c, int codeLength, bool tracingOn) {
    Logger::message(ZString(tracingOn ? "tracing=on: large method: " : "tracing=off: large method: ") +
                    ZString::fromLong(codeLength) + " " + c.fullName + "." + methodName(c) + methodParameters(c));
}

// Lines of the insertion points, asked in increasing pc order: the same
// answer as LineNumberTableAttribute::getLineNumber (the last entry before
// the first one that starts above pc, in table order), in one walk.
class LineCursor {
public:
    explicit LineCursor(LineNumberTableAttribute* lines) : myLines(lines), myNext(0), myLine(0) {}
    int lineAt(int pc) {
        if (myLines == nullptr) return 0;
        while (myNext < myLines->getCount() && myLines->getLine(myNext).startPc <= pc) {
            myLine = myLines->getLine(myNext).lineNumber;
            myNext++;
        }
        return myLine;
    }

private:
    LineNumberTableAttribute* myLines;
    int myNext;
    int myLine;
};

bool instrumentForTracingAndAllocationImpl(ClassContext& c, int methodId, int lineRef, bool withAllocation,
                                           bool withTracing) {
    ClassFile* cf = c.classFile;
    MethodInfo* m = c.method;
    CodeAttribute* ca = m->getCodeAttribute();
    KZT_ASSERT_NOT_NULL(ca);
    if (ca->getFrames().isEmpty()) ca->parseStackMapTable(cf, m);
    const unsigned char* code = ca->getCode();
    int length = ca->getCodeLength();
    LineNumberTableAttribute* lineTable = ca->getLineNumberTable();

    bool withLines = !c.options.disableLines && lineTable != nullptr && lineRef != -1;
    if (length >= c.options.largeMethodThreshold && withLines && !c.name->equals("<clinit>", 8)) {
        bool tracingOn = (ourStatus.get() & CPU_PROFILING_MASK) == CPU_TRACING;
        if (!shouldNeverRetransform(c.fullName)) {
            ourClassesWithLargeMethods.add(c.fullName);
            logLargeMethod(c, length, tracingOn);
        }
        // Line calls come with a retransformation when tracing starts.
        if (!tracingOn) withLines = false;
    }
    if (withLines && !c.options.jspWithLines && c.name->equals("_jspService", 11) &&
        m->getDescriptor().equals(JSP_SERVICE_DESCRIPTOR)) {
        verboseMessage(c, [&] { return ZString("-lines (jsp_method): ") + c.fullName; });
        withLines = false;
    }
    // Without allocations the first pass has no side effects, so it can
    // find the switches itself: it assumes none and runs again on the first.
    // With allocations it must run once, as it looks up pseudo methods.
    bool withSwitch = withAllocation && SwitchDetector::containsSwitch(code, length);

    bool instrumentAllocations = false;
    if (withAllocation) {
        switch (NewOpCodeDetector::getNewOpCodeType(code, length)) {
            case NewOpCodeDetector::ALLOCATIONS:
                instrumentAllocations = true;
                break;
            case NewOpCodeDetector::OBFUSCATED_ALLOCATIONS:
                instrumentAllocations = !c.options.disableObfuscatedAllocations;
                if (instrumentAllocations) {
                    static bool warned = false;
                    if (!warned) Logger::message("warning: obfuscated bytecode of a known type was detected");
                    warned = true;
                    verboseMessage(c, [&] {
                        return ZString("bci: obfuscated bytecode: ") + c.fullName + "." + methodName(c) + methodParameters(c);
                    });
                }
                break;
            case NewOpCodeDetector::UNEXPECTED_PATTERN:
                Logger::message(ZString("warning: unexpected bytecode was detected. Allocation recording for this "
                                        "method will be disabled. ") +
                                c.fullName + "." + methodName(c) + methodParameters(c));
                break;
            default:
                break;
        }
    }

    MethodConstants k;
    k.cachedFrameVar = instrumentAllocations ? ca->addLocalVariableToTable(VerificationType(VerificationType::INTEGER, -1), true) : -1;
    k.entryResultVar = withTracing ? ca->addLocalVariableToTable(VerificationType(VerificationType::LONG, -1), true) : -1;

    int newLength = 0;
    PatchScratch& s = scratch();
    // The pass writes every element; the vector only grows, so that no
    // method pays for filling it.
    if (s.map.getSize() < length + MAP_SLACK) s.map.resize(length + MAP_SLACK);
    int entryLength = 0;
    for (bool done = false; !done;) {
        entryLength = withTracing ? entryCodeLength(instrumentAllocations, withSwitch)
                                  : allocOnlyEntryCodeLength(instrumentAllocations);
        s.records.clear();
        s.pendingKinds.clear();
        s.pendingIds.clear();
        s.branches.clear();
        FirstPass pass(c, s, code, length, entryLength);
        done = pass.run(withTracing, withLines && withTracing, instrumentAllocations, withSwitch);
        if (done) newLength = pass.getDelta() + length;
        else withSwitch = true;
    }
    k.withSwitch = withSwitch;
    const int* map = s.map.getElements();

    // Every branch must still reach its target; no goto is ever widened.
    bool fits = newLength <= 65535;
    for (int i = 0; fits && i < s.branches.size(); i++) {
        int instruction = s.branches.getInstructionIndex(i);
        int at = s.branches.getOffsetIndex(i);
        int target = instruction + (s.branches.isShort(i) ? ByteConversions::readS2(code, at) : ByteConversions::readS4(code, at));
        KZT_ASSERT(target >= 0 && target < length);
        int moved = map[target] - map[instruction];
        if (s.branches.isShort(i) && (moved < -32768 || moved > 32767)) fits = false;
    }
    if (!fits) {
        ca->rollbackAddedVariables();
        return false;
    }

    // ---- the second pass ----
    unsigned char* out = ca->allocateCodeBuffer(newLength);
    // The code moves in runs: the shift changes only behind an instruction
    // that inserted something.
    for (int r = 0, from = 0; r <= s.records.getSize(); r++) {
        int end = r < s.records.getSize() ? s.records[r].oldOffset + s.records[r].instructionLength : length;
        if (end <= from) continue;
        memcpy(out + map[from], code + from, end - from);
        from = end;
    }
    for (int i = 0; i < s.branches.size(); i++) {
        int instruction = s.branches.getInstructionIndex(i);
        int at = s.branches.getOffsetIndex(i);
        bool isShort = s.branches.isShort(i);
        int old = isShort ? ByteConversions::readS2(code, at) : ByteConversions::readS4(code, at);
        int moved = map[instruction + old] - map[instruction];
        if (moved == old) continue;
        if (isShort) ByteConversions::writeS2(out, map[at], moved);
        else ByteConversions::writeS4(out, map[at], moved);
    }

    k.methodIdConstant = 0;
    k.callCounterConstant = 0;
    if (withTracing) {
        k.methodIdConstant = cf->findOrCreateIntInfo(methodId);
        k.callCounterConstant = cf->findOrCreateLongInfo(ourCountingJoint.getCallCounterAddress(c.lock, methodId));
    }
    s.uninitializedToDuplicate.clear();
    LineCursor lines(lineTable);
    for (int r = 0; r < s.records.getSize(); r++) {
        const Record& record = s.records[r];
        int line = lines.lineAt(record.oldOffset);
        CodeWriter w(out, record.newOffset);
        int before = 0;
        if (record.kind == KIND_EXIT) {
            insertExitCode(w, c, k);
            before = w.written();
        } else if (record.kind == KIND_LINE) {
            insertInvokeLineNumberCode(w, c, k, line);
            before = w.written();
        } else {
            CodeWriter after(out, record.newOffset + record.instructionLength);
            if (record.kind == KIND_NEW_WITHOUT_DUP) {
                insertNewCodeStart(after, OpCodes::DUP);
            } else if (record.kind == KIND_NEW_WITH_SWAP) {
                insertNewCodeStart(after, DUP_X1_OP);
            } else if (record.kind == KIND_NEW_GIVEN_UP) {
                insertNewCodeStart(after, OpCodes::NOP);
            } else {
                int idConstant = cf->findOrCreateIntInfo(record.pseudoMethodId);
                MethodRecord* pseudo = ZMethod::getRecord(record.pseudoMethodId);
                KZT_ASSERT_NOT_NULL(pseudo);
                int codePoint = CodePointStorage::getCodePoint(c.lock, methodId, line);
                int counter = cf->findOrCreateLongInfo(ourCountingJoint.getAllocCounterAddress(c.lock, codePoint, pseudo->myClass));
                int leading = record.kind == KIND_INIT_AFTER_COPY ? OpCodes::NOP : OpCodes::DUP;
                KZT_ASSERT(record.kind == KIND_NEW_ARRAY || record.kind == KIND_INIT_AFTER_DUP ||
                           record.kind == KIND_INIT_AFTER_COPY);
                insertAllocationCode(after, c, k, leading, idConstant, line, counter);
            }
            if (record.kind == KIND_NEW_WITHOUT_DUP || record.kind == KIND_NEW_WITH_SWAP)
                s.uninitializedToDuplicate.push(record.oldOffset);
        }
        if (before > 0) memcpy(out + record.newOffset + before, code + record.oldOffset, record.instructionLength);
    }
    if (withTracing) insertEntryCode(out, c, k, entryLength);
    else insertAllocOnlyEntryCode(out, k, entryLength);

    // ---- install ----
    ca->adoptCodeBuffer(out, newLength);
    // Frames still hold old offsets here.
    for (int i = 0; i < s.uninitializedToDuplicate.getSize(); i++)
        ca->duplicateUninitializedStackMapFramesItem(s.uninitializedToDuplicate[i]);
    ca->incMaxStackCount(6);
    ca->remapOffsets(map, map, length);
    ca->incMaxStackCount(6);
    ca->applyAddedVariables(0);
    return true;
}

}  // namespace

bool shouldSkipInstrumentationForTracingAndAllocation(MethodInfo* method, int* reason) {
    *reason = -1;
    if (ourOptions.isInternalOption("_instrument_all_methods")) return false;
    CodeAttribute* ca = method->getCodeAttribute();
    KZT_ASSERT_NOT_NULL(ca);
    int length = ca->getCodeLength();
    const unsigned char* code = ca->getCode();
    if (length >= 33) {
        *reason = -2;
        return false;
    }
    *reason = 0;
    if (length < 1) return true;
    for (int pc = 0; pc < length;) {
        int opcode = code[pc];
        bool branch = (opcode >= OpCodes::IFEQ && opcode <= OpCodes::GOTO) || opcode == OpCodes::IFNULL ||
                      opcode == OpCodes::IFNONNULL || opcode == OpCodes::GOTO_W;
        if (branch) {
            if (pc + 1 < length && (code[pc + 1] & 0x80) != 0) {
                *reason = -3;
                return false;
            }
        } else if (opcode == OpCodes::WIDE) {
            pc += pc + 1 < length && code[pc + 1] == OpCodes::IINC ? 6 : 4;
            continue;
        } else {
            bool allowed = opcode < 108 || (opcode >= 116 && opcode <= 152) || (opcode >= 172 && opcode <= 181) ||
                           opcode == 190 || opcode == 192 || opcode == 193;
            if (!allowed) {
                *reason = opcode;
                return false;
            }
        }
        int n = ourOpCodeLength[opcode];
        if (n < 1) {
            *reason = opcode;
            return false;
        }
        pc += n;
    }
    *reason = 0;
    return true;
}

bool instrumentForTracingAndAllocation(const LockHolder& lock, ClassFile* cf, bool* tooLong, bool withAllocation,
                                       bool withTracing) {
    if (!withAllocation && !withTracing) return false;
    ClassContext c(lock, cf);
    c.options = readPatchOptions();
    const ZString& signature = cf->getSignature();
    c.fullName = convertClassSignatureToFullName(signature.c_str());
    c.sourceFile = cf->getSourceName();
    bool isObject = signature.equals("java/lang/Object");
    const ZString* super = cf->getSuperClassSignature();
    bool jspClass = !c.options.jspWithLines && super != nullptr && super->equals("org/apache/jasper/runtime/HttpJspBase");
    if (jspClass) verboseMessage(c, [&] { return ZString("-lines (jsp_class): ") + c.fullName; });

    int callbackClass = cf->findOrCreateConstantClass(cf->findOrCreateUtf8(CALLBACK_CLASS));
    int longDescriptor = cf->findOrCreateUtf8("(IJ)J");
    int voidDescriptor = cf->findOrCreateUtf8("(IJ)V");
    c.entryRef = cf->findOrCreateMethodRef(callbackClass, cf->findOrCreateUtf8("kztMethodEntry"), longDescriptor);
    c.exitRef = cf->findOrCreateMethodRef(callbackClass, cf->findOrCreateUtf8("kztMethodExit"), voidDescriptor);
    c.lineRef = jspClass ? -1 : cf->findOrCreateMethodRef(callbackClass, cf->findOrCreateUtf8("kztMethodLine"), voidDescriptor);
    c.allocRef = cf->findOrCreateMethodRef(callbackClass, cf->findOrCreateUtf8("kztInit"),
                                           cf->findOrCreateUtf8("(Ljava/lang/Object;IISJ)I"));

    bool changed = false;
    const ConstantPool* pool = cf->getConstantPool();
    ZVector<MethodInfo*, 10>& methods = cf->getMethods();
    for (int i = 0; i < methods.getSize(); i++) {
        MethodInfo* m = methods[i];
        if (m->getCodeAttribute() == nullptr) continue;
        c.method = m;
        c.name = ConstantPoolInfo::getUtf8Entry(pool, m->getNameIndex());
        c.parametersMade = false;
        if (isObject && (c.name->equals("<clinit>", 8) || c.name->equals("finalize", 8))) continue;
        const ConstantUtf8Info* descriptor = ConstantPoolInfo::getUtf8Entry(pool, m->getDescriptorIndex());
        int reason = 0;
        if (shouldSkipInstrumentationForTracingAndAllocation(m, &reason)) {
            verboseMessage(c, [&] {
                return ZString("-skip (should_skip): ") + signature + " " + methodName(c) + " " + m->getDescriptor();
            });
            continue;
        }
        verboseMessage(c, [&] {
            return ZString("bci_TA (") + ZString::fromLong(reason) + ") " + signature + " " + methodName(c) + " " +
                   m->getDescriptor();
        });
        if (ourProbeJoint.isFilteredMethod != nullptr &&
            ourProbeJoint.isFilteredMethod(c.fullName, methodName(c), methodParameters(c))) {
            ZString text = ZString("-skip (bci_filter): ") + c.fullName + "." + methodName(c) + methodParameters(c);
            if (cf->getLoggedSkips().add(text)) Logger::message(text);
            continue;
        }
        int methodId = ZMethod::getByDescriptor(lock, c.strings, c.fullName, c.name->getChars(), c.name->getByteLength(),
                                                descriptor->getChars(), descriptor->getByteLength(), c.sourceFile, false);
        bool done = instrumentForTracingAndAllocationImpl(c, methodId, c.lineRef, withAllocation, withTracing);
        if (!done && c.lineRef != -1) {
            Logger::message(ZString("warning: resulting bytecode is too long, trying a fallback: ") + signature + " " +
                            methodName(c) + " " + m->getDescriptor());
            done = instrumentForTracingAndAllocationImpl(c, methodId, -1, withAllocation, withTracing);
        }
        if (!done) {
            Logger::message(ZString("warning: cannot instrument method because resulting bytecode is too long: ") +
                            signature + " " + methodName(c) + " " + m->getDescriptor());
            *tooLong = true;
            return false;
        }
        DB* db = KZT_DB();
        MethodRecord* record = ZMethod::getRecord(methodId);
        KZT_ASSERT_NOT_NULL(record);
        record->myFlags |= METHOD_FLAG_TRACED;
        record->myStamp = db->getCurrentGeneration();
        changed = true;
    }
    return changed;
}
