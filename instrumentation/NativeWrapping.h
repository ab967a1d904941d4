// Native method wrapping: a native is renamed under the agent's prefix and a
// bytecode method of the old name that calls it takes its place, so that it
// can be instrumented like any other.
#pragma once

#include "foundation/ZLock.h"
#include "foundation/ZStringSet.h"

class ClassFile;
class MethodInfo;

// Internal names of classes whose natives were wrapped: on a redefinition the
// JVM holds them with the extra methods, so they must be wrapped again.
extern ZStringSet& ourNamesOfClassesWithWrappedNatives;

// Wraps the natives of the class that may be wrapped; true when one was.
// Under ourLock.
bool wrapNativeMethods(const LockHolder& lock, ClassFile* classFile);

// Renames the native `method` under the prefix and gives the old name a body
// that calls it with the same arguments and returns what it returns.
void instrumentNativeMethod(ClassFile* classFile, MethodInfo* method);

// True when the internal class name begins with one of the prefixes of the
// class exclusion list: "disable_natives.txt" of the settings folder, or the
// built-in list. The list is read once, under ourLock.
bool isClassExcludedFromNativeWrapping(const LockHolder& lock, const ZString& className);
