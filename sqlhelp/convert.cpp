#include "sqlhelp/convert.hpp"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/null_traits.hpp"
#include "sqlhelp/decimal.hpp"

namespace udfkit::sqlhelp {

namespace {

namespace nulls = udfkit::nulls;
using Kind = CvtResult::Kind;

// "decimal(p,s)" -> p * 256 + s; "decimal(p)" -> p * 256; "decimal" -> 0.
std::optional<int32_t> decimal_size(const std::string &t) {
    if (t == "decimal") return 0;
    int p = 0, s = 0;
    char close = 0;
    if (std::sscanf(t.c_str(), "decimal(%d,%d%c", &p, &s, &close) == 3 && close == ')' && p >= 1 &&
        p <= 32 && s >= 0 && s <= p)
        return p * 256 + s;
    if (std::sscanf(t.c_str(), "decimal(%d%c", &p, &close) == 2 && close == ')' && p >= 1 &&
        p <= 32)
        return p * 256;
    return std::nullopt;
}

// Text without the blanks that pad decimal fields; the empty text is null.
CvtResult text_result(const char *text, size_t len) {
    while (len > 0 && text[len - 1] == ' ') --len;
    CvtResult r;
    if (len == 0) return r;
    r.kind = Kind::Text;
    r.bytes.assign(text, len);
    return r;
}

CvtResult int_result(int64_t v, bool null, Kind kind) {
    CvtResult r;
    if (null) return r;
    r.kind = kind;
    r.integer = v;
    return r;
}

CvtResult vchar_result(CvtSource &src, bool blob) {
    VChar out{0, nullptr};
    (blob ? cvt_blob : cvt_vchar)(&src.var, &out);
    CvtResult r;
    if (out.vc_len > 0) {
        r.kind = blob ? Kind::Bytes : Kind::Text;
        r.bytes.assign(out.vc_data, static_cast<size_t>(out.vc_len));
    }
    std::free(out.vc_data);
    return r;
}

// A decimal conversion that reports a status (a text beyond the decimal
// range, a float beyond it or not finite) gives NULL.  The rounding to a
// scale reports only DEC_EROUNDPOS, for a value whose last digit comes
// before that scale, which is exact already.
CvtResult decimal_result(CvtSource &src, int32_t size) {
    Decimal d;
    if (cvt_decimal(&src.var, &d) != 0) return {};
    if (size != 0) cvt_decimal_prec(&src.var, &d, size);
    SqlVar dv{UDF_T_DECIMAL, static_cast<uint16_t>(size), &d};
    const char *t = cvt_char(&dv);
    size_t len = std::strlen(t);
    while (len > 0 && t[len - 1] == ' ') --len;
    if (size == 0 && std::memchr(t, '.', len)) {
        // Without a scale every fraction digit is printed: drop the zeros at
        // the end, and the point if nothing is left after it.
        while (len > 0 && t[len - 1] == '0') --len;
        if (len > 0 && t[len - 1] == '.') --len;
    }
    return text_result(t, len);
}

// Text or bytes with no digit in the mantissa are no number ('-', '+', '.').
bool numberless_text(const CvtSource &src) {
    if (src.var.var_type == UDF_T_CHAR) {
        const char *t = static_cast<const char *>(src.var.var_data);
        return !mantissa_has_digit(t, std::strlen(t));
    }
    if (src.var.var_type != UDF_T_BLOB) return false;
    // The conversions read a blob's text up to its first NUL byte.
    const size_t n = static_cast<size_t>(src.vc.vc_len > 0 ? src.vc.vc_len : 0);
    const void *nul = n ? std::memchr(src.vc.vc_data, '\0', n) : nullptr;
    const size_t len =
        nul ? static_cast<size_t>(static_cast<const char *>(nul) - src.vc.vc_data) : n;
    return !mantissa_has_digit(src.vc.vc_data, len);
}

bool numeric(CvtTarget t) {
    return t == CvtTarget::Float || t == CvtTarget::Integer || t == CvtTarget::Smallint ||
           t == CvtTarget::Longint || t == CvtTarget::Decimal;
}

}  // namespace

std::optional<CvtType> parse_cvt_target(std::string_view name) {
    std::string t;
    for (char c : name)
        if (c != ' ') t += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const struct {
        const char *name;
        CvtTarget target;
    } kNames[] = {
        {"char", CvtTarget::Char},         {"vchar", CvtTarget::Vchar},
        {"blob", CvtTarget::Blob},         {"float", CvtTarget::Float},
        {"integer", CvtTarget::Integer},   {"int", CvtTarget::Integer},
        {"smallint", CvtTarget::Smallint}, {"longint", CvtTarget::Longint},
        {"date", CvtTarget::Date},         {"datetime", CvtTarget::Datetime},
    };
    for (const auto &n : kNames)
        if (t == n.name) return CvtType{n.target, 0};
    if (auto size = decimal_size(t)) return CvtType{CvtTarget::Decimal, *size};
    return std::nullopt;
}

void CvtSource::set_integer(int64_t v, Mark mark) {
    i64 = v;
    if (mark == Mark::Date || (mark == Mark::None && v >= INT32_MIN && v <= INT32_MAX)) {
        i32 = static_cast<int32_t>(v);
        var = {static_cast<uint16_t>(mark == Mark::Date ? UDF_T_DATE : UDF_T_INTEGER), 0, &i32};
    } else {
        var = {static_cast<uint16_t>(mark == Mark::Datetime ? UDF_T_DATETIME : UDF_T_LONGINT), 0,
               &i64};
    }
}

void CvtSource::set_real(double v) {
    dbl = v;
    var = {UDF_T_FLOAT, 8, &dbl};
}

void CvtSource::set_text(const char *text) { var = {UDF_T_CHAR, 0, const_cast<char *>(text)}; }

void CvtSource::set_bytes(const void *bytes, size_t len) {
    vc.vc_len = static_cast<int32_t>(len);
    vc.vc_data = static_cast<char *>(const_cast<void *>(bytes));
    var = {UDF_T_BLOB, 0, &vc};
}

CvtResult convert(CvtSource &src, const CvtType &type) {
    SqlVar *v = &src.var;
    if (numeric(type.target) && numberless_text(src)) return {};
    switch (type.target) {
    case CvtTarget::Char: {
        const char *t = cvt_char(v);
        return text_result(t, std::strlen(t));
    }
    case CvtTarget::Vchar: return vchar_result(src, false);
    case CvtTarget::Blob: return vchar_result(src, true);
    case CvtTarget::Float: {
        CvtResult r;
        r.real = cvt_double(v);
        if (!nulls::is_float_null(r.real)) r.kind = Kind::Real;
        return r;
    }
    case CvtTarget::Integer: {
        const int32_t x = cvt_int(v);
        return int_result(x, x == nulls::kInteger, Kind::Integer);
    }
    case CvtTarget::Smallint: {
        const int16_t x = cvt_short(v);
        return int_result(x, x == nulls::kSmallint, Kind::Integer);
    }
    case CvtTarget::Longint: {
        const int64_t x = cvt_long64(v);
        return int_result(x, x == nulls::kLong, Kind::Integer);
    }
    case CvtTarget::Date: {
        const int32_t x = cvt_date(v);
        return int_result(x, nulls::is_date_null(x), Kind::Date);
    }
    case CvtTarget::Datetime: {
        const int64_t x = cvt_dtime(v);
        return int_result(x, x == nulls::kLong, Kind::Datetime);
    }
    case CvtTarget::Decimal: return decimal_result(src, type.decimal_size);
    }
    return {};
}

}  // namespace udfkit::sqlhelp
