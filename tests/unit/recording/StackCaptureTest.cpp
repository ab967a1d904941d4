// Methods, lines and stacks as read from the JVM, against a scripted JVMTI.
#include <string>
#include <utility>

#include "recording/StackCapture.h"
#include "unit/DBTestSupport.h"
#include "unit/ScriptedJvmti.h"

namespace {

class StackCaptureTest : public DBTest {
protected:
    void SetUp() override {
        DBTest::SetUp();
        StackCapture::resetForTests();
    }
    jmethodID define(intptr_t k, ScriptedMethod m) { return jvmti.define(k, std::move(m)); }
    // A method of class p.C whose line at location L is 100 + L / 10.
    jmethodID plain(intptr_t k, const std::string& name, const std::string& className = "Lp/C;") {
        return define(k, {name, "()V", className, "C.java", false, {{0, 100}, {10, 101}, {20, 102}, {30, 103}}});
    }
    void push(jmethodID id, jlocation location) { jvmti.push(id, location); }
    int methodOf(jmethodID id) { return StackCapture::getMethodById(lock, nullptr, id); }
    // The (method, line) pairs of a frame's path, root first.
    std::vector<std::pair<int, int>> path(int frame) {
        std::vector<std::pair<int, int>> result;
        for (int f = frame; f > 0; f = ZFrameStorage::getParent(f)) {
            int point = db->getFrameTable()->getPtr(f, false)->myCodePoint;
            result.insert(result.begin(), {CodePointStorage::getMethod(point), CodePointStorage::getLine(point)});
        }
        return result;
    }
    std::vector<std::pair<int, int>> nodePath(ZNodeTree& tree, int node) {
        std::vector<std::pair<int, int>> result;
        for (int n = node; n > 0; n = tree.getNodeParent(n)) {
            int point = tree.getNodeCodePoint(n);
            result.insert(result.begin(), {CodePointStorage::getMethod(point), CodePointStorage::getLine(point)});
        }
        return result;
    }
    ScriptedJvmti jvmti;
};

}  // namespace

TEST_F(StackCaptureTest, MethodsAreNamedFromTheirDescriptors) {
    jmethodID id = define(1, {"parse", "(ILjava/lang/String;[[J)[Ljava/lang/Object;", "Lcom/acme/Parser;", "Parser.java",
                              true, {}});
    int m = methodOf(id);
    MethodRecord* record = db->getMethodTable()->getPtr(m, false);
    EXPECT_EQ("parse", text(record->myName));
    EXPECT_EQ("(int, java.lang.String, long[][])", text(record->myParameters));
    EXPECT_EQ("java.lang.Object[]", text(record->myReturnType));
    EXPECT_EQ("com.acme.Parser", text(record->myClass));
    EXPECT_EQ("Parser.java", text(record->mySourceFile));
    EXPECT_EQ(METHOD_FLAG_NATIVE, record->myFlags);
    EXPECT_EQ(m, methodOf(id));
    EXPECT_THROW(methodOf(nullptr), KZTRuntimeException);

    // Lambda classes of one site fold together, with the decimal tail of
    // older JVMs and the hexadecimal one of hidden classes; a name without
    // such a tail stays as it is.
    intptr_t key = 2;
    auto run = [&](const char* cls) { return methodOf(define(key++, {"run", "()V", cls, "", false, {}})); };
    int l1 = run("LFoo$$Lambda$12/345;");
    for (const char* same : {"LFoo$$Lambda$12/678;", "LFoo$$Lambda$12;", "LFoo$$Lambda$12/0x0000000800c03000;"}) {
        EXPECT_EQ(l1, run(same)) << same;
    }
    int l5 = run("LFoo$$Lambda$12/0xzz;");
    EXPECT_NE(l1, l5);
    EXPECT_EQ("Foo$$Lambda$12", text(db->getMethodTable()->getPtr(l1, false)->myClass));
    EXPECT_EQ("", text(db->getMethodTable()->getPtr(l1, false)->mySourceFile));
    EXPECT_EQ("Foo$$Lambda$12.0xzz", text(db->getMethodTable()->getPtr(l5, false)->myClass));
    EXPECT_EQ("()", text(db->getMethodTable()->getPtr(l5, false)->myParameters));
}

