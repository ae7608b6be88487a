// The SQL functions of the fuzzy search: fuzzysearch, fuzzyhighlight,
// fuzzyexcerpt and fuzzysetspans, with the highlight markers.
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

namespace {

constexpr int32_t kMarkerCap = 1024;
constexpr double kDefaultThreshold = 0.1;

char g_open[kMarkerCap] =
    "<span class='fuzzy_span' style='background-color:%2.2x0000;color:FFFFFF' title='%2.2f'>";
char g_close[kMarkerCap] = "</span>";

}  // namespace

extern "C" {
UDFKIT_API char *SpanOpen = g_open;
UDFKIT_API char *SpanClose = g_close;
}

namespace {

// What the opening marker asks of printf.  The marker comes from SQL text,
// so it is never handed to printf unless its conversions are, in order, at
// most one int conversion (d i o u x X) and then at most one double
// conversion (f F e E g G a A), each with flags, a width and a precision of
// at most three digits and no length modifier, '*' or '$'; "%%" is allowed
// anywhere.  Any other marker (%s, %n, %p, two ints, a double before the
// int...) is neutralised: it is written as literal text, byte for byte.
enum class MarkerUse { Literal, IntAndDouble, DoubleOnly };

MarkerUse classify(const char *f) {
    int stage = 0;  // 0: nothing seen, 1: int seen, 2: double seen
    bool double_only = false;
    for (const char *p = f; *p; ++p) {
        if (*p != '%') continue;
        ++p;
        if (*p == '%') continue;
        while (*p && std::strchr("-+ #0'", *p)) ++p;
        for (int n = 0; *p >= '0' && *p <= '9'; ++p)
            if (++n > 3) return MarkerUse::Literal;
        if (*p == '.') {
            ++p;
            for (int n = 0; *p >= '0' && *p <= '9'; ++p)
                if (++n > 3) return MarkerUse::Literal;
        }
        if (*p && std::strchr("diouxX", *p)) {
            if (stage != 0) return MarkerUse::Literal;
            stage = 1;
        } else if (*p && std::strchr("fFeEgGaA", *p)) {
            if (stage == 2) return MarkerUse::Literal;
            double_only = stage == 0;
            stage = 2;
        } else {
            return MarkerUse::Literal;  // anything else, or '%' at the end
        }
    }
    return double_only ? MarkerUse::DoubleOnly : MarkerUse::IntAndDouble;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
// printf of a checked marker: with a single double conversion it gets the
// score alone; otherwise the colour and the score (arguments beyond the
// conversions are ignored by printf).
int format_marker(char *buf, size_t size, const char *fmt, MarkerUse use, int colour,
                  double score) {
    if (use == MarkerUse::DoubleOnly) return std::snprintf(buf, size, fmt, score);
    return std::snprintf(buf, size, fmt, colour, score);
}
#pragma GCC diagnostic pop

// The two markers as this call uses them.
struct Markers {
    const char *open;
    const char *close;
    size_t close_len;
    MarkerUse use;

    Markers() {
        open = SpanOpen ? SpanOpen : "";
        close = SpanClose ? SpanClose : "";
        close_len = std::strlen(close);
        use = classify(open);
    }

    static int colour(double score) { return static_cast<int>(255.0 * score); }

    size_t open_length(double score) const {
        if (use == MarkerUse::Literal) return std::strlen(open);
        const int n = format_marker(nullptr, 0, open, use, colour(score), score);
        return n < 0 ? 0 : static_cast<size_t>(n);
    }

    void write_open(std::string &out, double score) const {
        if (use == MarkerUse::Literal) {
            out += open;
            return;
        }
        char small[512];
        const int n = format_marker(small, sizeof small, open, use, colour(score), score);
        if (n < 0) return;
        if (static_cast<size_t>(n) < sizeof small) {
            out.append(small, static_cast<size_t>(n));
            return;
        }
        // Longer than the stack buffer: format straight into the result.
        const size_t at = out.size();
        out.resize(at + static_cast<size_t>(n) + 1);
        format_marker(&out[at], static_cast<size_t>(n) + 1, open, use, colour(score), score);
        out.resize(at + static_cast<size_t>(n));
    }
};

// Where a highlight or an excerpt is written: Measure counts its bytes,
// Build writes them.  The same walk runs into both, so the length of a
// result is known before it is built.
struct Measure {
    const Markers &mk;
    uint64_t n = 0;
    void bytes(const char *, size_t k) { n += k; }
    void open(double score) { n += mk.open_length(score); }
    void close() { n += mk.close_len; }
};
struct Build {
    const Markers &mk;
    std::string &out;
    void bytes(const char *p, size_t k) { out.append(p, k); }
    void open(double score) { mk.write_open(out, score); }
    void close() { out.append(mk.close, mk.close_len); }
};

// Whether a term's best word is usable by the highlighting: scored at
// least the threshold, and lying inside the text of length len.
bool usable(const SearchTerm &t, double threshold, size_t len) {
    return t.score >= threshold && t.position >= 0 && t.matchLength > 0 &&
           static_cast<size_t>(t.position) + static_cast<size_t>(t.matchLength) <= len;
}

// The first usable best word at or after byte i: the least position, and
// at that position the first term in table order.  Null when none.
const SearchTerm *next_hit(size_t i, int nterms, double threshold, size_t len) {
    const SearchTerm *hit = nullptr;
    for (int j = 0; j < nterms; ++j) {
        const SearchTerm &t = Recherche[j];
        if (!usable(t, threshold, len) || static_cast<size_t>(t.position) < i) continue;
        if (!hit || t.position < hit->position) hit = &t;
    }
    return hit;
}

// The text with each term's best word wrapped in the markers; a best word
// that starts inside one already wrapped is not.
template <class Out>
void highlight(const char *text, size_t len, double threshold, Out &out) {
    const int nterms = udfkit::fuzzy::term_count();
    for (size_t i = 0; i < len;) {
        const SearchTerm *hit = next_hit(i, nterms, threshold, len);
        const size_t at = hit ? static_cast<size_t>(hit->position) : len;
        out.bytes(text + i, at - i);
        if (!hit) break;
        out.open(hit->score);
        out.bytes(text + at, static_cast<size_t>(hit->matchLength));
        out.close();
        i = at + static_cast<size_t>(hit->matchLength);
    }
}

inline bool continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// Where an excerpt piece starts: walking back from the best word at pos,
// until the piece holds half_width bytes, more than half_lines newlines
// have been met, or the walk reaches floor (the end of the previous piece,
// or the start of the text).  A newline that stops the walk starts the
// piece.
long long piece_start(const char *text, long long pos, long long floor, long long half_width,
                      long long half_lines) {
    if (pos <= floor) return pos;
    long long k = pos, newlines = 0;
    for (;;) {
        if (text[k] == '\n') ++newlines;
        if (pos + 1 - k >= half_width || newlines > half_lines) break;
        if (--k <= floor) break;
    }
    return k;
}

// Where the context after a best word ending at match_end stops
// (excluded): fewer than half_width bytes, and no further than the
// half_lines-th newline or the end of the text.
long long context_end(const char *text, long long len, long long match_end, long long half_width,
                      long long half_lines) {
    long long end = match_end;
    if (match_end >= len) return end;
    for (long long newlines = 0;;) {
        if (text[end] == '\n') ++newlines;
        if (end - match_end + 1 >= half_width || newlines >= half_lines) break;
        if (++end >= len) break;
    }
    return end;
}

// Pieces of the text around each term's best word: the word wrapped in
// the markers, with context before and after it, each piece on its own
// line.  In a UTF-8 text a piece neither starts nor ends inside a
// character.
template <class Out>
void excerpt(const char *text, size_t len, int32_t lines, int32_t length, double threshold, bool utf8,
             Out &out) {
    const int nterms = udfkit::fuzzy::term_count();
    const long long half_lines = lines / 2;
    const long long half_width = std::max<long long>(10, (length / 2) / std::max(nterms, 1));
    const auto text_len = static_cast<long long>(len);
    long long prev_end = -1;  // end of the previous piece
    for (int j = 0; j < nterms; ++j) {
        const SearchTerm &t = Recherche[j];
        if (t.score < threshold || t.position == -1) continue;
        if (j > 0) out.bytes("\n", 1);
        if (!usable(t, threshold, len)) continue;  // a position this text cannot hold
        const long long pos = t.position, match_end = pos + t.matchLength;
        long long start = piece_start(text, pos, std::max<long long>(prev_end, 0), half_width, half_lines);
        while (utf8 && start < pos && continuation(text[start])) ++start;
        if (prev_end > start) continue;
        long long end = context_end(text, text_len, match_end, half_width, half_lines);
        bool ellipsis = true;
        if (j + 1 < UDFKIT_MAX_TERMS && Recherche[j + 1].word && Recherche[j + 1].position < end) {
            // Taken as stored: -1 for a term that matched nothing.
            end = static_cast<long long>(Recherche[j + 1].position) - 1;
            ellipsis = false;
        }
        while (utf8 && end > match_end && end < text_len && continuation(text[end])) --end;
        out.bytes(text + start, static_cast<size_t>(pos - start));
        out.open(t.score);
        out.bytes(text + pos, static_cast<size_t>(t.matchLength));
        out.close();
        if (end > match_end) out.bytes(text + match_end, static_cast<size_t>(end - match_end));
        if (ellipsis) out.bytes(" ...", 4);
        prev_end = end;
    }
}

// Runs walk into a Measure, then, when the host takes a result that long,
// into a Build, and pushes the result; otherwise pushes nothing.
template <class Walk>
void push_result(const HostCallTable *t, Walk &&walk) {
    const Markers mk;
    Measure measure{mk};
    walk(measure);
    if (!udfkit::result_fits(measure.n)) return;
    std::string out;
    out.reserve(static_cast<size_t>(measure.n));
    Build build{mk, out};
    walk(build);
    t->PushString(out.c_str());
}

void reset_isocode() { std::strcpy(IsoCode, "UTF-8"); }

// The optional last arguments of fuzzyhighlight and fuzzyexcerpt: with
// nargs == all, the character set and then the threshold; with all - 1,
// the threshold alone.  Without a character set IsoCode becomes "UTF-8".
double pop_threshold(const HostCallTable *t, int32_t nargs, int32_t all) {
    double threshold = kDefaultThreshold;
    if (nargs == all) {
        udfkit::pop_into(t, IsoCode);
    } else {
        reset_isocode();
    }
    if (nargs == all || nargs == all - 1) t->PopDouble(&threshold);
    return threshold;
}

// Whether the texts are UTF-8, by the character-set name in force.
bool text_is_utf8() { return strcasecmp(IsoCode, "UTF-8") == 0 || strcasecmp(IsoCode, "UTF8") == 0; }

}  // namespace

extern "C" {

UDFKIT_API void fuzzysearch(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                            int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    udfkit::guarded([&] {
        if (nargs == 3) {
            udfkit::pop_into(t, IsoCode);
        } else {
            reset_isocode();
        }
        udfkit::PoppedText text(t);
        udfkit::PoppedText pattern(t);
        t->PushDouble(FuzzySearch(pattern.c_str(), text.c_str()));
    });
}

UDFKIT_API void fuzzyhighlight(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_VCHAR, 65536)) return;
    udfkit::guarded([&] {
        const double threshold = pop_threshold(t, nargs, 4);
        udfkit::PoppedText text(t);
        udfkit::PoppedText pattern(t);
        FuzzySearch(pattern.c_str(), text.c_str());
        push_result(t, [&](auto &out) { highlight(text.c_str(), text.length(), threshold, out); });
    });
}

UDFKIT_API void fuzzyexcerpt(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                             int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_VCHAR, 65536)) return;
    udfkit::guarded([&] {
        const double threshold = pop_threshold(t, nargs, 6);
        int32_t length = 0, lines = 0;
        t->PopInt(&length);
        t->PopInt(&lines);
        udfkit::PoppedText text(t);
        udfkit::PoppedText pattern(t);
        FuzzySearch(pattern.c_str(), text.c_str());
        const bool utf8 = text_is_utf8();
        push_result(t, [&](auto &out) {
            excerpt(text.c_str(), text.length(), lines, length, threshold, utf8, out);
        });
    });
}

UDFKIT_API void fuzzysetspans(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                              int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 0)) return;
    char open[kMarkerCap], close[kMarkerCap];
    udfkit::pop_into(t, close);
    udfkit::pop_into(t, open);
    std::memcpy(g_open, open, sizeof g_open);
    std::memcpy(g_close, close, sizeof g_close);
    SpanOpen = g_open;
    SpanClose = g_close;
}

}  // extern "C"
