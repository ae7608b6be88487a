// Conversion of values between SQL types.  Every function dispatches once on
// the source's type code; dates and decimals go through their own modules.
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/decimal.h"
#include "udfkit/null.h"

namespace {

constexpr size_t kCharArea = 200;   // numbers, decimals, dates for cvt_char
constexpr size_t kVcharArea = 50;   // text built by cvt_vchar / cvt_blob
constexpr int32_t kVCharMax = 65535;  // largest VCharBuff

// Process-wide state of the conversions (no lock: one call at a time).
ConvertionOverflowHook OverflowHook = nullptr;
char *VCharBuff = nullptr;  // text of vchar/blob sources, grows, never shrinks
int32_t VCharSize = 0;
char CharArea[kCharArea];
char VcharArea[kVcharArea];
char BlobArea[kVcharArea];

constexpr int16_t kNullShort = INT16_MIN;
constexpr int32_t kNullInt = INT32_MIN;
constexpr int64_t kNullLong = INT64_MIN;

double null_double() {
    const uint64_t ones = ~0ull;
    double d;
    std::memcpy(&d, &ones, sizeof d);
    return d;
}

// var_data may point at unaligned host storage.
template <class T>
T load(const SqlVar *v) {
    T x;
    std::memcpy(&x, v->var_data, sizeof x);
    return x;
}

bool is_text(uint16_t t) { return t == UDF_T_CHAR || t == UDF_T_VCHAR || t == UDF_T_BLOB; }

// The source's own null test; a date counts as null only for INT32_MIN here
// (cvt_dtime uses _is_null_var, where day 0 is null too).  Smallfloat and
// user types have no conversion and count as null for every target.
bool source_null(SqlVar *v) {
    switch (v->var_type) {
    case UDF_T_CHAR:
    case UDF_T_SMALLINT:
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_FLOAT:
    case UDF_T_DECIMAL:
    case UDF_T_DATETIME32:
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return _is_null_var(v) != 0;
    case UDF_T_DATE: return load<int32_t>(v) == kNullInt;
    case UDF_T_VCHAR:
    case UDF_T_BLOB: {
        // A negative length is a corrupt record: no byte of it is read, and it
        // reads as the null (the error flag has causes of its own).
        return static_cast<const VChar *>(v->var_data)->vc_len <= 0;
    }
    default: return true;
    }
}

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

// Text of a char, vchar or blob source that is not null.
const char *source_text(SqlVar *v) {
    if (v->var_type == UDF_T_CHAR) return static_cast<const char *>(v->var_data);
    return fetch_vchar(static_cast<const VChar *>(v->var_data));
}

// Where a number starts in a text: after blanks, at a digit or a sign.
// Null when the text does not look like a number (no error flag).
const char *number_start(const char *s) {
    while (*s == ' ') ++s;
    const unsigned char c = static_cast<unsigned char>(*s);
    return (std::isdigit(c) || c == '+' || c == '-') ? s : nullptr;
}

// Range tests: the hook hears of a value outside the target, which then
// wraps to the target's width.
int32_t wrap_int(SqlVar *v, int64_t x) {
    if (OverflowHook && (x < INT32_MIN || x > INT32_MAX)) OverflowHook(v, UDF_T_INTEGER);
    return static_cast<int32_t>(static_cast<uint32_t>(x));
}
int16_t wrap_short(SqlVar *v, int64_t x) {
    if (OverflowHook && (x < INT16_MIN || x > INT16_MAX)) OverflowHook(v, UDF_T_SMALLINT);
    return static_cast<int16_t>(static_cast<uint16_t>(x));
}

double nudge(double d) { return d < 0 ? d - 0.0001 : d + 0.0001; }

// Truncation toward zero into 64 bits.  A float beyond the 64-bit range, an
// infinity or a NaN has no integer value: it gives false, and the callers
// then return the target's null.  The error flag stays down: a value out of
// an integer target's range is an overflow, reported only to the hook.
bool truncate64(double d, int64_t *out) {
    if (!(d > -9223372036854775808.0 && d < 9223372036854775808.0)) return false;
    *out = static_cast<int64_t>(d);
    return true;
}

// Float to a 32-bit target: nudged (or not), range-tested, wrapped.
int32_t float_to_int(SqlVar *v, bool nudged) {
    const double d = nudged ? nudge(load<double>(v)) : load<double>(v);
    if (nudged && OverflowHook && (d > 2147483647.0 || d < -2147483648.0))
        OverflowHook(v, UDF_T_INTEGER);
    int64_t x;
    if (!truncate64(d, &x)) return kNullInt;
    return static_cast<int32_t>(static_cast<uint32_t>(x));
}

// Decimal record of a decimal source.  A corrupt digit count is brought
// into 0 ... 16 so the decimal functions never index past the digits.
Decimal load_decimal(const SqlVar *v) {
    Decimal d = load<Decimal>(v);
    if (d.dec_ndgts < 0) d.dec_ndgts = 0;
    if (d.dec_ndgts > DEC_MAXDGTS) d.dec_ndgts = DEC_MAXDGTS;
    return d;
}

int32_t decimal_int(const SqlVar *v) {
    const Decimal d = load_decimal(v);
    int32_t x = kNullInt;
    _dectoint(&d, &x);
    return x;
}

// Decimal text of precision p and scale s (var_size p * 256 + s) in area.
// A var_size of 0 stands for precision 16 and every fraction digit; it is
// written back into the caller's record.
const char *decimal_text(SqlVar *v, char *area, size_t cap) {
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
    const Decimal d = load_decimal(v);
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

void vchar_null(VChar *out) {
    out->vc_len = 0;
    out->vc_data = nullptr;
}

// A text result handed over as a fresh copy.  Allocation failure gives the
// null and raises the error flag.
void vchar_copy_text(const char *text, VChar *out) {
    char *copy = strdup(text);
    if (!copy) {
        SetConvertionError();
        vchar_null(out);
        return;
    }
    out->vc_len = static_cast<int32_t>(std::strlen(copy));
    out->vc_data = copy;
}

void to_vchar(SqlVar *v, VChar *out, char *area) {
    // A vchar or blob is copied byte for byte, also when empty.
    if (v->var_type == UDF_T_VCHAR || v->var_type == UDF_T_BLOB) {
        const VChar *src = static_cast<const VChar *>(v->var_data);
        if (src->vc_len < 0) {  // a corrupt record, read as the null
            vchar_null(out);
            return;
        }
        char *copy = static_cast<char *>(std::malloc(static_cast<size_t>(src->vc_len)));
        if (!copy && src->vc_len > 0) {
            SetConvertionError();
            vchar_null(out);
            return;
        }
        if (src->vc_len > 0) std::memcpy(copy, src->vc_data, static_cast<size_t>(src->vc_len));
        out->vc_len = src->vc_len;
        out->vc_data = copy;
        return;
    }
    if (source_null(v)) {
        vchar_null(out);
        return;
    }
    const char *text = area;
    switch (v->var_type) {
    case UDF_T_CHAR: text = static_cast<const char *>(v->var_data); break;
    case UDF_T_SMALLINT: std::snprintf(area, kVcharArea, "%d", load<int16_t>(v)); break;
    case UDF_T_INTEGER:
    case UDF_T_SERIAL: std::snprintf(area, kVcharArea, "%d", load<int32_t>(v)); break;
    case UDF_T_FLOAT: float_text(load<double>(v), area, kVcharArea); break;
    case UDF_T_DECIMAL: decimal_text(v, area, kVcharArea); break;
    case UDF_T_DATE: date2char(load<int32_t>(v), area); break;
    case UDF_T_DATETIME32: GMT2Char(load<int32_t>(v), area); break;
    case UDF_T_LONGINT: std::snprintf(area, kVcharArea, "%lld", static_cast<long long>(load<int64_t>(v))); break;
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: GMT2Char(load<int64_t>(v), area); break;
    default: vchar_null(out); return;
    }
    vchar_copy_text(text, out);
}

}  // namespace

extern "C" {

UDFKIT_API void SetConvertionOverflowHook(ConvertionOverflowHook hook) { OverflowHook = hook; }

UDFKIT_API void ReportConvertions(void) {}

UDFKIT_API int32_t _Dbl2Int(double value) {
    // Beyond the 64-bit range (or NaN) there is nothing to truncate: the
    // integer null comes back.
    int64_t x;
    if (!truncate64(nudge(value), &x)) return kNullInt;
    return static_cast<int32_t>(static_cast<uint32_t>(x));
}

UDFKIT_API char *cvt_char(SqlVar *v) {
    if (v->var_type == UDF_T_CHAR) return static_cast<char *>(v->var_data);
    if (source_null(v)) {
        CharArea[0] = '\0';
        return CharArea;
    }
    switch (v->var_type) {
    case UDF_T_SMALLINT: std::snprintf(CharArea, kCharArea, "%d", load<int16_t>(v)); break;
    case UDF_T_INTEGER:
    case UDF_T_SERIAL: std::snprintf(CharArea, kCharArea, "%d", load<int32_t>(v)); break;
    case UDF_T_FLOAT: float_text(load<double>(v), CharArea, kCharArea); break;
    case UDF_T_DECIMAL: decimal_text(v, CharArea, kCharArea); break;
    case UDF_T_DATE: date2char(load<int32_t>(v), CharArea); break;
    case UDF_T_DATETIME32: GMT2Char(load<int32_t>(v), CharArea); break;
    case UDF_T_VCHAR:
    case UDF_T_BLOB: return const_cast<char *>(fetch_vchar(static_cast<const VChar *>(v->var_data)));
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
        std::snprintf(CharArea, kCharArea, "%lld", static_cast<long long>(load<int64_t>(v)));
        break;
    case UDF_T_DATETIME: GMT2Char(load<int64_t>(v), CharArea); break;
    default: CharArea[0] = '\0'; break;
    }
    return CharArea;
}

UDFKIT_API void cvt_vchar(SqlVar *v, VChar *out) { to_vchar(v, out, VcharArea); }

UDFKIT_API void cvt_blob(SqlVar *v, VChar *out) { to_vchar(v, out, BlobArea); }

UDFKIT_API double cvt_double(SqlVar *v) {
    if (source_null(v)) return null_double();
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: return load<int32_t>(v);
    case UDF_T_FLOAT: return load<double>(v);
    case UDF_T_DECIMAL: {
        const Decimal d = load_decimal(v);
        double x = 0.0;
        _dectodbl(&d, &x);
        return x;
    }
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return static_cast<double>(load<int64_t>(v));
    default: break;  // text
    }
    const char *p = number_start(source_text(v));
    return p ? std::strtod(p, nullptr) : null_double();
}

UDFKIT_API int32_t cvt_int(SqlVar *v) {
    if (source_null(v)) return kNullInt;
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: return load<int32_t>(v);
    case UDF_T_FLOAT: return float_to_int(v, true);
    case UDF_T_DECIMAL: return decimal_int(v);
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return wrap_int(v, load<int64_t>(v));
    default: break;
    }
    const char *p = number_start(source_text(v));
    return p ? wrap_int(v, std::strtol(p, nullptr, 10)) : kNullInt;
}

