// The in-place JSON parser.
//
// One left-to-right pass over a writable, NUL-terminated text, recursing
// once per nesting level.  Strings and member names are unescaped inside
// the text and the nodes point at them; each node is zero-filled, carved
// from its thread's block of nodes (jsonnodes.cpp) and linked to its
// parent.  The first error stops the parse and
// prints one line on stderr whose number identifies the failed check.
#include <errno.h>
#include <locale.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"

namespace {

using udfkit::json::kDepthCheck;
using udfkit::json::kMaxDepth;

[[gnu::cold, gnu::noinline]] char *report(int line, const char *message, const char *at) {
    std::fprintf(stderr, "NXJSON PARSE ERROR (%d): %s at %s\n", line, message, at);
    return nullptr;
}

using udfkit::json::NodeCarver;

// One parse: where its nodes come from, and the terminating NUL of the
// text, so that a few bytes can be read at once wherever that many lie
// before it.
struct Parse {
    NodeCarver &nodes;
    const char *end;
};

[[gnu::always_inline]] inline JsonNode *create_json(Parse &ps, int32_t kind, const char *key,
                                                   JsonNode *parent) {
    JsonNode *js = ps.nodes.take();
    js->kind = kind;
    js->key = key;
    if (parent->last_child)
        parent->last_child->next = js;
    else
        parent->v2.child = js;
    parent->last_child = js;
    parent->v1.length++;
    return js;
}

inline bool is_digit(unsigned char c) { return static_cast<unsigned>(c - '0') < 10; }

// Bytes that stop the plain copy inside a string: NUL, quote, backslash.
struct StopTable {
    bool stop[256] = {};
    constexpr StopTable() {
        stop[0] = true;
        stop[static_cast<unsigned char>('"')] = true;
        stop[static_cast<unsigned char>('\\')] = true;
    }
    constexpr bool operator[](unsigned char c) const { return stop[c]; }
};
constexpr StopTable kStringStop;

int hex_value(unsigned char c) {
    if (is_digit(c)) return c - '0';
    c |= 0x20;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Exactly four hexadecimal digits at p (stops at the first non-digit, so
// never reads past a NUL).
bool hex4(const char *p, uint32_t *out) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        int d = hex_value(static_cast<unsigned char>(p[i]));
        if (d < 0) return false;
        v = (v << 4) | static_cast<uint32_t>(d);
    }
    *out = v;
    return true;
}

int utf8_encode(uint32_t cp, char *out, char **end) {
    auto *o = reinterpret_cast<unsigned char *>(out);
    if (cp < 0x80) {
        *o++ = static_cast<unsigned char>(cp);
    } else if (cp < 0x800) {
        *o++ = static_cast<unsigned char>(0xC0 | (cp >> 6));
        *o++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        if (cp >= 0xD800 && cp <= 0xDFFF) return 0;
        *o++ = static_cast<unsigned char>(0xE0 | (cp >> 12));
        *o++ = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        *o++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    } else if (cp <= 0x10FFFF) {
        *o++ = static_cast<unsigned char>(0xF0 | (cp >> 18));
        *o++ = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
        *o++ = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
        *o++ = static_cast<unsigned char>(0x80 | (cp & 0x3F));
    } else {
        return 0;
    }
    *end = reinterpret_cast<char *>(o);
    return 1;
}

// Decodes the \u escape at r (r points at the backslash) into w.  Returns
// the read position after the escape (or surrogate pair), or null after
// reporting the error.
char *unicode_escape(char *r, char **w) {
    uint32_t cp;
    if (!hex4(r + 2, &cp)) return report(168, "invalid unicode escape", r);
    char *next = r + 6;
    if (cp >= 0xD800 && cp <= 0xDBFF) {
        uint32_t low;
        if (next[0] != '\\' || next[1] != 'u' || !hex4(next + 2, &low))
            return report(176, "invalid unicode surrogate", r);
        if (low < 0xDC00 || low > 0xDFFF) return report(181, "invalid unicode surrogate", r);
        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
        next += 6;
    }
    // At most 4 bytes for at least 6 read: the write never passes the read.
    if (!utf8_encode(cp, *w, w)) return report(187, "invalid codepoint", r);
    return next;
}

// The first NUL, quote or backslash at or after r.  With the end of the
// text known (text_end, its NUL), 16 bytes are looked at at once.
inline char *find_stop(char *r, const char *text_end) {
#if defined(__SSE2__)
    if (text_end) {
        const __m128i quote = _mm_set1_epi8('"');
        const __m128i backslash = _mm_set1_epi8('\\');
        const __m128i nul = _mm_setzero_si128();
        for (; text_end - r >= 15; r += 16) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(r));
            const __m128i hit = _mm_or_si128(
                _mm_or_si128(_mm_cmpeq_epi8(v, quote), _mm_cmpeq_epi8(v, backslash)),
                _mm_cmpeq_epi8(v, nul));
            if (const int mask = _mm_movemask_epi8(hit)) return r + __builtin_ctz(mask);
        }
    }
