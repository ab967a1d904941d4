// Exception telemetry: exceptions counted by thread, throw place, catch
// place and class. The JVM's Exception and ExceptionCatch events become one
// event of the thread for each throw; the player folds one exception
// object's passes through rethrows into one count, with the first throw
// place and the last catch place.
#pragma once

#include <jni.h>
#include <cstdint>

#include "db/DBRecords.h"
#include "foundation/ZLock.h"
#include "foundation/ZMap.h"

class ThreadInfo;

class Exceptions {
public:
    // ---- The JVM's events, on the throwing thread ----
    // At a throw; `willBeCaught` when the JVM knows a catch for it.
    static void handleException(const NoLock& noLock, JNIEnv* env, ThreadInfo* thread, jobject exception,
                                bool willBeCaught);
    // At a catch.
    static void handleExceptionCatch(const NoLock& noLock, JNIEnv* env, ThreadInfo* thread, jobject exception);

    // ---- Under ourLock ----
    static void playExceptionEvent(const LockHolder& lock, ThreadInfo* thread, int throwNode, int catchNode,
                                   int classStr, int exceptionId);
    // Rows of the threads in `trns` fold into "<Oldest finished threads>".
    static void mergeExceptionUsage(const LockHolder& lock, const ZSet<int>& trns);
    // Empties "exception", after the events made before.
    static void clearExceptions(const LockHolder& lock);

    static void resetForTests();
};
