#include "analysis/NewDominatorSupport.h"

#include <memory>

#include "analysis/DominatorFiles.h"
#include "foundation/ZMap.h"
#include "services/Logger.h"

static inline bool isMarked(const int* bits, int object) {
    return (bits[object >> 5] >> (object & 31) & 1) != 0;
}

// Marked bits of one word, object 0 left out.
static inline uint32_t markedWord(const int* bits, int word, int size) {
    uint32_t value = (uint32_t)bits[word];
    if (word == 0) value &= ~1u;
    int end = size - word * 32;
    if (end < 32) value &= (1u << end) - 1;
    return value;
}

int NewDominatorSupport::countMarked(const int* markedBits, int size) {
    int words = (size + 31) >> 5;
    int64_t count = 0;
    for (int w = 0; w < words; w++) count += __builtin_popcount(markedWord(markedBits, w, size));
    return (int)count;
}

namespace {

// Compact numbers by rank: marked objects in the words before, plus those
// below in the same word.
class CompactNumbering {
public:
    CompactNumbering(const int* bits, int size) : myBits(bits), mySize(size), myRanks("ranks", ((size + 31) >> 5) + 1) {
        int words = (size + 31) >> 5;
        int* ranks = myRanks.getData();
        int rank = 0;
        for (int w = 0; w < words; w++) {
            ranks[w] = rank;
            rank += __builtin_popcount(markedWord(bits, w, size));
        }
        ranks[words] = rank;
        myCount = rank;
    }
    int getMarkedCount() const { return myCount; }
    // The compact number of a marked object; an object without one is fatal.
    int toCompact(int object) const {
        if (object <= 0 || object >= mySize || !isMarked(myBits, object)) failFatal("assertion failed", __FILE__, __LINE__);
        uint32_t below = markedWord(myBits, object >> 5, mySize) & ((1u << (object & 31)) - 1);
        return myRanks.getData()[object >> 5] + __builtin_popcount(below) + 1;
    }

private:
    const int* myBits;
    int mySize;
    BigIntArray64Presized myRanks;
    int myCount;
};

const int SMALL_REFERENCE_COUNT = 128;

}  // namespace

int NewDominatorSupport::createInputFile(const ZString& path, ObjectStorage* storage, const int* markedBits,
                                         const int* roots, int rootCount) {
    int size = storage->getSize();
    CompactNumbering numbering(markedBits, size);
    int nc = numbering.getMarkedCount() + 1;
    BigIntArray64Presized rootBits("root_bits", ((size + 31) >> 5) + 1);
    int* rootWords = rootBits.getData();
    for (int r = 0; r < rootCount; r++) {
        numbering.toCompact(roots[r]);  // a root must be marked
        rootWords[roots[r] >> 5] |= 1 << (roots[r] & 31);
    }

    IntFileWriter writer(path.c_str());
    if (!writer.isOpen()) {
        Logger::message("NewDominatorSupport::createInput: error: file could not be created");
        return -1;
    }
    writer.writeInt(nc);
    const RefTable& refs = storage->getRefs();
    ZVector<int, SMALL_REFERENCE_COUNT> small;
    ReferenceIterator iterator;
    int words = (size + 31) >> 5;
    for (int w = 0; w < words; w++) {
        for (uint32_t bits = markedWord(markedBits, w, size); bits != 0; bits &= bits - 1) {
            int object = w * 32 + __builtin_ctz(bits);
            int count = refs.getRefCount(object);
            refs.initReferenceIterator(iterator, object);
            if (count < SMALL_REFERENCE_COUNT) {
                small.clear();
                while (iterator.hasNext()) {
                    int target = iterator.next();
                    if (target == 0 || isMarked(rootWords, target) || small.contains(target)) continue;
                    small.push(target);
                }
                writer.writeInt(small.getSize());
                for (int k = 0; k < small.getSize(); k++) writer.writeInt(numbering.toCompact(small[k]));
            } else {
                ZSet<int> distinct(count);
                while (iterator.hasNext()) {
                    int target = iterator.next();
                    if (target == 0 || isMarked(rootWords, target)) continue;
                    distinct.add(target);
                }
                writer.writeInt(distinct.getSize());
                for (int slot = 0; slot < distinct.getCapacity(); slot++) {
                    if (distinct.isFull(slot)) writer.writeInt(numbering.toCompact(distinct.keyAt(slot)));
                }
            }
        }
    }
    writer.writeInt(rootCount);
    for (int r = 0; r < rootCount; r++) writer.writeInt(numbering.toCompact(roots[r]));
    if (!writer.close()) {
        Logger::message("NewDominatorSupport::createInput: error: file could not be created");
        return -1;
    }
    return nc;
}

