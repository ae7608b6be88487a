// Exact decimals from SQL (the rules are in sqlhelp/decimal.hpp):
//
//   dec_add(x, y, ...)     exact sum, as text
//   dec_sub(x, y)          exact difference, as text
//   dec_round(x, p, s)     x rounded to s places (half away from zero); NULL
//                          when it does not fit decimal(p, s)
//   dec_cmp(x, y)          -1, 0 or 1
//   dec_format(x, w, s)    x in a field of exactly w characters with s places
//   dec_pack(x [, len])    the packed column form as a BLOB of len bytes
//                          (default 17, the full 32 digits); BLOBs of one
//                          length sort in value order
//   dec_unpack(b)          a packed BLOB back to text
//   dec_sum(x)             aggregate: exact sum, as text
//
// Arguments may be texts ('1,234.50', '1.5e3'), integers, reals (read to 16
// significant digits, so 0.1 is one tenth exactly) or packed BLOBs.  SQL NULL
// gives NULL; so does a value that is not a number or a result beyond the
// decimal range.
#include <string>

#include "host/sqlite/bridge.hpp"
#include "sqlhelp/decimal.hpp"

namespace {

using namespace udfkit::sqlhelp;
using udfkit::sqlite::guarded;

DecRead read_value(sqlite3_value *v, Decimal &d) {
    switch (sqlite3_value_type(v)) {
    case SQLITE_NULL: return DecRead::Null;
    case SQLITE_INTEGER: return dec_read_int(sqlite3_value_int64(v), d);
    case SQLITE_FLOAT: return dec_read_real(sqlite3_value_double(v), d);
    case SQLITE_BLOB: {
        const auto *b = static_cast<const unsigned char *>(sqlite3_value_blob(v));
        return dec_read_packed(b, static_cast<size_t>(sqlite3_value_bytes(v)), d);
    }
    default: {
        const char *t = reinterpret_cast<const char *>(sqlite3_value_text(v));
        if (!t) return DecRead::Null;
        return dec_read_text(t, static_cast<size_t>(sqlite3_value_bytes(v)), d);
    }
    }
}

// Reads every argument; false when the result is already set (NULL).
bool read_args(sqlite3_context *ctx, int argc, sqlite3_value **argv, Decimal *out) {
    for (int i = 0; i < argc; ++i) {
        if (read_value(argv[i], out[i]) != DecRead::Ok) {
            sqlite3_result_null(ctx);
            return false;
        }
    }
    return true;
}

void result_text(sqlite3_context *ctx, const std::string &s) {
    sqlite3_result_text(ctx, s.data(), static_cast<int>(s.size()), SQLITE_TRANSIENT);
}

void result_decimal(sqlite3_context *ctx, const std::optional<Decimal> &d) {
    if (d && d->dec_pos != -1)
        result_text(ctx, dec_text(*d));
    else
        sqlite3_result_null(ctx);
}

bool int_arg(sqlite3_context *ctx, sqlite3_value *v, const char *what, int lo, int hi, int *out) {
    const sqlite3_int64 i = sqlite3_value_int64(v);
    if (sqlite3_value_type(v) != SQLITE_INTEGER || i < lo || i > hi) {
        sqlite3_result_error(ctx, range_message(what, lo, hi).c_str(), -1);
        return false;
    }
    *out = static_cast<int>(i);
    return true;
}

void fn_add(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        Decimal sum{}, x;
        sum.dec_pos = 1;
        for (int i = 0; i < argc; ++i) {
            if (!read_args(ctx, 1, argv + i, &x)) return;
            if (!dec_accumulate(sum, x)) return sqlite3_result_null(ctx);
        }
        result_decimal(ctx, sum);
    });
}

void fn_sub(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        Decimal d[2];
        if (read_args(ctx, 2, argv, d)) result_decimal(ctx, dec_subtract(d[0], d[1]));
    });
}

