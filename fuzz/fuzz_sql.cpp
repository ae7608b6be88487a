// Every registered SQL function through the SQLite extension, with
// arguments built from the fuzzer's bytes: integers, reals (huge, tiny,
// NaN-free), texts and blobs of any bytes, NULLs, and calls nested in
// arguments.  Values are bound as parameters, so any byte reaches the
// function.  Checks: no crash or sanitizer finding, and every text result
// valid UTF-8.
//   per call: function index, argument count, then per argument a type
//   byte and its value; a statement runs up to four calls.
#include <cmath>
#include <vector>

#include "fuzz/sql_fuzz_db.hpp"

namespace {

using fuzzsql::Reader;

struct Binding {
    int type;  // SQLITE_INTEGER, SQLITE_FLOAT, SQLITE_TEXT, SQLITE_BLOB, SQLITE_NULL
    int64_t i = 0;
    double d = 0;
    std::string s;
};

const fuzzsql::Function &pick(Reader &in, bool scalar_only) {
    for (;;) {
        const auto &f = fuzzsql::kFunctions[in.byte() % fuzzsql::kFunctionCount];
        if (!scalar_only || f.kind == UDFKIT_KIND_SCALAR || in.empty()) return f;
    }
}

void argument(Reader &in, int depth, std::string &sql, std::vector<Binding> &binds);

// name(arg, ...) with a fuzzed number of arguments within the declared
// range (outside it, the name may be one of SQLite's own functions).
void call(Reader &in, const fuzzsql::Function &f, int depth, std::string &sql,
          std::vector<Binding> &binds) {
    int hi = f.max_args < 0 ? f.min_args + 6 : f.max_args;
    int n = f.min_args + in.byte() % (hi - f.min_args + 1);
    sql += f.name;
    sql += '(';
    for (int a = 0; a < n; ++a) {
        if (a) sql += ',';
        argument(in, depth, sql, binds);
    }
    sql += ')';
}

void argument(Reader &in, int depth, std::string &sql, std::vector<Binding> &binds) {
    uint8_t t = in.byte();
    Binding b{SQLITE_NULL};
    switch (t % 8) {
        case 0: b.type = SQLITE_NULL; break;
        case 1: b.type = SQLITE_INTEGER; b.i = static_cast<int8_t>(in.byte()); break;
        case 2: {
            b.type = SQLITE_INTEGER;
            uint64_t v = 0;
            for (int k = 0; k < 8; ++k) v = v << 8 | in.byte();
            b.i = static_cast<int64_t>(v);
            break;
        }
        case 3: {
            b.type = SQLITE_FLOAT;
            int exp = static_cast<int8_t>(in.byte()) * 3;
            b.d = (static_cast<int16_t>(in.byte() << 8 | in.byte()) / 7.0) * std::pow(10.0, exp);
            if (!std::isfinite(b.d)) b.d = 1e308;
            break;
        }
        case 4: case 5: b.type = SQLITE_TEXT; b.s = in.chunk(512); break;
        case 6: b.type = SQLITE_BLOB; b.s = in.chunk(512); break;
        case 7:
            if (depth < 3) {
                call(in, pick(in, true), depth + 1, sql, binds);
                return;
            }
            b.type = SQLITE_TEXT;
            b.s = in.chunk(64);
            break;
    }
    sql += '?';
    binds.push_back(std::move(b));
}

void describe(const std::vector<Binding> &binds) {
    std::string &out = fuzzsql::g_arguments;
    out.clear();
    char buf[64];
    for (const Binding &b : binds) {
        if (b.type == SQLITE_INTEGER) snprintf(buf, sizeof buf, "%lld", static_cast<long long>(b.i));
        else if (b.type == SQLITE_FLOAT) snprintf(buf, sizeof buf, "%.17g", b.d);
        else if (b.type == SQLITE_NULL) snprintf(buf, sizeof buf, "NULL");
        else {
            out += b.type == SQLITE_BLOB ? "x'" : "text x'";
            for (unsigned char c : b.s) { snprintf(buf, sizeof buf, "%02x", c); out += buf; }
            out += "' ";
            continue;
        }
        out += buf;
        out += ' ';
    }
}

void bind_all(sqlite3_stmt *st, const std::vector<Binding> &binds) {
    describe(binds);
    for (size_t k = 0; k < binds.size(); ++k) {
        const Binding &b = binds[k];
        int i = static_cast<int>(k) + 1;
        switch (b.type) {
            case SQLITE_INTEGER: sqlite3_bind_int64(st, i, b.i); break;
            case SQLITE_FLOAT: sqlite3_bind_double(st, i, b.d); break;
            case SQLITE_TEXT: sqlite3_bind_text(st, i, b.s.data(), static_cast<int>(b.s.size()), SQLITE_TRANSIENT); break;
            case SQLITE_BLOB: sqlite3_bind_blob(st, i, b.s.data(), static_cast<int>(b.s.size()), SQLITE_TRANSIENT); break;
            default: sqlite3_bind_null(st, i); break;
        }
    }
}

// One statement: a table-valued function in FROM, or up to four calls in
// the select list.
std::string statement(Reader &in, std::vector<Binding> &binds) {
    const auto &first = pick(in, false);
    std::string sql = "select ";
    if (first.kind == UDFKIT_KIND_TWO) {
        sql += "* from ";
        call(in, first, 0, sql, binds);
        return sql;
    }
    call(in, first, 0, sql, binds);
    for (int more = in.byte() % 4; more > 0 && !in.empty(); --more) {
        sql += ", ";
        call(in, pick(in, true), 0, sql, binds);
    }
    return sql;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static sqlite3 *db = fuzzsql::open_db();
    Reader in(data, size);
    while (!in.empty()) {
        std::vector<Binding> binds;
        std::string sql = statement(in, binds);
        sqlite3_stmt *st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK && st) {
            bind_all(st, binds);
            fuzzsql::drain(st);
        }
        sqlite3_finalize(st);
    }
    return 0;
}
