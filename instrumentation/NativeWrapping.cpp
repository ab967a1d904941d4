// Native wrapping is not built yet: no native is wrapped, and the hook
// treats every class as one without natives to wrap.
#include "instrumentation/NativeWrapping.h"

ZStringSet& ourNamesOfClassesWithWrappedNatives = *new ZStringSet();

bool wrapNativeMethods(const LockHolder& lock, ClassFile* classFile) { return false; }
