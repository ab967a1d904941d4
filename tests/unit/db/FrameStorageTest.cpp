// Code points, methods, the shared frame tree, the thread frame index and the
// private node trees.
#include "db/ZNodeTree.h"
#include "db/ThreadFrameIndex.h"
#include "db/ZFrameStorage.h"
#include "db/CodePointStorage.h"
#include "unit/DBTestSupport.h"

TEST_F(DBTest, CodePointsPackWhereTheyFitAndUseTheTableElsewhere) {
    EXPECT_EQ(5, CodePointStorage::getCodePoint(lock, 5, 0));
    EXPECT_EQ(5, CodePointStorage::getCodePoint(lock, 5, -3));
    int packed = CodePointStorage::getCodePoint(lock, 5, 2047);
    EXPECT_EQ((int)(0xC0000000u | (2047u << 19) | 5u), packed);
    EXPECT_EQ(5, CodePointStorage::getMethod(packed));
    EXPECT_EQ(2047, CodePointStorage::getLine(packed));
    int widest = CodePointStorage::getCodePoint(lock, 0x7ffff, 1);
    EXPECT_EQ(0x7ffff, CodePointStorage::getMethod(widest));
    EXPECT_EQ(1, CodePointStorage::getLine(widest));

    int rows = db->getCodePointTable()->peekNextIndex();
    struct Case {
        int method;
        int line;
    } tableCases[] = {{5, 2048}, {0x80000, 1}, {0, 0}, {7, 100000}};
    for (const Case& c : tableCases) {
        int point = CodePointStorage::getCodePoint(lock, c.method, c.line);
        EXPECT_NE(0u, (uint32_t)point & 0x80000000u) << c.method << ":" << c.line;
        EXPECT_EQ(0u, (uint32_t)point & 0x40000000u);
        EXPECT_EQ(c.method, CodePointStorage::getMethod(point));
        EXPECT_EQ(c.line, CodePointStorage::getLine(point));
        EXPECT_EQ(point, CodePointStorage::getCodePoint(lock, c.method, c.line));  // one row a pair
        EXPECT_EQ(1, db->getCodePointTable()->getRecordModificationStamp(point & 0x7fffffff));
    }
    EXPECT_EQ(rows + 4, db->getCodePointTable()->peekNextIndex());
    // The lock-free encoder refuses exactly what needs a row.
    EXPECT_EQ(0, CodePointStorage::tryEncodeWithoutTable(5, 2048));
    EXPECT_EQ(0, CodePointStorage::tryEncodeWithoutTable(0, 0));
    EXPECT_EQ(9, CodePointStorage::tryEncodeWithoutTable(9, 0));
}

TEST_F(DBTest, MethodsAreInternedWithFlagsAndPagedIndices) {
    int a = ZMethod::getByName(lock, "p.A", "run", "()", "void", "A.java", false);
    EXPECT_EQ(a, ZMethod::getByName(lock, "p.A", "run", "()", "void", "A.java", false));
    EXPECT_NE(a, ZMethod::getByName(lock, "p.A", "run", "()", "void", "B.java", false));
    EXPECT_EQ(0, ZMethod::getFlags(a));

    EXPECT_EQ(METHOD_FLAG_INVISIBLE, ZMethod::getFlags(method("x", "com.corvane.runtime.Callback")));
    EXPECT_EQ(METHOD_FLAG_INVISIBLE, ZMethod::getFlags(method("$$KZT$$read")));
    EXPECT_EQ(METHOD_FLAG_NATIVE, ZMethod::getFlags(ZMethod::getByName(lock, "p.A", "n", "()", "void", "", true)));
    for (const char* name : {"onEnter", "onEnterImpl", "onExit", "onReturn", "onReturnImpl", "onUncaughtException"})
        EXPECT_EQ(METHOD_FLAG_PROBE_CALLBACK, ZMethod::getFlags(method(name))) << name;
    EXPECT_EQ(0, ZMethod::getFlags(method("onEntering")));
    EXPECT_EQ(METHOD_FLAG_NEVER_EXCLUDED, ZMethod::getFlags(method("invokeAll")));
    EXPECT_EQ(METHOD_FLAG_NEVER_EXCLUDED, ZMethod::getFlags(method("dispatchEvent")));

    // Pseudo constructors count from page 1; the others filled page 0 from 1.
    int firstInit = ZMethod::getByName(lock, "p.A", "<<init>>", "()", "void", "", false);
    EXPECT_EQ(4096, firstInit);
    int last = 0;
    for (int i = 0; last < 4095; i++) last = method(("m" + std::to_string(i)).c_str());
    EXPECT_EQ(4095, last);
    // A full page takes the next page number from the counter both families share.
    EXPECT_EQ(2 * 4096, method("next page"));
    for (int i = 1; i < 4096; i++) {
        EXPECT_EQ(4096 + i, ZMethod::getByName(lock, ("c" + std::to_string(i)).c_str(), "<<init>>", "()", "void", "",
                                               false));
    }
    EXPECT_EQ(3 * 4096, ZMethod::getByName(lock, "p.Z", "<<init>>", "()", "void", "", false));
    EXPECT_EQ(2 * 4096 + 1, method("after"));
}