UDFKIT_API int16_t cvt_short(SqlVar *v) {
    if (source_null(v)) return kNullShort;
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: return wrap_short(v, load<int32_t>(v));
    case UDF_T_FLOAT: {
        const double d = nudge(load<double>(v));
        if (OverflowHook && (d > 32767.0 || d < -32768.0)) OverflowHook(v, UDF_T_SMALLINT);
        int64_t x;
        if (!truncate64(d, &x)) return kNullShort;
        return static_cast<int16_t>(static_cast<uint16_t>(x));
    }
    case UDF_T_DECIMAL: return wrap_short(v, decimal_int(v));
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return wrap_short(v, load<int64_t>(v));
    default: break;
    }
    const char *p = number_start(source_text(v));
    return p ? wrap_short(v, std::strtol(p, nullptr, 10)) : kNullShort;
}

UDFKIT_API int64_t cvt_long64(SqlVar *v) {
    if (source_null(v)) return kNullLong;
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: return load<int32_t>(v);
    case UDF_T_FLOAT: {
        int64_t x;
        return truncate64(nudge(load<double>(v)), &x) ? x : kNullLong;
    }
    case UDF_T_DECIMAL: {
        const Decimal d = load_decimal(v);
        int64_t x = kNullLong;
        _dectolong64(&d, &x);
        return x;
    }
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return load<int64_t>(v);
    default: break;
    }
    const char *p = number_start(source_text(v));
    return p ? static_cast<int64_t>(std::strtoll(p, nullptr, 10)) : kNullLong;
}

