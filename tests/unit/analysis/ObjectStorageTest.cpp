// The object storage: columns and their fallbacks, the reference table with
// its extra entries, and the round trip through the files of the dominator
// step.
#include "analysis/NewDominatorSupport.h"
#include "analysis/ObjectStorage.h"
#include "foundation/Failure.h"
#include "unit/analysis/GraphSupport.h"

namespace {

TEST(ObjectStorage, CountMustBePositiveAndFit) {
    EXPECT_THROW(ObjectStorage(0), KZTRuntimeException);
    EXPECT_THROW(ObjectStorage(-3), KZTRuntimeException);
    EXPECT_TRUE(ObjectStorage::isTooLarge(0x3fffffff));
    EXPECT_FALSE(ObjectStorage::isTooLarge(0x3ffffffe));
    ObjectStorage storage(5);
    EXPECT_EQ(6, storage.getSize());
    EXPECT_THROW(storage.getDepthToGcRoot(6), KZTRuntimeException);
}

TEST(ObjectStorage, ColumnsReadTheirDefaultsAndKeepLargeValues) {
    ObjectStorage storage(3000000);
    EXPECT_EQ(-1, storage.getDepthToGcRoot(7));
    EXPECT_EQ(-1, storage.getArrayLength(2999999));
    EXPECT_EQ(0, storage.getGeneration(7));
    EXPECT_EQ(ZString("AL: elements=0 map=0\nDEPTHS: elements=0 map=0\n"), storage.getStatistics());

    // Zero generations make no column at all.
    storage.setGeneration(7, 0);
    EXPECT_EQ(ZString("AL: elements=0 map=0\nDEPTHS: elements=0 map=0\n"), storage.getStatistics());

    struct Case {
        const char* column;
        int value;
        int inMap;
    };
    // The element keeps value minus its default; its largest value marks the map.
    for (Case c : std::vector<Case>{{"depth", 0, 0},     {"depth", 253, 0},     {"depth", 254, 1},
                                     {"depth", 255, 1},   {"depth", 100000, 1},  {"depth", -5, 1},
                                     {"al", 253, 0},      {"al", 1 << 30, 1},    {"gen", 65534, 0},
                                     {"gen", 65535, 1},   {"gen", 1000000, 1},   {"gen", 3, 0}}) {
        ObjectStorage one(2100000);
        int object = 2097153;  // in the third block
        std::string column = c.column;
        if (column == "depth") one.setDepthToGcRoot(object, c.value);
        if (column == "al") one.setArrayLength(object, c.value);
        if (column == "gen") one.setGeneration(object, c.value);
        int back = column == "depth" ? one.getDepthToGcRoot(object)
                   : column == "al"  ? one.getArrayLength(object)
                                     : one.getGeneration(object);
        EXPECT_EQ(c.value, back) << c.column << " " << c.value;
        std::string stats = one.getStatistics().c_str();
        std::string name = column == "depth" ? "DEPTHS: " : column == "al" ? "AL: " : "GEN: ";
        std::string expected = name + "elements=3145728 map=" + std::to_string(c.inMap);
        EXPECT_NE(std::string::npos, stats.find(expected)) << stats;
        EXPECT_EQ(column == "depth" ? -1 : 0, column == "depth" ? one.getDepthToGcRoot(object - 1) : one.getGeneration(object - 1));
    }

    // A value that went to the map and comes back small leaves it.
    storage.setDepthToGcRoot(9, 400);
    storage.setDepthToGcRoot(9, 4);
    EXPECT_EQ(4, storage.getDepthToGcRoot(9));
    EXPECT_NE(std::string::npos, std::string(storage.getStatistics().c_str()).find("DEPTHS: elements=1048576 map=0"));
    // The plain columns (OIDs, positions, allocators, CRCs) keep large values
    // through the natives in the heap graph test.
}

TEST(RefTable, MainAreaExtraEntriesAndIterators) {
    CapturedLog log;
    // A main area of 0x100000 + 10 positions: the third object no longer fits.
    RefTable refs("t", 10, 0x100000 + 10);
    refs.createRefs(1, 0x100000 - 3);
    refs.createRefs(2, 8);  // across the first block's end
    refs.createRefs(3, 5);
    refs.createRefs(4, 2);
    EXPECT_EQ(1, refs.getExtraCount());
    EXPECT_TRUE(log.has("with extraRefs"));
    for (int k = 0; k < 8; k++) refs.setRef(2, k, 100 + k);
    EXPECT_EQ(0, refs.getRef(3, 4));  // an extra entry never written
    refs.setRef(3, 4, 7);
    EXPECT_EQ(7, refs.getRef(3, 4));
    EXPECT_EQ(0, refs.getRef(3, 0));
    EXPECT_EQ(0, refs.getRef(1, 5));  // a block never written

    std::vector<int> seen;
    ReferenceIterator iterator;
    refs.initReferenceIterator(iterator, 2);
    while (iterator.hasNext()) seen.push_back(iterator.next());
    EXPECT_EQ((std::vector<int>{100, 101, 102, 103, 104, 105, 106, 107}), seen);

    // A new count moves the object to a new, empty extra entry.
    refs.setNewRefCount(2, 3);
    EXPECT_EQ(3, refs.getRefCount(2));
    EXPECT_EQ(0, refs.getRef(2, 0));
    refs.setRef(2, 2, 9);
    refs.setNewRefCount(2, 1);
    EXPECT_EQ(0, refs.getRef(2, 0));
    EXPECT_THROW(refs.getRef(2, 1), KZTRuntimeException);
    EXPECT_EQ(2, refs.getExtraCount());

    std::string text = log.content();
    EXPECT_EQ(text.find("with extraRefs"), text.rfind("with extraRefs"));
    EXPECT_THROW(refs.createRefs(10, 1), KZTRuntimeException);
    BigIntArray64 column("x");
    EXPECT_THROW(column.set(-1, 1), KZTRuntimeException);
    EXPECT_EQ(0, column.get(-1));
}

// ---- The files of the dominator step, from a storage ----

class DominatorFilesTest : public ::testing::Test {
protected:
    // Objects 1 to 9; 8 is not marked, 9 is marked but a root.
    void SetUp() override {
        auto refsOf = [&](int object, std::vector<int> targets) { setRefs(storage.getRefs(), object, targets); };
        refsOf(1, {3, 0, 2, 3, 9, 5});
        refsOf(2, {});
        refsOf(3, {4});
        refsOf(4, {6, 6});
        refsOf(9, {1, 7});
        refsOf(6, {7});
        for (int object : {1, 2, 3, 4, 5, 6, 7, 9}) bits[object >> 5] |= 1 << (object & 31);
    }

