// Every conversion of a text, vchar or blob made of the input bytes, and of
// numeric sources whose storage holds the input bits.
//   byte 0: bits 0-1 the kind of source (char, vchar, blob, raw bits),
//           bits 2-7 with byte 1 the decimal size used by cvt_decimal_prec
//   rest:   the text, or for raw bits: a type code byte then the storage
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "udfkit/convert.h"
#include "udfkit/date.h"

namespace {

void all_targets(SqlVar *v, int32_t size) {
    cvt_char(v);
    VChar out{0, nullptr};
    cvt_vchar(v, &out);
    std::free(out.vc_data);
    out = VChar{0, nullptr};
    cvt_blob(v, &out);
    std::free(out.vc_data);
    cvt_double(v);
    cvt_int(v);
    cvt_short(v);
    cvt_long64(v);
    cvt_date(v);
    cvt_dtime(v);
    Decimal d;
    cvt_decimal(v, &d);
    cvt_decimal_prec(v, &d, size);
    IsConvertionError();
}

void overflow_hook(SqlVar *, int32_t) {}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static bool ready = [] {
        setenv("TZ", "Europe/Paris", 1);
        _date_init();
        SetConvertionOverflowHook(overflow_hook);
        return true;
    }();
    (void)ready;
    if (size < 2) return 0;
    const int kind = data[0] & 3;
    const int32_t dec_size = ((data[0] >> 2) << 8) | data[1];
    const uint8_t *rest = data + 2;
    const size_t n = size - 2;

    if (kind == 0) {  // char: the text up to the first NUL
        std::string text(reinterpret_cast<const char *>(rest), n);
        SqlVar v{UDF_T_CHAR, 0, text.data()};
        all_targets(&v, dec_size);
        return 0;
    }
    if (kind == 1 || kind == 2) {  // vchar / blob: every byte, NULs included
        VChar vc{static_cast<int32_t>(n), static_cast<char *>(std::malloc(n ? n : 1))};
        if (n) std::memcpy(vc.vc_data, rest, n);
        SqlVar v{static_cast<uint16_t>(kind == 1 ? UDF_T_VCHAR : UDF_T_BLOB), 0, &vc};
        all_targets(&v, dec_size);
        std::free(vc.vc_data);
        return 0;
    }
    // Raw bits in the storage of a fixed-size type (texts excluded: their
    // storage holds pointers).
    if (n < 1) return 0;
    const uint16_t type = rest[0] % 16;
    if (type == UDF_T_CHAR || type == UDF_T_VCHAR || type == UDF_T_BLOB) return 0;
    alignas(8) unsigned char cell[sizeof(Decimal) + 8] = {};
    std::memcpy(cell, rest + 1, n - 1 < sizeof cell ? n - 1 : sizeof cell);
    SqlVar v{type, static_cast<uint16_t>(dec_size), cell};
    all_targets(&v, dec_size);
    return 0;
}
