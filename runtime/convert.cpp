// Conversion of values between SQL types.  One dispatch reads a source of
// any type code; each target says what it makes of an integer, a float, a
// decimal or a text.  Dates and decimals go through their own modules.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "runtime/null_traits.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/decimal.h"
#include "udfkit/null.h"

namespace {

namespace nulls = udfkit::nulls;

constexpr size_t kCharArea = 200;     // numbers, decimals, dates for cvt_char
constexpr size_t kVcharArea = 50;     // text built by cvt_vchar / cvt_blob
constexpr int32_t kVCharMax = 65535;  // largest VCharBuff

// Process-wide state of the conversions (no lock: one call at a time).
ConvertionOverflowHook OverflowHook = nullptr;
char *VCharBuff = nullptr;  // text of vchar/blob sources, grows, never shrinks
int32_t VCharSize = 0;
char CharArea[kCharArea];
char VcharArea[kVcharArea];
char BlobArea[kVcharArea];

// var_data may point at unaligned host storage.
template <class T>
T load(const SqlVar *v) {
    T x;
    std::memcpy(&x, v->var_data, sizeof x);
    return x;
}

bool is_text(uint16_t t) { return t == UDF_T_CHAR || t == UDF_T_VCHAR || t == UDF_T_BLOB; }

// Text of a vchar or blob in VCharBuff: at most 65534 bytes, cut before the
// first NUL byte.  A longer source raises the error flag.
const char *fetch_vchar(const VChar *vc) {
    if (vc->vc_len <= 0) {
        CharArea[0] = '\0';
        return CharArea;
    }
    const int32_t need = vc->vc_len >= kVCharMax ? kVCharMax : vc->vc_len + 1;
    if (need > VCharSize) {
        // On allocation failure the old area stays and the text is cut to
        // it (flag raised below); with no area at all the text is empty.
        if (char *grown = static_cast<char *>(std::malloc(static_cast<size_t>(need)))) {
            std::free(VCharBuff);
            VCharBuff = grown;
            VCharSize = need;
        }
        if (VCharSize == 0) {
            SetConvertionError();
            CharArea[0] = '\0';
            return CharArea;
        }
    }
    if (vc->vc_len > VCharSize - 1) SetConvertionError();
    const size_t max = static_cast<size_t>(vc->vc_len < VCharSize - 1 ? vc->vc_len : VCharSize - 1);
    const void *nul = std::memchr(vc->vc_data, '\0', max);
    const size_t n = nul ? static_cast<size_t>(static_cast<const char *>(nul) - vc->vc_data) : max;
    std::memcpy(VCharBuff, vc->vc_data, n);
    VCharBuff[n] = '\0';
    return VCharBuff;
}

// The text rule: a number starts after blanks, at a digit or a sign.
// Null when the text does not look like a number (no error flag).
const char *number_start(const char *s) {
    while (*s == ' ') ++s;
    const unsigned char c = static_cast<unsigned char>(*s);
    return (std::isdigit(c) || c == '+' || c == '-') ? s : nullptr;
}

// ---- one dispatch on the source's type code

// What a source is to the number, date and decimal targets: its null, an
// integer (widened to 64 bits, with its type code for the date rules), a
// float, a decimal or a text.
struct Source {
    enum class Kind { Null, Int, Float, Dec, Text };
    Kind kind;
    uint16_t type;
    int64_t i;
    double f;
    Decimal d;
    const char *text;
};

// Decimal record of a decimal source.  A corrupt digit count is brought
// into 0 ... 16 so the decimal functions never index past the digits.
Decimal load_decimal(const SqlVar *v) {
    Decimal d = load<Decimal>(v);
    if (d.dec_ndgts < 0) d.dec_ndgts = 0;
    if (d.dec_ndgts > DEC_MAXDGTS) d.dec_ndgts = DEC_MAXDGTS;
    return d;
}

// The one dispatch on the source's type code, with the source's own null
// test (the null traits): a date counts as null only for INT32_MIN here
// (cvt_dtime treats day 0 as null too), and smallfloat and user types have
// no conversion and count as null for every target.
[[gnu::always_inline]] inline Source read_source(SqlVar *v) {
    using Kind = Source::Kind;
    Source s;
    s.type = v->var_type;
    s.kind = Kind::Int;
    bool null;
    switch (v->var_type) {
    case UDF_T_SMALLINT: null = (s.i = load<int16_t>(v)) == nulls::kSmallint; break;
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: null = (s.i = load<int32_t>(v)) == nulls::kInteger; break;
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: null = (s.i = load<int64_t>(v)) == nulls::kLong; break;
    case UDF_T_FLOAT:
        s.kind = Kind::Float;
        s.f = load<double>(v);
        null = nulls::is_float_null(s.f);
        break;
    case UDF_T_DECIMAL:
        s.kind = Kind::Dec;
        s.d = load_decimal(v);
        null = s.d.dec_pos == nulls::kDecimalPos;
        break;
    case UDF_T_CHAR:
        s.kind = Kind::Text;
        s.text = static_cast<const char *>(v->var_data);
        null = nulls::is_text_null(s.text);
        break;
    case UDF_T_VCHAR:
    case UDF_T_BLOB: {
        // A negative length is a corrupt record: no byte of it is read, and
        // it reads as the null (the error flag has causes of its own).
        const VChar *vc = static_cast<const VChar *>(v->var_data);
        s.kind = Kind::Text;
        null = vc->vc_len <= 0;
        if (!null) s.text = fetch_vchar(vc);
        break;
    }
    default: null = true; break;
    }
    if (null) s.kind = Kind::Null;
    return s;
}

bool is_datetime(uint16_t t) {
    return t == UDF_T_DATETIME32 || t == UDF_T_TIMESTAMP || t == UDF_T_DATETIME;
}

// Each target is a record of what it makes of each kind of source.
template <class To>
auto convert(SqlVar *v, To to) {
    const Source s = read_source(v);
    switch (s.kind) {
    case Source::Kind::Int: return to.from_int(s.i, s.type);
    case Source::Kind::Float: return to.from_float(s.f);
    case Source::Kind::Dec: return to.from_decimal(s.d);
    case Source::Kind::Text: return to.from_text(s.text);
    case Source::Kind::Null: break;
    }
    return to.null();
}

// ---- integer targets

// Range test: the hook (with the target's type code) hears of a value
// outside T, which then wraps to T's width.
template <class T>
T wrap(SqlVar *v, int64_t x, int32_t hook_type) {
    if (OverflowHook &&
        (x < INT64_C(0) + std::numeric_limits<T>::min() || x > std::numeric_limits<T>::max()))
        OverflowHook(v, hook_type);
    return static_cast<T>(static_cast<std::make_unsigned_t<T>>(x));
}

double nudge(double d) { return d < 0 ? d - 0.0001 : d + 0.0001; }

// Truncation toward zero into 64 bits.  A float beyond the 64-bit range, an
// infinity or a NaN has no integer value: false.
bool truncate64(double d, int64_t *out) {
    if (!(d > -9223372036854775808.0 && d < 9223372036854775808.0)) return false;
    *out = static_cast<int64_t>(d);
    return true;
}

// A float to integer type T: range-tested for the hook when hook_type is
// not 0, truncated, wrapped to T's width.  A float with no 64-bit value
// gives the target's null, and the error flag stays down: a value out of an
// integer target's range is an overflow, reported only to the hook.
template <class T>
T float_to(SqlVar *v, double d, int32_t hook_type, T null) {
    if (hook_type && OverflowHook &&
        (d > static_cast<double>(std::numeric_limits<T>::max()) ||
         d < static_cast<double>(std::numeric_limits<T>::min())))
        OverflowHook(v, hook_type);
    int64_t x;
    if (!truncate64(d, &x)) return null;
    return static_cast<T>(static_cast<std::make_unsigned_t<T>>(x));
}

int32_t decimal_int(const Decimal &d) {
    int32_t x = nulls::kInteger;
    _dectoint(&d, &x);
    return x;
}

struct ToDouble {
    double null() const { return nulls::float_null(); }
    double from_int(int64_t i, uint16_t) const { return static_cast<double>(i); }
    double from_float(double f) const { return f; }
    double from_decimal(const Decimal &d) const {
        double x = 0.0;
        _dectodbl(&d, &x);
        return x;
    }
    double from_text(const char *t) const {
        const char *p = number_start(t);
        return p ? std::strtod(p, nullptr) : null();
    }
};

struct ToInt {
    SqlVar *v;
    int32_t null() const { return nulls::kInteger; }
    int32_t from_int(int64_t i, uint16_t) const { return wrap<int32_t>(v, i, UDF_T_INTEGER); }
    int32_t from_float(double f) const { return float_to(v, nudge(f), UDF_T_INTEGER, null()); }
    int32_t from_decimal(const Decimal &d) const { return decimal_int(d); }  // no range test
    int32_t from_text(const char *t) const {
        const char *p = number_start(t);
        return p ? from_int(std::strtol(p, nullptr, 10), 0) : null();
    }
};

struct ToShort {
    SqlVar *v;
    int16_t null() const { return nulls::kSmallint; }
    int16_t from_int(int64_t i, uint16_t) const { return wrap<int16_t>(v, i, UDF_T_SMALLINT); }
    int16_t from_float(double f) const { return float_to(v, nudge(f), UDF_T_SMALLINT, null()); }
    int16_t from_decimal(const Decimal &d) const { return from_int(decimal_int(d), 0); }
    int16_t from_text(const char *t) const {
        const char *p = number_start(t);
        return p ? from_int(std::strtol(p, nullptr, 10), 0) : null();
    }
};

struct ToLong {
    SqlVar *v;
    int64_t null() const { return nulls::kLong; }
    int64_t from_int(int64_t i, uint16_t) const { return i; }
    int64_t from_float(double f) const { return float_to(v, nudge(f), 0, null()); }
    int64_t from_decimal(const Decimal &d) const {
        int64_t x = null();
        _dectolong64(&d, &x);
        return x;
    }
    int64_t from_text(const char *t) const {
        const char *p = number_start(t);
        return p ? static_cast<int64_t>(std::strtoll(p, nullptr, 10)) : null();
    }
};

// ---- date and datetime targets: floats are truncated without the nudge

struct ToDate {
    SqlVar *v;
    int32_t null() const { return nulls::kInteger; }
    // A datetime's local day; other integers are day numbers (their low 32 bits).
    int32_t from_int(int64_t i, uint16_t type) const {
        return is_datetime(type) ? GMT2date(i) : static_cast<int32_t>(static_cast<uint32_t>(i));
    }
    int32_t from_float(double f) const { return float_to(v, f, 0, null()); }
    int32_t from_decimal(const Decimal &d) const { return decimal_int(d); }
    int32_t from_text(const char *t) const {
        while (*t == ' ') ++t;
        return char2date(t);
    }
};

struct ToDatetime {
    SqlVar *v;
    int64_t null() const { return nulls::kLong; }
    // A date's local midnight; other integers are seconds.
    int64_t from_int(int64_t i, uint16_t type) const {
        return type == UDF_T_DATE ? date2GMT(static_cast<Date>(i)) : i;
    }
    int64_t from_float(double f) const { return float_to(v, f, 0, null()); }
    int64_t from_decimal(const Decimal &d) const { return decimal_int(d); }
    int64_t from_text(const char *t) const { return Char2GMT(t); }
};

// ---- decimal target: the status of the decimal conversion it ran

struct ToDecimal {
    Decimal *out;
    int32_t null() const {
        snulldec(out);
        return 0;
    }
    int32_t from_int(int64_t i, uint16_t) const { return _deccvlong64(i, out); }
    int32_t from_float(double f) const { return _deccvdbl(out, f); }
    int32_t from_decimal(const Decimal &d) const {
        *out = d;
        return 0;
    }
    int32_t from_text(const char *t) const {
        while (*t == ' ') ++t;
        return _deccvasc(t, static_cast<int32_t>(std::strlen(t)), out);
    }
};

// ---- text targets

// Decimal text of precision p and scale s (var_size p * 256 + s) in area.
// A var_size of 0 stands for precision 16 and every fraction digit; it is
// written back into the caller's record.
const char *decimal_text(SqlVar *v, const Decimal &d, char *area, size_t cap) {
    int32_t width, right;
    bool integral;
    if (v->var_size == 0) {
        v->var_size = 0x10FF;
        width = 18;
        right = 255;
        integral = false;
    } else {
        const int32_t p = v->var_size >> 8, s = v->var_size & 0xff;
        integral = s == 0;
        width = integral ? p : p + 2;
        right = s;
    }
    // Precisions up to 32 digits always fit; a larger one (a caller error)
    // is cut to the area.
    if (width > static_cast<int32_t>(cap) - 1) width = static_cast<int32_t>(cap) - 1;
    _dectoasc(&d, area, width, right);
    area[width] = '\0';
    if (integral) {
        if (char *dot = std::strchr(area, '.')) *dot = '\0';
    }
    if (std::strlen(area) == static_cast<size_t>(width) && area[width - 1] == '.')
        area[width - 1] = '\0';
    return area;
}

// Float text: "%f", or "%g" when "%f" does not fit the area (values of
// about 1e42 and more for the 50-byte areas of cvt_vchar / cvt_blob).
const char *float_text(double d, char *area, size_t cap) {
    const int n = std::snprintf(area, cap, "%f", d);
    if (n < 0 || static_cast<size_t>(n) >= cap) std::snprintf(area, cap, "%g", d);
    return area;
}

// Text of a source that is not null, in `area` unless it is a text itself.
// A timestamp is its number to cvt_char, datetime text to cvt_vchar and
// cvt_blob.
[[gnu::always_inline]] inline const char *text_of(SqlVar *v, const Source &s, char *area,
                                                  size_t cap, bool stamp_as_datetime) {
    switch (s.kind) {
    case Source::Kind::Int:
        if (s.type == UDF_T_DATE)
            date2char(static_cast<Date>(s.i), area);
        else if (is_datetime(s.type) && (s.type != UDF_T_TIMESTAMP || stamp_as_datetime))
            GMT2Char(s.i, area);
        else if (s.i >= INT32_MIN && s.i <= INT32_MAX)  // "%d" is the quicker
            std::snprintf(area, cap, "%d", static_cast<int>(s.i));
        else
            std::snprintf(area, cap, "%lld", static_cast<long long>(s.i));
        return area;
    case Source::Kind::Float: return float_text(s.f, area, cap);
    case Source::Kind::Dec: return decimal_text(v, s.d, area, cap);
    case Source::Kind::Text: return s.text;
    case Source::Kind::Null: break;
    }
    area[0] = '\0';
    return area;
}

void vchar_null(VChar *out) {
    out->vc_len = 0;
    out->vc_data = nullptr;
}

// A copy of n bytes handed over to the caller.  Allocation failure gives the
// null and raises the error flag.
void vchar_copy(const char *bytes, size_t n, VChar *out) {
    char *copy = static_cast<char *>(std::malloc(n + 1));
    if (!copy) {
        SetConvertionError();
        vchar_null(out);
        return;
    }
    std::memcpy(copy, bytes, n);
    copy[n] = '\0';
    out->vc_len = static_cast<int32_t>(n);
    out->vc_data = copy;
}

void to_vchar(SqlVar *v, VChar *out, char *area) {
    // A vchar or blob is copied byte for byte (no terminator counted), also
    // when empty; a negative length is a corrupt record, read as the null.
    if (v->var_type == UDF_T_VCHAR || v->var_type == UDF_T_BLOB) {
        const VChar *src = static_cast<const VChar *>(v->var_data);
        if (src->vc_len < 0) return vchar_null(out);
        return vchar_copy(src->vc_data, static_cast<size_t>(src->vc_len), out);
    }
    const Source s = read_source(v);
    if (s.kind == Source::Kind::Null) return vchar_null(out);
    const char *text = text_of(v, s, area, kVcharArea, true);
    vchar_copy(text, std::strlen(text), out);
}

}  // namespace

