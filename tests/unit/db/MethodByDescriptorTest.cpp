#include "unit/DBTestSupport.h"

static int byDescriptor(const LockHolder& lock, ZMethod::ClassStrings& known, const char* className, const char* name,
                        const char* descriptor, const char* source = "A.java") {
    return ZMethod::getByDescriptor(lock, known, className, name, (int)strlen(name), descriptor,
                                    (int)strlen(descriptor), source, false);
}

// The descriptor form must name the same methods as getByName and number new
// strings in the same order, whatever it knew already.
TEST_F(DBTest, MethodsByDescriptorMatchMethodsByName) {
    ZMethod::ClassStrings known;
    int first = byDescriptor(lock, known, "p.A", "run", "(I[Ljava/lang/String;)J");
    EXPECT_EQ("p.A.run(int, java.lang.String[]) long [A.java]", describe(first));
    MethodRecord* record = ZMethod::getRecord(first);
    // Indices in the order name, parameters, class, return type, source file.
    EXPECT_LT(record->myName, record->myParameters);
    EXPECT_LT(record->myParameters, record->myClass);
    EXPECT_LT(record->myClass, record->myReturnType);
    EXPECT_LT(record->myReturnType, record->mySourceFile);
    EXPECT_EQ(first, ZMethod::getByName(lock, "p.A", "run", "(int, java.lang.String[])", "long", "A.java", false));

    // A known descriptor and class: only the new name is a new string.
    int before = StringPool::getStringCount();
    int second = byDescriptor(lock, known, "p.A", "walk", "(I[Ljava/lang/String;)J");
    EXPECT_EQ(before + 1, StringPool::getStringCount());
    EXPECT_EQ(second, ZMethod::getByName(lock, "p.A", "walk", "(int, java.lang.String[])", "long", "A.java", false));

    // Another class with a known descriptor: name and class are new, in that order.
    ZMethod::ClassStrings other;
    int third = byDescriptor(lock, other, "p.B", "jump", "(I[Ljava/lang/String;)J", "B.java");
    MethodRecord* r3 = ZMethod::getRecord(third);
    EXPECT_EQ(record->myParameters, r3->myParameters);
    EXPECT_LT(r3->myName, r3->myClass);
    EXPECT_LT(r3->myClass, r3->mySourceFile);
    EXPECT_EQ(third, byDescriptor(lock, other, "p.B", "jump", "(I[Ljava/lang/String;)J", "B.java"));

    EXPECT_EQ(METHOD_FLAG_NEVER_EXCLUDED, ZMethod::getFlags(byDescriptor(lock, known, "p.A", "invokeIt", "()V")));
    EXPECT_EQ(4096, byDescriptor(lock, known, "p.A", "<<init>>", "()V"));
}

// After a collection the remembered indices may name other texts: they are
// looked up again.
TEST_F(DBTest, MethodsByDescriptorSurviveCollectedStrings) {
    ZMethod::ClassStrings known;
    byDescriptor(lock, known, "p.A", "run", "(J)V");
    int epoch = StringPool::getEpoch();
    DB::resetForTests();
    DB::createAndInitializeDB(DBSettings{TELEMETRY_LIMIT});
    EXPECT_NE(epoch, StringPool::getEpoch());
    EXPECT_EQ("p.A.run(long) void [A.java]", describe(byDescriptor(lock, known, "p.A", "run", "(J)V")));
}
