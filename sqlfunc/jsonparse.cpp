// The in-place JSON parser.
//
// One left-to-right pass over a writable, NUL-terminated text, recursing
// once per nesting level.  Strings and member names are unescaped inside
// the text and the nodes point at them; each node is one zero-filled
// allocation linked to its parent.  The first error stops the parse and
// prints one line on stderr whose number identifies the failed check.
#include <assert.h>
#include <errno.h>
#include <locale.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sqlfunc/jsonlib.hpp"
#include "udfkit/json.h"

namespace {

using udfkit::json::kDepthCheck;
using udfkit::json::kMaxDepth;

[[gnu::cold, gnu::noinline]] char *report(int line, const char *message, const char *at) {
    std::fprintf(stderr, "NXJSON PARSE ERROR (%d): %s at %s\n", line, message, at);
    return nullptr;
}

JsonNode *create_json(int32_t kind, const char *key, JsonNode *parent) {
    auto *js = static_cast<JsonNode *>(std::calloc(1, sizeof(JsonNode)));
    // Out of memory ends the process, whatever NDEBUG says.
    if (!js) __assert_fail("js", __FILE__, 71, "create_json");
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

char *unescape(char *start, char **end) {
    char *r = start;
    // Up to the first escape nothing moves.
    while (!kStringStop[static_cast<unsigned char>(*r)]) ++r;
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
        while (!kStringStop[static_cast<unsigned char>(*r)]) ++r;
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

// The common decimal forms read the way the C library's automatic-base
// 64-bit conversions read them; anything else (octal, hexadecimal, 20 digits
// or more, a negative value beyond 2^63) is left to the C library itself.
bool fast_integer(const char *p, bool neg, JsonNode *js, char **end) {
    const char *s = p + (neg ? 1 : 0);
    if (!is_digit(*s)) return false;
    if (s[0] == '0' && (is_digit(s[1]) || (s[1] | 0x20) == 'x')) return false;
    uint64_t v = 0;
    const char *q = s;
    while (is_digit(*q) && q - s < 19) v = v * 10 + static_cast<unsigned>(*q++ - '0');
    if (is_digit(*q)) return false;
    if (neg) {
        if (v > (uint64_t{1} << 63)) return false;
        js->v1.uint_value = uint64_t{0} - v;
    } else {
        js->v1.uint_value = v;
    }
    *end = const_cast<char *>(q);
    return true;
}

// A decimal number whose significant digits fit in 53 bits and whose
// power of ten is exact (|e| <= 22) converts with one correctly rounded
// operation, the result the C library gives; others go to strtod.
bool fast_double(const char *p, bool neg, double *out, char **end) {
    const char *q = p + (neg ? 1 : 0);
    if (q[0] == '0' && (q[1] | 0x20) == 'x') return false;
    uint64_t m = 0;
    int sig = 0, e10 = 0;
    bool digits = false;
    for (; is_digit(*q); ++q) {
        digits = true;
        if (m == 0 && *q == '0') continue;
        if (++sig > 19) return false;
        m = m * 10 + static_cast<unsigned>(*q - '0');
    }
    if (*q == '.') {
        for (++q; is_digit(*q); ++q) {
            digits = true;
            --e10;
            if (m == 0 && *q == '0') continue;
            if (++sig > 19) return false;
            m = m * 10 + static_cast<unsigned>(*q - '0');
        }
    }
    if (!digits) return false;
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
    double d;
    if (m == 0) {
        d = 0.0;
    } else {
        if (m > (uint64_t{1} << 53) || e10 < -22 || e10 > 22) return false;
        d = static_cast<double>(m);
        d = e10 < 0 ? d / kPow10[-e10] : d * kPow10[e10];
    }
    *out = neg ? -d : d;
    *end = const_cast<char *>(q);
    return true;
}

char *parse_number(JsonNode *parent, const char *key, char *p) {
    JsonNode *js = create_json(JSON_INTEGER, key, parent);
    const bool neg = *p == '-';
    char *end;
    if (!fast_integer(p, neg, js, &end)) {
        errno = 0;
        if (neg)
            js->v1.int_value = strtoll_l(p, &end, 0, c_locale());
        else
            js->v1.uint_value = strtoull_l(p, &end, 0, c_locale());
        if (end == p || errno == ERANGE) return report(318, "invalid number", p);
    }
    if (*end == '.' || *end == 'e' || *end == 'E') {
        js->kind = JSON_DOUBLE;
        double d;
        if (!fast_double(p, neg, &d, &end)) {
            errno = 0;
            d = strtod_l(p, &end, c_locale());
            // Only overflow is an error; a value too small to represent
            // reads as the nearest the C library gives (0 or subnormal).
            if (end == p || (errno == ERANGE && std::fabs(d) == HUGE_VAL))
                return report(325, "invalid number", p);
        }
        js->v2.dbl_value = d;
    }
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

char *parse_at(JsonNode *parent, const char *key, char *p, int depth);

char *parse_object(JsonNode *parent, const char *key, char *p, int depth) {
    JsonNode *obj = create_json(JSON_OBJECT, key, parent);
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
        char *name = unescape(p + 1, &after);
        if (!name) return nullptr;
        p = after;
        while (static_cast<unsigned char>(*p - 1) < ' ') ++p;  // bytes 1 to 32
        if (*p != ':') return report(228, "unexpected chars", p);
        ++p;
        if (*p == '}') return p + 1;  // a name with no value: dropped
        p = parse_at(obj, name, p, depth);
        if (!p) return nullptr;
    }
}

// depth: number of containers already open around the value at p.
char *parse_at(JsonNode *parent, const char *key, char *p, int depth) {
    for (;;) {
        switch (*p) {
        case '\0':
            return report(263, "unexpected end of text", p);
        case '\t': case '\n': case '\r': case ' ': case ',':
            ++p;
            continue;
        case '/':
            p = skip_comment(p, 368, 376);
            if (!p) return nullptr;
            continue;
        case '"': {
            JsonNode *js = create_json(JSON_STRING, key, parent);
            char *after;
            char *text = unescape(p + 1, &after);
            if (!text) return nullptr;
            js->v1.text_value = text;
            return after;
        }
        case '-': case '0': case '1': case '2': case '3': case '4':
        case '5': case '6': case '7': case '8': case '9':
            return parse_number(parent, key, p);
        case '[': {
            if (depth >= kMaxDepth) return report(kDepthCheck, "nesting too deep", p);
            JsonNode *arr = create_json(JSON_ARRAY, key, parent);
            ++p;
            for (;;) {
                p = parse_at(arr, nullptr, p, depth + 1);
                if (!p) return nullptr;
                if (*p == ']') return p + 1;
            }
        }
        case ']':
            return p;
        case '{':
            if (depth >= kMaxDepth) return report(kDepthCheck, "nesting too deep", p);
            return parse_object(parent, key, p + 1, depth + 1);
        case 't':
            if (!starts_with(p, "true")) return report(346, "unexpected chars", p);
            create_json(JSON_BOOL, key, parent)->v1.int_value = 1;
            return p + 4;
        case 'f':
            if (!starts_with(p, "false")) return report(354, "unexpected chars", p);
            create_json(JSON_BOOL, key, parent);
            return p + 5;
        case 'n':
            if (!starts_with(p, "null")) return report(361, "unexpected chars", p);
            create_json(JSON_NULL, key, parent);
            return p + 4;
        default:
            return report(381, "unexpected chars", p);
        }
    }
}

}  // namespace

extern "C" {

UDFKIT_API char *parse_value(JsonNode *parent, const char *key, char *text) {
    if (!parent || !text) return nullptr;
    return parse_at(parent, key, text, 0);
}

UDFKIT_API char *unescape_string(char *text, char **end) {
    if (!text || !end) return nullptr;
    return unescape(text, end);
}

UDFKIT_API int32_t unicode_to_utf8(uint32_t codepoint, char *out, char **end) {
    if (!out || !end) return 0;
    return utf8_encode(codepoint, out, end);
}

UDFKIT_API void nx_json_free(JsonNode *node) {
    // Iterative, children before their parent's memory is gone: each freed
    // container splices its children in front of the pending list, so any
    // depth is freed without recursion.
    if (!node) return;
    node->next = nullptr;  // the node's own siblings are not freed
    JsonNode *pending = node;
    while (pending) {
        JsonNode *js = pending;
        pending = js->next;
        if ((js->kind == JSON_OBJECT || js->kind == JSON_ARRAY) && js->v2.child) {
            JsonNode *tail = js->last_child;
            if (!tail)
                for (tail = js->v2.child; tail->next;) tail = tail->next;
            tail->next = pending;
            pending = js->v2.child;
        }
        std::free(js);
    }
}

}  // extern "C"
