// The "Code" attribute: code, exception table, its own attributes, and the
// method's stack map frames kept fully expanded. A rewriter works in absolute
// offsets and complete locals; the compressed "StackMapTable" exists only for
// the moment of a write.
#pragma once

#include "classfile/Attributes.h"
#include "classfile/LineNumberTableAttribute.h"
#include "classfile/LocalVariableTableAttribute.h"
#include "classfile/StackMapFrame.h"
#include "classfile/VerificationType.h"

class ClassPool;
class MemberHeader;

class CodeAttribute : public AttributeInfo {
public:
    struct ExceptionTableElement : public ArenaObject {
        ExceptionTableElement(int start, int end, int handler, int type)
            : startPc(start), endPc(end), handlerPc(handler), catchType(type) {}
        int startPc;
        int endPc;
        int handlerPc;
        int catchType;
    };

    static const int MAX_VALUE = 32767;

    // Reads max stack, max locals, code (1 to 65535 bytes), exception table
    // and attributes. Stack maps stay off until parseStackMapTable.
    // With an arena, the code, its tables and frames take memory from it.
    CodeAttribute(DataInput& in, ConstantPool* pool, int nameIndex, int length, ClassArena* arena = nullptr);
    // A new body of one `return`, for a method that had none.
    CodeAttribute(ConstantPool* pool, int nameIndex, ClassArena* arena = nullptr);
    ~CodeAttribute() override;
    CodeAttribute(const CodeAttribute&) = delete;
    CodeAttribute& operator=(const CodeAttribute&) = delete;

    void writeTo(DataOutput& out) override;
    // Writes the whole attribute with the frames encoded as a last
    // "StackMapTable", straight into `out`; the same bytes as adding the
    // table, writing and removing it again.
    void writeWithStackMapTable(DataOutput& out);

    // ---- code ----
    const unsigned char* getCode() const { return myCode; }
    int getCodeLength() const { return myCodeLength; }
    // Copies the bytes in place of the old code; the attribute length follows.
    void setCode(const unsigned char* bytes, int length);
    // The same, taking ownership of a new[] array instead of copying.
    void adoptCode(unsigned char* bytes, int length);
    // A zeroed buffer for code that is to replace this attribute's, in the
    // class's arena when there is one; adoptCodeBuffer installs it, and
    // freeCodeBuffer gives back one that is not used.
    unsigned char* allocateCodeBuffer(int length);
    void adoptCodeBuffer(unsigned char* bytes, int length);
    void freeCodeBuffer(unsigned char* bytes) {
        if (myArena == nullptr) delete[] bytes;
    }

    int getMaxStack() const { return myMaxStack; }
    int getMaxLocals() const { return myMaxLocals; }
    void incMaxLocalsCount(int n);
    void incMaxStackCount(int n);
    void ensureStackCapacity(int n);

    // ---- attributes of the code ----
    ZVector<AttributeInfo*, 10>& getAttributes() { return myAttributes; }
    AttributeInfo* findAttribute(const char* name);
    LocalVariableTableAttribute* getLocalVariableTable();
    LocalVariableTableAttribute* getLocalVariableTypeTable();
    LineNumberTableAttribute* getLineNumberTable();
    // Removes and deletes every attribute of that name.
    void removeAttributes(const char* name);

    // ---- exception table ----
    ZVector<ExceptionTableElement*, 10>& getExceptionTable() { return myExceptionTable; }
    // Handler pc of the first entry with start <= pc < end, else -1.
    int findHandlerIndexForInstruction(int pc) const;
    // Locals of the frame standing exactly at handlerPc, as a new vector for
    // the caller: empty when no frame is there, null when handlerPc < 1.
    VerificationTypes* getKnownTypesForExceptionHandler(int handlerPc) const;
    // Adds a catch-all entry, a frame at the handler with `exceptionType` on
    // the stack, and puts the entry before the first one that encloses it.
    // With `superOffset` (not -1) below the handler, `this` in the frame is
    // the initialised object: a handler of a constructor's body.
    void addExceptionHandler(int start, int end, int handler, const VerificationType& exceptionType,
                             int superOffset = -1);
    void incExceptionHandlerIndex(int startLimit, int delta);
    int getCorrectExceptionHandlerIndex(int pc) const;

    // ---- moving tables along with the code ----
    // A position that receives control (range starts and
    // ends, handlers, frames, lines, variable starts) goes through `blockMap`,
    // the offset of a `new` named by an Uninitialized item through
    // `instructionMap`. Both maps have oldLength + 1 entries; the variable
    // tables move too. setCode comes first.
    void remapOffsets(const int* blockMap, const int* instructionMap, int oldLength);

    // ---- local variables ----
    ZVector<int, 10>& getPreservedVariables() { return myPreservedVariables; }
    // Announces a new variable and returns its slot; frames learn of it in
    // applyAddedVariables, or not at all after rollbackAddedVariables.
    int addLocalVariableToTable(const VerificationType& type, bool keep);
    void applyAddedVariables(int fromOffset);
    void rollbackAddedVariables();

    // ---- stack map frames ----
    bool isStackMapsEnabled() const { return myStackMapsEnabled; }
    // frames[0] is the initial frame at offset -1 and is never written.
    ZVector<StackMapFrame*, 10>& getFrames() { return myFrames; }
    int getStackMapNameIndex() const { return myStackMapNameIndex; }
    void parseStackMapTable(ClassPool* pool, const MemberHeader& method);
    void addStackMapTableAttributeBeforeWrite();
    void addStackMapFrames(const ZVector<int, 10>& pcs, int base, const VerificationType& stackItem, int superOffset,
                           bool wipe, const VerificationTypes* known);
    void duplicateUninitializedStackMapFramesItem(int pc);
    bool tryRestoreWipedVariablesInStackMapTable(int superOffset);
    void resetForEmptyMethodBody(ClassPool* pool, const MemberHeader& method, int maxLocals, int maxStack);

    // Highest pool index that the last encoded table referred to.
    int getHighestPoolReference() const { return myHighestPoolReference; }

private:
    void release();
    void freeCode();
    bool hasFramesToWrite() const { return myStackMapsEnabled && myFrames.getSize() >= 2; }
    void encodeFrames(DataOutput& out);
    void writeBody(DataOutput& out, int extraAttributes);
    void wipe(StackMapFrame* frame) const;
    void deleteFrames();

    int myMaxStack;
    int myMaxLocals;
    int myCodeLength;
    unsigned char* myCode;
    bool myCodeInArena;
    ConstantPool* myConstantPool;
    ClassArena* myArena;
    ZVector<AttributeInfo*, 10> myAttributes;
    ZVector<ExceptionTableElement*, 10> myExceptionTable;
    ZVector<int, 10> myPreservedVariables;
    ZVector<StackMapFrame*, 10> myFrames;
    VerificationTypes myAddedVariables;
    int myStackMapNameIndex;
    bool myStackMapsEnabled;
    int myHighestPoolReference;
};
