// Methods, lines and stacks as read from the JVM, against a scripted JVMTI.
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "DBTestSupport.h"
#include "agent/AgentState.h"

namespace {

struct FakeMethod {
    std::string name;
    std::string descriptor;
    std::string classSignature;
    std::string sourceFile;  // empty: no source information
    bool native = false;
    std::vector<std::pair<jlocation, jint>> lines;  // sorted by location; empty: no table
};

std::map<intptr_t, FakeMethod> ourMethods;
std::vector<jvmtiFrameInfo> ourStack;  // top first
int ourLineTableCalls = 0;

intptr_t key(jmethodID id) { return (intptr_t)id; }
jmethodID idOf(intptr_t k) { return (jmethodID)k; }

char* copyOf(const std::string& text) {
    char* copy = (char*)malloc(text.size() + 1);
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

jvmtiError JNICALL fakeDeallocate(jvmtiEnv*, unsigned char* memory) {
    free(memory);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeGetStackTrace(jvmtiEnv*, jthread, jint start, jint max, jvmtiFrameInfo* frames, jint* count) {
    int n = 0;
    for (size_t i = start; i < ourStack.size() && n < max; i++) frames[n++] = ourStack[i];
    *count = n;
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeGetLineNumberTable(jvmtiEnv*, jmethodID method, jint* count, jvmtiLineNumberEntry** table) {
    ourLineTableCalls++;
    const FakeMethod& m = ourMethods.at(key(method));
    if (m.lines.empty()) return JVMTI_ERROR_ABSENT_INFORMATION;
    *count = (jint)m.lines.size();
    *table = (jvmtiLineNumberEntry*)malloc(sizeof(jvmtiLineNumberEntry) * m.lines.size());
    for (size_t i = 0; i < m.lines.size(); i++) (*table)[i] = {m.lines[i].first, m.lines[i].second};
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeGetMethodName(jvmtiEnv*, jmethodID method, char** name, char** signature, char** generic) {
    const FakeMethod& m = ourMethods.at(key(method));
    if (name != nullptr) *name = copyOf(m.name);
    if (signature != nullptr) *signature = copyOf(m.descriptor);
    if (generic != nullptr) *generic = nullptr;
    return JVMTI_ERROR_NONE;
}

// The declaring class is the method's key, passed as a handle.
jvmtiError JNICALL fakeGetMethodDeclaringClass(jvmtiEnv*, jmethodID method, jclass* klass) {
    *klass = (jclass)method;
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeGetClassSignature(jvmtiEnv*, jclass klass, char** signature, char** generic) {
    *signature = copyOf(ourMethods.at((intptr_t)klass).classSignature);
    if (generic != nullptr) *generic = nullptr;
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeGetSourceFileName(jvmtiEnv*, jclass klass, char** name) {
    const FakeMethod& m = ourMethods.at((intptr_t)klass);
    if (m.sourceFile.empty()) return JVMTI_ERROR_ABSENT_INFORMATION;
    *name = copyOf(m.sourceFile);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL fakeIsMethodNative(jvmtiEnv*, jmethodID method, jboolean* native) {
    *native = ourMethods.at(key(method)).native ? JNI_TRUE : JNI_FALSE;
    return JVMTI_ERROR_NONE;
}

class JvmtiStackTest : public DBTest {
protected:
    void SetUp() override {
        DBTest::SetUp();
        memset(&myFunctions, 0, sizeof(myFunctions));
        myFunctions.Deallocate = fakeDeallocate;
        myFunctions.GetStackTrace = fakeGetStackTrace;
        myFunctions.GetLineNumberTable = fakeGetLineNumberTable;
        myFunctions.GetMethodName = fakeGetMethodName;
        myFunctions.GetMethodDeclaringClass = fakeGetMethodDeclaringClass;
        myFunctions.GetClassSignature = fakeGetClassSignature;
        myFunctions.GetSourceFileName = fakeGetSourceFileName;
        myFunctions.IsMethodNative = fakeIsMethodNative;
        myEnv.functions = &myFunctions;
        mySavedJvmti = ourJVMTI;
        ourJVMTI = &myEnv;
        ourMethods.clear();
        ourStack.clear();
        ourLineTableCalls = 0;
    }
    void TearDown() override {
        ourJVMTI = mySavedJvmti;
        DBTest::TearDown();
    }

    jmethodID define(intptr_t k, FakeMethod m) {
        ourMethods[k] = std::move(m);
        return idOf(k);
    }
    // A method of class p.C whose line at location L is 100 + L / 10.
    jmethodID plain(intptr_t k, const std::string& name, const std::string& className = "Lp/C;") {
        return define(k, {name, "()V", className, "C.java", false, {{0, 100}, {10, 101}, {20, 102}, {30, 103}}});
    }
    void push(jmethodID id, jlocation location) { ourStack.push_back({id, location}); }
    int methodOf(jmethodID id) { return ZFrameStorage::getMethodById(lock, nullptr, id); }
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
    jvmtiStackInfo stackInfo() {
        jvmtiStackInfo info;
        memset(&info, 0, sizeof(info));
        info.frame_buffer = ourStack.data();
        info.frame_count = (jint)ourStack.size();
        return info;
    }

    jvmtiInterface_1_ myFunctions;
    _jvmtiEnv myEnv;
    jvmtiEnv* mySavedJvmti = nullptr;
};

}  // namespace

TEST_F(JvmtiStackTest, MethodsAreNamedFromTheirDescriptors) {
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
    int l1 = methodOf(define(2, {"run", "()V", "LFoo$$Lambda$12/345;", "", false, {}}));
    int l2 = methodOf(define(3, {"run", "()V", "LFoo$$Lambda$12/678;", "", false, {}}));
    int l3 = methodOf(define(4, {"run", "()V", "LFoo$$Lambda$12;", "", false, {}}));
    int l4 = methodOf(define(5, {"run", "()V", "LFoo$$Lambda$12/0x0000000800c03000;", "", false, {}}));
    int l5 = methodOf(define(6, {"run", "()V", "LFoo$$Lambda$12/0xzz;", "", false, {}}));
    EXPECT_EQ(l1, l2);
    EXPECT_EQ(l1, l3);
    EXPECT_EQ(l1, l4);
    EXPECT_NE(l1, l5);
    EXPECT_EQ("Foo$$Lambda$12", text(db->getMethodTable()->getPtr(l1, false)->myClass));
    EXPECT_EQ("", text(db->getMethodTable()->getPtr(l1, false)->mySourceFile));
    EXPECT_EQ("Foo$$Lambda$12.0xzz", text(db->getMethodTable()->getPtr(l5, false)->myClass));
    EXPECT_EQ("()", text(db->getMethodTable()->getPtr(l5, false)->myParameters));
}

TEST_F(JvmtiStackTest, LinesComeFromTheTableAndAreCached) {
    jmethodID id = plain(1, "m");
    int m = methodOf(id);
    EXPECT_EQ(101, ZFrameStorage::getLineNumber(lock, id, m, 15));
    EXPECT_EQ(103, ZFrameStorage::getLineNumber(lock, id, m, 1000));
    EXPECT_EQ(100, ZFrameStorage::getLineNumber(lock, id, m, 0));
    EXPECT_EQ(3, ourLineTableCalls);
    EXPECT_EQ(101, ZFrameStorage::getLineNumber(lock, id, m, 15));
    EXPECT_EQ(0, ZFrameStorage::getLineNumber(lock, id, m, -1));
    EXPECT_EQ(3, ourLineTableCalls);

    // A lineless location is remembered as such.
    jmethodID lineless = define(2, {"n", "()V", "Lp/C;", "", false, {}});
    int n = methodOf(lineless);
    EXPECT_EQ(0, ZFrameStorage::getLineNumber(lock, lineless, n, 4));
    EXPECT_EQ(0, ZFrameStorage::getLineNumber(lock, lineless, n, 4));
    EXPECT_EQ(4, ourLineTableCalls);
    // Before the first entry there is no line.
    jmethodID late = define(3, {"o", "()V", "Lp/C;", "", false, {{5, 50}}});
    EXPECT_EQ(0, ZFrameStorage::getLineNumber(lock, late, methodOf(late), 2));
}

TEST_F(JvmtiStackTest, SampledStacksPlaceCallsAtTheCallersLine) {
    jmethodID a = plain(1, "a");
    jmethodID callback = plain(2, "hook", "Lcom/corvane/runtime/Callback;");
    jmethodID b = plain(3, "b");
    jmethodID c = plain(4, "c");
    push(c, 30);         // line 103, the top
    push(b, 20);         // line 102
    push(callback, 0);   // invisible: skipped
    push(a, 10);         // line 101, the bottom
    jvmtiStackInfo info = stackInfo();
    int frame = ZFrameStorage::fillCurrentFrameJVMTIForSampling(lock, nullptr, info);
    std::vector<std::pair<int, int>> expected = {
        {methodOf(a), 0}, {methodOf(b), 101}, {methodOf(c), 102}, {ownLineNumberMethod, 103}};
    EXPECT_EQ(expected, path(frame));
    EXPECT_EQ(frame, ZFrameStorage::fillCurrentFrameJVMTIForSampling(lock, nullptr, info));

    // Roots skip nothing.
    std::vector<std::pair<int, int>> roots = {{methodOf(a), 0},
                                              {methodOf(callback), 101},
                                              {methodOf(b), 100},
                                              {methodOf(c), 102},
                                              {ownLineNumberMethod, 103}};
    EXPECT_EQ(roots, path(ZFrameStorage::fillCurrentFrameJvmtiForRoots(lock, nullptr, info)));

    // Asynchronous frames with a null method are left out.
    AsyncCallFrame async[] = {{30, c}, {0, nullptr}, {10, a}};
    std::vector<std::pair<int, int>> asyncPath = {{methodOf(a), 0}, {methodOf(c), 101}, {ownLineNumberMethod, 103}};
    EXPECT_EQ(asyncPath, path(ZFrameStorage::fillCurrentFrameForAsyncSampling(lock, nullptr, 3, async)));
    // An empty stack is the root.
    EXPECT_EQ(0, ZFrameStorage::fillCurrentFrameForAsyncSampling(lock, nullptr, 0, async));
}

TEST_F(JvmtiStackTest, NodeTreesMirrorStacksWithTheirOwnCaches) {
    jmethodID a = plain(1, "a");
    jmethodID hidden = plain(2, "$$KZT$$read");
    jmethodID b = plain(3, "b");
    push(b, 20);
    push(hidden, 0);
    push(a, 10);
    ZNodeTree tree;
    int lastLine = -1;
    int node = tree.fillCurrentNodeJvmti_notForTracing_noOwnLine(nullptr, &lastLine);
    EXPECT_EQ(102, lastLine);
    std::vector<std::pair<int, int>> expected = {{methodOf(a), 0}, {methodOf(b), 101}};
    EXPECT_EQ(expected, nodePath(tree, node));
    int withOwn = tree.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr);
    expected.push_back({ownLineNumberMethod, 102});
    EXPECT_EQ(expected, nodePath(tree, withOwn));
    int calls = ourLineTableCalls;
    tree.fillCurrentNodeJvmti_notForTracing_withOwnLine(nullptr);
    EXPECT_EQ(calls, ourLineTableCalls);  // lines come from the private cache now
    EXPECT_EQ(methodOf(b), tree.getTopMethodIndex(nullptr));
    EXPECT_EQ(methodOf(b), tree.getMethodById(nullptr, b));

    // Tracing keeps only traced, not excluded, visible methods; a dropped
    // frame drops the pending line too.
    jmethodID c = plain(4, "c");
    jmethodID d = plain(5, "d");
    ourStack.clear();
    push(d, 30);
    push(c, 20);
    push(b, 10);
    push(a, 0);
    for (jmethodID traced : {a, c, d}) ZMethod::getRecord(methodOf(traced))->myFlags |= METHOD_FLAG_TRACED;
    std::vector<std::pair<int, int>> tracing = {{methodOf(a), 0}, {methodOf(c), 0}, {methodOf(d), 102}};
    EXPECT_EQ(tracing, nodePath(tree, tree.fillCurrentNodeJvmti_forTracing(nullptr, true)));
    ZMethod::getRecord(methodOf(c))->myFlags |= METHOD_FLAG_EXCLUDED;
    std::vector<std::pair<int, int>> noLines = {{methodOf(a), 0}, {methodOf(d), 0}};
    EXPECT_EQ(noLines, nodePath(tree, tree.fillCurrentNodeJvmti_forTracing(nullptr, false)));

    ourStack.clear();
    EXPECT_EQ(0, tree.getTopMethodIndex(nullptr));
}
