// Probe classes compiled by javac, valid and broken: what each becomes, and
// every error line exactly as its author reads it.
#include <deque>

#include "ProbesTestSupport.h"

namespace {

const char* const IMPORTS = "package cases;\nimport com.corvane.probes.*;\n";

// Each case is a class of package `cases` and the error lines it must give.
// A text that starts with neither @MethodPattern nor "public" gets
// @MethodPattern("a.B:m()") in front and its class declaration before the
// body. An error line is written after the class name: ": <text>" for the
// class, "<method>: <text>" for a method, "<method> #<n>: <text>" for a
// parameter.
struct Case {
    const char* name;
    const char* text;
    std::vector<const char*> errors;
};
const Case CASES[] = {
    // ---- class level ----
    {"Helper", "public class Helper { public static void onEnter() {} }", {}},
    {"NotPublic", "@MethodPattern(\"a.B:m()\") class NotPublic { public static void onEnter(@This Object o, int x) {} }",
     {": class must be public"}},
    {"TwoEnter", "{ public static void onEnter() {} public static void onEnter(@Param(1) int a) {} }",
     {": more than one method onEnter()"}},
    {"TwoReturn", "{ public static void onReturn() {} public static void onReturn(@Param(1) int a) {} }",
     {": more than one method onReturn()"}},
    {"TwoUncaught", "{ public static void onUncaughtException() {} public static void onUncaughtException(@Param(1) "
                    "int a) {} }", {": more than one method onUncaughtException()"}},
    {"TwoExit", "{ public static void onExit() {} public static void onExit(@Param(1) int a) {} }",
     {": more than one method onExit()"}},
    {"Ext", "{ public static void onEnter() {} public static void onUncaughtExceptionExt() {} }",
     {": onUncaughtExceptionExt() callback is not supported: use @DiscardThrownException annotation with either "
      "onExit() or onUncaughtException()"}},
    {"NoCallbacks", "{ public static void other() {} }",
     {": no callbacks found (onEnter(), onExit(), onReturn() or onUncaughtException())"}},
    {"ExitAndUncaught", "{ public static void onExit() {} public static void onUncaughtException() {} }",
     {": onExit() and onUncaughtException() callbacks cannot be used together"}},
    {"ExitAndReturn", "{ public static void onExit() {} public static void onReturn() {} }",
     {": onExit() and onReturn() callbacks cannot be used together"}},
    {"DiscardAlone", "@DiscardThrownException { public static void onReturn() {} }",
     {": @DiscardThrownException annotation can be used only when onExit() or onUncaughtException() callback is "
      "present"}},
    {"ValueFromUncaught", "{ public static int onUncaughtException() { return 0; } }",
     {": onUncaughtException() callback must be void unless @DiscardThrownException annotation is present"}},
    {"TypesDiffer", "@DiscardThrownException { public static int onReturn(@ReturnValue int v) { return v; } public "
                    "static long onUncaughtException(@ThrownException Throwable t) { return 0; } }",
     {": onUncaughtException() and onReturn() callback return types are different"}},
    {"NotStatic", "{ public void onEnter() {} private static void onReturn() {} public static void "
                  "onUncaughtException() {} }",
     {"onEnter: callback must be public static", "onReturn: callback must be public static"}},
    {"UnusedEnterResult", "{ public static long onEnter() { return 1; } public static void onExit() {} }",
     {": onEnter()'s return value is not used; either use it via @OnEnterResult or make onEnter() void"}},
    {"BadPattern", "@MethodPattern({\"a.B:m()\", \"a.B:m(int long)\", \" -java.util.*:*() \"}) public class "
                   "BadPattern { public static void onEnter() {} }", {": parameter pattern is invalid: int long"}},
    // ---- parameters ----
    {"Annotations", "{ public static void onEnter(@Param(0) int a, int b, @This @Params Object c, @Param(1000) long "
                    "d, @Deprecated @Param(1) int e) {} }",
     {"onEnter #1: invalid @Param annotation: index must be 1 or greater", "onEnter #2: parameter must be annotated",
      "onEnter #3: more than 1 callback annotation"}},
    {"Outs", "{ public static void onEnter(@Out @Param(1) int a) {} public static void onReturn(@Out @Params "
             "Object[] p) {} public static void onUncaughtException() {} }",
     {"onEnter #1: @Out must be used only with @Params", "onReturn #1: @Out must be used only in onEnter()"}},
    {"ParamsRules", "{ public static void onEnter(@Params String[] a, @Params Object[] b, @Params Object[] c) {} }",
     {"onEnter #1: @Params must be Object[]", "onEnter #3: parameter with @Params annotation already exists"}},
    {"ThisRules", "{ public static void onEnter(@This int a, @This Object b, @This String c) {} }",
     {"onEnter #1: @This must be a reference type", "onEnter #2: parameter with @This annotation already exists",
      "onEnter #3: parameter with @This annotation already exists",
      "onEnter #3: parameters with @This annotation must have the same types in all callbacks"}},
    {"ThisWithInstanceOf", "@InstanceOf(\"a.B\") { public static void onEnter(@This String s) {} }",
     {"onEnter #1: in probes annotated with @InstanceOf, parameters annotated with @This must be of type "
      "java.lang.Object"}},
    // onExit serves two roles, so its faults are listed twice.
    {"ThisTypes", "{ public static void onEnter(@This String s) {} public static void onExit(@This Object o) {} }",
     {"onExit #1: parameters with @This annotation must have the same types in all callbacks",
      "onExit #1: parameters with @This annotation must have the same types in all callbacks"}},
    {"WrongPlaces", "{ public static void onEnter(@ReturnValue Object r, @ThrownException Throwable t, "
                    "@OnEnterResult int e, @MethodTimeMs long m) {} }",
     {"onEnter #1: @ReturnValue is only allowed in onReturn() and onExit()",
      "onEnter #2: @ThrownException is only allowed in onUncaughtException() and onExit()",
      "onEnter #3: @OnEnterResult is not allowed in onEnter()", "onEnter #4: @MethodTimeMs is not allowed in onEnter()"}},
    {"ThrownRules", "{ public static void onUncaughtException(@ThrownException Exception a, @ThrownException "
                    "Throwable b, @ThrownException Throwable c) {} }",
     {"onUncaughtException #1: parameter annotated with @ThrownException must be java.lang.Throwable",
      "onUncaughtException #3: parameter with @ThrownException annotation already exists"}},
    {"EnterResultRules", "{ public static long onEnter() { return 1; } public static void onExit(@OnEnterResult int "
                         "a, @OnEnterResult long b, @OnEnterResult long c) {} }",
     {"onExit #1: type of parameter annotated with @OnEnterResult and onEnter() return type must be the same",
      "onExit #3: parameter with @OnEnterResult annotation already exists",
      "onExit #1: type of parameter annotated with @OnEnterResult and onEnter() return type must be the same",
      "onExit #3: parameter with @OnEnterResult annotation already exists"}},
    {"NoEnterForResult", "{ public static void onReturn(@OnEnterResult long a) {} public static void "
                         "onUncaughtException() {} }",
     {"onReturn #1: @OnEnterResult cannot be used unless you define onEnter()"}},
    {"TimeAndNames", "{ public static void onReturn(@MethodTimeMs int a, @MethodTimeMs long b, @MethodTimeMs long "
                     "c, @MethodName Object d, @MethodSignature String e, @MethodParameterTypes StringBuilder f, "
                     "@ClassRef Object g) {} public static void onUncaughtException() {} }",
     {"onReturn #1: parameter annotated with @MethodTimeMs must be long",
      "onReturn #3: parameter with @MethodTimeMs annotation already exists",
      "onReturn #4: parameters annotated with @MethodName and @MethodSignature must be of type java.lang.String",
      "onReturn #6: parameters annotated with @MethodName and @MethodSignature must be of type java.lang.String",
      "onReturn #7: parameter annotated with @ClassRef must be of type java.lang.Class"}},
    {"DiscardNeedsThrown", "@DiscardThrownException { public static void onUncaughtException() {} }",
     {"onUncaughtException: parameter with @ThrownException annotation is required but not found"}},
    {"ReturnValueType", "{ public static int onReturn(@ReturnValue Object v) { return 0; } public static void "
                        "onUncaughtException() {} }",
     {"onReturn: parameter with @ReturnValue annotation and matching return type is required but not found"}},
    // ---- valid ----
    {"Full", "@MethodPattern({\"com.acme.*:run(int, String) void\", \"-java.util.*:*()\", \"@javax.ejb.* *:@m.Mark "
             "*(*)\"}) @RetransformIfInstanceOf({\" a.Base \", \"b.Other\"}) @InstanceOf(\"a.Root\") public class "
             "Full { public static long onEnter(@Param(1) int a, @Out @Params Object[] p, @This Object t, "
             "@MethodName String n, @MethodSignature String s, @MethodParameterTypes String pt, @ClassRef Class<?> "
             "c) throws java.io.IOException { return 0; } public static void onReturn(@ReturnValue Object r, "
             "@OnEnterResult long e, @MethodTimeMs long m) throws InterruptedException, java.io.IOException {} "
             "public static void onUncaughtException(@ThrownException Throwable t, @MethodTimeMs long m) throws "
             "java.io.IOException {} }", {}},
    {"Replacing", "@MethodPattern(\"*:*()\") public class Replacing { public static String onExit(@ReturnValue "
                  "String r, @ThrownException Throwable t) { return r; } }", {}},
    {"ThisOfClass", "{ public static void onEnter(@This String s) {} public static void onReturn(@This String s) {} "
                    "public static void onUncaughtException() {} }", {}},
    {"ThisObject", "{ public static void onEnter(@This Object s) {} public static void onExit(@This Object s) {} }", {}},
    {"EnterResultInHandler", "{ public static long onEnter() { return 1; } public static void onReturn() {} public "
                             "static void onUncaughtException(@OnEnterResult long e) {} }", {}},
    {"VoidReturnValueException", "@DiscardThrownException { public static void onReturn() {} public static int "
                                 "onUncaughtException(@ThrownException Throwable t) { return 0; } }", {}},
    {"EnterAndReturn", "{ public static void onEnter() {} public static void onReturn() {} }", {}},
    {"EnterAndUncaught", "{ public static void onEnter() {} public static void onUncaughtException() {} }", {}},
    {"WithInner", "{ static class Inner {} public static void onEnter() { new Inner(); Runnable r = () -> {}; } }", {}},
};

// The full error line of a case from its short form.
std::string errorLine(const std::string& name, const std::string& line) {
    std::string at = "Error: probe class cases." + name;
    if (line[0] == ':') return at + line;
    size_t colon = line.find(':'), hash = line.find(" #");
    if (hash > colon) return at + ", method " + line;
    return at + ", method " + line.substr(0, hash) + ", parameter" + line.substr(hash);
}

std::string errorsOf(const ProbeCreationResult& result) { return result.getAllErrors().c_str(); }

class ProbeCreationTest : public ProbesTest {
protected:
    static void SetUpTestSuite() {
        ourCompiled = fs::temp_directory_path() / ("corvane-probe-cases-" + std::to_string(getpid()));
        fs::remove_all(ourCompiled);
        std::map<std::string, std::string> sources;
        for (const Case& c : CASES) {
            std::string body = c.text;
            if (body.rfind("@MethodPattern", 0) != 0 && body.rfind("public", 0) != 0) {
                body = "@MethodPattern(\"a.B:m()\") " + body.insert(body.find('{'), "public class " + std::string(c.name) + " ");
            }
            sources["cases/" + std::string(c.name) + ".java"] = IMPORTS + body;
        }
        compileSources(ourCompiled, sources);
    }
    static void TearDownTestSuite() { fs::remove_all(ourCompiled); }

