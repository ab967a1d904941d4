// Probe code injection: the methods of a class that a probe's patterns select
// call its callbacks, and stay valid for the verifier. The code goes in
// through the class-file toolkit's CodeEditor; frames of the injected
// branches, the handler around the method and the added locals are kept
// right here.
#pragma once

#include "foundation/ZLock.h"
#include "foundation/ZVector.h"

class ClassFile;
class CodeAttribute;
class ProbeDescriptor;

class LoggerInstrumenter {
public:
    // Instruments the methods of `classFile` that the patterns of the given
    // indices select (a positive one matches and no negative one does).
    // True when at least one method changed.
    static bool instrumentClassByProbeDescriptor(const LockHolder& lock, ProbeDescriptor* descriptor,
                                                 const ZVector<int>& positivePatternIndices,
                                                 const ZVector<int>& negativePatternIndices, ClassFile* classFile);

    // The offset just behind the `super(...)` or `this(...)` call of a
    // constructor's code, -1 when there is none that can be found (also
    // behind a switch). `methodRefOut`, when given, receives the call's
    // Methodref index.
    static int getConstructorSuperOrThisCallOffset(ClassFile* classFile, const CodeAttribute* code,
                                                   int* methodRefOut);
};
