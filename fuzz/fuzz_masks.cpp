// Number and date picture masks, and format through the test host, on
// arbitrary masks and values.  Input: one selector byte, then the mask, a
// newline, and the number text (or the day number's four bytes).  The
// result buffer is exactly the mask's length + 1 bytes on the heap, so any
// overrun is caught by AddressSanitizer; the result must have the mask's
// width (shorter only under a left-justifying '<').
// A fourth selector checks the rounding instead: the bytes after it are the
// choices of a number of up to eight digits, a fraction of up to six and a
// trailing 5, laid in '&' positions with 0 to 6 places.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/choices.hpp"
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

// Rounding matches reading the text with strtod and printing the value plus
// 1e-10 with "%.*f"; '&' positions show the printed digits zero-padded.
void rounding_agrees(fuzzgen::Choices in) {
    const int places = static_cast<int>(in.below(7));
    std::string number = std::to_string(in.below(100000000));
    if (in.below(2)) number += "." + std::to_string(in.below(1000000));
    if (in.below(4) == 0) number += "5";
    std::string mask(30, '&');
    if (places) mask += "." + std::string(places, '&');
    char want[64];
    std::snprintf(want, sizeof want, "%0*.*f", static_cast<int>(mask.size()), places,
                  std::strtod(number.c_str(), nullptr) + 1e-10);
    std::unique_ptr<char[]> out(new char[mask.size() + 1]);
    const int rc = _mk_using_nombre(number.c_str(), mask.c_str(), out.get());
    const std::string got(out.get(), strnlen(out.get(), mask.size() + 1));
    if (rc != 0 || got.size() > mask.size() || got != want) {
        std::fprintf(stderr, "number %s, %d places: got \"%s\" (%d), want \"%s\"\n", number.c_str(), places,
                     got.c_str(), rc, want);
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    const uint8_t selector = data[0];
    if (selector % 4 == 3) {
        rounding_agrees(fuzzgen::Choices(data + 1, size - 1));
        return 0;
    }
    std::string input(reinterpret_cast<const char *>(data + 1), size - 1);
    const size_t nl = input.find('\n');
    std::string mask = input.substr(0, nl);
    std::string value = nl == std::string::npos ? std::string() : input.substr(nl + 1);
    mask = mask.c_str();  // the functions see texts up to their first NUL
    value = value.c_str();
    if (value.size() > 1100) value.resize(1100);

    switch (selector % 4) {
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
