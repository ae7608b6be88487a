// Values of every SQL type as SqlVar records, for the conversion tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/null.h"

namespace cvtest {

// One source value with its own storage; sv() gives a record pointing into it.
struct Src {
    uint16_t type = 0, size = 0;
    alignas(8) unsigned char cell[32] = {};
    std::string text;  // char, vchar, blob
    VChar vc{0, nullptr};
    SqlVar var{};

    SqlVar *sv() {
        void *data = cell;
        if (type == UDF_T_CHAR) data = text.data();
        if (type == UDF_T_VCHAR || type == UDF_T_BLOB) {
            vc = VChar{static_cast<int32_t>(text.size()), text.data()};
            data = &vc;
        }
        var = SqlVar{type, size, data};
        return &var;
    }
};

template <class T>
Src num(uint16_t type, T v, uint16_t size = 8) {
    Src s;
    s.type = type;
    s.size = size;
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
    _deccvasc(t, static_cast<int32_t>(std::strlen(t)), &d);
    return num(UDF_T_DECIMAL, d, size);
}
inline Src null_of(uint16_t type) {
    Src s = num<uint64_t>(type, 0);
    _nullvar(s.sv());
    return s;
}
inline uint64_t bits(double d) {
    uint64_t u;
    std::memcpy(&u, &d, sizeof u);
    return u;
}

// Dates and datetimes in UTC under the default settings.
class Env : public ::testing::Environment {
public:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        for (const char *v : {"DBDATE", "DBDATETIME", "DBTODAY"}) unsetenv(v);
        _date_init();
    }
};

// 25 December 2020: day number and moments in UTC.
constexpr int32_t kXmas = 77061;
constexpr int64_t kXmasMidnight = 1608854400;
constexpr int64_t kXmas1345 = 1608903900;

}  // namespace cvtest
