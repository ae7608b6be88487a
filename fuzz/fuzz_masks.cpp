// Number and date picture masks, and format through the test host, on
// arbitrary masks and values.  Input: one selector byte, then the mask, a
// newline, and the number text (or the day number's four bytes).  The
// result buffer is exactly the mask's length + 1 bytes on the heap, so any
// overrun is caught by AddressSanitizer; the result must have the mask's
// width (shorter only under a left-justifying '<').
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "host/testhost.hpp"
#include "udfkit/masks.h"
#include "udfkit/sqlfunc.h"

namespace {

void check(bool ok) {
    if (!ok) std::abort();
}

bool left_justified(const std::string &mask) {
    const size_t point = mask.find('.');
    return mask.substr(0, point).find('<') != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    const uint8_t selector = data[0];
    std::string input(reinterpret_cast<const char *>(data + 1), size - 1);
    const size_t nl = input.find('\n');
    std::string mask = input.substr(0, nl);
    std::string value = nl == std::string::npos ? std::string() : input.substr(nl + 1);
    mask = mask.c_str();  // the functions see texts up to their first NUL
    value = value.c_str();
    if (value.size() > 1100) value.resize(1100);

    switch (selector % 3) {
    case 0: {
        std::unique_ptr<char[]> out(new char[mask.size() + 1]);
        _mk_using_nombre(value.c_str(), mask.c_str(), out.get());
        const size_t len = std::strlen(out.get());
        check(left_justified(mask) ? len <= mask.size() : len == mask.size());
        break;
    }
    case 1: {
        // The day number: the (up to) four raw bytes after the newline.
        int32_t day = 0;
        if (nl != std::string::npos)
            std::memcpy(&day, input.data() + nl + 1, std::min(sizeof day, input.size() - nl - 1));
        std::unique_ptr<char[]> out(new char[mask.size() + 1]);
        _mk_using_date(day, mask.c_str(), out.get());
        check(std::strlen(out.get()) == mask.size());
        break;
    }
    default: {
        udfkit::test::TestHost h;
        const bool as_date = selector & 0x80;
        const int32_t day = static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10));
        udfkit::test::Value v =
            as_date ? udfkit::test::Value::date(day) : udfkit::test::S(value);
        udfkit::test::Outcome o = h.call(format, {v, udfkit::test::S(mask)});
        check(o.exact(1));
        check(o.result().s.size() <= 99 && o.result().s.size() <= mask.size());
        break;
    }
    }
    return 0;
}