bool NewDominatorSupport::readOutputFile(const ZString& path, ObjectStorage* storage, const int* markedBits, int nc) {
    int size = storage->getSize();
    int marked = countMarked(markedBits, size);
    if (nc == -1) nc = marked + 1;
    KZT_ASSERT(nc == marked + 1);
    FileReader reader(path.c_str());
    if (!reader.isOpen()) {
        Logger::message("NewDominatorSupport::read: error: file could not be opened");
        return false;
    }
    BigIntArray64Presized compactToObject("c2o", nc);
    int* c2o = compactToObject.getData();
    int words = (size + 31) >> 5;
    int compact = 1;
    for (int w = 0; w < words; w++) {
        for (uint32_t bits = markedWord(markedBits, w, size); bits != 0; bits &= bits - 1) {
            c2o[compact++] = w * 32 + __builtin_ctz(bits);
        }
    }
    int* dominators = storage->getInts().getData();
    for (int c = 1; c < nc; c++) {
        int32_t value;
        if (!reader.readIntLE(value)) {
            Logger::message("NewDominatorSupport::read: I/O error");
            return false;
        }
        if (value < 0 || value >= nc) {
            ZString line("NewDominatorSupport::read: error: bad input: ");
            line.appendLong(value);
            Logger::message(line);
            return false;
        }
        dominators[c2o[c]] = c2o[value];
    }
    return true;
}

bool computeDominators(ObjectStorage* storage, const int* markedBits, const int* roots, int rootCount,
                       const ZString& inputPath, const ZString& outputPath, bool reuseExisting,
                       const DominatorStepRunner& runner, ZString& toThrow) {
    Logger::messageWithStats(ZString("dc: 0"));
    if (reuseExisting) {
        Logger::messageWithStats(ZString("dc: reading existing file: ") + outputPath);
        if (NewDominatorSupport::readOutputFile(outputPath, storage, markedBits, -1)) {
            Logger::messageWithStats(ZString("dc: reading done"));
            return true;
        }
        Logger::messageWithStats(ZString("dc: existing file cannot be read - let's create .idom anew"));
    }
    Logger::messageWithStats(ZString("dc: input creation: starting...\n"));
    int nc = NewDominatorSupport::createInputFile(inputPath, storage, markedBits, roots, rootCount);
    ZString ended("dc: input creation: ended, NC=");
    ended.appendLong(nc);
    Logger::messageWithStats(ended);
    if (nc < 0) {
        toThrow = "dc: input file creation failed";
        return false;
    }
    Logger::messageWithStats(ZString("dc: runnable..."));
    ZString failure;
    DominatorStepRunner::Result result = runner.myRun(runner.myContext, failure);
    if (result == DominatorStepRunner::RUN_NOT_FOUND) {
        Logger::message("dc: run() not found");
        return false;
    }
    if (result == DominatorStepRunner::RUN_FAILED) {
        Logger::message(ZString("dc: runnable: failed: ") + failure);
        return false;
    }
    Logger::messageWithStats(ZString("dc: reading..."));
    if (!NewDominatorSupport::readOutputFile(outputPath, storage, markedBits, nc)) {
        Logger::message("dc: read error");
        toThrow = "dc: read error";
        return false;
    }
    Logger::messageWithStats(ZString("dc: reading done"));
    Logger::messageWithStats(ZString("dc: end"));
    return true;
}
