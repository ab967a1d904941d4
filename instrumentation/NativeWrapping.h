// Native method wrapping: a native is renamed under the agent's prefix and a
// bytecode method of the old name that calls it takes its place, so that it
// can be instrumented like any other.
#pragma once

#include "foundation/ZLock.h"
#include "foundation/ZStringSet.h"

class ClassFile;

// Internal names of classes whose natives were wrapped: on a redefinition the
// JVM holds them with the extra methods, so they must be wrapped again.
extern ZStringSet& ourNamesOfClassesWithWrappedNatives;

// Wraps the natives of the class that may be wrapped; true when one was.
bool wrapNativeMethods(const LockHolder& lock, ClassFile* classFile);
