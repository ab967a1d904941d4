// Method patterns: what each valid pattern parses into, the exact message of
// each invalid one, and the readable descriptor forms they are matched with.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "db/SignatureNames.h"
#include "db/SignatureUtil.h"
#include "foundation/System.h"

namespace {

struct Parsed {
    std::string error, cls, method, signature, returnType, classAnnotation, methodAnnotation;
};

Parsed parse(const char* pattern) {
    ZString c, m, s, r, ca, ma;
    ZString error = SignatureUtil::parseMethodPattern(ZString(pattern), c, m, s, r, ca, ma);
    return Parsed{error.c_str(), c.c_str(), m.c_str(), s.c_str(), r.c_str(), ca.c_str(), ma.c_str()};
}

TEST(MethodPattern, ValidPatternsInTheirNormalForm) {
    struct Case {
        const char *pattern, *cls, *method, *signature, *returnType, *classAnnotation, *methodAnnotation;
    } cases[] = {
        {"java.io.File:delete()", "java.io.File", "delete", "()", "*", "", ""},
        {"java.io.File:delete( )", "java.io.File", "delete", "()", "*", "", ""},
        {" java.io.File : delete ( ) ", "java.io.File", "delete", "()", "*", "", ""},
        {"*:*(*)", "*", "*", "(*)", "*", "", ""},
        {"foo:bar(,int)", "foo", "bar", "(int)", "*", "", ""},
        {"a.B:m(int,long , String,Object[],Class) String", "a.B", "m",
         "(int, long, java.lang.String, java.lang.Object[], java.lang.Class)", "java.lang.String", "", ""},
        {"a.B:m(String[]) Object[]", "a.B", "m", "(java.lang.String[])", "java.lang.Object[]", "", ""},
        {"a.B:m(Class[], java.lang.Class) Class", "a.B", "m", "(Class[], java.lang.Class)", "java.lang.Class", "", ""},
        {"a.B:m(*[], int[]*, int[*], int[]*[]) int[][]", "a.B", "m", "(*[], int[]*, int[*], int[]*[])", "int[][]", "",
         ""},
        {"a.B:<init>()", "a.B", "<init>", "()", "*", "", ""},
        {"a.B:<clinit>() void", "a.B", "<clinit>", "()", "void", "", ""},
        {"@javax.ejb.* com.acme.*:run()", "com.acme.*", "run", "()", "*", "javax.ejb.*", ""},
        {"com.acme.*:@javax.annotation.PostConstruct *()", "com.acme.*", "*", "()", "*", "",
         "javax.annotation.PostConstruct"},
        {"@  a.A   b.B:@ m.M  x()", "b.B", "x", "()", "*", "a.A", "m.M"},
        {"$x._y$:\xc3\xa9t\xc3\xa9" "2()", "$x._y$", "\xc3\xa9t\xc3\xa9" "2", "()", "*", "", ""},
        {"java.util.*:get(*)", "java.util.*", "get", "(*)", "*", "", ""},
    };
    for (const Case& c : cases) {
        Parsed p = parse(c.pattern);
        EXPECT_EQ("", p.error) << c.pattern;
        EXPECT_EQ((std::vector<std::string>{c.cls, c.method, c.signature, c.returnType, c.classAnnotation,
                                            c.methodAnnotation}),
                  (std::vector<std::string>{p.cls, p.method, p.signature, p.returnType, p.classAnnotation,
                                            p.methodAnnotation}))
            << c.pattern;
    }
}

TEST(MethodPattern, EachInvalidPatternHasItsExactMessage) {
    const char* syntax = "invalid pattern syntax, must be <class>:<method>(<params>)";
    struct Case {
        const char *pattern, *error;
    } cases[] = {
        {"java.io.File.delete()", syntax},
        {"a.B:m)(", syntax},
        {"a.B(:m)", syntax},
        {"a.B:m(", syntax},
        {"", syntax},
        {"@x:run()", "class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern>"},
        {"@ x:run()", "class pattern with annotation is invalid, must be: @<annotation pattern> <class pattern>"},
        {"@x y z:run()", "class annotation pattern is invalid: x y"},
        {"@x- y:run()", "class annotation pattern is invalid: x-"},
        {":run()", "class name pattern is invalid: "},
        {"a..b:run()", "class name pattern is invalid: a..b"},
        {".a:run()", "class name pattern is invalid: .a"},
        {"a.:run()", "class name pattern is invalid: a."},
        {"a.1b:run()", "class name pattern is invalid: a.1b"},
        {"a b:run()", "class name pattern is invalid: a b"},
        {"a.B:()", "method name pattern is invalid: "},
        {"a.B:<i*t>()", "method name pattern is invalid: <i*t>"},
        {"a.B:9m()", "method name pattern is invalid: 9m"},
        {"a.B:m.n()", "method name pattern is invalid: m.n"},
        {"a.B:@ m()", "method pattern with annotation is invalid, must be: @<annotation pattern> <method pattern>"},
        {"a.B:@run()", "method pattern with annotation is invalid, must be: @<annotation pattern> <method pattern>"},
        {"a.B:@p- m()", "method annotation pattern is invalid: p-"},
        {"a.B:m() int)x", "return type pattern is invalid: int)x"},
        {"a.B:m() int)", ""},  // ends with ")": no return type at all
        {"a.B:m() []", "return type pattern is invalid: []"},
        {"a.B:m() int[", "return type pattern is invalid: int["},
        {"a.B:m() int]", "return type pattern is invalid: int]"},
        {"a.B:m() int[[]]", "return type pattern is invalid: int[[]]"},
        {"a.B:m() int[]x", "return type pattern is invalid: int[]x"},
        {"a.B:m() int long", "return type pattern is invalid: int long"},
        {"foo:bar( ,int)", "parameter pattern is invalid: "},
        {"a.B:m(int, [])", "parameter pattern is invalid: []"},
        {"a.B:m(int long)", "parameter pattern is invalid: int long"},
        {"a.B:m(x-y)", "parameter pattern is invalid: x-y"},
    };
    for (const Case& c : cases) EXPECT_EQ(c.error, parse(c.pattern).error) << "'" << c.pattern << "'";
}

TEST(MethodPattern, NameRules) {
    // Identifiers and type names without and with wildcards; any byte with the top bit passes.
    struct Case {
        bool (*rule)(const ZString&, bool);
        const char* name;
        bool wildcards, valid;
    } cases[] = {
        {isValidJavaIdentifier, "a1$_", false, true}, {isValidJavaIdentifier, "a*", false, false},
        {isValidJavaIdentifier, "*", true, true},     {isValidJavaIdentifier, "1a", true, false},
        {isValidJavaIdentifier, "\xff", false, true}, {isValidTypeName, "a..b", true, false},
        {isValidTypeName, "a.*.c", true, true},       {isValidTypeName, "a.*.c", false, false},
    };
    for (const Case& c : cases) EXPECT_EQ(c.valid, c.rule(ZString(c.name), c.wildcards)) << c.name << " " << c.wildcards;
    for (const char* pattern : {"[]", "a[", "a[*]["}) EXPECT_FALSE(isValidParameterTypePattern(ZString(pattern))) << pattern;
    ZString expanded("String");
    expandJavaLangType(&expanded);
    EXPECT_EQ(ZString("java.lang.String"), expanded);
    EXPECT_THROW(expandJavaLangType(nullptr), KZTRuntimeException);
    EXPECT_EQ(ZString("Lcom/acme/*;"), className2signature(ZString("com.acme.*")));
    EXPECT_EQ(ZString(""), className2signature(ZString("")));
}

TEST(MethodPattern, DescriptorConversions) {
    struct Case {
        const char *descriptor, *parameters, *returnType;
    } cases[] = {
        {"(ILjava/lang/String;[J)V", "(int, java.lang.String, long[])", "void"},
        {"()Ljava/lang/Object;", "()", "java.lang.Object"},
        {"([[Ljava/util/Map$Entry;ZBCSFD)[[I", "(java.util.Map$Entry[][], boolean, byte, char, short, float, double)",
         "int[][]"},
        {"(J)", "(long)", ""},
        {"V", "()", "void"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(ZString(c.parameters), convertMethodSignatureToParameters(ZString(c.descriptor))) << c.descriptor;
        EXPECT_EQ(ZString(c.returnType), getReturnTypeFromMethodSignature(ZString(c.descriptor))) << c.descriptor;
    }
    EXPECT_EQ(ZString("Bar"), convertClassSignatureToFullName("Bar"));
    EXPECT_EQ(ZString("java.lang.Object"), convertClassSignatureToFullName("java/lang/Object"));
    EXPECT_EQ(ZString("byte[]"), convertClassSignatureToFullName("[B"));
}

TEST(MethodPattern, OneStarCoversAWholeParameterList) {
    EXPECT_TRUE(wildcardMatch("(*)", "()"));
    EXPECT_TRUE(wildcardMatch("(*)", "(int, long)"));
    EXPECT_TRUE(wildcardMatch("(*[])", "(java.lang.String[])"));
    EXPECT_FALSE(wildcardMatch("(int)", "(int, int)"));
}

}  // namespace
