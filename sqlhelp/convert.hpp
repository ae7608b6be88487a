// The library's type conversions for SQL, for every host: an SQL value
// becomes the SqlVar the engine would hand over, a target name such as
// 'decimal(10,2)' is parsed once, and the converted value comes back as a
// plain result (a target's null is SQL NULL).
//
// The conversions keep process-wide areas: a host calls these under its
// library lock.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "udfkit/convert.h"

namespace udfkit::sqlhelp {

enum class CvtTarget {
    Char,
    Vchar,
    Blob,
    Float,
    Integer,
    Smallint,
    Longint,
    Date,
    Datetime,
    Decimal
};

struct CvtType {
    CvtTarget target;
    int32_t decimal_size = 0;  // Decimal: precision * 256 + scale, 0 for plain 'decimal'
};

// 'char', 'vchar', 'blob', 'float', 'integer' (or 'int'), 'smallint',
// 'longint', 'date', 'datetime', 'decimal', 'decimal(p)', 'decimal(p,s)'
// with 1 <= p <= 32 and 0 <= s <= p, in any case and with any blanks.
std::optional<CvtType> parse_cvt_target(std::string_view name);

// A source value and the storage its SqlVar points at.  An integer is an
// integer within 32 bits and a longint beyond, unless it is marked as a
// date (day number) or a datetime (seconds since 1970).
struct CvtSource {
    enum class Mark { None, Date, Datetime };
    SqlVar var{};
    int32_t i32 = 0;
    int64_t i64 = 0;
    double dbl = 0;
    VChar vc{0, nullptr};

    void set_integer(int64_t v, Mark mark);
    void set_real(double v);
    void set_text(const char *nul_terminated);      // kept by the caller
    void set_bytes(const void *bytes, size_t len);  // kept by the caller
};

struct CvtResult {
    enum class Kind { Null, Text, Bytes, Real, Integer, Date, Datetime };
    Kind kind = Kind::Null;
    std::string bytes;  // Text, Bytes
    double real = 0;
    int64_t integer = 0;  // Integer, Date (day number), Datetime (seconds)
};

// The source converted as the engine converts it.
CvtResult convert(CvtSource &src, const CvtType &type);

}  // namespace udfkit::sqlhelp