    ScratchFolder folder;
    ObjectStorage storage{9};
    int bits[1] = {0};
    int roots[2] = {1, 9};
};

TEST_F(DominatorFilesTest, InputFileIsCompactAndDistinct) {
    std::string in = folder.file("in");
    EXPECT_EQ(9, NewDominatorSupport::createInputFile(ZString(in.c_str()), &storage, bits, roots, 2));
    // Compact numbers: 1..7 for objects 1..7, 8 for object 9.
    // Compact numbers 1 to 7 for objects 1 to 7, 8 for object 9. Object 1
    // loses its null, its repeat and its root; 4 its repeat; 9 its root.
    std::vector<int32_t> ints = readInts(in);
    std::vector<int32_t> expected{9, 3, 3, 2, 5, 0, 1, 4, 1, 6, 0, 1, 7, 0, 1, 7, 2, 1, 8};
    EXPECT_EQ(expected, ints);

    EXPECT_EQ(-1, NewDominatorSupport::createInputFile(ZString("/nonexistent/in"), &storage, bits, roots, 2));
    int unmarkedRoot[1] = {8};
    EXPECT_THROW(NewDominatorSupport::createInputFile(ZString(in.c_str()), &storage, bits, unmarkedRoot, 1),
                 KZTRuntimeException);
    bits[0] &= ~(1 << 7);  // object 7 is referred to but not marked
    EXPECT_THROW(NewDominatorSupport::createInputFile(ZString(in.c_str()), &storage, bits, roots, 2),
                 KZTRuntimeException);
}

TEST_F(DominatorFilesTest, ManyReferencesGiveTheSameResult) {
    // 127 references keep their order; 128 go through a hash set.
    for (int count : {127, 128, 400}) {
        ObjectStorage wide(count + 2);
        wide.getRefs().createRefs(1, count);
        std::vector<int> wideBits((count + 3 + 31) / 32, 0);
        for (int k = 0; k < count; k++) wide.getRefs().setRef(1, k, 2 + (k * 7) % count);
        for (int object = 1; object < count + 2; object++) wideBits[object >> 5] |= 1 << (object & 31);
        int root = 1;
        std::string in = folder.file("wide.in"), out = folder.file("wide.out");
        ASSERT_EQ(count + 2, NewDominatorSupport::createInputFile(ZString(in.c_str()), &wide, wideBits.data(), &root, 1));
        std::vector<int32_t> ints = readInts(in);
        ASSERT_EQ(count, ints[1]);
        std::vector<int> targets(ints.begin() + 2, ints.begin() + 2 + count);
        if (count < 128) {
            for (int k = 0; k < count; k++) EXPECT_EQ(2 + (k * 7) % count, targets[k]);
        }
        std::sort(targets.begin(), targets.end());
        for (int k = 0; k < count; k++) EXPECT_EQ(k + 2, targets[k]);
        ASSERT_TRUE(dcImpl(ZString(in.c_str()), ZString(out.c_str()), ZString(""), ZString("snca")));
        ASSERT_TRUE(NewDominatorSupport::readOutputFile(ZString(out.c_str()), &wide, wideBits.data(), -1));
        for (int object = 2; object < count + 2; object++) EXPECT_EQ(1, wide.getInts().get(object));
        EXPECT_EQ(0, wide.getInts().get(1));
    }
}

DominatorStepRunner::Result runDc(void* context, ZString&) {
    const std::string* paths = (const std::string*)context;
    return dcImpl(ZString(paths[0].c_str()), ZString(paths[1].c_str()), ZString(""), ZString("low_mem"))
               ? DominatorStepRunner::RUN_OK
               : DominatorStepRunner::RUN_FAILED;
}

DominatorStepRunner::Result failingRun(void*, ZString& failure) {
    failure = "java.lang.IllegalStateException: no";
    return DominatorStepRunner::RUN_FAILED;
}

TEST_F(DominatorFilesTest, DriverComputesReadsAndReuses) {
    CapturedLog log;
    std::string paths[2] = {folder.file("in"), folder.file("out")};
    DominatorStepRunner runner = {runDc, paths};
    ZString toThrow;
    ASSERT_TRUE(computeDominators(&storage, bits, roots, 2, ZString(paths[0].c_str()), ZString(paths[1].c_str()),
                                  true, runner, toThrow));
    EXPECT_TRUE(toThrow.isEmpty());
    // 1 and 9 are roots; 3 only through 1; 7 from 6 and from root 9.
    std::vector<int> expected{0, 0, 1, 1, 3, 1, 4, 0, 0, 0};
    for (int object = 1; object <= 9; object++) {
        if (object != 8) {
            EXPECT_EQ(expected[object], storage.getInts().get(object)) << object;
        }
    }
    for (const char* line : {"dc: 0", "dc: reading existing file: ", "NewDominatorSupport::read: error: file could not be opened",
                             "dc: existing file cannot be read - let's create .idom anew",
                             "dc: input creation: starting...\n", "dc: input creation: ended, NC=9", "dc: runnable...",
                             "dc: reading...", "dc: reading done", "dc: end"}) {
        EXPECT_TRUE(log.has(line)) << line;
    }

    // A sound existing file is used as it is; a short one is computed anew.
    storage.getInts().set(3, 77);
    DominatorStepRunner failing = {failingRun, nullptr};
    EXPECT_TRUE(computeDominators(&storage, bits, roots, 2, ZString(paths[0].c_str()), ZString(paths[1].c_str()),
                                  true, failing, toThrow));
    EXPECT_EQ(1, storage.getInts().get(3));
    std::vector<int32_t> result = readInts(paths[1]);
    result.pop_back();
    writeInts(paths[1], result);
    EXPECT_FALSE(computeDominators(&storage, bits, roots, 2, ZString(paths[0].c_str()), ZString(paths[1].c_str()),
                                   true, failing, toThrow));
    EXPECT_TRUE(log.has("NewDominatorSupport::read: I/O error"));
    EXPECT_TRUE(log.has("dc: runnable: failed: java.lang.IllegalStateException: no"));
    EXPECT_TRUE(toThrow.isEmpty());

    // Bad values in the output file.
    writeInts(paths[1], {0, 1, 1, 3, 1, 4, 9, 0});
    EXPECT_FALSE(NewDominatorSupport::readOutputFile(ZString(paths[1].c_str()), &storage, bits, 9));
    EXPECT_TRUE(log.has("NewDominatorSupport::read: error: bad input: 9"));

    // A step that writes nothing is the heap graph test's; here the input that cannot be made.
    DominatorStepRunner nothing = {[](void*, ZString&) { return DominatorStepRunner::RUN_OK; }, nullptr};
    EXPECT_FALSE(computeDominators(&storage, bits, roots, 2, ZString("/nonexistent/in"), ZString(paths[1].c_str()),
                                   false, nothing, toThrow));
    EXPECT_EQ(ZString("dc: input file creation failed"), toThrow);
    EXPECT_TRUE(log.has("NewDominatorSupport::createInput: error: file could not be created"));
}

}  // namespace