static int ourFilterCalls = 0;
static void wallTimeFilter(const LockHolder&, int method, MethodRecord* record) {
    ourFilterCalls++;
    record->myFlags |= METHOD_FLAG_WALL_TIME;
}

TEST_F(DBTest, NewMethodsPassTheFilters) {
    ZMethod::ourApplyFilters = wallTimeFilter;
    int m = method("filtered");
    method("filtered");
    ZMethod::ourApplyFilters = nullptr;
    EXPECT_EQ(1, ourFilterCalls);
    EXPECT_EQ(METHOD_FLAG_WALL_TIME, ZMethod::getFlags(m));
}

TEST_F(DBTest, FramesAreFoundByCodePointAndLinkedAsSiblings) {
    int a = method("a");
    int b = method("b");
    db->advanceGeneration();
    int g = db->getCurrentGeneration();
    int fa = ZFrameStorage::getChild(lock, 0, a, 0);
    EXPECT_EQ(fa, ZFrameStorage::getChild(lock, 0, a, 0));
    int fb10 = ZFrameStorage::getChild(lock, fa, b, 10);
    int fb11 = ZFrameStorage::getChild(lock, fa, b, 11);
    EXPECT_NE(fb10, fb11);  // two call lines, two frames
    EXPECT_EQ(fb10, ZFrameStorage::getChild(lock, fa, b, 10));

    // Stamp, parent, code point, first child, next sibling.
    auto row = [&](int frame) {
        FrameRecord* r = db->getFrameTable()->getPtr(frame, false);
        return std::vector<int>{r->myStamp, r->myParent, r->myCodePoint, r->myFirstChild, r->myNextSibling};
    };
    EXPECT_EQ((std::vector<int>{g, 0, a, fb10, -1}), row(fa));
    EXPECT_EQ((std::vector<int>{g, fa, CodePointStorage::getCodePoint(lock, b, 10), -1, fb11}), row(fb10));
    EXPECT_EQ((std::vector<int>{g, fa, CodePointStorage::getCodePoint(lock, b, 11), -1, -1}), row(fb11));
    EXPECT_EQ(b, ZFrameStorage::getMethodByFrame(fb11));
    EXPECT_EQ(11, CodePointStorage::getLine(row(fb11)[2]));

    // Later lookups change nothing.
    int since = db->getCurrentGeneration();
    db->advanceGeneration();
    ZFrameStorage::getChild(lock, fa, b, 11);
    EXPECT_EQ(0, StreamReader(writeTable(db->getFrameTable(), since)).readInt());
}

TEST_F(DBTest, ManyChildrenAndDeepPathsStayConsistent) {
    const int children = 3000;
    int parent = ZFrameStorage::getChild(lock, 0, method("root"), 0);
    std::vector<int> frames;
    for (int i = 0; i < children; i++) frames.push_back(ZFrameStorage::getChild(lock, parent, method("c"), i + 1));
    for (int i = children - 1; i >= 0; i -= 7) EXPECT_EQ(frames[i], ZFrameStorage::getChild(lock, parent, method("c"), i + 1));
    // The child list holds each child once, in creation order.
    int count = 0;
    for (int f = db->getFrameTable()->getPtr(parent, false)->myFirstChild; f != -1;
         f = db->getFrameTable()->getPtr(f, false)->myNextSibling) {
        ASSERT_LT(count, children);
        EXPECT_EQ(frames[count++], f);
    }
    EXPECT_EQ(children, count);

    const int depth = 20000;
    int deep = 0;
    std::vector<int> path;
    int m = method("recursive");
    for (int i = 0; i < depth; i++) path.push_back(deep = ZFrameStorage::getChild(lock, deep, m, i % 3));
    int walked = 0;
    for (int f = deep; f > 0; f = ZFrameStorage::getParent(f)) EXPECT_EQ(path[depth - 1 - walked++], f);
    EXPECT_EQ(depth, walked);
    // Walking the same path again finds every frame and makes none.
    int next = db->getFrameTable()->peekNextIndex();
    deep = 0;
    for (int i = 0; i < depth; i++) deep = ZFrameStorage::getChild(lock, deep, m, i % 3);
    EXPECT_EQ(path.back(), deep);
    EXPECT_EQ(next, db->getFrameTable()->peekNextIndex());
}

