// Probes injected into real programs by the class load hook, run under
// -Xverify:all: the callbacks see what the targets do, the targets compute
// what they did before (except where a probe replaces a result), and a
// switched-off probe leaves everything as it was.
#include <regex>
#include <set>

#include "ProbesTestSupport.h"
#include "probes/EmptyCallbacks.h"

namespace {

// The targets and probes, with the stand-in Callback of the instrumentation tests.
std::map<std::string, std::string> programSources() {
    std::map<std::string, std::string> sources = javaSources(sourceRoot() / "tests/unit/probes/java", {"targets", "probes"});
    sources.merge(javaSources(sourceRoot() / "tests/unit/instrumentation/java", {"com"}));
    return sources;
}

const char* const PROBES[] = {"probes/Trace",     "probes/Replace", "probes/Discard",      "probes/Bracket", "probes/Out",
                              "probes/Widen",     "probes/ShapeArea", "probes/Timing", "probes/Construction"};

class InjectionTest : public ProbesTest {
protected:
    // The classes of `prefix` through the hook into <work>/patched.
    std::vector<std::string> rewrite(const std::string& prefix) {
        return rewriteFolder(myWork / "classes", myWork / "patched",
                             [&](const std::string& name) { return name.rfind(prefix, 0) == 0; });
    }

