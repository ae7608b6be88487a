// Scalar string functions: case, substrings, concatenation, fields, typed
// empty columns and numeric extremes.
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

using udfkit::guarded;
using udfkit::PoppedText;

namespace {

constexpr int32_t kCaseCap = 2048;
constexpr int32_t kCapitalizeCap = 200;
constexpr int32_t kReplaceCap = 4096;

// The current locale's byte case mapping, as toupper or tolower give it.
// Where the C library exposes the table behind them, it is read once per
// call and a byte costs a load instead of a call.
struct CaseMap {
    int (*map)(int);
#if defined(__GLIBC__)
    const int32_t **(*table)();
#endif
};
#if defined(__GLIBC__)
constexpr CaseMap kUpper{::toupper, __ctype_toupper_loc};
constexpr CaseMap kLower{::tolower, __ctype_tolower_loc};
#else
constexpr CaseMap kUpper{::toupper};
constexpr CaseMap kLower{::tolower};
#endif

template <const CaseMap &Case>
void map_case(const HostCallTable *t) {
    char buf[kCaseCap];
    udfkit::pop_into(t, buf);
    auto *p = reinterpret_cast<unsigned char *>(buf);
#if defined(__GLIBC__)
    const int32_t *table = *Case.table();  // entries -128 .. 255
    for (; *p; ++p) *p = static_cast<unsigned char>(table[*p]);
#else
    for (; *p; ++p) *p = static_cast<unsigned char>(Case.map(*p));
#endif
    t->PushString(buf);
}

// Display width of an argument in the describe answers of concat and merge.
int32_t display_width(const ArgDesc &a) {
    switch (a.type) {
    case UDF_T_CHAR: return a.size;
    case UDF_T_SMALLINT: case UDF_T_INTEGER: case UDF_T_SERIAL: return 8;
    case UDF_T_FLOAT: return 12;
    case UDF_T_DECIMAL: return ((a.size >> 8) & 0xff) + 2;
    case UDF_T_DATE: return 10;
    case UDF_T_DATETIME32: case UDF_T_DATETIME: return 19;
    case UDF_T_VCHAR: case UDF_T_BLOB: return 1000;
    default: return 0;
    }
}

// Pops nargs length-sized strings; element 0 is the first argument.
std::vector<std::string> pop_all_whole(const HostCallTable *t, int32_t nargs) {
    std::vector<std::string> texts(nargs > 0 ? static_cast<size_t>(nargs) : 0);
    for (size_t i = texts.size(); i-- > 0;) {
        PoppedText p(t);
        texts[i].assign(p.c_str());
    }
    return texts;
}

// Occurrences of search in s, left to right, never overlapping.  An empty
// search string has none.  (A search that starts from each hit, where
// strstr would measure the rest of the text at every call under a
// sanitizer.)
size_t count_matches(std::string_view s, std::string_view search) {
    if (search.empty()) return 0;
    size_t n = 0;
    for (size_t at = s.find(search); at != s.npos; at = s.find(search, at + search.size())) ++n;
    return n;
}

// An empty text column of type `type`, its size given by the value of the
// one argument (popped and otherwise unused).
void empty_text_column(const HostCallTable *t, int32_t nargs, const ArgDesc *args, int32_t *rtype,
                       int32_t *rsize, int32_t type) {
    if (udfkit::describe_value_of(t, nargs, args, rtype, rsize, type, 1)) return;
    int32_t ignored = 0;
    t->PopInt(&ignored);
    t->PushString("");
}

template <bool Max>
void extreme(const HostCallTable *t, int32_t nargs) {
    double kept = 0;
    t->PopDouble(&kept);
    for (int32_t i = 1; i < nargs; ++i) {
        double v = 0;
        t->PopDouble(&v);
        // Comparisons with a NaN are false: a NaN is never taken in, and a
        // NaN popped first stays.
        if (Max ? (v > kept) : (kept > v)) kept = v;
    }
    t->PushDouble(kept);
}

}  // namespace

extern "C" {

UDFKIT_API void upper(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                      int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    map_case<kUpper>(t);
}

UDFKIT_API void lower(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                      int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    map_case<kLower>(t);
}

UDFKIT_API void capitalize(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                           int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    char buf[kCapitalizeCap];
    udfkit::pop_into(t, buf);
    if (buf[0]) {
        for (unsigned char *p = reinterpret_cast<unsigned char *>(buf); *p; ++p)
            *p = static_cast<unsigned char>(std::tolower(*p));
        buf[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(buf[0])));
    }
    t->PushString(buf);
}

UDFKIT_API void basename(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                         int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    char buf[kCaseCap];
    udfkit::pop_into(t, buf);
    const char *slash = std::strrchr(buf, '/');
    t->PushString(slash ? slash + 1 : buf);
}

UDFKIT_API void lastchars(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                          int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_value_of(t, nargs, args, rtype, rsize, UDF_T_CHAR, 2)) return;
    int32_t count = 0;
    t->PopInt(&count);
    char buf[kCaseCap];
    udfkit::pop_into(t, buf);
    const uint64_t len = std::strlen(buf);
    // Compared unsigned after widening with the sign: a negative count is huge.
    const uint64_t want = static_cast<uint64_t>(static_cast<int64_t>(count));
    t->PushString(want >= len ? buf : buf + (len - want));
}

