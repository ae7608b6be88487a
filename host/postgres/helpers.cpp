// The SQL helpers of this host, over the shared helpers of sqlhelp/:
//   todate(text [, setting]) date     a date text under DBDATE (or setting)
//   datetext(date) text               a date as text under DBDATE
//   todatetime(text) timestamptz      "date [hh:mm:ss]" under DBDATETIME, local
//   datetimetext(timestamptz) text    local "date hh:mm:ss"
//   today() date                      today (DBTODAY when set)
//   datesettings() text               "DMY4/ DMY4/"
//   dec_pack(numeric [, len]) bytea   the packed column form (len 2-64, 17)
//   dec_unpack(bytea) numeric         a packed value back
//   dec_round(numeric, p, s) numeric  rounded to s places, NULL beyond decimal(p,s)
//   dec_format(numeric, w, s) text    a field of exactly w characters
//   cvt(value, target) text           the engine's conversion, as text
//   cvterror() integer                1 when a conversion failed since the last call
// A text that is no date, a value beyond the decimal range and a target's
// null give NULL.  The frames here are C-like (see pg.hpp): the C++ work
// runs inside `cpp`, which never lets anything escape.
extern "C" {
#include "postgres.h"

#include "catalog/pg_type.h"
#include "fmgr.h"
#include "utils/lsyscache.h"
#include "utils/builtins.h"
#include "utils/date.h"
#include "utils/timestamp.h"
}

#include <cstring>
#include <string>

#include "host/postgres/convert.hpp"
#include "host/postgres/pg.hpp"
#include "sqlhelp/convert.hpp"
#include "sqlhelp/date.hpp"
#include "sqlhelp/decimal.hpp"
#include "sqlhelp/text.hpp"

namespace udfkit::pg {

namespace {

template <class F>
bool cpp(F &&body) noexcept {
    try {
        body();
        return true;
    } catch (...) {
        return false;
    }
}

[[noreturn]] void no_memory(const char *fn) {
    ereport(ERROR, (errcode(ERRCODE_OUT_OF_MEMORY), errmsg("udfkit: out of memory in %s()", fn)));
}

// A text built by C++ code, as a varlena-ready buffer (null for none).
struct Built {
    char *buf = nullptr;
    size_t len = 0;
    bool failed = false;
};

void keep(Built &b, const std::string &s) {
    b.buf = copy_for_varlena(s.data(), s.size());
    b.len = s.size();
    b.failed = b.buf == nullptr;
}

Datum text_or_null(FunctionCallInfo fcinfo, const Built &b, const char *fn) {
    if (b.failed) no_memory(fn);
    if (!b.buf) PG_RETURN_NULL();
    SET_VARSIZE(b.buf, VARHDRSZ + b.len);
    PG_RETURN_POINTER(b.buf);
}

Datum date_or_null(FunctionCallInfo fcinfo, std::optional<Date> d) {
    int32_t v;
    if (!d || !day_to_pg(*d, &v)) PG_RETURN_NULL();
    PG_RETURN_DATEADT(v);
}

int int_arg(FunctionCallInfo fcinfo, int i, const char *what, int lo, int hi) {
    const int32 v = PG_GETARG_INT32(i);
    if (v < lo || v > hi)
        ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                        errmsg("%s must be between %d and %d", what, lo, hi)));
    return v;
}

// A numeric argument as a library decimal; false when it is no number the
// library holds (NaN, infinities, beyond its range).
bool decimal_arg(FunctionCallInfo fcinfo, int i, Decimal *d) {
    const char *s = DatumGetCString(DirectFunctionCall1(numeric_out, PG_GETARG_DATUM(i)));
    return sqlhelp::dec_read_text(s, std::strlen(s), *d) == sqlhelp::DecRead::Ok;
}

Datum numeric_or_null(FunctionCallInfo fcinfo, const Built &b, const char *fn) {
    if (b.failed) no_memory(fn);
    if (!b.buf) PG_RETURN_NULL();
    char *s = pnstrdup(b.buf + VARHDRSZ, b.len);
    return DirectFunctionCall3(numeric_in, CStringGetDatum(s), ObjectIdGetDatum(InvalidOid),
                               Int32GetDatum(-1));
}

// What a conversion gave, in plain data: texts, bytes and numbers land in
// the Built text, dates and datetimes are a day or seconds here.
struct Converted {
    bool known = true;  // false: an unknown target
    bool date = false, datetime = false;
    int64_t value = 0;
};