#endif
    while (!kStringStop[static_cast<unsigned char>(*r)]) ++r;
    return r;
}

// text_end: the NUL that ends the whole text, or null when not known.
char *unescape(char *start, char **end, const char *text_end) {
    // Up to the first escape nothing moves.
    char *r = find_stop(start, text_end);
    char *w = r;
    for (;;) {
        const char c = *r;
        if (c == '"') {
            *w = '\0';
            *end = r + 1;
            return start;
        }
        if (c == '\0') return report(200, "no closing quote for string", start);
        if (c == '\\') {
            const char e = r[1];
            char out;
            switch (e) {
            case '"': case '/': case '\\': out = e; break;
            case 'b': out = '\b'; break;
            case 'f': out = '\f'; break;
            case 'n': out = '\n'; break;
            case 'r': out = '\r'; break;
            case 't': out = '\t'; break;
            case 'u':
                r = unicode_escape(r, &w);
                if (!r) return nullptr;
                continue;
            default:
                // Not an escape: the backslash stays, and the byte after it
                // is read again as an ordinary byte.
                *w++ = '\\';
                ++r;
                continue;
            }
            *w++ = out;
            r += 2;
            continue;
        }
        // A run of plain bytes, moved down over the space the escapes freed.
        char *run = r;
        r = find_stop(r, text_end);
        const size_t n = static_cast<size_t>(r - run);
        std::memmove(w, run, n);
        w += n;
    }
}

// Conversions in the "C" locale: the decimal point of a JSON number is
// always ".", whatever locale the host runs in.
locale_t c_locale() {
    static const locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    return loc;
}

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                             1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                             1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

constexpr uint64_t kPow10Int[] = {1,         10,         100,         1000,       10000,
                                  100000,    1000000,    10000000,    100000000};

// The run of up to 8 decimal digits at p, read as one 8-byte word (all 8
// bytes must lie before the end of the text): its length, and its value
// in *value.
inline int digits8(const char *p, uint64_t *value) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    const uint64_t x = w - 0x3030303030303030u;
    // A byte is not a digit when its difference is negative or above 9
    // (borrows and carries run only towards the bytes after it).
    const uint64_t stop = (x | (x + 0x7676767676767676u)) & 0x8080808080808080u;
    const int n = stop ? __builtin_ctzll(stop) >> 3 : 8;
    if (n == 0) {
        *value = 0;
        return 0;
    }
    // The digits to the top bytes (first digit most significant), then
    // pairs, fours and the eight combined.
    uint64_t y = x << (64 - 8 * n);
    y = y * 10 + (y >> 8);
    y = ((y & 0x000000FF000000FFu) * (100 + (uint64_t{1000000} << 32)) +
         ((y >> 16) & 0x000000FF000000FFu) * (1 + (uint64_t{10000} << 32))) >> 32;
    *value = y;
    return n;
}

// The common decimal forms read the way the C library's automatic-base
// 64-bit conversions read them: the magnitude of the digits at s (after
// the sign) and the position after them.  Anything else (octal,
// hexadecimal, 20 digits or more) is left to the C library itself.
bool fast_integer(const Parse &ps, const char *s, uint64_t *magnitude, char **end) {
    if (!is_digit(*s)) return false;
    if (s[0] == '0' && (is_digit(s[1]) || (s[1] | 0x20) == 'x')) return false;
    uint64_t v = 0;
    const char *q = s;
    for (int n = 8; n == 8 && q - s < 16 && ps.end - q >= 7; q += n) {
        uint64_t chunk;
        n = digits8(q, &chunk);
        v = v * kPow10Int[n] + chunk;
    }
    while (is_digit(*q) && q - s < 19) v = v * 10 + static_cast<unsigned>(*q++ - '0');
    if (is_digit(*q)) return false;
    *magnitude = v;
    *end = const_cast<char *>(q);
    return true;
}

// The digits of a fraction at q appended to m; false when m could
// overflow (the number then goes to strtod).
bool fraction_digits(const Parse &ps, const char *&q, uint64_t &m, int &e10) {
    constexpr uint64_t kRoomFor8 = (UINT64_MAX - 99999999) / 100000000;
    constexpr uint64_t kRoomFor1 = (UINT64_MAX - 9) / 10;
    while (ps.end - q >= 7) {
        uint64_t chunk;
        const int n = digits8(q, &chunk);
        if (n == 0) return true;
        if (m > kRoomFor8) return false;
        m = m * kPow10Int[n] + chunk;
        e10 -= n;
        q += n;
        if (n < 8) return true;
    }
    for (; is_digit(*q); ++q, --e10) {
        if (m > kRoomFor1) return false;
        m = m * 10 + static_cast<unsigned>(*q - '0');
    }
    return true;
}

