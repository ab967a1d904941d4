// Rewrites the methods of a class so that they report entry, exit, lines and
// allocations to the Callback stubs. The policy decides where code goes while
// the code editor scans a method; the editor lays the new code out, the
// sequences fill the reserved places, and the editor installs the code with
// every table moved. Injected sequences are straight-line and of fixed
// length, so no stack map frame is ever added.
#include "classfile/ByteConversions.h"
#include "classfile/ClassFile.h"
#include "classfile/CodeEditor.h"
#include "classfile/OpCodes.h"
#include "db/CodePointStorage.h"
#include "db/DB.h"
#include "db/SignatureNames.h"
#include "db/ZMethod.h"
#include "instrumentation/Instrumentation.h"
#include "instrumentation/PatchContext.h"
#include "instrumentation/PatchPolicy.h"
#include "instrumentation/PatchSequences.h"
#include "services/AgentState.h"
#include "services/Logger.h"
#include "services/Options.h"

const ZString& methodParameters(ClassContext& c) {
    if (!c.parametersMade) {
        c.parameters = convertMethodSignatureToParameters(c.method->getDescriptor());
        c.parametersMade = true;
    }
    return c.parameters;
}

namespace {

const char* const JSP_SERVICE_DESCRIPTOR =
    "(Ljavax/servlet/http/HttpServletRequest;Ljavax/servlet/http/HttpServletResponse;)V";
// The tag of the entry code among the insertions; the others are records.
const int ENTRY_TAG = -1;

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

// Kept between methods and classes (the hook runs under ourLock, one class at a time).
struct PatchScratch {
    CodeEditor editor;
    PatchPolicy::Scratch policy;
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

// Writes the reserved places as the editor builds the new code, in code order.
class PatchFiller : public CodeEditor::Filler {
public:
    PatchFiller(const ClassContext& c, const MethodConstants& k, const PatchPolicy::Scratch& s, int methodId,
                bool withTracing, LineNumberTableAttribute* lines)
        : c(c), k(k), s(s), myMethodId(methodId), myTracing(withTracing), myLines(lines) {}

    void fill(int tag, unsigned char* at, int length) override {
        CodeWriter w(at, 0);
        if (tag == ENTRY_TAG) {
            if (myTracing) insertEntryCode(w, c, k, length);
            else insertAllocOnlyEntryCode(w, k, length);
            return;
        }
        const PatchRecord& record = s.records[tag];
        int line = myLines.lineAt(record.oldOffset);
        switch (record.kind) {
            case KIND_EXIT:
                insertExitCode(w, c, k);
                break;
            case KIND_LINE:
                insertInvokeLineNumberCode(w, c, k, line);
                break;
            case KIND_NEW_WITHOUT_DUP:
                insertNewCodeStart(w, OpCodes::DUP);
                break;
            case KIND_NEW_WITH_SWAP:
                insertNewCodeStart(w, OpCodes::DUP_X1);
                break;
            case KIND_NEW_GIVEN_UP:
                insertNewCodeStart(w, OpCodes::NOP);
                break;
            default: {
                ClassFile* cf = c.classFile;
                int idConstant = cf->findOrCreateIntInfo(record.pseudoMethodId);
                MethodRecord* pseudo = ZMethod::getRecord(record.pseudoMethodId);
                KZT_ASSERT_NOT_NULL(pseudo);
                int codePoint = CodePointStorage::getCodePoint(c.lock, myMethodId, line);
                int counter =
                    cf->findOrCreateLongInfo(ourCountingJoint.getAllocCounterAddress(c.lock, codePoint, pseudo->myClass));
                int leading = record.kind == KIND_INIT_AFTER_COPY ? OpCodes::NOP : OpCodes::DUP;
                KZT_ASSERT(record.kind == KIND_NEW_ARRAY || record.kind == KIND_INIT_AFTER_DUP ||
                           record.kind == KIND_INIT_AFTER_COPY);
                insertAllocationCode(w, c, k, leading, idConstant, line, counter);
            }
        }
        w.expectLength(length);
    }

private:
    const ClassContext& c;
    const MethodConstants& k;
    const PatchPolicy::Scratch& s;
    int myMethodId;
    bool myTracing;
    LineCursor myLines;
};

bool instrumentForTracingAndAllocationImpl(ClassContext& c, int methodId, int lineRef, bool withAllocation,
                                           bool withTracing) {
    ClassFile* cf = c.classFile;
    MethodInfo* m = c.method;
    CodeAttribute* ca = m->getCodeAttribute();
    KZT_ASSERT_NOT_NULL(ca);
    if (ca->getFrames().isEmpty()) ca->parseStackMapTable(cf, *m);
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

    // ---- where code goes ----
    PatchScratch& s = scratch();
    CodeEditor& editor = s.editor;
    s.policy.records.clear();
    s.policy.pendingKinds.clear();
    s.policy.pendingIds.clear();
    editor.begin(ca);
    int entry = editor.reserveAtStart(0, ENTRY_TAG);
    PatchPolicy policy(c, s.policy, editor, withTracing, withLines && withTracing, instrumentAllocations);
    editor.scan(policy);
    // In a method with a switch every length is a multiple of four.
    k.withSwitch = editor.hasSwitch();
    editor.setLength(entry, withTracing ? entryCodeLength(instrumentAllocations, k.withSwitch)
                                        : allocOnlyEntryCodeLength(instrumentAllocations));
    for (const PatchRecord& record : s.policy.records) editor.setLength(record.insertion, patchLength(record.kind, k.withSwitch));
    // Every branch must still reach its target; no goto is ever widened.
    if (!editor.prepare()) {
        ca->rollbackAddedVariables();
        return false;
    }

    // ---- the new code ----
    k.methodIdConstant = 0;
    k.callCounterConstant = 0;
    if (withTracing) {
        k.methodIdConstant = cf->findOrCreateIntInfo(methodId);
        k.callCounterConstant = cf->findOrCreateLongInfo(ourCountingJoint.getCallCounterAddress(c.lock, methodId));
    }
    // A `new` whose copy the injected code makes has that copy in its frames;
    // they still hold old offsets here.
    for (const PatchRecord& record : s.policy.records) {
        if (record.kind == KIND_NEW_WITHOUT_DUP || record.kind == KIND_NEW_WITH_SWAP)
            ca->duplicateUninitializedStackMapFramesItem(record.oldOffset);
    }
    PatchFiller filler(c, k, s.policy, methodId, withTracing, lineTable);
    editor.commit(&filler);
    ca->incMaxStackCount(6);
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
