// Decimal diagnostics: record dumps, the consistency check with its abort
// hook, and a byte dump of a double.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "runtime/decimal_internal.hpp"

using namespace udfkit::dec;

extern "C" {

UDFKIT_API int32_t decimal_dump(FILE *stream, const Decimal *dec) {
    if (!stream || !dec) return -1;
    std::fprintf(stream, "DecimalDump::: dec_exp: %d dec_pos: %d dec_ndgts: %d\n", dec->dec_exp,
                 dec->dec_pos, dec->dec_ndgts);
    for (int i = 0; i < kDigits; ++i)
        std::fprintf(stream, "(%2.2d)", static_cast<int>(static_cast<int8_t>(dec->dec_digits[i])));
    std::fprintf(stream, "\n");
    char field[31];
    _dectoasc(dec, field, 30, 20);
    field[20] = '\0';
    return std::fprintf(stream, "dectoasc Value(%s)\n", field);
}

UDFKIT_API void DecVerify(const char *where, int32_t line, const Decimal *dec) {
    if (!dec) return;
    if (dec->dec_pos == -1 || static_cast<uint16_t>(dec->dec_ndgts) <= kDigits) return;
    const char *w = where ? where : "";
    std::fprintf(stderr, "DecVerify: %s-%d\n", w, line);
    decimal_dump(stderr, dec);
    if (DecAbortFct) {
        DecAbortFct(w, line);
        return;
    }
    std::abort();
}

UDFKIT_API void DecSetAbort(DecAbortHook hook) { DecAbortFct = hook; }

UDFKIT_API int32_t DumpDouble(const char *label, double value) {
    std::fprintf(stderr, "%s: ", label ? label : "");
    unsigned char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    for (unsigned char b : bytes) std::fprintf(stderr, "%2.2x ", b);
    return std::fputc('\n', stderr);
}

}  // extern "C"