TEST_F(DBTest, RecursionAndProbeCallbackFramesAreRecognised) {
    int app = method("app");
    int other = method("other");
    int fApp = ZFrameStorage::getChild(lock, 0, app, 0);
    int fOther = ZFrameStorage::getChild(lock, fApp, other, 3);
    int fAppAgain = ZFrameStorage::getChild(lock, fOther, app, 4);
    EXPECT_FALSE(ZFrameStorage::isRecursive(lock, fApp));
    EXPECT_FALSE(ZFrameStorage::isRecursive(lock, fOther));
    EXPECT_TRUE(ZFrameStorage::isRecursive(lock, fAppAgain));
    EXPECT_FALSE(ZFrameStorage::isRecursive(lock, 0));

    int fEnter = ZFrameStorage::getChild(lock, fOther, method("onEnter"), 5);
    int fExit = ZFrameStorage::getChild(lock, fEnter, method("onExit"), 6);
    int fHelper = ZFrameStorage::getChild(lock, fExit, method("helper"), 7);
    EXPECT_EQ(fOther, ZFrameStorage::findInstrumentedMethod(lock, fExit));
    EXPECT_EQ(fOther, ZFrameStorage::findInstrumentedMethod(lock, fHelper));
    EXPECT_EQ(fAppAgain, ZFrameStorage::findInstrumentedMethod(lock, fAppAgain));
    EXPECT_EQ(0, ZFrameStorage::findInstrumentedMethod(lock, 0));
    int fTopCallback = ZFrameStorage::getChild(lock, 0, method("onReturn"), 0);
    EXPECT_EQ(0, ZFrameStorage::findInstrumentedMethod(lock, ZFrameStorage::getChild(lock, fTopCallback, app, 1)));
}

TEST_F(DBTest, DescriptionsNameMethodsAndStacks) {
    int run = ZMethod::getByName(lock, "p.Main", "run", "(int)", "void", "", false);
    int fRun = ZFrameStorage::getChild(lock, 0, run, 0);
    int fInner = ZFrameStorage::getChild(lock, fRun, 999999, 0);  // a method without a record
    EXPECT_EQ(ZString("method #") + ZString::fromLong(run) + ": p.Main.run(int)",
              ZFrameStorage::getMethodDescription(lock, run));
    EXPECT_EQ(ZString("method #999999: <no class>.<no name><no params>"),
              ZFrameStorage::getMethodDescriptionByFrame(lock, fInner));
    EXPECT_EQ("stack for frame " + std::to_string(fInner) + ":\n #999999 <no class>.<no name><no params>\n #" +
                  std::to_string(run) + " p.Main.run(int)",
              std::string(ZFrameStorage::getStackTraceByFrame(lock, fInner).c_str()));
}

TEST_F(DBTest, ThreadFrameIndexMapsPairsAndMergesFinishedThreads) {
    ThreadFrameIndex* tfi = db->getThreadFrameIndex();
    EXPECT_EQ(-1, tfi->getTFI(lock, 2, 10, false));
    int i10 = tfi->getTFI(lock, 2, 10, true);
    int i700 = tfi->getTFI(lock, 2, 700, true);
    int oldest10 = tfi->getTFI(lock, 1, 10, true);
    EXPECT_EQ(i10, tfi->getTFI(lock, 2, 10, true));
    EXPECT_EQ(i10, tfi->getTFI(lock, 2, 10, false));
    // Stamp, thread, frame.
    auto row = [&](int index) {
        ThreadFrameRecord* r = db->getThreadFrameTable()->getPtr(index, false);
        return std::vector<int>{r->myStamp, r->myTFIIndex, r->myFrame};
    };
    EXPECT_EQ((std::vector<int>{1, 2, 700}), row(i700));

    *db->getCpuProfilingTable()->getPtr(i10, true) = CpuProfilingRecord{1, 100, 1};
    *db->getCpuProfilingTable()->getPtr(i700, true) = CpuProfilingRecord{1, 7, 7};
    *db->getCpuProfilingTable()->getPtr(oldest10, true) = CpuProfilingRecord{1, 5, 2};
    *db->getAllocInfoTable()->getPtr(i700, true) = AllocInfoRecord{1, 3, 300, 99};
    db->advanceGeneration();
    int g = db->getCurrentGeneration();
    tfi->changeThread(lock, 2, 1);

    auto cpu = [&](int index) {
        CpuProfilingRecord* r = db->getCpuProfilingTable()->getPtr(index, false);
        return std::vector<int64_t>{r->myStamp, r->myTime, r->myInvocations};
    };
    EXPECT_EQ((std::vector<int64_t>{g, 105, 3}), cpu(oldest10));
    // Frame 10 went first and released its index, which the merged row of
    // frame 700 then took (the pool is last-in first-out).
    int oldest700 = tfi->getTFI(lock, 1, 700, false);
    EXPECT_EQ(i10, oldest700);
    EXPECT_EQ((std::vector<int>{g, 1, 700}), row(oldest700));
    EXPECT_EQ((std::vector<int64_t>{g, 7, 7}), cpu(oldest700));
    AllocInfoRecord* alloc = db->getAllocInfoTable()->getPtr(oldest700, false);
    EXPECT_EQ((std::vector<int64_t>{3, 300, 0}),
              (std::vector<int64_t>{alloc->myObjectCount, alloc->mySize, alloc->mySummedAge}));
    // The thread's own rows are deleted and stay in the stream; its map is gone.
    EXPECT_EQ(-1, tfi->getTFI(lock, 2, 10, false));
    EXPECT_EQ(-g, db->getThreadFrameTable()->getRecordModificationStamp(i700));
    EXPECT_EQ(-g, db->getCpuProfilingTable()->getRecordModificationStamp(i700));
    EXPECT_EQ(-g, db->getAllocInfoTable()->getRecordModificationStamp(i700));
    EXPECT_EQ(i700, tfi->getTFI(lock, 3, 1, true));

    EXPECT_GT(tfi->getAllocatedBytes(), 0);
    tfi->clearThreadFrameIndex();
    EXPECT_EQ(-1, tfi->getTFI(lock, 1, 10, false));
}

