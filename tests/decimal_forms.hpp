// Decimal records written out for comparisons and failure messages, shared
// by the decimal unit tests and the decimal fuzz target.
#pragma once

#include <cstring>
#include <string>

#include "udfkit/decimal.h"

namespace udfkit::test {

// The value laid out by _dectoasc in a field of len characters.
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

// Header and counted digits, e.g. "e3 + [1 23 45]".
inline std::string shape(const Decimal &d) {
    std::string s = "e" + std::to_string(d.dec_exp) + " " +
                    (d.dec_pos == 1 ? "+" : d.dec_pos == 0 ? "-" : "null") + " [";
    for (int i = 0; i < d.dec_ndgts && i < DEC_MAXDGTS; ++i)
        s += (i ? " " : "") + std::to_string(d.dec_digits[i]);
    return s + "]";
}

inline bool same_record(const Decimal &a, const Decimal &b) { return std::memcmp(&a, &b, sizeof a) == 0; }

}  // namespace udfkit::test
