// Shared pieces of the database tests: a fresh database per test, and the
// bytes of one table as written.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "db/DB.h"
#include "db/StringPool.h"
#include "db/ZMethod.h"
#include "foundation/Progress.h"
#include "unit/StreamBytes.h"

// A fresh ourDB for each test, made as the load sequence makes it, but
// with no layer above the database plugged in.
class DBTest : public ::testing::Test {
protected:
    static constexpr int TELEMETRY_LIMIT = 5;

    void SetUp() override {
        DB::ourCreatePseudoThreads = nullptr;
        ZMethod::ourApplyFilters = nullptr;
        DB::resetForTests();
        DB::createAndInitializeDB(DBSettings{TELEMETRY_LIMIT});
        db = ourDB;
    }
    void TearDown() override { DB::resetForTests(); }

    int str(const char* text) { return StringPool::getStrIDImpl(lock, text, false); }
    std::string text(int strId) {
        const char* value = StringPool::getString(lock, strId);
        return value != nullptr ? value : "<null>";
    }
    int method(const char* name, const char* className = "a.B") {
        return ZMethod::getByName(lock, className, name, "()", "void", "B.java", false);
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
