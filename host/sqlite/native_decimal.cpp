// Exact decimals from SQL, built on the library's decimal runtime.
//
//   dec_add(x, y, ...)     exact sum, as text
//   dec_sub(x, y)          exact difference, as text
//   dec_round(x, p, s)     x rounded to s places (half away from zero); NULL
//                          when it does not fit decimal(p, s)
//   dec_cmp(x, y)          -1, 0 or 1
//   dec_format(x, w, s)    x in a field of exactly w characters with s places
//                          (a value that does not fit goes to exponent form,
//                          or to w stars)
//   dec_pack(x [, len])    the packed column form as a BLOB of len bytes
//                          (default 17, the full 32 digits)
//   dec_unpack(b)          a packed BLOB back to text
//   dec_sum(x)             aggregate: exact sum, as text
//
// Arguments may be texts ('1,234.50', '1.5e3'), integers, reals (read to 16
// significant digits, so 0.1 is one tenth exactly) or packed BLOBs.  SQL NULL
// gives NULL; so does a text that is not a number or a result beyond the
// decimal range.
//
// Packed BLOBs of the same length compare (memcmp, hence ORDER BY) in value
// order.  For that, dec_pack writes a zero with the lowest positive header
// (0x80 followed by zero bytes), which loads back as zero, where the runtime's
// store writes the header of exponent 0 (0xC0), above the positive values
// below 0.01.
#include "host/sqlite/bridge.hpp"

#include <cstdint>
#include <cstdio>
#include <string>

#include "udfkit/decimal.h"

namespace {

// The text functions of the runtime share one buffer and the double
// conversion shares a cache: every call holds the library lock.
using udfkit::sqlite::library_lock;
using udfkit::sqlite::LibraryLock;

constexpr int kDefaultPackLen = 17;
constexpr int kMaxPackLen = 64;
constexpr int kMaxFormatWidth = 1000;
constexpr int kTextWidth = 200;  // every value fits in its exact text form

enum class Read { Null, Ok, Bad };

Read read_value(sqlite3_value *v, Decimal *d) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_NULL: return Read::Null;
    case SQLITE_INTEGER: {
        const sqlite3_int64 i = sqlite3_value_int64(v);
        if (i == INT64_MIN) {  // the library's null integer: read as text
            static const char kMin[] = "-9223372036854775808";
            return _deccvasc(kMin, sizeof kMin - 1, d) == 0 ? Read::Ok : Read::Bad;
        }
        _deccvlong64(i, d);
        return Read::Ok;
    }
    case SQLITE_FLOAT: return _deccvdbl(d, sqlite3_value_double(v)) == 0 ? Read::Ok : Read::Bad;
    case SQLITE_BLOB: {
        const int n = sqlite3_value_bytes(v);
        if (n <= 0) return Read::Null;
        _lddecimal(static_cast<const unsigned char *>(sqlite3_value_blob(v)), n, d);
        if (d->dec_pos == -1) return Read::Null;
        if (d->dec_ndgts == 0) d->dec_exp = 0;  // a packed zero may carry any header
        return Read::Ok;
    }
    default: {
        const char *t = reinterpret_cast<const char *>(sqlite3_value_text(v));
        const int n = sqlite3_value_bytes(v);
        if (!t) return Read::Null;
        if (_deccvasc(t, n, d) != 0) return Read::Bad;
        return d->dec_pos == -1 ? Read::Null : Read::Ok;
    }
    }
}

// Reads every argument; false when the result is already set (NULL).
bool read_args(sqlite3_context *ctx, int argc, sqlite3_value **argv, Decimal *out) {
    for (int i = 0; i < argc; ++i) {
        if (read_value(argv[i], &out[i]) != Read::Ok) {
            sqlite3_result_null(ctx);
            return false;
        }
    }
    return true;
}

// The exact text of a value: every fraction digit it holds, no padding.
std::string exact_text(const Decimal &d) {
    if (d.dec_ndgts == 0) return "0";
    char f[kTextWidth];
    _dectoasc(&d, f, kTextWidth, -1);
    int n = kTextWidth;
    while (n > 0 && f[n - 1] == ' ') --n;
    return std::string(f, static_cast<size_t>(n));
}

