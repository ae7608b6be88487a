// Values of every SQL type as SqlVar records, for the conversion tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/decimal.h"
#include "udfkit/null.h"

namespace cvtest {

// One source value with its own storage; sv() gives a fresh record that
// points into it (the storage must outlive the record).
struct Src {
    uint16_t type = 0;
    uint16_t size = 0;
    alignas(8) unsigned char cell[32] = {};
    std::string text;  // char, vchar, blob
    VChar vc{0, nullptr};
    SqlVar var{};

    SqlVar *sv() {
        void *data = cell;
        if (type == UDF_T_CHAR) data = text.data();
        if (type == UDF_T_VCHAR || type == UDF_T_BLOB) {
            vc.vc_len = static_cast<int32_t>(text.size());
            vc.vc_data = text.data();
            data = &vc;
        }
        var = SqlVar{type, size, data};
        return &var;
    }
};

template <class T>
inline Src num(uint16_t type, T v) {
    Src s;
    s.type = type;
    s.size = type == UDF_T_FLOAT ? 8 : 0;
    std::memcpy(s.cell, &v, sizeof v);
    return s;
}
inline Src i16(int16_t v) { return num(UDF_T_SMALLINT, v); }
inline Src i32(int32_t v, uint16_t type = UDF_T_INTEGER) { return num(type, v); }
inline Src i64(int64_t v, uint16_t type = UDF_T_LONGINT) { return num(type, v); }
inline Src dbl(double v) { return num(UDF_T_FLOAT, v); }
inline Src date(int32_t v) { return num(UDF_T_DATE, v); }
inline Src txt(std::string t, uint16_t type = UDF_T_CHAR) {
    Src s;
    s.type = type;
    s.text = std::move(t);
    return s;
}
inline Src vch(std::string t) { return txt(std::move(t), UDF_T_VCHAR); }
inline Src dec(const char *t, uint16_t size) {
    Decimal d;
    EXPECT_EQ(_deccvasc(t, static_cast<int32_t>(std::strlen(t)), &d), 0) << t;
    Src s = num(UDF_T_DECIMAL, d);
    s.size = size;
    return s;
}
inline Src null_of(uint16_t type) {
    Src s;
    s.type = type;
    s.size = 8;
    SqlVar *v = s.sv();
    _nullvar(v);
    return s;
}

inline uint64_t bits(double d) {
    uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

// Dates and datetimes in a known zone and under the default settings.
class Env : public ::testing::Environment {
public:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        unsetenv("DBDATE");
        unsetenv("DBDATETIME");
        unsetenv("DBTODAY");
        _date_init();
    }
};

// 25 December 2020: day number and moments in UTC.
constexpr int32_t kXmas = 77061;
constexpr int64_t kXmasMidnight = 1608854400;
constexpr int64_t kXmas1345 = 1608903900;

}  // namespace cvtest
