// Datetime texts of every shape, and time formats for StrFTime: nothing
// misbehaves, accepted datetimes print and parse back to the same text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "udfkit/convert.h"
#include "udfkit/date.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TZ", "Europe/Paris", 1);
    tzset();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // First byte: the DbDateTime setting; then the text up to a NUL; what
    // follows the NUL is a StrFTime format.
    static const char *const kSettings[] = {"DMY4/", "YMD4-", "MDY2-", "DMY4", "DDD4/", "YXM4:"};
    if (size == 0) return 0;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    const std::string text = rest.substr(0, rest.find('\0'));
    std::string format = text.size() < rest.size() ? rest.substr(text.size() + 1) : "";
    format = format.substr(0, format.find('\0'));

    const char *setting = kSettings[data[0] % (sizeof kSettings / sizeof *kSettings)];
    std::strcpy(DbDateTime, setting);
    Siecle = 2000;
    SieclePrecedent = 1900;
    IsConvertionError();
    const DateTime t = Char2GMT(text.c_str());
    const int32_t failed = IsConvertionError();
    if (failed && t != UDFKIT_NULL_DATETIME) std::abort();
    (void)_is_datetime(text.c_str());

    char out[20];
    GMT2Char(t, out);
    if (std::strlen(out) > 19) std::abort();
    const bool whole = std::memchr(setting, 'D', 3) && std::memchr(setting, 'M', 3) &&
                       std::memchr(setting, 'Y', 3) && setting[3] == '4';
    if (t != UDFKIT_NULL_DATETIME && whole && t >= 0) {
        if (!out[0]) std::abort();
        char again[20];
        GMT2Char(Char2GMT(out), again);
        if (std::strcmp(out, again) != 0) std::abort();
        if (GMT2date(t) <= 0) std::abort();
    }

    const time_t when = t == UDFKIT_NULL_DATETIME ? 0 : static_cast<time_t>(t);
    struct tm tm;
    if (localtime_r(&when, &tm)) {
        char buf[64];
        const size_t max = format.size() % sizeof buf;
        const int32_t n = StrFTime(buf, max, format.c_str(), &tm);
        if (n < 0 || static_cast<size_t>(n) >= (max ? max : 1)) {
            if (n != 0) std::abort();
        } else if (n > 0 && std::strlen(buf) != static_cast<size_t>(n)) {
            std::abort();
        }
        if (n > 0 && StrFTime(nullptr, max, format.c_str(), &tm) != n) std::abort();
    }
    std::strcpy(DbDateTime, "DMY4/");
    IsConvertionError();
    return 0;
}