void result_text(sqlite3_context *ctx, const std::string &s) {
    sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

void result_decimal(sqlite3_context *ctx, const Decimal &d, int32_t rc) {
    if (rc != 0 || d.dec_pos == -1) {
        sqlite3_result_null(ctx);
        return;
    }
    result_text(ctx, exact_text(d));
}

void fn_add(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    LibraryLock lock(library_lock());
    Decimal sum{}, x{};
    sum.dec_pos = 1;
    for (int i = 0; i < argc; ++i) {
        if (!read_args(ctx, 1, argv + i, &x)) return;
        if (_decadd(&sum, &x, &sum) != 0) {
            sqlite3_result_null(ctx);
            return;
        }
    }
    result_decimal(ctx, sum, 0);
}

void fn_sub(sqlite3_context *ctx, int, sqlite3_value **argv) {
    LibraryLock lock(library_lock());
    Decimal d[2], r;
    if (!read_args(ctx, 2, argv, d)) return;
    DecimalNeg(&d[1]);
    result_decimal(ctx, r, _decadd(&d[0], &d[1], &r));
}

void fn_cmp(sqlite3_context *ctx, int, sqlite3_value **argv) {
    LibraryLock lock(library_lock());
    Decimal d[2];
    if (!read_args(ctx, 2, argv, d)) return;
    sqlite3_result_int(ctx, DecimalCompare(&d[0], &d[1]));
}

bool int_arg(sqlite3_context *ctx, sqlite3_value *v, const char *what, int lo, int hi, int *out) {
    const int t = sqlite3_value_type(v);
    const sqlite3_int64 i = sqlite3_value_int64(v);
    if (t != SQLITE_INTEGER || i < lo || i > hi) {
        char msg[120];
        std::snprintf(msg, sizeof msg, "%s must be an integer from %d to %d", what, lo, hi);
        sqlite3_result_error(ctx, msg, -1);
        return false;
    }
    *out = static_cast<int>(i);
    return true;
}

void fn_round(sqlite3_context *ctx, int, sqlite3_value **argv) {
    int p, s;
    if (!int_arg(ctx, argv[1], "dec_round: precision", 1, 2 * DEC_MAXDGTS, &p)) return;
    if (!int_arg(ctx, argv[2], "dec_round: scale", 0, p, &s)) return;
    LibraryLock lock(library_lock());
    Decimal d;
    if (!read_args(ctx, 1, argv, &d)) return;
    // DEC_EROUNDPOS: the value has no digit at that scale; it is exact already.
    DecimalRound(&d, p * 256 + s);
    // The rounding may leave counted zero digits, or a zero with its sign.
    int n = d.dec_ndgts;
    while (n > 0 && d.dec_digits[n - 1] == 0) --n;
    if (n == 0) {
        d = Decimal{};
        d.dec_pos = 1;
    }
    d.dec_ndgts = static_cast<int16_t>(n);
    const int int_digits = n == 0 ? 0 : 2 * d.dec_exp - (d.dec_digits[0] < 10 ? 1 : 0);
    if (int_digits > p - s) {  // the integer part is too wide for decimal(p, s)
        sqlite3_result_null(ctx);
        return;
    }
    if (s == 0) {
        result_text(ctx, exact_text(d));
        return;
    }
    char f[kTextWidth];
    _dectoasc(&d, f, kTextWidth, s);
    int w = kTextWidth;
    while (w > 0 && f[w - 1] == ' ') --w;
    result_text(ctx, std::string(f, static_cast<size_t>(w)));
}

void fn_format(sqlite3_context *ctx, int, sqlite3_value **argv) {
    int w, s;
    if (!int_arg(ctx, argv[1], "dec_format: width", 1, kMaxFormatWidth, &w)) return;
    if (!int_arg(ctx, argv[2], "dec_format: places", -1, 2 * DEC_MAXDGTS + 128, &s)) return;
    LibraryLock lock(library_lock());
    Decimal d;
    if (!read_args(ctx, 1, argv, &d)) return;
    std::string f(static_cast<size_t>(w), ' ');
    _dectoasc(&d, f.data(), w, s);
    result_text(ctx, f);
}

void fn_pack(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    int len = kDefaultPackLen;
    if (argc > 1 && !int_arg(ctx, argv[1], "dec_pack: length", 2, kMaxPackLen, &len)) return;
    LibraryLock lock(library_lock());
    Decimal d;
    if (!read_args(ctx, 1, argv, &d)) return;
    unsigned char buf[kMaxPackLen];
    _stdecimal(&d, buf, len);
    if (d.dec_ndgts == 0) buf[0] = 0x80;  // zero: see the note at the top
    sqlite3_result_blob(ctx, buf, len, SQLITE_TRANSIENT);
}

void fn_unpack(sqlite3_context *ctx, int, sqlite3_value **argv) {
    if (sqlite3_value_type(argv[0]) != SQLITE_BLOB) {
        sqlite3_result_error(ctx, "dec_unpack: argument must be a packed BLOB", -1);
        return;
    }
    LibraryLock lock(library_lock());
    Decimal d;
    if (!read_args(ctx, 1, argv, &d)) return;
    result_decimal(ctx, d, 0);
}

struct SumState {
    Decimal sum;
    bool started;
    bool failed;
};

void sum_step(sqlite3_context *ctx, int, sqlite3_value **argv) {
    auto *st = static_cast<SumState *>(sqlite3_aggregate_context(ctx, sizeof(SumState)));
    if (!st) {
        sqlite3_result_error_nomem(ctx);
        return;
    }
    if (st->failed) return;
    LibraryLock lock(library_lock());
    Decimal x;
    switch (read_value(argv[0], &x)) {
    case Read::Null: return;
    case Read::Bad: st->failed = true; return;
    case Read::Ok: break;
    }
    if (!st->started) {
        st->sum = x;
        st->started = true;
        return;
    }
    if (_decadd(&st->sum, &x, &st->sum) != 0) st->failed = true;
}

void sum_final(sqlite3_context *ctx) {
    auto *st = static_cast<SumState *>(sqlite3_aggregate_context(ctx, 0));
    if (!st || !st->started || st->failed) {
        sqlite3_result_null(ctx);
        return;
    }
    LibraryLock lock(library_lock());
    result_decimal(ctx, st->sum, 0);
}

// No exception (a failed allocation of a result text) goes back into SQLite.
template <void (*F)(sqlite3_context *, int, sqlite3_value **)>
void guarded(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    try {
        F(ctx, argc, argv);
    } catch (...) {
        sqlite3_result_error_nomem(ctx);
    }
}

void sum_final_guarded(sqlite3_context *ctx) noexcept {
    try {
        sum_final(ctx);
    } catch (...) {
        sqlite3_result_error_nomem(ctx);
    }
}

int register_decimal(sqlite3 *db) {
    using Scalar = void (*)(sqlite3_context *, int, sqlite3_value **);
    struct Def {
        const char *name;
        int nargs;
        Scalar fn;
    } defs[] = {
        {"dec_add", -1, guarded<fn_add>},       {"dec_sub", 2, guarded<fn_sub>},
        {"dec_cmp", 2, guarded<fn_cmp>},        {"dec_round", 3, guarded<fn_round>},
        {"dec_format", 3, guarded<fn_format>},  {"dec_pack", 1, guarded<fn_pack>},
        {"dec_pack", 2, guarded<fn_pack>},      {"dec_unpack", 1, guarded<fn_unpack>},
    };
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    for (const Def &d : defs) {
        const int rc = sqlite3_create_function(db, d.name, d.nargs, flags, nullptr, d.fn, nullptr,
                                               nullptr);
        if (rc != SQLITE_OK) return rc;
    }
    return sqlite3_create_function(db, "dec_sum", 1, flags, nullptr, nullptr, guarded<sum_step>,
                                   sum_final_guarded);
}

const udfkit::sqlite::NativeBlock kDecimalNatives(register_decimal);

}  // namespace