// Runs the conversion (C++ work: the result's storage never outlives it).
void convert_arg(const Arg &a, const char *target, Converted &out, Built &b) {
    using sqlhelp::CvtSource;
    const auto type = sqlhelp::parse_cvt_target(target);
    if (!type) {
        out.known = false;
        return;
    }
    CvtSource src;
    switch (a.kind) {
    case Arg::Int: src.set_integer(a.i, CvtSource::Mark::None); break;
    case Arg::Date: src.set_integer(a.i, CvtSource::Mark::Date); break;
    case Arg::DateTime: src.set_integer(a.i, CvtSource::Mark::Datetime); break;
    case Arg::Real: src.set_real(a.d); break;
    case Arg::Text: src.set_text(a.p); break;
    default: src.set_bytes(a.p, a.len); break;
    }
    const sqlhelp::CvtResult r = sqlhelp::convert(src, *type);
    using K = sqlhelp::CvtResult::Kind;
    out.date = r.kind == K::Date;
    out.datetime = r.kind == K::Datetime;
    out.value = r.integer;
    switch (r.kind) {
    case K::Text:
    case K::Bytes:
        if (sqlhelp::utf8_valid(r.bytes.data(), r.bytes.size())) {
            keep(b, r.bytes);
        } else {
            static const char hex[] = "0123456789abcdef";
            std::string h = "\\x";
            for (unsigned char c : r.bytes) {
                h += hex[c >> 4];
                h += hex[c & 15];
            }
            keep(b, h);
        }
        break;
    case K::Real: {
        char buf[sqlhelp::kRealTextMax];
        keep(b, std::string(buf, sqlhelp::real_to_text(r.real, buf)));
        break;
    }
    case K::Integer: keep(b, std::to_string(r.integer)); break;
    default: break;
    }
}

Datum date_text_datum(FunctionCallInfo fcinfo, int64_t day) {
    int32_t v;
    if (!day_to_pg(day, &v)) PG_RETURN_NULL();
    return DirectFunctionCall1(textin, DirectFunctionCall1(date_out, DateADTGetDatum(v)));
}

Datum datetime_text_datum(FunctionCallInfo fcinfo, int64_t seconds) {
    int64_t v;
    if (!seconds_to_pg(seconds, &v)) PG_RETURN_NULL();
    return DirectFunctionCall1(textin, DirectFunctionCall1(timestamptz_out, TimestampTzGetDatum(v)));
}

}  // namespace

}  // namespace udfkit::pg

using namespace udfkit::pg;
using namespace udfkit::sqlhelp;

