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
    // The path of a node of a private tree, as pathOf gives a frame's.
    std::string nodePath(ZNodeTree& tree, int node) {
        std::string path;
        for (int n = node; n > 0; n = tree.getNodeParent(n)) {
            path = path.empty() ? pointName(tree.getNodeCodePoint(n)) : pointName(tree.getNodeCodePoint(n)) + "/" + path;
        }
        return path;
    }
    ScriptedJvmti jvmti;
};

}  // namespace

TEST_F(StackCaptureTest, MethodsAreNamedFromTheirDescriptors) {
    jmethodID id = define(1, {"parse", "(ILjava/lang/String;[[J)[Ljava/lang/Object;", "Lcom/acme/Parser;", "Parser.java",
                              true, {}});
    int m = methodOf(id);
    EXPECT_EQ("com.acme.Parser.parse(int, java.lang.String, long[][]) java.lang.Object[] [Parser.java]", describe(m));
    EXPECT_EQ(METHOD_FLAG_NATIVE, ZMethod::getFlags(m));
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
    EXPECT_EQ("Foo$$Lambda$12.run() void []", describe(l1));
    EXPECT_EQ("Foo$$Lambda$12.0xzz.run() void []", describe(run("LFoo$$Lambda$12/0xzz;")));
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
    EXPECT_EQ("a/b@101/c@102/<<own>>@103", pathOf(frame));
    EXPECT_EQ(frame, StackCapture::fillCurrentFrameJVMTIForSampling(lock, nullptr, info));
    // Roots skip nothing.
    EXPECT_EQ("a/hook@101/b@100/c@102/<<own>>@103",
              pathOf(StackCapture::fillCurrentFrameJvmtiForRoots(lock, nullptr, info)));

    // Asynchronous frames with a null method are left out.
    AsyncCallFrame async[] = {{30, c}, {0, nullptr}, {10, a}};
    EXPECT_EQ("a/c@101/<<own>>@103", pathOf(StackCapture::fillCurrentFrameForAsyncSampling(lock, nullptr, 3, async)));
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
    EXPECT_EQ("a/b@101", nodePath(tree, capture.fillCurrentNodeJvmti_notForTracing_noOwnLine(nullptr, &lastLine)));
    EXPECT_EQ(102, lastLine);
    EXPECT_EQ("a/b@101/<<own>>@102", nodePath(tree, capture.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr)));
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
    EXPECT_EQ("a/c/d@102", nodePath(tree, capture.fillCurrentNodeJvmti_forTracing(nullptr, true)));
    ZMethod::getRecord(methodOf(c))->myFlags |= METHOD_FLAG_EXCLUDED;
    EXPECT_EQ("a/d", nodePath(tree, capture.fillCurrentNodeJvmti_forTracing(nullptr, false)));

    jvmti.stack.clear();
    EXPECT_EQ(0, capture.getTopMethodIndex(nullptr));
}

// The last stacks are remembered with their nodes: the same frames give the same
// node, and any other frame, however deep, gives its own.
TEST_F(StackCaptureTest, ARememberedStackServesOnlyTheSameFrames) {
    jmethodID a = plain(1, "a");
    jmethodID b = plain(2, "b");
    using Frames = std::vector<std::pair<jmethodID, jlocation>>;  // top first
    ZNodeTree tree;
    NodeStackCapture capture(&tree);
    auto walk = [&](const Frames& frames) {
        jvmti.stack.clear();
        for (const auto& frame : frames) push(frame.first, frame.second);
        return nodePath(tree, capture.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr));
    };
    // Deeper than what is remembered: a and b taking turns, the bottom one varied.
    Frames deep;
    std::string deepPath = "a";
    for (int i = 0; i < 70; i++) deep.push_back({i % 2 == 0 ? b : a, 10});
    for (int i = 68; i >= 0; i--) deepPath += i % 2 == 0 ? "/b@101" : "/a@101";
    deepPath += "/<<own>>@101";
    Frames deepOther = deep;
    deepOther.back().second = 20;
    std::string deepOtherPath = "a/b@102" + deepPath.substr(7);
    struct Case {
        const char* what;
        Frames frames;
        std::string expected;
    } cases[] = {
        {"first", {{b, 20}, {a, 10}}, "a/b@101/<<own>>@102"},
        {"again", {{b, 20}, {a, 10}}, "a/b@101/<<own>>@102"},
        {"top moved on", {{b, 30}, {a, 10}}, "a/b@101/<<own>>@103"},
        {"caller moved on", {{b, 30}, {a, 0}}, "a/b@100/<<own>>@103"},
        {"one deeper", {{a, 0}, {b, 30}, {a, 0}}, "a/b@100/a@103/<<own>>@100"},
        {"one fewer", {{a, 0}, {b, 30}}, "b/a@103/<<own>>@100"},
        {"deep", deep, deepPath},
        {"deep, bottom moved", deepOther, deepOtherPath},
        {"deep again", deep, deepPath},
        {"back", {{b, 20}, {a, 10}}, "a/b@101/<<own>>@102"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.expected, walk(c.frames)) << c.what;
}