extern "C" {

UDFKIT_API void SetConvertionOverflowHook(ConvertionOverflowHook hook) { OverflowHook = hook; }

UDFKIT_API void ReportConvertions(void) {}

UDFKIT_API int32_t _Dbl2Int(double value) {
    // Beyond the 64-bit range (or NaN) there is nothing to truncate: the
    // integer null comes back.
    int64_t x;
    if (!truncate64(nudge(value), &x)) return nulls::kInteger;
    return static_cast<int32_t>(static_cast<uint32_t>(x));
}

UDFKIT_API char *cvt_char(SqlVar *v) {
    if (v->var_type == UDF_T_CHAR) return static_cast<char *>(v->var_data);
    return const_cast<char *>(text_of(v, read_source(v), CharArea, kCharArea, false));
}

UDFKIT_API void cvt_vchar(SqlVar *v, VChar *out) { to_vchar(v, out, VcharArea); }

UDFKIT_API void cvt_blob(SqlVar *v, VChar *out) { to_vchar(v, out, BlobArea); }

UDFKIT_API double cvt_double(SqlVar *v) { return convert(v, ToDouble{}); }

UDFKIT_API int32_t cvt_int(SqlVar *v) { return convert(v, ToInt{v}); }

UDFKIT_API int16_t cvt_short(SqlVar *v) { return convert(v, ToShort{v}); }

UDFKIT_API int64_t cvt_long64(SqlVar *v) { return convert(v, ToLong{v}); }

UDFKIT_API int32_t cvt_date(SqlVar *v) { return convert(v, ToDate{v}); }

UDFKIT_API int64_t cvt_dtime(SqlVar *v) {
    // Here a date of day 0 is null too.
    if (v->var_type == UDF_T_DATE && nulls::is_date_null(load<int32_t>(v))) return nulls::kLong;
    return convert(v, ToDatetime{v});
}

UDFKIT_API int32_t cvt_decimal(SqlVar *v, Decimal *out) {
    if (v->var_type == UDF_T_DECIMAL) {  // the whole record, null included
        *out = load<Decimal>(v);
        return 0;
    }
    return convert(v, ToDecimal{out});
}

UDFKIT_API int32_t cvt_decimal_prec(SqlVar *v, Decimal *out, int32_t size) {
    if (v->var_type == UDF_T_DECIMAL && load<Decimal>(v).dec_pos == nulls::kDecimalPos) {
        snulldec(out);
        return 0;
    }
    const int32_t status = cvt_decimal(v, out);
    // Integers are exact: only text, float and decimal sources are rounded,
    // and then the rounding's status is the answer.
    if (v->var_type == UDF_T_DECIMAL) *out = load_decimal(v);  // digit count kept in range
    if (is_text(v->var_type) || v->var_type == UDF_T_FLOAT || v->var_type == UDF_T_DECIMAL)
        return DecimalRound(out, size);
    return status;
}

}  // extern "C"