    std::string run(const std::string& folder, const std::string& mainClass) {
        return runJava((myWork / folder).string(), mainClass);
    }
};

TEST_F(InjectionTest, CallbacksSeeWhatTheTargetsDo) {
    compileSources(myWork, programSources());
    registerProbes(std::vector<std::string>(std::begin(PROBES), std::end(PROBES)));
    std::vector<std::string> changed = rewrite("targets/");
    std::sort(changed.begin(), changed.end());
    // Plain cannot be a Shape; Base, Program and Shape match no pattern.
    EXPECT_EQ(std::vector<std::string>({"targets/Big", "targets/Calc", "targets/Other", "targets/Square"}), changed);
    EXPECT_EQ(
        "  enter Calc.<init>[3]\n"
        "  constructing Calc\n"
        "  exit <init>(I)V (int) [3] -> null\n"
        "  enter Calc.<init>[]\n"
        "  enter Calc.<init>[7]\n"
        "  constructing Calc\n"
        "  exit <init>(I)V (int) [7] -> null\n"
        "  constructing Calc\n"
        "  exit <init>()V () [] -> null\n"
        "  enter Calc.triple[4]\n"
        "  exit triple(I)I (int) [4] -> 12\n"
        "triple 16\n"
        "  enter Calc.pick[0]\n"
        "  exit pick(I)I (int) [0] -> 10\n"
        "  enter Calc.pick[2]\n"
        "  exit pick(I)I (int) [2] -> 12\n"
        "  enter Calc.pick[9]\n"
        "  exit pick(I)I (int) [9] -> -1\n"
        "pick 10 12 -1\n"
        "  enter Calc.deposit[100, 0.5]\n"
        "  exit deposit(JD)J (long, double) [100, 0.5] -> 153\n"
        "deposit 153\n"
        "  enter Calc.assign[7]\n"
        "  exit assign(I)I (int) [7] -> 15\n"
        "assign 15\n"
        // Probes applied later are the outer ones: Out changes the arguments
        // that Trace then sees.
        "  enter Calc.scale[20, 4, 3.0, y]\n"
        "  exit scale(IJDLjava/lang/String;)Ljava/lang/String; (int, long, double, java.lang.String) "
        "[20, 4, 3.0, y] -> 20/4/3.0/y\n"
        "scale 20/4/3.0/y\n"
        "  widen 5 null 0 2.5 null 6\n"
        "  enter Calc.widen[5, 6, true, 2.5]\n"
        "  exit widen(IIZF)Ljava/lang/String; (int, int, boolean, float) [5, 6, true, 2.5] -> 5,6,true,2.5\n"
        "widen 5,6,true,2.5\n"
        "  enter Calc.handled[ok]\n"
        "  exit handled(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [ok] -> OK\n"
        "  enter Calc.handled[null]\n"
        "  exit handled(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [null] -> none\n"
        "handled OK none\n"
        "  enter Calc.risky[boom]\n"
        "  exit risky(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [boom] -> thrown bad boom\n"
        "risky discarded bad boom\n"
        "  enter Calc.risky[fine]\n"
        "  exit risky(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [fine] -> fine\n"
        "risky fine\n"
        "  enter Calc.fragile[boom]\n"
        "  exit fragile(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [boom] -> thrown fragile boom\n"
        "fragile (fragile boom)\n"
        "  enter Calc.fragile[ok]\n"
        "  exit fragile(Ljava/lang/String;)Ljava/lang/String; (java.lang.String) [ok] -> ok\n"
        "fragile [ok]\n"
        "  loop 42 true 3\n"
        "loop 3\n"
        "  enter Calc.sync[2]\n"
        "  exit sync(I)I (int) [2] -> 6\n"
        "sync 6\n"
        "  area of Square = 4.0\n"
        "area 4.0\n"
        "  area of Big = 100.0\n"
        "  area of Big = 101.0\n"
        "area 101.0\n"
        "plain 1.0 other 2.0\n"
        "copy 7\n",
        run("patched", "targets.Program"));
}

TEST_F(InjectionTest, SwitchedOffProbesLeaveTheProgramAsItWas) {
    compileSources(myWork, programSources());
    registerProbes(std::vector<std::string>(std::begin(PROBES), std::end(PROBES)));
    for (TopProbe* top : Probes::ourTopProbes) top->setActivityMode(PROBE_ACTIVITY_MODE_OFF);
    EXPECT_EQ(4u, rewrite("targets/").size());
    // The probe classes themselves get empty callbacks.
    fs::rename(myWork / "patched", myWork / "targets-patched");
    std::vector<std::string> emptied = rewrite("probes/");
    EXPECT_EQ(std::size(PROBES), emptied.size());
    for (const char* name : PROBES) {
        fs::copy_file(myWork / "patched" / (std::string(name) + ".class"), myWork / "targets-patched" / (std::string(name) + ".class"),
                      fs::copy_options::overwrite_existing);
    }
    // Auto is off while no CPU recording runs.
    EXPECT_EQ(run("classes", "targets.Program"), run("targets-patched", "targets.Program"));
    for (TopProbe* top : Probes::ourTopProbes) top->setActivityMode(PROBE_ACTIVITY_MODE_AUTO);
    EXPECT_TRUE(Probes::isDisabledProbeClass(LockHolder(&ourLock, LOCK_SITE), ZString("probes/Trace")));
    ourStatus.set(CPU_TRACING);
    EXPECT_FALSE(Probes::isDisabledProbeClass(LockHolder(&ourLock, LOCK_SITE), ZString("probes/Trace")));
    ourStatus.set(CPU_CALL_COUNTING);
    EXPECT_TRUE(Probes::isDisabledProbeClass(LockHolder(&ourLock, LOCK_SITE), ZString("probes/Trace")));
}

TEST_F(InjectionTest, EveryShapeVerifiesWithAProbeOnEveryMethodAndTracing) {
    std::map<std::string, std::string> sources = javaSources(sourceRoot() / "tests/unit/instrumentation/java", {"."});
    sources["probes/Count.java"] =
        "package probes;\nimport com.corvane.probes.*;\n"
        "@MethodPattern(\"Shapes*:*(*)\") public class Count {\n"
        "  static int enters, returns, throwsOut;\n"
        "  static { Runtime.getRuntime().addShutdownHook(new Thread(() -> System.out.println(\n"
        "      \"probe enters=\" + enters + \" exits=\" + (returns + throwsOut) + \" thrown=\" + throwsOut))); }\n"
        "  public static synchronized void onEnter() { enters++; }\n"
        "  public static synchronized void onExit(@ThrownException Throwable t) { if (t == null) returns++; else throwsOut++; }\n"
        "}\n";
    for (const char* release : {"--release 17", "--release 8 -Xlint:-options"}) {
        SCOPED_TRACE(release);
        removeAllProbes();
        fs::remove_all(myWork);
        compileSources(myWork, sources, release);
        registerProbes({"probes/Count"});
        setOptions("_instrument_all_methods");
        ourCapabilities.set(CAPABILITY_TRACING | CAPABILITY_ALLOC_BCI);
        EXPECT_GE(rewrite("Shapes").size(), 5u);
        std::string original = run("classes", "Shapes");
        std::string rewritten = run("patched", "Shapes report");
        EXPECT_EQ(0u, rewritten.find(original)) << rewritten;
        std::smatch m;
        ASSERT_TRUE(std::regex_search(rewritten, m, std::regex("probe enters=([0-9]+) exits=([0-9]+) thrown=([0-9]+)")))
            << rewritten;
        EXPECT_EQ(m[1].str(), m[2].str());
        EXPECT_GT(std::stoi(m[1].str()), 50);
        EXPECT_GT(std::stoi(m[3].str()), 2);
        EXPECT_TRUE(std::regex_search(rewritten, std::regex("errors=0"))) << rewritten;
    }
}

TEST_F(InjectionTest, MethodsThatCannotTakeTheCodeStayAsTheyWere) {
    compileSources(myWork, {{"probes/Wide.java",
                             "package probes;\nimport com.corvane.probes.*;\n"
                             "@MethodPattern(\"targets.Huge:*(*)\") public class Wide {\n"
                             "  public static void onEnter(@MethodName String n, @Params Object[] p) {}\n"
                             "  public static void onExit(@MethodName String n, @ThrownException Throwable t) {}\n}\n"}});
    registerProbes({"probes/Wide"});
    ClassBuilder b;
    b.name = "targets/Huge";
    MethodSpec& longest = b.method("a", "()V");
    longest.code.assign(65530, 0);  // nop...
    longest.code.push_back(0xb1);
    MethodSpec& returns = b.method("b", "()V");
    returns.code.assign(10000, 0xb1);  // return, 10000 times
    int init = methodRef(b, "java/lang/Object", "<init>", "()V");
    // iload_1; tableswitch (default and 0 -> 24); aload_0; invokespecial; return
    MethodSpec& ctor = b.method("<init>", "(I)V", 0x0001);
    ctor.code = {0x1b, 0xaa, 0, 0, 0, 0, 0, 23, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 23,
                 0x2a, 0xb7, (uint8_t)(init >> 8), (uint8_t)init, 0xb1};
    CapturedLog log;
    EXPECT_TRUE(hook(b.build(), "targets/Huge").empty());
    for (const char* expected :
         {"warning: targets.Huge.a() not instrumented by probe probes.Wide because resulting bytecode is too long (A)",
          "warning: targets.Huge.b() not instrumented by probe probes.Wide because resulting bytecode is too long (B)",
          "warning: no 'super' or 'this' call in a constructor: targets.Huge.<init>(int)"}) {
        EXPECT_EQ(1, log.count(expected)) << expected << "\n" << log.content();
    }
}

TEST_F(InjectionTest, EmptyMethodBodiesDoNothingAndVerify) {
    compileSources(myWork, {{"empty/Busy.java",
                             "package empty;\n"
                             "public class Busy extends Base {\n"
                             "  long total;\n"
                             "  public Busy(long start, String name) { super(name.length() > 2 ? name : \"short\", start); total = start; }\n"
                             "  public long add(long x, double y) { total += x; return total; }\n"
                             "  public static String name(int i) { return \"n\" + i; }\n"
                             "}\n"},
                            {"empty/Base.java",
                             "package empty;\n"
                             "public class Base { public String label; public Base(String label, long n) { this.label = label + n; } }\n"},
                            {"empty/Main.java",
                             "package empty;\n"
                             "public class Main { public static void main(String[] a) {\n"
                             "  Busy b = new Busy(5, \"abc\");\n"
                             "  System.out.println(b.label + \" \" + b.total + \" \" + b.add(2, 1.5) + \" \" + Busy.name(3));\n"
                             "} }\n"}});
    Bytes bytes = classBytes("empty/Busy");
    std::unique_ptr<ClassFile> cf = parseClass(bytes);
    for (MethodInfo* m : cf->getMethods()) setEmptyMethodBody(cf.get(), m);
    fs::copy(myWork / "classes", myWork / "emptied", fs::copy_options::recursive);
    writeBytes((myWork / "emptied/empty/Busy.class").string(), writeClass(*cf));
    EXPECT_EQ("abc5 5 7 n3\n", run("classes", "empty.Main"));
    // The super call gets zero values: a null label and 0.
    EXPECT_EQ("null0 0 0 null\n", run("emptied", "empty.Main"));
}

TEST_F(InjectionTest, PatternsSelectTheMethodsOfJdkClasses) {
    compileSources(myWork, {{"probes/JdkPatterns.java",
                             "package probes;\nimport com.corvane.probes.*;\n"
                             "@MethodPattern({\"java.util.HashMap:put(Object, Object) Object\", \"java.util.HashMap:get(*)\",\n"
                             "  \"java.util.HashMap:*(int, float)\", \"java.util.HashMap:resize() java.util.HashMap$Node[]\",\n"
                             "  \"java.util.HashMap:hash(*) int\", \"java.io.FileInputStream:read*(byte[]*)\",\n"
                             "  \"java.io.FileInputStream:skip(long)\", \"-java.io.FileInputStream:read(byte[]) int\"})\n"
                             "public class JdkPatterns { public static void onEnter(@MethodName String name) {} }\n"}});
    registerProbes({"probes/JdkPatterns"});
    fs::path jdk = myWork / "jdk";
    std::string output;
    ASSERT_EQ(0, runCommand(javaHome() + "/bin/jimage extract --dir " + jdk.string() +
                                " --include 'regex:/java.base/java/(util/HashMap|io/FileInputStream).class' " + javaHome() +
                                "/lib/modules",
                            &output))
        << output;
    for (const char* name : {"java/util/HashMap", "java/io/FileInputStream"}) {
        EXPECT_FALSE(hook(readFileBytes((jdk / "java.base" / (std::string(name) + ".class")).string()), name).empty()) << name;
    }
    std::set<std::string> instrumented;
    LockHolder lock(&ourLock, LOCK_SITE);
    auto text = [&](int id) { return std::string(StringPool::getString(lock, id)); };
    ourMethodTable->forEachRecord([&](long long, const MethodRecord& record) {
        if ((record.myFlags & METHOD_FLAG_PROBE_INSTRUMENTED) == 0) return;
        instrumented.insert(text(record.myClass) + "." + text(record.myName) + text(record.myParameters) + " " +
                            text(record.myReturnType));
    });
    EXPECT_EQ(std::set<std::string>({
                  "java.io.FileInputStream.read(byte[], int, int) int",
                  "java.io.FileInputStream.skip(long) long",
                  "java.util.HashMap.<init>(int, float) void",
                  "java.util.HashMap.get(java.lang.Object) java.lang.Object",
                  "java.util.HashMap.hash(java.lang.Object) int",
                  "java.util.HashMap.put(java.lang.Object, java.lang.Object) java.lang.Object",
                  "java.util.HashMap.resize() java.util.HashMap$Node[]",
              }),
              instrumented);
}

}  // namespace
