// IndexPool: hands out dense indices and reuses released ones last-in first-out.
#pragma once

#include "foundation/ZVector.h"

class IndexPool : public ZVector<int, 10> {
public:
    explicit IndexPool(int firstIndex = 0) : nextFresh(firstIndex), firstIndex(firstIndex) {}

    int nextIndex() { return size > 0 ? pop() : nextFresh++; }
    int peekNextIndex() const { return size > 0 ? elements[size - 1] : nextFresh; }
    void releaseIndex(int index) { push(index); }
    void clearIndexPool() {
        nextFresh = firstIndex;
        clear();
    }

private:
    int nextFresh;
    int firstIndex;
};
