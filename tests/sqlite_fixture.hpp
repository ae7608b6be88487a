// End-to-end tests: a real SQLite connection with the extension loaded.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <vector>

namespace udfkit::test {

class SqliteDb {
public:
    SqliteDb() {
        if (sqlite3_open(":memory:", &db_) != SQLITE_OK) throw std::runtime_error("open");
        sqlite3_enable_load_extension(db_, 1);
        char *err = nullptr;
        if (sqlite3_load_extension(db_, UDFKIT_SQLITE_EXTENSION, nullptr, &err) != SQLITE_OK) {
            std::string msg = err ? err : "load failed";
            sqlite3_free(err);
            throw std::runtime_error(msg);
        }
    }
    ~SqliteDb() { sqlite3_close(db_); }
    SqliteDb(const SqliteDb &) = delete;
    SqliteDb &operator=(const SqliteDb &) = delete;
    sqlite3 *handle() const { return db_; }

    // Runs statements that return nothing; fails the test on error.
    void exec(const std::string &sql) {
        char *err = nullptr;
        int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
        EXPECT_EQ(rc, SQLITE_OK) << sql << ": " << (err ? err : "");
        sqlite3_free(err);
    }

    // Every row of a query, each value rendered as text ("NULL" for NULL,
    // "i:" before integers and "r:" before reals so types are checked too).
    std::vector<std::vector<std::string>> rows(const std::string &sql) {
        std::vector<std::vector<std::string>> out;
        sqlite3_stmt *st = nullptr;
        const bool prepared = sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) == SQLITE_OK;
        int rc = SQLITE_ERROR;
        while (prepared && (rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::vector<std::string> row;
            for (int i = 0; i < sqlite3_column_count(st); ++i) row.push_back(render(st, i));
            out.push_back(std::move(row));
        }
        if (rc != SQLITE_DONE) ADD_FAILURE() << sql << ": " << sqlite3_errmsg(db_);
        sqlite3_finalize(st);
        return out;
    }

    // The first column of the first row.
    std::string one(const std::string &sql) {
        auto r = rows(sql);
        return r.empty() || r[0].empty() ? "<no row>" : r[0][0];
    }

    // The error message of a statement that must fail.
    std::string error(const std::string &sql) {
        char *err = nullptr;
        int rc = sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &err);
        std::string msg = rc == SQLITE_OK ? "<no error>" : (err ? err : "error");
        sqlite3_free(err);
        return msg;
    }

    static std::string render(sqlite3_stmt *st, int i) {
        switch (sqlite3_column_type(st, i)) {
        case SQLITE_NULL: return "NULL";
        case SQLITE_INTEGER: return "i:" + std::to_string(sqlite3_column_int64(st, i));
        case SQLITE_FLOAT: {
            char buf[64];
            snprintf(buf, sizeof buf, "r:%.10g", sqlite3_column_double(st, i));
            return buf;
        }
        default: {
            const unsigned char *t = sqlite3_column_text(st, i);
            return std::string(reinterpret_cast<const char *>(t), sqlite3_column_bytes(st, i));
        }
        }
    }

private:
    sqlite3 *db_ = nullptr;
};

}  // namespace udfkit::test
