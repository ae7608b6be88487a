// Any packed byte string of any length loaded, printed, stored back,
// added, rounded, compared and dumped: a defined result, never a crash.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "udfkit/decimal.h"

namespace {
FILE *sink() {
    static FILE *f = std::fopen("/dev/null", "w");
    return f;
}
int32_t quiet_hook(const char *, int32_t) { return 0; }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const int32_t len = static_cast<int32_t>(size > 64 ? 64 : size);
    std::vector<unsigned char> field(data, data + len);
    Decimal d;
    std::memset(&d, 0xA5, sizeof d);
    _lddecimal(field.data(), len, &d);

    char text[48];
    _dectoasc(&d, text, 47, static_cast<int32_t>(data[0] % 40) - 1);
    int decpt = 0, sign = 0;
    decefcvt(&d, data[size - 1] % 160, &decpt, &sign, data[0] & 1);

    // A field written back with the same length stores the same value.
    if (d.dec_pos != -1 && len >= 2 && d.dec_ndgts > 0 && d.dec_exp < DEC_MAXEXP) {
        std::vector<unsigned char> again(static_cast<size_t>(len) + 1, 0xEE);
        _stdecimal(&d, again.data(), len);
        if (again[static_cast<size_t>(len)] != 0xEE) abort();
    }

    // The record as raw bytes too: corrupt counts and digits above 99.
    Decimal raw;
    std::memset(&raw, 0, sizeof raw);
    std::memcpy(&raw, data, size < sizeof raw ? size : sizeof raw);
    DecSetAbort(quiet_hook);
    std::FILE *saved = stderr;
    stderr = sink();
    DecVerify("fuzz", 1, &raw);
    stderr = saved;
    decimal_dump(sink(), &raw);
    _dectoasc(&raw, text, 30, 20);
    Decimal sum;
    _decadd(&d, &raw, &sum);
    deccmp(&d, &raw);
    unsigned char packed[20];
    _stdecimal(&raw, packed, 2 + static_cast<int32_t>(size % 19));
    double x;
    _dectodbl(&raw, &x);
    int64_t l;
    _dectolong64(&raw, &l);
    Decimal r = d;
    DecimalRound(&r, static_cast<int32_t>((data[0] << 8) | data[size - 1]));
    return 0;
}
