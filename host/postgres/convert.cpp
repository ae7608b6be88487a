// Values between PostgreSQL's Datums and the bridge's records.
//
// Dates: the library's day 1 is 1 January 1810, PostgreSQL's day 0 is
// 1 January 2000; infinite dates and timestamps reach the library as its
// nulls.  Datetimes are seconds since 1970 UTC; a timestamp without time
// zone is taken in the session's time zone first.  Results follow the
// SQLite host: the null of the declared result type (the empty text,
// INT32_MIN for an integer, the all-ones double...) is SQL NULL.
extern "C" {
#include "postgres.h"

#include "catalog/pg_type.h"
#include "datatype/timestamp.h"
#include "utils/builtins.h"
#include "utils/date.h"
#include "utils/datetime.h"
#include "utils/lsyscache.h"
#include "utils/timestamp.h"
}

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/postgres/convert.hpp"
#include "runtime/null_traits.hpp"
#include "sqlhelp/date.hpp"
#include "sqlhelp/text.hpp"

namespace udfkit::pg {

namespace {

constexpr int64_t kEpochShift =
    static_cast<int64_t>(POSTGRES_EPOCH_JDATE - UNIX_EPOCH_JDATE) * SECS_PER_DAY;

// PostgreSQL's day of the library's day 1.
int32_t day_one() {
    static const int32_t d = date2j(1810, 1, 1) - POSTGRES_EPOCH_JDATE;
    return d;
}

// The null of the declared result type (the nulls of every host).
bool pushed_null(const Pushed &p, int32_t rtype) {
    switch (p.kind) {
    case Pushed::None: return true;
    case Pushed::Text: return p.len == 0;
    case Pushed::Real: return nulls::is_float_null(p.d);
    case Pushed::DateTime: return p.i == nulls::kLong;
    default: return nulls::is_int_null(p.i, rtype);
    }
}

// The text of a pushed number or datetime, ready for a varlena header.
char *number_text(const Pushed &p, size_t *len) noexcept {
    char buf[sqlhelp::kRealTextMax];
    size_t n = 0;
    try {
        switch (p.kind) {
        case Pushed::Real: n = sqlhelp::real_to_text(p.d, buf); break;
        case Pushed::DateTime: {
            const auto t = sqlhelp::datetime_text(p.i);
            n = t ? std::min(t->size(), sizeof buf - 1) : 0;
            if (t) std::memcpy(buf, t->data(), n);
            break;
        }
        default: n = static_cast<size_t>(std::snprintf(buf, sizeof buf, "%" PRId64, p.i)); break;
        }
    } catch (...) {
        return nullptr;
    }
    *len = n;
    return copy_for_varlena(buf, n);
}

Datum text_result(const Pushed &p, bool utf8, bool *isnull, const char *fn) {
    char *buf = p.buf;
    size_t len = p.len;
    if (p.kind != Pushed::Text && !(buf = number_text(p, &len)))
        ereport(ERROR, (errcode(ERRCODE_OUT_OF_MEMORY), errmsg("udfkit: out of memory in %s()", fn)));
    if (utf8) {
        // A character cut at either end goes; one broken inside is an error.
        const char *s = buf + VARHDRSZ;
        size_t n = len;
        sqlhelp::utf8_trim_ends(s, n);
        if (n != len) std::memmove(buf + VARHDRSZ, s, n);
        len = n;
        if (!sqlhelp::utf8_valid(buf + VARHDRSZ, len))
            ereport(ERROR, (errcode(ERRCODE_CHARACTER_NOT_IN_REPERTOIRE),
                            errmsg("udfkit: %s() gave a text that is not valid UTF-8", fn)));
        if (len == 0) return Datum(0);
    }
    SET_VARSIZE(buf, VARHDRSZ + len);
    *isnull = false;
    return PointerGetDatum(buf);
}

// A pushed value as an integer; false for none (an empty or non-numeric
// text, a NaN).
bool pushed_int(const Pushed &p, int64_t *v) {
    switch (p.kind) {
    case Pushed::Real:
        if (std::isnan(p.d) || std::fabs(p.d) >= 9.2233720368547758e18) return false;
        *v = static_cast<int64_t>(std::trunc(p.d));
        return true;
    case Pushed::Text: {
        char *end;
        errno = 0;
        char tmp[64];
        const size_t n = p.len < sizeof tmp - 1 ? p.len : sizeof tmp - 1;
        std::memcpy(tmp, p.buf + VARHDRSZ, n);
        tmp[n] = '\0';
        *v = std::strtoll(tmp, &end, 10);
        return end != tmp && errno == 0;
    }
    default: *v = p.i; return true;
    }
}

bool pushed_double(const Pushed &p, double *v) {
    if (p.kind == Pushed::Real) {
        *v = p.d;
        return true;
    }
    int64_t i;
    if (p.kind == Pushed::Text) {
        char tmp[400];
        const size_t n = p.len < sizeof tmp - 1 ? p.len : sizeof tmp - 1;
        std::memcpy(tmp, p.buf + VARHDRSZ, n);
        tmp[n] = '\0';
        char *end;
        *v = std::strtod(tmp, &end);
        return end != tmp;
    }
    if (!pushed_int(p, &i)) return false;
    *v = static_cast<double>(i);
    return true;
}

[[noreturn]] void out_of_range(const char *fn) {
    ereport(ERROR, (errcode(ERRCODE_NUMERIC_VALUE_OUT_OF_RANGE),
                    errmsg("udfkit: the result of %s() is out of range for its type", fn)));
}

Datum integer_result(const Pushed &p, Out out, bool *isnull, const char *fn) {
    int64_t v;
    if (!pushed_int(p, &v)) return Datum(0);
    *isnull = false;
    switch (out) {
    case Out::Int2:
        if (v < INT16_MIN || v > INT16_MAX) out_of_range(fn);
        return Int16GetDatum(static_cast<int16>(v));
    case Out::Int4:
        if (v < INT32_MIN || v > INT32_MAX) out_of_range(fn);
        return Int32GetDatum(static_cast<int32>(v));
    default: return Int64GetDatum(v);
    }
}

}  // namespace

int64_t day_from_pg(int32_t pg_date) noexcept {
    return static_cast<int64_t>(pg_date) - day_one() + 1;
}

bool day_to_pg(int64_t day, int32_t *pg_date) noexcept {
    if (nulls::is_date_null(day)) return false;
    const int64_t d = day - 1 + day_one();
    if (d < INT32_MIN || d > INT32_MAX || !IS_VALID_DATE(static_cast<int32_t>(d))) return false;
    *pg_date = static_cast<int32_t>(d);
    return true;
}

int64_t seconds_from_pg(int64_t ts) noexcept {
    int64_t s = ts / USECS_PER_SEC;
    if (ts % USECS_PER_SEC < 0) --s;  // floor
    return s + kEpochShift;
}

bool seconds_to_pg(int64_t seconds, int64_t *ts) noexcept {
    if (seconds == nulls::kLong) return false;
    const int64_t s = seconds - kEpochShift;
    if (s > INT64_MAX / USECS_PER_SEC || s < INT64_MIN / USECS_PER_SEC) return false;
    const int64_t v = s * USECS_PER_SEC;
    if (!IS_VALID_TIMESTAMP(v)) return false;
    *ts = v;
    return true;
}

In in_class(Oid type) noexcept {
    switch (type) {
    case TEXTOID: case VARCHAROID: case BPCHAROID: return In::Text;
    case BYTEAOID: return In::Bytes;
    case INT2OID: return In::Int2;
    case INT4OID: return In::Int4;
    case INT8OID: return In::Int8;
    case BOOLOID: return In::Bool;
    case FLOAT4OID: return In::Float4;
    case FLOAT8OID: return In::Float8;
    case DATEOID: return In::Date;
    case TIMESTAMPOID: return In::Timestamp;
    case TIMESTAMPTZOID: return In::TimestampTz;
    default: return In::Other;
    }
}

Out out_class(Oid type) noexcept {
    switch (type) {
    case VOIDOID: return Out::Void;
    case BYTEAOID: return Out::Bytes;
    case INT2OID: return Out::Int2;
    case INT4OID: return Out::Int4;
    case INT8OID: return Out::Int8;
    case FLOAT8OID: return Out::Float8;
    case DATEOID: return Out::Date;
    case TIMESTAMPTZOID: return Out::TimestampTz;
    case RECORDOID: return Out::Record;
    default: return Out::Text;
    }
}

void read_datum(Datum d, In cls, Oid type, Arg &a) {
    switch (cls) {
    case In::Text:
    case In::Bytes: {
        const text *t = reinterpret_cast<const text *>(PG_DETOAST_DATUM_PACKED(d));
        a.kind = cls == In::Text ? Arg::Text : Arg::Bytes;
        a.p = VARDATA_ANY(t);
        a.len = VARSIZE_ANY_EXHDR(t);
        return;
    }
    case In::Int2: a.kind = Arg::Int; a.i = DatumGetInt16(d); return;
    case In::Int4: a.kind = Arg::Int; a.i = DatumGetInt32(d); return;
    case In::Int8: a.kind = Arg::Int; a.i = DatumGetInt64(d); return;
    case In::Bool: a.kind = Arg::Int; a.i = DatumGetBool(d) ? 1 : 0; return;
    case In::Float4: a.kind = Arg::Real; a.d = DatumGetFloat4(d); return;
    case In::Float8: a.kind = Arg::Real; a.d = DatumGetFloat8(d); return;
    case In::Date: {
        const DateADT v = DatumGetDateADT(d);
        if (DATE_NOT_FINITE(v)) return;  // the null date
        a.kind = Arg::Date;
        a.i = day_from_pg(v);
        return;
    }
    case In::Timestamp: d = DirectFunctionCall1(timestamp_timestamptz, d); [[fallthrough]];
    case In::TimestampTz: {
        const TimestampTz v = DatumGetTimestampTz(d);
        if (TIMESTAMP_NOT_FINITE(v)) return;
        a.kind = Arg::DateTime;
        a.i = seconds_from_pg(v);
        return;
    }
    case In::Other: {
        Oid out;
        bool varlena;
        getTypeOutputInfo(type, &out, &varlena);
        const char *s = OidOutputFunctionCall(out, d);
        a.kind = Arg::Text;
        a.p = s;
        a.len = std::strlen(s);
        return;
    }
    }
}

Datum result_datum(const Pushed &p, int32_t rtype, Out out, bool *isnull, const char *fn) {
    *isnull = true;
    if (pushed_null(p, rtype)) return Datum(0);
    switch (out) {
    case Out::Text: return text_result(p, true, isnull, fn);
    case Out::Bytes: return text_result(p, false, isnull, fn);
    case Out::Int2:
    case Out::Int4:
    case Out::Int8: return integer_result(p, out, isnull, fn);
    case Out::Float8: {
        double v;
        if (!pushed_double(p, &v)) return Datum(0);
        *isnull = false;
        return Float8GetDatum(v);
    }
    case Out::Date: {
        int64_t day;
        int32_t v;
        if (!pushed_int(p, &day) || !day_to_pg(day, &v)) return Datum(0);
        *isnull = false;
        return DateADTGetDatum(v);
    }
    case Out::TimestampTz: {
        int64_t s, v;
        if (!pushed_int(p, &s) || !seconds_to_pg(s, &v)) return Datum(0);
        *isnull = false;
        return TimestampTzGetDatum(v);
    }
    default: return Datum(0);
    }
}

}  // namespace udfkit::pg