    void SetUp() override {
        ProbesTest::SetUp();
        fs::create_symlink(ourCompiled / "classes", myWork / "classes");
    }
    // The results' descriptors point to top probes that the base class frees.
    void TearDown() override {
        myResults.clear();
        ProbesTest::TearDown();
    }

    // The one descriptor of a valid case, null (and the test failed) otherwise.
    ProbeDescriptor* valid(const std::string& name) {
        ProbeCreationResult& result = myResults.emplace_back();
        create("cases/" + name, result);
        EXPECT_TRUE(result.isOK()) << errorsOf(result);
        EXPECT_EQ(1, result.getDescriptors().getSize()) << name;
        return result.getDescriptors().isEmpty() ? nullptr : result.getDescriptors()[0];
    }

    std::deque<ProbeCreationResult> myResults;

    static fs::path ourCompiled;
};

fs::path ProbeCreationTest::ourCompiled;

TEST_F(ProbeCreationTest, EveryErrorHasItsExactLine) {
    for (const Case& c : CASES) {
        std::string expected;
        for (const char* line : c.errors) expected += (expected.empty() ? "" : "\n") + errorLine(c.name, line);
        ProbeCreationResult result;
        create("cases/" + std::string(c.name), result);
        EXPECT_EQ(expected, errorsOf(result)) << c.name;
    }
}

TEST_F(ProbeCreationTest, AClassWithoutPatternsIsScannedAndNothingElse) {
    ProbeCreationResult result;
    create("cases/Helper", result);
    EXPECT_TRUE(result.isOK());
    EXPECT_TRUE(result.getDescriptors().isEmpty());
    EXPECT_EQ(ZString("cases.Helper"), result.getScannedClasses());
    // A fault in one class fails the whole registration.
    create("cases/NotPublic", result);
    create("cases/ThisObject", result);
    EXPECT_FALSE(result.isOK());
    EXPECT_TRUE(result.getDescriptors().isEmpty());
    EXPECT_EQ(ZString("cases.Helper, cases.NotPublic, cases.ThisObject"), result.getScannedClasses());
}

std::vector<std::string> texts(const ZVectorSafe<ZString>& list) {
    std::vector<std::string> result;
    for (int i = 0; i < list.getSize(); i++) result.push_back(list[i].c_str());
    return result;
}

TEST_F(ProbeCreationTest, EveryParameterKindInTheDescriptor) {
    ProbeDescriptor* d = valid("Full");
    ASSERT_NE(nullptr, d);
    EXPECT_EQ(ZString("cases/Full"), d->getClassSignature());
    EXPECT_EQ(ZString("a/Root"), d->getInstanceOf());
    EXPECT_EQ((std::vector<std::string>{"a.Root", "a.Base", "b.Other"}), texts(d->getRetransformList()));
    EXPECT_EQ((std::vector<std::string>{"java/io/IOException", "java/lang/InterruptedException"}),
              texts(d->getCallbackExceptions()));
    EXPECT_FALSE(d->hasReturnValue() || d->isOnExit());
    EXPECT_TRUE(d->getCallbackReturnType().isEmpty());
    EXPECT_TRUE(d->usesOnEnterResult() && d->usesMethodTime());

    // Kind, index and @Out of each onEnter parameter.
    const CallbackParameters& enter = *d->getOnEnterParameters();
    std::vector<std::vector<int>> parameters;
    for (int i = 0; i < enter.getSize(); i++) parameters.push_back({enter[i].kind, enter[i].index, enter[i].isOut});
    EXPECT_EQ((std::vector<std::vector<int>>{{CPK_PARAM, 1, 0}, {CPK_PARAMS, -1, 1}, {CPK_THIS, -1, 0},
                                             {CPK_METHOD_NAME, -1, 0}, {CPK_METHOD_SIGNATURE, -1, 0},
                                             {CPK_METHOD_PARAMETER_TYPES, -1, 0}, {CPK_CLASS_REF, -1, 0}}),
              parameters);
    EXPECT_EQ(ZString("Ljava/lang/Class;"), enter[6].type);
    EXPECT_EQ(CPK_ON_ENTER_RESULT, (*d->getReturnParameters())[1].kind);
    EXPECT_EQ(CPK_THROWN_EXCEPTION, (*d->getExceptionParameters())[0].kind);
    EXPECT_EQ(ZString("(Ljava/lang/Throwable;J)V"), d->getExceptionDescriptor());

    std::vector<std::string> patterns;
    for (int i = 0; i < d->getPatternCount(); i++) {
        patterns.push_back(std::string(d->isNegative(i) ? "-" : "") + d->getClassPattern(i).c_str() + " " +
                           d->getSignaturePattern(i).c_str() + " " + d->getReturnTypePattern(i).c_str() + " [" +
                           d->getClassAnnotationSignature(i).c_str() + "|" + d->getMethodAnnotationSignature(i).c_str() +
                           "]");
    }
    EXPECT_EQ((std::vector<std::string>{"com.acme.* (int, java.lang.String) void [|]", "-java.util.* () * [|]",
                                        "* (*) * [Ljavax/ejb/*;|Lm/Mark;]"}),
              patterns);
}

TEST_F(ProbeCreationTest, ReturnTypesAndThisRestrictions) {
    if (ProbeDescriptor* d = valid("Replacing")) {
        EXPECT_TRUE(d->isOnExit());
        EXPECT_TRUE(d->hasReturnValue());
        EXPECT_EQ(ZString("Ljava/lang/String;"), d->getCallbackReturnType());
        EXPECT_EQ(d->getReturnDescriptor(), d->getExceptionDescriptor());
    }
    if (ProbeDescriptor* d = valid("ThisOfClass")) {
        EXPECT_EQ(ZString("java/lang/String"), d->getInstanceOf()) << "@This of a class type restricts like @InstanceOf";
        EXPECT_EQ(ZString("java.lang.String"), d->getRetransformList()[0]);
    }
    if (ProbeDescriptor* d = valid("ThisObject")) {
        EXPECT_TRUE(d->getInstanceOf().isEmpty());
        EXPECT_TRUE(d->getRetransformList().isEmpty());
    }
    if (ProbeDescriptor* d = valid("EnterResultInHandler")) {
        EXPECT_TRUE(d->usesOnEnterResult());
    }
    // A void onReturn beside an int onUncaughtException is accepted on purpose.
    if (ProbeDescriptor* d = valid("VoidReturnValueException")) {
        EXPECT_EQ(ZString("I"), d->getCallbackReturnType());
        EXPECT_FALSE(d->hasReturnValue());
        EXPECT_TRUE(d->isDiscardThrownException());
    }
}

TEST_F(ProbeCreationTest, ABadPatternIsReportedAndTheOthersAreKept) {
    ProbeCreationResult result;
    create("cases/BadPattern", result);
    EXPECT_FALSE(result.isOK());
    ASSERT_EQ(1, result.getDescriptors().getSize());
    ProbeDescriptor* d = result.getDescriptors()[0];
    ASSERT_EQ(2, d->getPatternCount());
    EXPECT_TRUE(d->isNegative(1));
    EXPECT_EQ(ZString("java.util.*"), d->getClassPattern(1));
}

TEST_F(ProbeCreationTest, WarningsGoToTheLog) {
    CapturedLog log;
    ProbeCreationResult result;
    for (const char* name : {"EnterAndReturn", "EnterAndUncaught", "ThisOfClass", "Replacing"}) {
        create(std::string("cases/") + name, result);
    }
    const std::string wide = "warning: possible performance issue: probe class pattern is \"*\", none of @InstanceOf, "
                             "@This, @RetransformIfInstanceOf specified: cases.";
    const std::pair<std::string, int> cases[] = {
        {"warning: probe class cases.EnterAndReturn: onEnter() and onReturn() without onUncaughtException(); "
         "consider using onExit()", 1},
        {"warning: probe class cases.EnterAndUncaught: onEnter() and onUncaughtException() without onReturn(); "
         "consider using onExit()", 1},
        {wide + "ThisOfClass", 0},
        {wide + "Replacing", 1},
    };
    for (auto& c : cases) EXPECT_EQ(c.second, log.count(c.first)) << c.first << "\n" << log.content();
}

TEST_F(ProbeCreationTest, ProbesByNameFromFoldersAndArchivesWithTheirInnerClasses) {
    CapturedLog log;
    fs::path jar = myWork / "probes.jar";
    std::string output;
    ASSERT_EQ(0, runCommand(javaHome() + "/bin/jar cf " + jar.string() + " -C " + (myWork / "classes").string() +
                                " cases/WithInner.class -C " + (myWork / "classes").string() + " cases/Full.class",
                            &output))
        << output;
    ourProbeClassPathElements.clear();
    ourProbeClassPathElements.push(ZString(jar.string().c_str()));
    ourProbeClassPathElements.push(ZString((myWork / "classes").string().c_str()));
    ZVectorSafe<ZString> names;
    for (const char* name : {"cases.WithInner", "cases.ThisObject", "cases.Missing"}) names.push(ZString(name));
    ProbeCreationResult result;
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::createProbeDescriptors(names, PROBE_STATUS_NEW, result);
    }
    EXPECT_EQ("Error: probe class cases.Missing: class not found", errorsOf(result));
    EXPECT_EQ(2, result.getDescriptors().getSize());
    // The inner class is not in the archive; the lambda's is no class of its own.
    EXPECT_EQ(ZString("cases.WithInner, cases.ThisObject"), result.getScannedClasses());
    EXPECT_EQ(1, log.count("warning: missing inner class: cases/WithInner$Inner")) << log.content();