// The fraction and exponent at q that follow integer digits worth m.
// When the significant digits fit in 53 bits and the power of ten is
// exact (|e| <= 22), the value is one correctly rounded operation, the
// result the C library gives; others go to strtod.
bool fast_fraction(const Parse &ps, const char *q, uint64_t m, bool neg, double *out,
                   char **end) {
    int e10 = 0;
    if (*q == '.' && !fraction_digits(ps, ++q, m, e10)) return false;
    if ((*q | 0x20) == 'e') {
        const char *t = q + 1;
        bool eneg = false;
        if (*t == '+' || *t == '-') eneg = *t++ == '-';
        if (is_digit(*t)) {
            int x = 0;
            for (; is_digit(*t); ++t)
                if (x < 100000) x = x * 10 + (*t - '0');
            e10 += eneg ? -x : x;
            q = t;
        }
    }
    double d = 0.0;
    if (m != 0) {
        if (m > (uint64_t{1} << 53) || e10 < -22 || e10 > 22) return false;
        d = static_cast<double>(m);
        d = e10 < 0 ? d / kPow10[-e10] : d * kPow10[e10];
    }
    *out = neg ? -d : d;
    *end = const_cast<char *>(q);
    return true;
}

// The double of the number at p, as strtod reads it, stored in js.
[[gnu::noinline]] char *double_by_c_library(JsonNode *js, char *p) {
    js->kind = JSON_DOUBLE;
    errno = 0;
    char *end;
    const double d = strtod_l(p, &end, c_locale());
    // Only overflow is an error; a value too small to represent reads as
    // the nearest the C library gives (0 or subnormal).
    if (end == p || (errno == ERANGE && std::fabs(d) == HUGE_VAL))
        return report(325, "invalid number", p);
    js->v2.dbl_value = d;
    return end;
}

// The number at p read by the C library alone: the integer in automatic
// base, then, when a fraction or exponent follows, the double.
[[gnu::noinline]] char *number_by_c_library(JsonNode *js, char *p) {
    errno = 0;
    char *end;
    if (*p == '-')
        js->v1.int_value = strtoll_l(p, &end, 0, c_locale());
    else
        js->v1.uint_value = strtoull_l(p, &end, 0, c_locale());
    if (end == p || errno == ERANGE) return report(318, "invalid number", p);
    if (*end == '.' || *end == 'e' || *end == 'E') return double_by_c_library(js, p);
    return end;
}

// The usual decimal numbers are read here in one pass; the others by the
// C library, with the same results.
char *parse_number(Parse &ps, JsonNode *parent, const char *key, char *p) {
    JsonNode *js = create_json(ps, JSON_INTEGER, key, parent);
    const bool neg = *p == '-';
    char *end;
    uint64_t magnitude;
    if (!fast_integer(ps, p + neg, &magnitude, &end) || (neg && magnitude > (uint64_t{1} << 63)))
        return number_by_c_library(js, p);
    js->v1.uint_value = neg ? uint64_t{0} - magnitude : magnitude;
    if (*end != '.' && (*end | 0x20) != 'e') return end;
    js->kind = JSON_DOUBLE;
    double d;
    if (!fast_fraction(ps, end, magnitude, neg, &d, &end)) return double_by_c_library(js, p);
    js->v2.dbl_value = d;
    return end;
}

// A comment at p ("/" then something).  Returns the position after it or
// null after reporting; the line-comment and stray-slash checks differ
// between the value and the member level.
char *skip_comment(char *p, int endless_line_check, int stray_check) {
    if (p[1] == '/') {
        char *nl = std::strchr(p + 2, '\n');
        if (!nl) return report(endless_line_check, "endless comment", p);
        return nl + 1;
    }
    if (p[1] == '*') {
        if (p[2] == '\0') return report(207, "endless comment", p);
        // The closing "/" is searched from the second byte after the star,
        // so "/*/" does not close itself.
        for (char *q = p + 3; *q; ++q)
            if (*q == '/' && q[-1] == '*') return q + 1;
        return report(213, "endless comment", p);
    }
    return report(stray_check, "unexpected chars", p);
}

bool starts_with(const char *p, const char *word) {
    for (; *word; ++p, ++word)
        if (*p != *word) return false;
    return true;
}

char *parse_at(Parse &ps, JsonNode *parent, const char *key, char *p, int depth);

