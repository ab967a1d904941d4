// The dominator step seen from the object storage: the reachable graph goes
// out to an input file in a compact numbering, the `dc` step computes the
// immediate dominators from that file into an output file, and the result
// comes back into the storage's int column ("i"), as object ids.
//
// Compact numbering: the objects marked in a bit set (bit i & 31 of word
// i >> 5) numbered from 1 in ascending object id; 0 is the virtual root.
// Both files hold ints of 32 bits, least significant byte first, no header.
//   input:  NC; per compact node 1 to NC - 1 its distinct reference count
//           and targets; the root count and the roots
//   output: per compact node 1 to NC - 1 its immediate dominator, 0 for the
//           virtual root
#pragma once

#include "analysis/ObjectStorage.h"
#include "foundation/ZString.h"

class NewDominatorSupport {
public:
    // Returns NC, or -1 when the file cannot be written. `markedBits` covers
    // every object of the storage.
    static int createInputFile(const ZString& path, ObjectStorage* storage, const int* markedBits, const int* roots,
                               int rootCount);
    // NC -1: counted from the bits. False, with a log line, for a file that
    // cannot be opened, holds a bad value, or ends too early.
    static bool readOutputFile(const ZString& path, ObjectStorage* storage, const int* markedBits, int nc);

    // The count of marked objects (object 0 never counts).
    static int countMarked(const int* markedBits, int size);
};

// The `dc` step: reads the input file, computes with "snca" or "low_mem", and
// writes the output file. `folder` takes the temporary files of "low_mem"
// (empty: the temporary folder). False, with a log line, on any failure.
bool dcImpl(const ZString& inputPath, const ZString& outputPath, const ZString& folder, const ZString& algorithm);

// Runs the `dc` step for the driver, in whatever process the UI chooses.
struct DominatorStepRunner {
    enum Result { RUN_OK, RUN_FAILED, RUN_NOT_FOUND };
    // `failure` takes the message of a failed run.
    Result (*myRun)(void* context, ZString& failure);
    void* myContext;
};

// The driver: reuses an existing output file when asked and it is sound;
// otherwise writes the input file, runs the step and reads its output.
// True when the dominators are in the storage. `toThrow` receives a text for
// the caller to raise, when there is one.
bool computeDominators(ObjectStorage* storage, const int* markedBits, const int* roots, int rootCount,
                       const ZString& inputPath, const ZString& outputPath, bool reuseExisting,
                       const DominatorStepRunner& runner, ZString& toThrow);
