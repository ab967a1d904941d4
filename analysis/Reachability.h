// Walks over the heap graph of an ObjectStorage: the objects reachable from
// a start object (over all references, or over strong ones only), and the
// distance of every object from the GC roots. Sets of objects are bit sets:
// bit i & 31 of word i >> 5 stands for object i. The walks keep an explicit
// stack and allocate nothing per object.
#pragma once

#include "analysis/ObjectStorage.h"
#include "foundation/ZVector.h"

namespace Reachability {

inline bool isMarked(const int* bits, int object) {
    return ((uint32_t)bits[object >> 5] >> (object & 31) & 1) != 0;
}
inline void mark(int* bits, int object) {
    bits[object >> 5] |= (int)(1u << (object & 31));
}

// Marks in `visited` everything reachable from `start`, which must be an object.
void markAsVisited(const ObjectStorage& storage, int start, int* visited, ZVector<int>& stack);

// The same over strong references: a reference is left out when it is 0 or
// marked, when the object is `specialObject` and the reference's index is
// `specialIndex`, or when a pair of `excluded` (value of the object's
// reference number 0, reference index) matches. `excludedLength` must be even.
void markAsVisitedStrong(const ObjectStorage& storage, int start, int* visited, const int* excluded,
                         int excludedLength, int specialObject, int specialIndex, ZVector<int>& stack);

// Fills the depth column: 0 for the roots, one more each step away.
void calculateDepthToGcRoot(ObjectStorage& storage, const int* roots, int rootCount);

}  // namespace Reachability
