// Any text given to the decimal reader: a defined result, and for every
// success a value in normal form that prints and reads back to itself.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "udfkit/decimal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // An exact-size copy, so that a read past the text is caught.
    std::vector<char> text(data, data + size);
    Decimal d;
    std::memset(&d, 0x5A, sizeof d);
    const int32_t rc = _deccvasc(text.data(), static_cast<int32_t>(size), &d);
    if (rc != 0 && rc != DEC_EOVERFLOW && rc != DEC_EUNDERFLOW && rc != DEC_EBADTEXT &&
        rc != DEC_EBADEXP)
        abort();
    if (rc == DEC_EBADTEXT || rc == DEC_EBADEXP || d.dec_pos == -1) {
        if (d.dec_pos != -1) abort();
        return 0;
    }
    if (d.dec_ndgts < 0 || d.dec_ndgts > DEC_MAXDGTS) abort();
    if (d.dec_exp < DEC_MINEXP || d.dec_exp > DEC_MAXEXP) abort();
    for (int i = 0; i < DEC_MAXDGTS; ++i) {
        if (d.dec_digits[i] > 99) abort();
        if (i >= d.dec_ndgts && d.dec_digits[i] != 0) abort();
    }
    if (d.dec_ndgts > 0 && (d.dec_digits[0] == 0 || d.dec_digits[d.dec_ndgts - 1] == 0)) abort();

    // Every fraction digit, then read back: the same value.
    char field[200];
    _dectoasc(&d, field, sizeof field, -1);
    int n = sizeof field;
    while (n > 0 && field[n - 1] == ' ') --n;
    Decimal back;
    if (_deccvasc(field, n, &back) != 0) abort();
    if (DecimalCompare(&d, &back) != 0) abort();
    // Narrow fields of any width never overflow their length.
    for (int len = 1; len <= 24; len += 7) {
        char f[25];
        f[len] = '#';
        _dectoasc(&d, f, len, static_cast<int32_t>(size % 12));
        if (f[len] != '#') abort();
    }
    return 0;
}
