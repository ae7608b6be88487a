#include "sqlhelp/text.hpp"

#include <charconv>
#include <cmath>
#include <cstring>

namespace udfkit::sqlhelp {

namespace {

bool is_cont(unsigned char c) { return (c & 0xC0) == 0x80; }

// The length of the character a lead byte starts, 0 for a byte that
// cannot start one.
size_t lead_length(unsigned char c) {
    if (c < 0x80) return 1;
    if (c >= 0xC2 && c <= 0xDF) return 2;
    if (c >= 0xE0 && c <= 0xEF) return 3;
    if (c >= 0xF0 && c <= 0xF4) return 4;
    return 0;
}

// The length of the valid character at s[0, len), 0 if there is none.
size_t valid_char(const unsigned char *s, size_t len) {
    const size_t n = lead_length(s[0]);
    if (n == 0 || n > len) return 0;
    for (size_t i = 1; i < n; ++i)
        if (!is_cont(s[i])) return 0;
    if (n == 3 && s[0] == 0xE0 && s[1] < 0xA0) return 0;  // overlong
    if (n == 3 && s[0] == 0xED && s[1] > 0x9F) return 0;  // surrogate
    if (n == 4 && s[0] == 0xF0 && s[1] < 0x90) return 0;  // overlong
    if (n == 4 && s[0] == 0xF4 && s[1] > 0x8F) return 0;  // above U+10FFFF
    return n;
}

thread_local int t_query_depth = 0;

// One character as a code point; a byte that starts none stands for itself.
uint32_t next_char(const unsigned char *&p) {
    const uint32_t c = *p++;
    const size_t n = lead_length(static_cast<unsigned char>(c));
    if (n < 2) return c;
    uint32_t cp = c & (0x7F >> n);
    for (size_t i = 1; i < n && is_cont(*p); ++i) cp = (cp << 6) | (*p++ & 0x3F);
    return cp;
}

// Matches c against the set that starts after a '['; leaves p after its
// ']'.  Returns 1 or 0, or -1 for a set left open.
int set_match(const unsigned char *&p, uint32_t c) {
    bool negate = false, seen = false;
    if (*p == '^') {
        negate = true;
        ++p;
    }
    uint32_t prev = 0;  // a character that may start a range
    if (*p == ']') {
        seen = c == ']';
        ++p;
    }
    while (*p && *p != ']') {
        if (*p == '-' && prev && p[1] && p[1] != ']') {
            ++p;
            const uint32_t hi = next_char(p);
            seen = seen || (c >= prev && c <= hi);
            prev = 0;
        } else {
            prev = next_char(p);
            seen = seen || c == prev;
        }
    }
    if (!*p) return -1;
    ++p;
    return seen != negate ? 1 : 0;
}

}  // namespace

size_t utf8_cut(const char *s, size_t len, size_t max) noexcept {
    if (len <= max) return len;
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    // Back over at most three continuation bytes to the character's start.
    size_t n = max;
    while (n > 0 && max - n < 3 && is_cont(u[n])) --n;
    if (n < max && valid_char(u + n, len - n) > max - n) return n;
    return max;
}

size_t pop_length(const char *s, size_t len, int64_t capacity) noexcept {
    if (capacity <= 1) return 0;
    if (capacity == 2) return len < 1 ? len : 1;
    return utf8_cut(s, len, static_cast<size_t>(capacity - 1));
}

bool utf8_valid(const char *s, size_t len) noexcept {
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    // Most texts are plain ASCII: their high bits, eight bytes at a time.
    uint64_t high = 0;
    size_t i = 0;
    for (; i + 8 <= len; i += 8) {
        uint64_t word;
        std::memcpy(&word, u + i, 8);
        high |= word;
    }
    for (; i < len; ++i) high |= u[i];
    if ((high & 0x8080808080808080ull) == 0) return true;
    i = 0;
    while (i < len) {
        if (u[i] < 0x80) {
            ++i;
            continue;
        }
        const size_t n = valid_char(u + i, len - i);
        if (n == 0) return false;
        i += n;
    }
    return true;
}

void utf8_trim_ends(const char *&s, size_t &len) noexcept {
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    if (len == 0 || (u[0] < 0x80 && u[len - 1] < 0x80)) return;  // ASCII ends: whole
    size_t start = 0;
    while (start < len && start < 3 && is_cont(u[start])) ++start;
    size_t end = len;
    // The last lead byte within the final four bytes: if its character
    // runs past the end, it goes.
    for (size_t back = 1; back <= 4 && back <= end - start; ++back) {
        const unsigned char c = u[end - back];
        if (is_cont(c)) continue;
        const size_t n = lead_length(c);
        if (n > back) end -= back;
        break;
    }
    s += start;
    len = end - start;
}

bool glob_match(const char *pattern, const char *text) noexcept {
    auto p = reinterpret_cast<const unsigned char *>(pattern);
    auto t = reinterpret_cast<const unsigned char *>(text);
    // Every token but a star takes one character, so only the last star
    // needs to take more when the rest fails.
    const unsigned char *star_p = nullptr, *star_t = nullptr;
    for (;;) {
        if (*p == '*') {
            while (*p == '*') ++p;
            star_p = p;
            star_t = t;
            continue;
        }
        if (!*p && !*t) return true;
        int step = 0;
        const unsigned char *np = p, *nt = t;
        if (*p && *t) {
            const uint32_t c = next_char(nt);
            if (*np == '?') {
                ++np;
                step = 1;
            } else if (*np == '[') {
                ++np;
                step = set_match(np, c);
                if (step < 0) return false;
            } else {
                step = next_char(np) == c;
            }
        }
        if (step) {
            p = np;
            t = nt;
            continue;
        }
        if (!star_p || !*star_t) return false;
        next_char(star_t);
        p = star_p;
        t = star_t;
    }
}

size_t real_to_text(double d, char *buf) noexcept {
    if (std::isnan(d)) {
        std::memcpy(buf, "nan", 4);
        return 3;
    }
    if (std::isinf(d)) {
        const char *t = d < 0 ? "-inf" : "inf";
        std::strcpy(buf, t);
        return std::strlen(t);
    }
    auto r = std::to_chars(buf, buf + kRealTextMax - 1, d, std::chars_format::fixed);
    const size_t n = r.ec == std::errc() ? static_cast<size_t>(r.ptr - buf) : 0;
    buf[n] = '\0';
    return n;
}

QueryDepth::QueryDepth() noexcept : entered_(t_query_depth < kMaxQueryDepth) {
    if (entered_) ++t_query_depth;
}

QueryDepth::~QueryDepth() {
    if (entered_) --t_query_depth;
}

}  // namespace udfkit::sqlhelp
