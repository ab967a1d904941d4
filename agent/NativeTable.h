// The natives of com.corvane.runtime.Callback come in groups, one a stage,
// each defined next to the code it serves. At registration they are merged
// into one table sorted by name.
#pragma once

#include <jni.h>

class NativeGroup {
public:
    NativeGroup(const JNINativeMethod* rows, int count);
};

// Defines the group `name` from a static array of JNINativeMethod rows.
#define KZT_NATIVE_GROUP(name, rows) static NativeGroup name##NativeGroup(rows, sizeof(rows) / sizeof(rows[0]))

// A row for Java_com_corvane_runtime_Callback_<name>.
#define KZT_NATIVE_ROW(name, signature) \
    { (char*)#name, (char*)signature, (void*)Java_com_corvane_runtime_Callback_##name }

// All rows of all groups, sorted by name; built on first use.
const JNINativeMethod* getAgentNativeMethods(int* count);
