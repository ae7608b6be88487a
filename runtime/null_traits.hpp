// The null of every SQL type, written once: the runtime, the hosts and the
// test host all test and make nulls through these.
#pragma once

#include <cstdint>
#include <cstring>

#include "udfkit/host.h"

namespace udfkit::nulls {

constexpr int16_t kSmallint = INT16_MIN;
constexpr int32_t kInteger = INT32_MIN;  // integer, serial, date, 32-bit datetime
constexpr int64_t kLong = INT64_MIN;     // longint, timestamp, 64-bit datetime
constexpr uint64_t kFloatBits = ~0ull;   // all 64 bits set
constexpr int16_t kDecimalPos = -1;      // dec_pos of a null decimal

inline double float_null() noexcept {
    double d;
    std::memcpy(&d, &kFloatBits, sizeof d);
    return d;
}

inline bool is_float_null(double d) noexcept {
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof d);
    return bits == kFloatBits;
}

// A date counts as null for day 0 too.
constexpr bool is_date_null(int64_t day) noexcept { return day == kInteger || day == 0; }

// Whether an integer result equals the null of the declared result type
// (types that are not integers have no integer null).
constexpr bool is_int_null(int64_t v, int32_t type) noexcept {
    switch (type) {
    case UDF_T_SMALLINT: return static_cast<int16_t>(v) == kSmallint;
    case UDF_T_INTEGER: case UDF_T_SERIAL: case UDF_T_DATETIME32: return v == kInteger;
    case UDF_T_DATE: return is_date_null(v);
    case UDF_T_LONGINT: case UDF_T_TIMESTAMP: case UDF_T_DATETIME: return v == kLong;
    default: return false;
    }
}

// Empty text is the null of char, vchar and blob.
constexpr bool is_text_null(const char *s) noexcept { return !s || !*s; }

}  // namespace udfkit::nulls