void fn_cmp(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        Decimal d[2];
        if (read_args(ctx, 2, argv, d)) sqlite3_result_int(ctx, dec_compare(d[0], d[1]));
    });
}

void fn_round(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        int p, s;
        Decimal d;
        if (!int_arg(ctx, argv[1], "dec_round: precision", 1, kDecMaxPrecision, &p) ||
            !int_arg(ctx, argv[2], "dec_round: scale", 0, p, &s) || !read_args(ctx, 1, argv, &d))
            return;
        if (auto text = dec_round_text(d, p, s))
            result_text(ctx, *text);
        else
            sqlite3_result_null(ctx);
    });
}

void fn_format(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        int w, s;
        Decimal d;
        if (int_arg(ctx, argv[1], "dec_format: width", 1, kDecMaxFormatWidth, &w) &&
            int_arg(ctx, argv[2], "dec_format: places", kDecMinFormatPlaces, kDecMaxFormatPlaces,
                    &s) &&
            read_args(ctx, 1, argv, &d))
            result_text(ctx, dec_field(d, w, s));
    });
}

void fn_pack(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        int len = kDecDefaultPackLen;
        Decimal d;
        if (argc > 1 &&
            !int_arg(ctx, argv[1], "dec_pack: length", kDecMinPackLen, kDecMaxPackLen, &len))
            return;
        if (!read_args(ctx, 1, argv, &d)) return;
        const auto packed = dec_pack(d, len);
        sqlite3_result_blob(ctx, packed.data(), len, SQLITE_TRANSIENT);
    });
}

void fn_unpack(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        const int type = sqlite3_value_type(argv[0]);
        if (type == SQLITE_NULL) return sqlite3_result_null(ctx);
        if (type != SQLITE_BLOB)
            return sqlite3_result_error(ctx, "dec_unpack: argument must be a packed BLOB", -1);
        Decimal d;
        if (read_args(ctx, 1, argv, &d)) result_decimal(ctx, d);
    });
}

struct SumState {
    Decimal sum;
    bool started;
    bool failed;
};

void sum_step(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        auto *st = static_cast<SumState *>(sqlite3_aggregate_context(ctx, sizeof(SumState)));
        if (!st) return sqlite3_result_error_nomem(ctx);
        Decimal x;
        if (st->failed) return;
        switch (read_value(argv[0], x)) {
        case DecRead::Null: return;
        case DecRead::NotNumber: st->failed = true; return;
        case DecRead::Ok: break;
        }
        if (!st->started) {
            st->sum = x;
            st->started = true;
        } else if (!dec_accumulate(st->sum, x)) {
            st->failed = true;
        }
    });
}

void sum_final(sqlite3_context *ctx) noexcept {
    guarded(ctx, [&] {
        auto *st = static_cast<SumState *>(sqlite3_aggregate_context(ctx, 0));
        if (!st || !st->started || st->failed) return sqlite3_result_null(ctx);
        result_decimal(ctx, st->sum);
    });
}

int register_decimal(sqlite3 *db) {
    using Scalar = void (*)(sqlite3_context *, int, sqlite3_value **);
    const struct {
        const char *name;
        int nargs;
        Scalar fn;
    } defs[] = {
        {"dec_add", -1, fn_add},    {"dec_sub", 2, fn_sub},       {"dec_cmp", 2, fn_cmp},
        {"dec_round", 3, fn_round}, {"dec_format", 3, fn_format}, {"dec_pack", 1, fn_pack},
        {"dec_pack", 2, fn_pack},   {"dec_unpack", 1, fn_unpack},
    };
    const int flags = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    for (const auto &d : defs) {
        const int rc =
            sqlite3_create_function(db, d.name, d.nargs, flags, nullptr, d.fn, nullptr, nullptr);
        if (rc != SQLITE_OK) return rc;
    }
    return sqlite3_create_function(db, "dec_sum", 1, flags, nullptr, nullptr, sum_step, sum_final);
}

const udfkit::sqlite::NativeBlock kDecimalNatives(register_decimal);

}  // namespace