TEST_F(DBTest, NodeTreesKeepSiblingsCloseAndGrow) {
    ZNodeTree tree;
    int a = tree.getChildNode(0, 101);
    EXPECT_EQ(1, a);
    EXPECT_EQ(4, tree.getChildNode(a, 201));   // fresh cursor steps by three
    EXPECT_EQ(3, tree.getChildNode(0, 102));   // the highest free slot beside the first child
    EXPECT_EQ(7, tree.getChildNode(0, 103));   // beyond first child + 2: fresh again
    EXPECT_EQ(3, tree.getChildNode(0, 102));
    EXPECT_EQ(0, tree.getNodeParent(7));
    EXPECT_EQ(103, tree.getNodeCodePoint(7));

    // A long chain fills the fresh slots, then the gaps, then grows.
    std::vector<int> chain;
    int node = 0;
    for (int i = 0; i < 20000; i++) chain.push_back(node = tree.getChildNode(node, 1000 + i));
    EXPECT_GT(tree.getCapacity(), ZNodeTree::INITIAL_CAPACITY);
    EXPECT_EQ((tree.getCapacity() - ZNodeTree::INITIAL_CAPACITY) % ZNodeTree::CAPACITY_STEP, 0);
    for (int i = 19999; i > 0; i--) {
        ASSERT_EQ(chain[i - 1], tree.getNodeParent(chain[i]));
        ASSERT_EQ(1000 + i, tree.getNodeCodePoint(chain[i]));
    }
    node = 0;
    for (int i = 0; i < 20000; i++) node = tree.getChildNode(node, 1000 + i);
    EXPECT_EQ(chain.back(), node);
    EXPECT_EQ(101, tree.getNodeCodePoint(a));

    // Code points: packed ones directly, table ones through the shared storage.
    EXPECT_EQ(CodePointStorage::getCodePoint(lock, 5, 7), tree.getCodePoint(5, 7));
    int tablePoint = tree.getCodePoint(5, 5000);
    EXPECT_EQ(tablePoint, CodePointStorage::getCodePoint(lock, 5, 5000));
    EXPECT_EQ(tablePoint, tree.getCodePoint(5, 5000));

    int vmStart = tree.getVmStartNode();
    EXPECT_EQ(vmStart, tree.getVmStartNode());
    EXPECT_EQ(0, tree.getNodeParent(vmStart));
    EXPECT_EQ(".<Objects allocated during JVM startup> void []",
              describe(CodePointStorage::getMethod(tree.getNodeCodePoint(vmStart))));
    EXPECT_NE(vmStart, tree.getUnknownAllocatorNode());

    EXPECT_EQ(a, tree.tryGetOwnLineChildNode(a, 0));
    EXPECT_EQ(0, tree.tryGetOwnLineChildNode(0, 5));
    int own = tree.tryGetOwnLineChildNode(a, 12);
    EXPECT_EQ(a, tree.getNodeParent(own));
    EXPECT_EQ(ownLineNumberMethod, CodePointStorage::getMethod(tree.getNodeCodePoint(own)));
    EXPECT_EQ(12, CodePointStorage::getLine(tree.getNodeCodePoint(own)));
}