TEST_F(StackCaptureTest, LinesComeFromTheTableAndAreCached) {
    jmethodID id = plain(1, "m");
    int m = methodOf(id);
    EXPECT_EQ(101, StackCapture::getLineNumber(lock, id, m, 15));
    EXPECT_EQ(103, StackCapture::getLineNumber(lock, id, m, 1000));
    EXPECT_EQ(100, StackCapture::getLineNumber(lock, id, m, 0));
    EXPECT_EQ(3, jvmti.lineTableCalls);
    EXPECT_EQ(101, StackCapture::getLineNumber(lock, id, m, 15));
    EXPECT_EQ(0, StackCapture::getLineNumber(lock, id, m, -1));
    EXPECT_EQ(3, jvmti.lineTableCalls);

    // A lineless location is remembered as such.
    jmethodID lineless = define(2, {"n", "()V", "Lp/C;", "", false, {}});
    int n = methodOf(lineless);
    EXPECT_EQ(0, StackCapture::getLineNumber(lock, lineless, n, 4));
    EXPECT_EQ(0, StackCapture::getLineNumber(lock, lineless, n, 4));
    EXPECT_EQ(4, jvmti.lineTableCalls);
    // Before the first entry there is no line.
    jmethodID late = define(3, {"o", "()V", "Lp/C;", "", false, {{5, 50}}});
    EXPECT_EQ(0, StackCapture::getLineNumber(lock, late, methodOf(late), 2));
}

TEST_F(StackCaptureTest, SampledStacksPlaceCallsAtTheCallersLine) {
    jmethodID a = plain(1, "a");
    jmethodID callback = plain(2, "hook", "Lcom/corvane/runtime/Callback;");
    jmethodID b = plain(3, "b");
    jmethodID c = plain(4, "c");
    push(c, 30);         // line 103, the top
    push(b, 20);         // line 102
    push(callback, 0);   // invisible: skipped
    push(a, 10);         // line 101, the bottom
    jvmtiStackInfo info = jvmti.stackInfo();
    int frame = StackCapture::fillCurrentFrameJVMTIForSampling(lock, nullptr, info);
    std::vector<std::pair<int, int>> expected = {
        {methodOf(a), 0}, {methodOf(b), 101}, {methodOf(c), 102}, {ownLineNumberMethod, 103}};
    EXPECT_EQ(expected, path(frame));
    EXPECT_EQ(frame, StackCapture::fillCurrentFrameJVMTIForSampling(lock, nullptr, info));

    // Roots skip nothing.
    std::vector<std::pair<int, int>> roots = {{methodOf(a), 0},
                                              {methodOf(callback), 101},
                                              {methodOf(b), 100},
                                              {methodOf(c), 102},
                                              {ownLineNumberMethod, 103}};
    EXPECT_EQ(roots, path(StackCapture::fillCurrentFrameJvmtiForRoots(lock, nullptr, info)));

    // Asynchronous frames with a null method are left out.
    AsyncCallFrame async[] = {{30, c}, {0, nullptr}, {10, a}};
    std::vector<std::pair<int, int>> asyncPath = {{methodOf(a), 0}, {methodOf(c), 101}, {ownLineNumberMethod, 103}};
    EXPECT_EQ(asyncPath, path(StackCapture::fillCurrentFrameForAsyncSampling(lock, nullptr, 3, async)));
    // An empty stack is the root.
    EXPECT_EQ(0, StackCapture::fillCurrentFrameForAsyncSampling(lock, nullptr, 0, async));
}

