// A probe switched off keeps the calls that classes instrumented for it make.
// Its own class is rewritten instead: each callback gets the smallest body
// that leaves the target as if nobody had called anything.
#pragma once

class ClassFile;
class MethodInfo;
class ProbeDescriptor;

// Empties onEnter, onReturn, onUncaughtException and onExit of the probe
// class; true when one was there.
bool makeProbeCallbackMethodsEmpty(const ProbeDescriptor* descriptor, ClassFile* classFile);

// A body that does nothing: a constructor calls the same super or this
// constructor with zero values, any other method returns the zero value.
void setEmptyMethodBody(ClassFile* classFile, MethodInfo* method);
