// What the SQL fuzz targets share: a connection with the SQLite extension
// loaded, the function table as data, a reader of the fuzzer's bytes, and
// the check that every text a statement returns is valid UTF-8.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sqlhelp/text.hpp"
#include "udfkit/sqlfunc.h"

namespace fuzzsql {

struct Function {
    const char *name;
    int min_args, max_args, kind;
};

inline constexpr Function kFunctions[] = {
#define FUZZSQL_ROW(name, lo, hi, kind, state, c1, c2) {#name, lo, hi, kind},
    UDFKIT_ALL_SQLFUNCS(FUZZSQL_ROW)
#undef FUZZSQL_ROW
};
inline constexpr size_t kFunctionCount = sizeof kFunctions / sizeof kFunctions[0];

// The fuzzer's bytes, taken from the front; zeros once they run out.
class Reader {
public:
    Reader(const uint8_t *data, size_t size) : p_(data), end_(data + size) {}
    bool empty() const { return p_ == end_; }
    uint8_t byte() { return p_ < end_ ? *p_++ : 0; }
    // Up to `max` bytes, ended early by a 0xff byte (which is dropped).
    std::string chunk(size_t max) {
        std::string out;
        while (p_ < end_ && out.size() < max) {
            uint8_t c = *p_++;
            if (c == 0xff) break;
            out += static_cast<char>(c);
        }
        return out;
    }

private:
    const uint8_t *p_, *end_;
};

// What a failing statement was given, printed with it.
inline std::string g_arguments;

inline void fail(const char *what, const char *sql) {
    fprintf(stderr, "%s\nstatement: %s\narguments: %s\n", what, sql, g_arguments.c_str());
    std::abort();
}

// An in-memory database with the extension loaded, dictionaries from the
// source tree.
inline sqlite3 *open_db() {
    setenv("UDFKIT_DICT_DIR", UDFKIT_SOURCE_DIR "/data", 0);
    sqlite3 *db = nullptr;
    if (sqlite3_open(":memory:", &db) != SQLITE_OK) fail("open", "");
    sqlite3_enable_load_extension(db, 1);
    char *err = nullptr;
    if (sqlite3_load_extension(db, UDFKIT_SQLITE_EXTENSION, nullptr, &err) != SQLITE_OK)
        fail(err ? err : "load_extension", "");
    // Keeps fuzzed calls from asking for hundreds of megabytes.
    sqlite3_limit(db, SQLITE_LIMIT_LENGTH, 1 << 20);
    return db;
}

// Steps a prepared statement to the end (at most `max_rows`), checking
// that every text value is valid UTF-8.  Errors from SQL are fine.
inline void drain(sqlite3_stmt *st, int max_rows = 64) {
    for (int row = 0; row < max_rows && sqlite3_step(st) == SQLITE_ROW; ++row) {
        for (int c = 0; c < sqlite3_column_count(st); ++c) {
            if (sqlite3_column_type(st, c) != SQLITE_TEXT) continue;
            const char *t = reinterpret_cast<const char *>(sqlite3_column_text(st, c));
            size_t n = static_cast<size_t>(sqlite3_column_bytes(st, c));
            if (t && !udfkit::sqlhelp::utf8_valid(t, n)) fail("invalid UTF-8 in a text result", sqlite3_sql(st));
        }
    }
}

inline void run(sqlite3 *db, const std::string &sql) {
    sqlite3_stmt *st = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK && st) drain(st);
    sqlite3_finalize(st);
}

}  // namespace fuzzsql