TEST_F(StackCaptureTest, NodeTreesMirrorStacksWithTheirOwnCaches) {
    jmethodID a = plain(1, "a");
    jmethodID hidden = plain(2, "$$KZT$$read");
    jmethodID b = plain(3, "b");
    push(b, 20);
    push(hidden, 0);
    push(a, 10);
    ZNodeTree tree;
    NodeStackCapture capture(&tree);
    int lastLine = -1;
    int node = capture.fillCurrentNodeJvmti_notForTracing_noOwnLine(nullptr, &lastLine);
    EXPECT_EQ(102, lastLine);
    std::vector<std::pair<int, int>> expected = {{methodOf(a), 0}, {methodOf(b), 101}};
    EXPECT_EQ(expected, nodePath(tree, node));
    int withOwn = capture.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr);
    expected.push_back({ownLineNumberMethod, 102});
    EXPECT_EQ(expected, nodePath(tree, withOwn));
    int calls = jvmti.lineTableCalls;
    capture.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr);
    EXPECT_EQ(calls, jvmti.lineTableCalls);  // lines come from the private cache now
    EXPECT_EQ(methodOf(b), capture.getTopMethodIndex(nullptr));
    EXPECT_EQ(methodOf(b), capture.getMethodById(nullptr, b));
    // A wrapped native's objects count for its wrapper, the visible frame below it.
    jvmti.stack.clear();
    push(hidden, 0);
    push(b, 20);
    EXPECT_EQ(methodOf(b), capture.getTopMethodIndex(nullptr));
    jvmti.stack.clear();
    push(hidden, 0);
    EXPECT_EQ(0, capture.getTopMethodIndex(nullptr));

    // Tracing keeps only traced, not excluded, visible methods; a dropped
    // frame drops the pending line too.
    jmethodID c = plain(4, "c");
    jmethodID d = plain(5, "d");
    jvmti.stack.clear();
    push(d, 30);
    push(c, 20);
    push(b, 10);
    push(a, 0);
    for (jmethodID traced : {a, c, d}) ZMethod::getRecord(methodOf(traced))->myFlags |= METHOD_FLAG_TRACED;
    std::vector<std::pair<int, int>> tracing = {{methodOf(a), 0}, {methodOf(c), 0}, {methodOf(d), 102}};
    EXPECT_EQ(tracing, nodePath(tree, capture.fillCurrentNodeJvmti_forTracing(nullptr, true)));
    ZMethod::getRecord(methodOf(c))->myFlags |= METHOD_FLAG_EXCLUDED;
    std::vector<std::pair<int, int>> noLines = {{methodOf(a), 0}, {methodOf(d), 0}};
    EXPECT_EQ(noLines, nodePath(tree, capture.fillCurrentNodeJvmti_forTracing(nullptr, false)));

    jvmti.stack.clear();
    EXPECT_EQ(0, capture.getTopMethodIndex(nullptr));
}

// The last stack is remembered with its node: the same frames give the same
// node, and any other frame, however deep, gives its own.
TEST_F(StackCaptureTest, ARememberedStackServesOnlyTheSameFrames) {
    jmethodID a = plain(1, "a");
    jmethodID b = plain(2, "b");
    int ma = methodOf(a);
    int mb = methodOf(b);
    int own = ownLineNumberMethod;
    using Frames = std::vector<std::pair<jmethodID, jlocation>>;  // top first
    using Path = std::vector<std::pair<int, int>>;
    ZNodeTree tree;
    NodeStackCapture capture(&tree);
    auto walk = [&](const Frames& frames) {
        jvmti.stack.clear();
        for (const auto& frame : frames) push(frame.first, frame.second);
        return nodePath(tree, capture.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr));
    };
    // Deeper than what is remembered: a and b taking turns, the bottom one varied.
    Frames deep;
    Path deepPath;
    for (int i = 0; i < 70; i++) deep.push_back({i % 2 == 0 ? b : a, 10});
    for (int i = 69; i >= 0; i--) deepPath.push_back({i % 2 == 0 ? mb : ma, i == 69 ? 0 : 101});
    deepPath.push_back({own, 101});
    Frames deepOther = deep;
    deepOther.back().second = 20;
    Path deepOtherPath = deepPath;
    deepOtherPath[1].second = 102;
    struct Case {
        const char* what;
        Frames frames;
        Path expected;
    } cases[] = {
        {"first", {{b, 20}, {a, 10}}, {{ma, 0}, {mb, 101}, {own, 102}}},
        {"again", {{b, 20}, {a, 10}}, {{ma, 0}, {mb, 101}, {own, 102}}},
        {"top moved on", {{b, 30}, {a, 10}}, {{ma, 0}, {mb, 101}, {own, 103}}},
        {"caller moved on", {{b, 30}, {a, 0}}, {{ma, 0}, {mb, 100}, {own, 103}}},
        {"one deeper", {{a, 0}, {b, 30}, {a, 0}}, {{ma, 0}, {mb, 100}, {ma, 103}, {own, 100}}},
        {"one fewer", {{a, 0}, {b, 30}}, {{mb, 0}, {ma, 103}, {own, 100}}},
        {"deep", deep, deepPath},
        {"deep, bottom moved", deepOther, deepOtherPath},
        {"deep again", deep, deepPath},
        {"back", {{b, 20}, {a, 10}}, {{ma, 0}, {mb, 101}, {own, 102}}},
    };
    for (const Case& c : cases) EXPECT_EQ(c.expected, walk(c.frames)) << c.what;
}
