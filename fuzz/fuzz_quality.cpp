// The three quality functions on arbitrary bytes: a first byte picks the
// character set and the case mode, the rest is the text.  Every score lies
// in [0, 1] and textquality is exactly the mean of the other two.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/testhost.hpp"
#include "udfkit/quality.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    static const char *const kCharsets[] = {"", "UTF-8", "ISO-8859-1", "EBCDIC-US",
                                            "NO-SUCH-CHARSET", "utf8", "ASCII", "UTF-16"};
    const std::string charset = kCharsets[data[0] & 7];
    const int caseless = (data[0] >> 3) & 3;  // 0, 1, 2, 3: any non-zero folds
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);

    TestHost h;
    const std::vector<Value> args = {S(text), S(charset), I(caseless)};
    Outcome f = h.call(freqquality, args);
    Outcome d = h.call(digramquality, args);
    Outcome t = h.call(textquality, args);
    if (!f.exact(1) || !d.exact(1) || !t.exact(1)) std::abort();
    const double fs = f.result().d, ds = d.result().d, ts = t.result().d;
    for (double s : {fs, ds, ts})
        if (!(s >= 0.0 && s <= 1.0)) std::abort();
    if (ts != (fs + ds) * 0.5) std::abort();
    return 0;
}