char *parse_object(Parse &ps, JsonNode *parent, const char *key, char *p, int depth) {
    JsonNode *obj = create_json(ps, JSON_OBJECT, key, parent);
    for (;;) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c == '\0') return report(254, "unexpected chars", p);
        if (c <= ' ' || c == ',') {
            ++p;
            continue;
        }
        if (c == '}') return p + 1;
        if (c == '/') {
            p = skip_comment(p, 238, 246);
            if (!p) return nullptr;
            continue;
        }
        if (c != '"') return report(250, "unexpected chars", p);
        char *after;
        char *name = unescape(p + 1, &after, ps.end);
        if (!name) return nullptr;
        p = after;
        while (static_cast<unsigned char>(*p - 1) < ' ') ++p;  // bytes 1 to 32
        if (*p != ':') return report(228, "unexpected chars", p);
        ++p;
        if (*p == '}') return p + 1;  // a name with no value: dropped
        p = parse_at(ps, obj, name, p, depth);
        if (!p) return nullptr;
    }
}

// Tab, line feed, carriage return, blank and comma: skipped before a value.
constexpr uint64_t kSeparators = (uint64_t{1} << '\t') | (uint64_t{1} << '\n') |
                                 (uint64_t{1} << '\r') | (uint64_t{1} << ' ') |
                                 (uint64_t{1} << ',');
inline bool is_separator(unsigned char c) { return c < 64 && ((kSeparators >> c) & 1); }

char *parse_string(Parse &ps, JsonNode *parent, const char *key, char *p) {
    JsonNode *js = create_json(ps, JSON_STRING, key, parent);
    char *after;
    char *text = unescape(p + 1, &after, ps.end);
    if (!text) return nullptr;
    js->v1.text_value = text;
    return after;
}

// Elements are parsed until one returns at the closing bracket; numbers
// and strings, the usual elements, are parsed without the general
// dispatch.
char *parse_array(Parse &ps, JsonNode *parent, const char *key, char *p, int depth) {
    JsonNode *arr = create_json(ps, JSON_ARRAY, key, parent);
    ++p;
    for (;;) {
        auto c = static_cast<unsigned char>(*p);
        while (is_separator(c)) c = static_cast<unsigned char>(*++p);
        if (c == ']') return p + 1;
        if (is_digit(c) || c == '-')
            p = parse_number(ps, arr, nullptr, p);
        else if (c == '"')
            p = parse_string(ps, arr, nullptr, p);
        else
            p = parse_at(ps, arr, nullptr, p, depth + 1);
        if (!p) return nullptr;
    }
}

// The words true, false and null, and what cannot start a value.
char *parse_word(Parse &ps, JsonNode *parent, const char *key, char *p) {
    switch (*p) {
    case '\0':
        return report(263, "unexpected end of text", p);
    case 't':
        if (!starts_with(p, "true")) return report(346, "unexpected chars", p);
        create_json(ps, JSON_BOOL, key, parent)->v1.int_value = 1;
        return p + 4;
    case 'f':
        if (!starts_with(p, "false")) return report(354, "unexpected chars", p);
        create_json(ps, JSON_BOOL, key, parent);
        return p + 5;
    case 'n':
        if (!starts_with(p, "null")) return report(361, "unexpected chars", p);
        create_json(ps, JSON_NULL, key, parent);
        return p + 4;
    default:
        return report(381, "unexpected chars", p);
    }
}

// depth: number of containers already open around the value at p.  The
// usual bytes are tested in turn rather than through one multi-way jump,
// whose target the processor guesses badly when values of every kind
// alternate.
char *parse_at(Parse &ps, JsonNode *parent, const char *key, char *p, int depth) {
    for (;;) {
        const auto c = static_cast<unsigned char>(*p);
        if (is_separator(c)) {
            ++p;
            continue;
        }
        if (c == '"') return parse_string(ps, parent, key, p);
        if (is_digit(c) || c == '-') return parse_number(ps, parent, key, p);
        if (c == '[' || c == '{') {
            if (depth >= kMaxDepth) return report(kDepthCheck, "nesting too deep", p);
            if (c == '[') return parse_array(ps, parent, key, p, depth);
            return parse_object(ps, parent, key, p + 1, depth + 1);
        }
        if (c == ']') return p;
        if (c != '/') return parse_word(ps, parent, key, p);
        p = skip_comment(p, 368, 376);
        if (!p) return nullptr;
    }
}

}  // namespace

extern "C" {

UDFKIT_API char *parse_value(JsonNode *parent, const char *key, char *text) {
    if (!parent || !text) return nullptr;
    Parse ps{udfkit::json::thread_carver(), text + std::strlen(text)};
    return parse_at(ps, parent, key, text, 0);
}

UDFKIT_API char *unescape_string(char *text, char **end) {
    if (!text || !end) return nullptr;
    return unescape(text, end, nullptr);
}

UDFKIT_API int32_t unicode_to_utf8(uint32_t codepoint, char *out, char **end) {
    if (!out || !end) return 0;
    return utf8_encode(codepoint, out, end);
}

UDFKIT_API void nx_json_free(JsonNode *node) {
    if (node) udfkit::json::free_tree(node);
}

}  // extern "C"
