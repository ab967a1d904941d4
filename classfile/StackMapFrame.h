// One fully expanded stack map frame: an absolute offset and complete locals
// and stack. Locals are entries as in the class file: a Long or Double is one
// entry, with no Top after it.
#pragma once

#include "classfile/ArenaObject.h"
#include "classfile/DataInput.h"
#include "classfile/DataOutput.h"
#include "classfile/VerificationType.h"

class ClassPool;
class MemberHeader;

class StackMapFrame : public ArenaObject {
public:
    // The initial frame of a method, at offset -1: `this` (UninitializedThis
    // in a constructor) and one entry per parameter.
    StackMapFrame(ClassPool* pool, const MemberHeader& method);
    // Decodes the next frame of a "StackMapTable" from its predecessor.
    StackMapFrame(const StackMapFrame& previous, DataInput& in, int thisClass);
    // A frame at `offset` with the locals of `base` and `stackItem` as the
    // only stack entry unless it is Top. Past `superOffset` (when not -1) an
    // UninitializedThis local has become the initialised Object.
    StackMapFrame(const StackMapFrame& base, int offset, const VerificationType& stackItem, int superOffset);
    StackMapFrame(const StackMapFrame& other) = default;
    explicit StackMapFrame(int offset) : myOffset(offset) {}

    int getOffset() const { return myOffset; }
    void setOffset(int offset) { myOffset = offset; }
    VerificationTypes& getLocals() { return myLocals; }
    const VerificationTypes& getLocals() const { return myLocals; }
    VerificationTypes& getStack() { return myStack; }
    const VerificationTypes& getStack() const { return myStack; }

    // Encodes this frame against its predecessor in the shortest form.
    void writeTo(const StackMapFrame& previous, DataOutput& out) const;

    // Enters variables announced after the method was parsed: fills up to
    // their first slot with Top, then appends them.
    void addLocalVariables(const VerificationTypes& added, int maxLocals);
    // Drops Top entries from the end of the locals.
    void cleanUpLocals();
    // Number of local slots the entries take.
    int getLocalSlots() const;

    // Entries to slot form: a Long or Double is followed by a Top slot.
    static void toSlots(const VerificationTypes& entries, VerificationTypes& slots);

private:
    int myOffset;
    VerificationTypes myLocals;
    VerificationTypes myStack;
};
