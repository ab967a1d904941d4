// The shared call tree: a call path is a frame of the "frame" table, found
// from its parent by code point. Frames live for the whole run. All of it
// needs ourLock.
#pragma once

#include <cstdint>

#include "db/CodePointStorage.h"
#include "db/ZMethod.h"
#include "foundation/ZLock.h"
#include "foundation/ZString.h"

// The "<<own>>" pseudo method. A stack ends with a frame of it whose line is
// where the top frame stood, so that the lines of the top frame don't split
// the frames of its callers.
extern int ownLineNumberMethod;

class ZFrameStorage {
public:
    static int getChild(const LockHolder& lock, int parentFrame, int method, int line) {
        return getChild(lock, parentFrame, CodePointStorage::getCodePoint(lock, method, line));
    }
    // The child of `parentFrame` with that code point, made when missing.
    static int getChild(const LockHolder& lock, int parentFrame, int codePoint);

    // The method and parent of a frame, as stored.
    static int getMethodByFrame(int frame);
    static int getParent(int frame);

    // Whether the frame's method also stands in a frame above it.
    static bool isRecursive(const LockHolder& lock, int frame);
    // The frame of the method that a probe callback was injected into: the
    // first frame above the callbacks (flag 0x40); the frame itself when no
    // callback is on the path, 0 when nothing is above them.
    static int findInstrumentedMethod(const LockHolder& lock, int frame);

    static ZString getStackTraceByFrame(const LockHolder& lock, int frame);
    static ZString getMethodDescription(const LockHolder& lock, int method);
    static ZString getMethodDescriptionByFrame(const LockHolder& lock, int frame);

    static void resetForTests();
    // Forgets the hash index of wide parents; with the frame table only.
    static void clearWideChildIndex();
};