UDFKIT_API void strpos(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                       int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 2)) return;
    guarded([&] {
        int32_t start = 0;
        t->PopInt(&start);
        char ch[2];
        udfkit::pop_into(t, ch);
        PoppedText text(t);
        const char wanted = ch[0] ? ch[0] : ' ';
        const uint64_t len = text.length();
        if (len < static_cast<uint64_t>(static_cast<int64_t>(start))) {
            t->PushInt(0);
            return;
        }
        // Start 0 would begin one byte before the text: it searches from the
        // first byte, as start 1 does.
        const size_t from = start > 0 ? static_cast<size_t>(start - 1) : 0;
        const char *hit = std::strchr(text.c_str() + from, wanted);
        t->PushInt(hit ? static_cast<int32_t>(hit - text.c_str()) + 1 : 0);
    });
}

UDFKIT_API void valascii(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                         int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 2)) return;
    char ch[2];
    udfkit::pop_into(t, ch);
    if (ch[0])
        t->PushInt(static_cast<signed char>(ch[0]));
    else
        t->PushString("");
}

UDFKIT_API void strreplace(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                           int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_arg1(t, nargs, args, rtype, rsize)) return;
    guarded([&] {
        char repl[kReplaceCap], search[kReplaceCap];
        udfkit::pop_into(t, repl);
        udfkit::pop_into(t, search);
        PoppedText text(t);
        const std::string_view s = text.c_str(), find = search;
        const size_t slen = find.size(), rlen = std::strlen(repl);
        // The result is never cut, however much the replacements make it
        // grow; its length is known before it is built.
        const size_t hits = count_matches(s, find);
        if (!udfkit::result_fits(s.size() - hits * slen + hits * rlen)) return;
        if (hits == 0) {
            t->PushString(text.c_str());
            return;
        }
        std::string out;
        out.reserve(s.size() - hits * slen + hits * rlen);
        size_t from = 0;
        for (size_t at = s.find(find); at != s.npos; from = at + slen, at = s.find(find, from)) {
            out.append(s, from, at - from);
            out.append(repl, rlen);
        }
        out.append(s, from);
        t->PushString(out.c_str());
    });
}

UDFKIT_API void concat(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                       int32_t *rtype, int32_t *rsize) {
    if (!t) {
        int32_t size = 0;
        for (int32_t i = 0; args && i < nargs; ++i) size += display_width(args[i]);
        udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, size);
        return;
    }
    guarded([&] {
        std::vector<std::string> texts = pop_all_whole(t, nargs);
        size_t length = 0;
        for (const std::string &s : texts) length += s.size();
        if (!udfkit::result_fits(length)) return;
        std::string out;
        out.reserve(length);
        for (const std::string &s : texts) out += s;
        t->PushString(out.c_str());
    });
}

UDFKIT_API void merge(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                      int32_t *rtype, int32_t *rsize) {
    if (!t) {
        int32_t size = 0;
        for (int32_t i = 0; args && i < nargs; ++i) size += display_width(args[i]) + 1;
        udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR, size - 1);
        return;
    }
    guarded([&] {
        std::vector<std::string> texts = pop_all_whole(t, nargs);
        // A blank follows every non-empty text but the last argument.
        auto blank_after = [&](size_t i) { return !texts[i].empty() && i + 1 < texts.size(); };
        size_t length = 0;
        for (size_t i = 0; i < texts.size(); ++i) length += texts[i].size() + blank_after(i);
        if (!udfkit::result_fits(length)) return;
        std::string out;
        out.reserve(length);
        for (size_t i = 0; i < texts.size(); ++i) {
            out += texts[i];
            if (blank_after(i)) out += ' ';
        }
        t->PushString(out.c_str());
    });
}

UDFKIT_API void champ(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                      int32_t *rtype, int32_t *rsize) {
    if (!t) {
        udfkit::describe_const(t, rtype, rsize, UDF_T_CHAR,
                               (nargs >= 1 && args) ? args[0].size : 0);
        return;
    }
    guarded([&] {
        int32_t n = 0;
        t->PopInt(&n);
        char sep[2];
        udfkit::pop_into(t, sep);
        const char separator = sep[0] ? sep[0] : ' ';
        PoppedText text(t);
        char *out = text.data();  // the field is never longer than the text
        size_t w = 0;
        int64_t counter = n;
        for (const char *p = text.c_str(); *p; ++p) {
            if (*p == separator) {
                if (--counter == 0) break;
            } else if (counter == 1) {
                out[w++] = *p;  // w never passes p: writing in place is safe
            }
        }
        out[w] = '\0';
        t->PushString(out);
    });
}

UDFKIT_API void charcolumn(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                           int32_t *rtype, int32_t *rsize) {
    empty_text_column(t, nargs, args, rtype, rsize, UDF_T_CHAR);
}

UDFKIT_API void vcharcolumn(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                            int32_t *rtype, int32_t *rsize) {
    empty_text_column(t, nargs, args, rtype, rsize, UDF_T_VCHAR);
}

UDFKIT_API void datecolumn(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                           int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_DATE, 4)) return;
    t->PushString("");  // the host turns the empty text into the null date
}

UDFKIT_API void datetimecolumn(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_DATETIME, 8)) return;
    t->PushDateTime(INT64_MIN);  // the null datetime 0x8000000000000000
}

UDFKIT_API void intcolumn(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                          int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 2)) return;
    t->PushInt(32768);  // low 16 bits 0x8000: the null smallint
}

UDFKIT_API void minx(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                     int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    extreme<false>(t, nargs);
}

UDFKIT_API void maxx(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                     int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    extreme<true>(t, nargs);
}

}  // extern "C"