UDFKIT_API int32_t cvt_date(SqlVar *v) {
    if (source_null(v)) return kNullInt;
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE: return load<int32_t>(v);
    case UDF_T_FLOAT: return float_to_int(v, false);
    case UDF_T_DECIMAL: return decimal_int(v);
    case UDF_T_DATETIME32: return GMT2date(load<int32_t>(v));
    case UDF_T_LONGINT: return static_cast<int32_t>(static_cast<uint32_t>(load<int64_t>(v)));
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return GMT2date(load<int64_t>(v));
    default: break;
    }
    const char *t = source_text(v);
    while (*t == ' ') ++t;
    return char2date(t);
}

UDFKIT_API int64_t cvt_dtime(SqlVar *v) {
    // Here a date of day 0 is null too.
    if (source_null(v) || _is_null_var(v)) return kNullLong;
    switch (v->var_type) {
    case UDF_T_SMALLINT: return load<int16_t>(v);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATETIME32: return load<int32_t>(v);
    case UDF_T_FLOAT: {
        int64_t x;
        return truncate64(load<double>(v), &x) ? x : kNullLong;
    }
    case UDF_T_DECIMAL: return decimal_int(v);
    case UDF_T_DATE: return date2GMT(load<int32_t>(v));
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return load<int64_t>(v);
    default: break;
    }
    return Char2GMT(source_text(v));
}

