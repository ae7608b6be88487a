// Date texts of every shape under every format setting: the parser never
// misbehaves, and what it accepts prints and parses back to the same day.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "runtime/date_internal.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // The first byte picks the setting; the rest up to a NUL is the text,
    // and whatever follows that NUL, when present, is a format of its own.
    static const char *const kSettings[] = {"DMY4/", "MDY2-", "YMD4.", "DMY4", "DDMMYYYY",
                                            "MMDDYYYY", "Y", "", "YYY4/", "DMY4 "};
    if (size == 0) return 0;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    std::string text = rest.substr(0, rest.find('\0'));
    std::string format = kSettings[data[0] % (sizeof kSettings / sizeof *kSettings)];
    if (text.size() < rest.size()) format = rest.substr(text.size() + 1, 40);
    format = format.substr(0, format.find('\0'));

    Siecle = 2000;
    SieclePrecedent = 1900;
    IsConvertionError();
    const Date d = Char2Date(text.c_str(), format.c_str());
    const int32_t failed = IsConvertionError();
    if (failed && d != 0) std::abort();

    std::strncpy(DbDate, format.c_str(), sizeof DbDate - 1);
    DbDate[sizeof DbDate - 1] = '\0';
    (void)_is_date(text.c_str());
    (void)_isdateFast(text.c_str());
    IsConvertionError();

    char out[64];
    char *end = date2char(d, out);
    if (end != out + std::strlen(out) || end - out > 40) std::abort();
    if (d > 0 && !failed && yeardate(d) >= 100) {
        std::strcpy(DbDate, "DMY4/");
        date2char(d, out);
        if (Char2Date(out, "DMY4/") != d) std::abort();
    }
    const int32_t wd = weekdaydate(d), day = daydate(d), month = monthdate(d);
    if (wd < 0 || wd > 6 || day < 1 || day > 31 || month < 1 || month > 12) std::abort();
    std::strcpy(DbDate, "DMY4/");
    return 0;
}