extern "C" {

PG_FUNCTION_INFO_V1(udfkit_pg_todate);
Datum udfkit_pg_todate(PG_FUNCTION_ARGS) {
    const char *value = text_to_cstring(PG_GETARG_TEXT_PP(0));
    const char *setting = PG_NARGS() > 1 ? text_to_cstring(PG_GETARG_TEXT_PP(1)) : nullptr;
    return date_or_null(fcinfo, date_parse(value, setting));
}

PG_FUNCTION_INFO_V1(udfkit_pg_datetext);
Datum udfkit_pg_datetext(PG_FUNCTION_ARGS) {
    const DateADT v = PG_GETARG_DATEADT(0);
    Built b;
    if (!DATE_NOT_FINITE(v) && !cpp([&] {
            if (auto t = date_text(static_cast<Date>(day_from_pg(v)))) keep(b, *t);
        }))
        b.failed = true;
    return text_or_null(fcinfo, b, "datetext");
}

PG_FUNCTION_INFO_V1(udfkit_pg_todatetime);
Datum udfkit_pg_todatetime(PG_FUNCTION_ARGS) {
    const auto t = datetime_parse(text_to_cstring(PG_GETARG_TEXT_PP(0)));
    int64_t ts;
    if (!t || !seconds_to_pg(*t, &ts)) PG_RETURN_NULL();
    PG_RETURN_TIMESTAMPTZ(ts);
}

PG_FUNCTION_INFO_V1(udfkit_pg_datetimetext);
Datum udfkit_pg_datetimetext(PG_FUNCTION_ARGS) {
    const TimestampTz v = PG_GETARG_TIMESTAMPTZ(0);
    Built b;
    if (!TIMESTAMP_NOT_FINITE(v) && !cpp([&] {
            if (auto t = datetime_text(seconds_from_pg(v))) keep(b, *t);
        }))
        b.failed = true;
    return text_or_null(fcinfo, b, "datetimetext");
}

PG_FUNCTION_INFO_V1(udfkit_pg_today);
Datum udfkit_pg_today(PG_FUNCTION_ARGS) { return date_or_null(fcinfo, date_today()); }

PG_FUNCTION_INFO_V1(udfkit_pg_datesettings);
Datum udfkit_pg_datesettings(PG_FUNCTION_ARGS) {
    Built b;
    if (!cpp([&] { keep(b, date_settings()); })) b.failed = true;
    return text_or_null(fcinfo, b, "datesettings");
}

PG_FUNCTION_INFO_V1(udfkit_pg_dec_pack);
Datum udfkit_pg_dec_pack(PG_FUNCTION_ARGS) {
    const int len = PG_NARGS() > 1 ? int_arg(fcinfo, 1, "dec_pack: length", kDecMinPackLen,
                                             kDecMaxPackLen)
                                   : kDecDefaultPackLen;
    Decimal d;
    if (!decimal_arg(fcinfo, 0, &d)) PG_RETURN_NULL();
    Built b;
    if (!cpp([&] {
            const auto packed = dec_pack(d, len);
            b.buf = copy_for_varlena(reinterpret_cast<const char *>(packed.data()), packed.size());
            b.len = packed.size();
            b.failed = !b.buf;
        }))
        b.failed = true;
    return text_or_null(fcinfo, b, "dec_pack");
}

PG_FUNCTION_INFO_V1(udfkit_pg_dec_unpack);
Datum udfkit_pg_dec_unpack(PG_FUNCTION_ARGS) {
    const bytea *p = PG_GETARG_BYTEA_PP(0);
    Decimal d;
    if (dec_read_packed(reinterpret_cast<const unsigned char *>(VARDATA_ANY(p)),
                        VARSIZE_ANY_EXHDR(p), d) != DecRead::Ok)
        PG_RETURN_NULL();
    Built b;
    if (!cpp([&] { keep(b, dec_text(d)); })) b.failed = true;
    return numeric_or_null(fcinfo, b, "dec_unpack");
}

PG_FUNCTION_INFO_V1(udfkit_pg_dec_round);
Datum udfkit_pg_dec_round(PG_FUNCTION_ARGS) {
    const int p = int_arg(fcinfo, 1, "dec_round: precision", 1, kDecMaxPrecision);
    const int s = int_arg(fcinfo, 2, "dec_round: scale", 0, p);
    Decimal d;
    if (!decimal_arg(fcinfo, 0, &d)) PG_RETURN_NULL();
    Built b;
    if (!cpp([&] {
            if (auto t = dec_round_text(d, p, s)) keep(b, *t);
        }))
        b.failed = true;
    return numeric_or_null(fcinfo, b, "dec_round");
}

PG_FUNCTION_INFO_V1(udfkit_pg_dec_format);
Datum udfkit_pg_dec_format(PG_FUNCTION_ARGS) {
    const int w = int_arg(fcinfo, 1, "dec_format: width", 1, kDecMaxFormatWidth);
    const int s = int_arg(fcinfo, 2, "dec_format: places", kDecMinFormatPlaces, kDecMaxFormatPlaces);
    Decimal d;
    if (!decimal_arg(fcinfo, 0, &d)) PG_RETURN_NULL();
    Built b;
    if (!cpp([&] { keep(b, dec_field(d, w, s)); })) b.failed = true;
    return text_or_null(fcinfo, b, "dec_format");
}

// cvt: the source's type follows the argument's PostgreSQL type (text is
// char, bytea a blob, a date a date, a timestamptz a datetime); dates and
// datetimes come back in PostgreSQL's own text for them, bytes that are
// not UTF-8 in bytea's hexadecimal form.
PG_FUNCTION_INFO_V1(udfkit_pg_cvt);
Datum udfkit_pg_cvt(PG_FUNCTION_ARGS) {
    if (PG_ARGISNULL(0) || PG_ARGISNULL(1)) PG_RETURN_NULL();
    const char *target = text_to_cstring(PG_GETARG_TEXT_PP(1));
    const Oid type = get_fn_expr_argtype(fcinfo->flinfo, 0);
    Arg a;
    read_datum(PG_GETARG_DATUM(0), in_class(type), type, a);
    if (a.kind == Arg::Null) PG_RETURN_NULL();
    if (a.kind == Arg::Text) a.p = pnstrdup(a.p, a.len);
    Built b;
    Converted c;
    if (!cpp([&] { convert_arg(a, target, c, b); })) b.failed = true;
    if (!c.known)
        ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                        errmsg("cvt: unknown target type \"%s\"", target)));
    if (c.date) return date_text_datum(fcinfo, c.value);
    if (c.datetime) return datetime_text_datum(fcinfo, c.value);
    return text_or_null(fcinfo, b, "cvt");
}

PG_FUNCTION_INFO_V1(udfkit_pg_cvterror);
Datum udfkit_pg_cvterror(PG_FUNCTION_ARGS) { PG_RETURN_INT32(IsConvertionError()); }

}  // extern "C"
