// Shared pieces of the database tests: a fresh database per test, methods
// and frames by name, and the bytes of one table as written.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "db/CodePointStorage.h"
#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ZFrameStorage.h"
#include "db/ZMethod.h"
#include "foundation/Progress.h"
#include "unit/StreamBytes.h"

// A fresh ourDB for each test, made as the load sequence makes it, with the
// joints to the layers above as `installJoints` leaves them (none here).
class DBTest : public ::testing::Test {
protected:
    static constexpr int TELEMETRY_LIMIT = 5;

    void SetUp() override {
        DB::ourCreatePseudoThreads = nullptr;
        ZMethod::ourApplyFilters = nullptr;
        installJoints();
        DB::resetForTests();
        DB::createAndInitializeDB(DBSettings{TELEMETRY_LIMIT});
        db = ourDB;
    }
    void TearDown() override { DB::resetForTests(); }
    virtual void installJoints() {}

    int str(const char* text) { return StringPool::getStrIDImpl(lock, text, false); }
    std::string text(int strId) {
        const char* value = StringPool::getString(lock, strId);
        return value != nullptr ? value : "<null>";
    }
    int method(const char* name, const char* className = "a.B") {
        return ZMethod::getByName(lock, className, name, "()", "void", "B.java", false);
    }
    // A method row as "class.name(parameters) return [source]".
    std::string describe(int methodId) {
        MethodRecord* r = ZMethod::getRecord(methodId);
        if (r == nullptr) return "<no method>";
        return text(r->myClass) + "." + text(r->myName) + text(r->myParameters) + " " + text(r->myReturnType) + " [" +
               text(r->mySourceFile) + "]";
    }
    // A code point as "name", or "name@line" when it has a line.
    std::string pointName(int codePoint) {
        MethodRecord* r = ZMethod::getRecord(CodePointStorage::getMethod(codePoint));
        std::string name = r != nullptr ? text(r->myName) : "?";
        int line = CodePointStorage::getLine(codePoint);
        return line > 0 ? name + "@" + std::to_string(line) : name;
    }
    // The path of a frame of the shared tree, root first: "a/b@3/c".
    std::string pathOf(int frame) {
        std::string path;
        for (int f = frame; f >= 1; f = ZFrameStorage::getParent(f)) {
            std::string part = pointName(db->getFrameTable()->getPtr(f, false)->myCodePoint);
            path = path.empty() ? part : part + "/" + path;
        }
        return path;
    }
    // The bytes of one table written since `since`.
    std::vector<uint8_t> writeTable(DBTableBase* table, int since) {
        MemoryWriter writer;
        Progress progress(-1);
        table->writeTable(writer, since, 0, 0, &progress);
        return writer.done();
    }

    LockHolder lock{&ourLock, "test"};
    DB* db = nullptr;
};
