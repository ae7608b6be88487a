// Numbers must read exactly as the C library's automatic-base 64-bit
// conversions and strtod read them, whatever shortcut the parser takes:
// the end position, the kind, the integer and the double's bits.
// Input: a number text, "-" or a digit then bytes of " ,]xeE.+-/:" and
// digits (which may continue it: octal, hexadecimal, fractions and
// exponents of any length, digits read eight at a time up to the end);
// other bytes stand for one of these.
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "udfkit/json.h"

namespace {

FILE *g_report = nullptr;  // the real standard error

// The input as a number text: kept where it is one, otherwise each byte
// out of place replaced by one of the right set, so no run is wasted.
std::string number_text(const uint8_t *data, size_t size) {
    static const char kTail[] = "0123456789 ,]xeE.+-/:";  // "/" and ":" border the digits
    std::string t(reinterpret_cast<const char *>(data), size);
    const size_t lead = !t.empty() && t[0] == '-';
    if (t.size() == lead) return t + "0";
    if (t[lead] < '0' || t[lead] > '9') t[lead] = static_cast<char>('0' + data[lead] % 10);
    for (size_t i = lead + 1; i < t.size(); ++i)
        if (!std::memchr(kTail, t[i], sizeof kTail - 1)) t[i] = kTail[data[i] % (sizeof kTail - 1)];
    return t;
}

void fail(const char *what, const std::string &t) {
    std::fprintf(g_report, "%s: \"%s\"\n", what, t.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // The rejected numbers print an error line each; sanitizer reports
    // write to descriptor 2 directly.
    g_report = stderr;
    if (FILE *null = std::fopen("/dev/null", "w")) stderr = null;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string t = number_text(data, size);
    // An exact-size copy: a read past its NUL is caught.
    std::vector<char> copy(t.c_str(), t.c_str() + t.size() + 1);
    char *buf = copy.data();
    JsonNode top{};
    char *end = parse_value(&top, nullptr, buf);

    char *iend;
    errno = 0;
    int64_t iv = t[0] == '-' ? std::strtoll(t.c_str(), &iend, 0)
                             : static_cast<int64_t>(std::strtoull(t.c_str(), &iend, 0));
    bool bad = iend == t.c_str() || errno == ERANGE;
    const bool dbl = !bad && (*iend == '.' || *iend == 'e' || *iend == 'E');
    double dv = 0;
    char *dend = iend;
    if (dbl) {
        errno = 0;
        dv = std::strtod(t.c_str(), &dend);
        bad = errno == ERANGE && (dv == HUGE_VAL || dv == -HUGE_VAL);
    }
    if (bad) {
        if (end != nullptr) fail("read a number the C library rejects", t);
    } else {
        if (end == nullptr) fail("rejected a number the C library reads", t);
        const JsonNode *n = top.v2.child;
        if (end - buf != dend - t.c_str()) fail("ends elsewhere", t);
        if (n->kind != (dbl ? JSON_DOUBLE : JSON_INTEGER)) fail("wrong kind", t);
        if (n->v1.int_value != iv) fail("wrong integer", t);
        if (dbl && std::memcmp(&n->v2.dbl_value, &dv, sizeof dv) != 0) fail("wrong double", t);
    }
    nx_json_free(top.v2.child);
    return 0;
}
