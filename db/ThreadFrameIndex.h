// ThreadFrameIndex: (thread, frame) to one small index, the thread-frame
// index, which addresses the "cpu_profiling" and "alloc_info" rows of that
// pair and is a row of "thread_frame" itself. One map per thread row.
#pragma once

#include "foundation/ZIntChunkMap.h"
#include "foundation/ZLock.h"
#include "foundation/ZVector.h"

class ThreadFrameIndex {
public:
    ThreadFrameIndex() {}
    ~ThreadFrameIndex() { clearThreadFrameIndex(); }
    ThreadFrameIndex(const ThreadFrameIndex&) = delete;
    ThreadFrameIndex& operator=(const ThreadFrameIndex&) = delete;

    // The index for (thread row, frame); -1 when missing and not `create`.
    int getTFI(const LockHolder& lock, int tfiIndex, int frame, bool create);
    // Merges a finished thread away: its CPU and allocation rows are added to
    // those of `targetTfiIndex` (the oldest finished threads), its own rows
    // are deleted and their indices released, its map freed.
    void changeThread(const LockHolder& lock, int tfiIndex, int targetTfiIndex);
    void clearThreadFrameIndex();
    long getAllocatedBytes() const;

private:
    typedef ZIntChunkMap<int> FrameMap;

    ZVector<FrameMap*> myMaps;
};
