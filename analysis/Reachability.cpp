#include "analysis/Reachability.h"

#include "services/Logger.h"

namespace Reachability {

namespace {

// Depth first from `start`, marking at pop; `follow(object, firstRef, index,
// target)` decides for every unmarked, non-null reference.
template <typename Follow>
void walk(const ObjectStorage& storage, int start, int* visited, ZVector<int>& stack, Follow follow) {
    KZT_ASSERT(start >= 1 && start < storage.getSize());
    const RefTable& refs = storage.getRefs();
    ReferenceIterator iterator;
    // The caller's stack is empty: every walk leaves it so.
    stack.push(start);
    while (!stack.isEmpty()) {
        int object = stack.pop();
        if (isMarked(visited, object)) continue;
        mark(visited, object);
        refs.initReferenceIterator(iterator, object);
        int firstRef = iterator.hasNext() ? refs.getRef(object, 0) : 0;
        for (int index = 0; iterator.hasNext(); index++) {
            int target = iterator.next();
            if (target != 0 && !isMarked(visited, target) && follow(object, firstRef, index)) stack.push(target);
        }
    }
}

bool isExcluded(const int* excluded, int excludedLength, int firstRef, int index) {
    for (int k = 0; k < excludedLength; k += 2) {
        if (excluded[k] == firstRef && excluded[k + 1] == index) return true;
    }
    return false;
}

}  // namespace

void markAsVisited(const ObjectStorage& storage, int start, int* visited, ZVector<int>& stack) {
    walk(storage, start, visited, stack, [](int, int, int) { return true; });
}

void markAsVisitedStrong(const ObjectStorage& storage, int start, int* visited, const int* excluded,
                         int excludedLength, int specialObject, int specialIndex, ZVector<int>& stack) {
    KZT_ASSERT(excludedLength % 2 == 0);
    walk(storage, start, visited, stack, [&](int object, int firstRef, int index) {
        if (object == specialObject && index == specialIndex) return false;
        return excludedLength == 0 || !isExcluded(excluded, excludedLength, firstRef, index);
    });
}

void calculateDepthToGcRoot(ObjectStorage& storage, const int* roots, int rootCount) {
    const RefTable& refs = storage.getRefs();
    BigIntArray64 front1("dep_1");
    BigIntArray64 front2("dep_2");
    BigIntArray64Presized parentsColumn("parents", storage.getSize());
    int* parents = parentsColumn.getData();
    BigIntArray64* current = &front1;
    BigIntArray64* next = &front2;
    int64_t currentSize = 0;
    int64_t nextSize = 0;
    for (int r = 0; r < rootCount; r++) {
        int root = roots[r];
        KZT_ASSERT(root >= 1 && root < storage.getSize());
        current->push(currentSize, root);
        parents[root] = -1;
        storage.setDepthToGcRoot(root, 0);
    }
    int64_t maxFrontSize = currentSize;
    ReferenceIterator iterator;
    for (int depth = 1; currentSize > 0; depth++) {
        while (currentSize > 0) {
            int object = current->get(--currentSize);
            refs.initReferenceIterator(iterator, object);
            while (iterator.hasNext()) {
                int target = iterator.next();
                if (target == 0 || parents[target] != 0) continue;
                parents[target] = object;
                storage.setDepthToGcRoot(target, depth);
                next->push(nextSize, target);
            }
        }
        if (nextSize > maxFrontSize) maxFrontSize = nextSize;
        BigIntArray64* swapped = current;
        current = next;
        next = swapped;
        currentSize = nextSize;
        nextSize = 0;
    }
    ZString line("depth_to_gc_roots: maxFrontSize: ");
    line.appendLong(maxFrontSize);
    Logger::messageWithStats(line);
}

}  // namespace Reachability
