// Helpers shared by the decimal tests: building records by hand, reading
// and printing them.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "udfkit/decimal.h"

namespace dectest {

// A record with the given header and digits; count defaults to the digits given.
inline Decimal rec(int exp, int pos, std::initializer_list<int> digits, int ndgts = INT16_MIN) {
    Decimal d{};
    d.dec_exp = static_cast<int16_t>(exp);
    d.dec_pos = static_cast<int16_t>(pos);
    int i = 0;
    for (int v : digits) d.dec_digits[i++] = static_cast<uint8_t>(v);
    d.dec_ndgts = static_cast<int16_t>(ndgts == INT16_MIN ? i : ndgts);
    return d;
}

inline Decimal parse(const std::string &s) {
    Decimal d{};
    _deccvasc(s.c_str(), static_cast<int32_t>(s.size()), &d);
    return d;
}

inline std::string field(const Decimal &d, int len, int right) {
    std::string f(static_cast<size_t>(len), '#');
    _dectoasc(&d, f.data(), len, right);
    return f;
}

// Exact text of a value: every fraction digit it holds, no padding.
inline std::string text(const Decimal &d) {
    std::string s = field(d, 200, -1);
    return s.erase(s.find_last_not_of(' ') + 1);
}

// Header and counted digits, e.g. "e3 +1 [1 23 45]".
inline std::string shape(const Decimal &d) {
    std::string s = "e" + std::to_string(d.dec_exp) + " " +
                    (d.dec_pos == 1 ? "+" : d.dec_pos == 0 ? "-" : "null") + " [";
    for (int i = 0; i < d.dec_ndgts && i < DEC_MAXDGTS; ++i)
        s += (i ? " " : "") + std::to_string(d.dec_digits[i]);
    return s + "]";
}

inline bool same_record(const Decimal &a, const Decimal &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace dectest