UDFKIT_API int32_t cvt_decimal(SqlVar *v, Decimal *out) {
    if (v->var_type == UDF_T_DECIMAL) {  // the whole record, null included
        *out = load<Decimal>(v);
        return 0;
    }
    if (source_null(v)) {
        snulldec(out);
        return 0;
    }
    switch (v->var_type) {
    case UDF_T_SMALLINT: return _deccvint(load<int16_t>(v), out);
    case UDF_T_INTEGER:
    case UDF_T_SERIAL:
    case UDF_T_DATE:
    case UDF_T_DATETIME32: return _deccvint(load<int32_t>(v), out);
    case UDF_T_FLOAT: return _deccvdbl(out, load<double>(v));
    case UDF_T_LONGINT:
    case UDF_T_TIMESTAMP:
    case UDF_T_DATETIME: return _deccvlong64(load<int64_t>(v), out);
    default: break;
    }
    const char *t = source_text(v);
    while (*t == ' ') ++t;
    return _deccvasc(t, static_cast<int32_t>(std::strlen(t)), out);
}

UDFKIT_API int32_t cvt_decimal_prec(SqlVar *v, Decimal *out, int32_t size) {
    if (v->var_type == UDF_T_DECIMAL && load<Decimal>(v).dec_pos == -1) {
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