    // From the folder, the inner class comes along.
    ProbeCreationResult again;
    ourProbeClassPathElements.remove(0);
    names.remove(2);
    {
        LockHolder lock(&ourLock, LOCK_SITE);
        Probes::createProbeDescriptors(names, PROBE_STATUS_NEW, again);
        Probes::addProbes(again);
    }
    EXPECT_TRUE(again.isOK()) << errorsOf(again);
    EXPECT_EQ(ZString("cases.WithInner, cases.WithInner$Inner, cases.ThisObject"), again.getScannedClasses());
    ASSERT_EQ(2, Probes::ourProbeDescriptors.getSize());
    EXPECT_EQ(2, Probes::ourTopProbes.getSize());

    ourProbeClassPathElements.clear();
}

TEST_F(ProbeCreationTest, WhichClassesAProbePatternMayReach) {
    registerProbes({"cases/ThisObject"});
    struct Case {
        const char* className;
        const char* pattern;
        bool applicable;
    } cases[] = {
        {"java.util.ArrayList", "*", false},
        {"java.util.ArrayList", "java.util.ArrayList", true},
        {"java.util.ArrayList", "java.util.*", true},
        {"com.ibm.db2.Driver", "*", true},  // taken back by "+com.ibm.db2."
        {"com.ibm.Other", "*", false},
        {"com.acme.Main", "com.*", true},
        {"com.acme.Main$$Lambda$14/0x1", "com.*", false},
        {"cases.ThisObject", "*", false},  // a probe class only for a pattern naming it
        {"cases.ThisObject", "cases.ThisObject", true},
        {"com.acme.Main", "org.*", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.applicable, Probes::isProbeApplicable(ZString(c.className), ZString(c.pattern)))
            << c.className << " ~ " << c.pattern;
    }
}

}  // namespace
