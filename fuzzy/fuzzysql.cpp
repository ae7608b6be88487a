// The SQL functions of the fuzzy search: fuzzysearch, fuzzyhighlight,
// fuzzyexcerpt and fuzzysetspans, with the highlight markers.
#include <cstdio>
#include <cstring>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

using udfkit::guarded;
using udfkit::PoppedText;

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
    MarkerUse use;

    Markers() {
        open = SpanOpen ? SpanOpen : "";
        close = SpanClose ? SpanClose : "";
        use = classify(open);
    }

    void write_open(std::string &out, double score) const {
        if (use == MarkerUse::Literal) {
            out += open;
            return;
        }
        const int colour = static_cast<int>(255.0 * score);
        char small[512];
        int n = format_marker(small, sizeof small, open, use, colour, score);
        if (n < 0) return;
        if (static_cast<size_t>(n) < sizeof small) {
            out.append(small, static_cast<size_t>(n));
            return;
        }
        // Longer than the stack buffer: format straight into the result.
        const size_t at = out.size();
        out.resize(at + static_cast<size_t>(n) + 1);
        format_marker(&out[at], static_cast<size_t>(n) + 1, open, use, colour, score);
        out.resize(at + static_cast<size_t>(n));
    }
};

int count_terms() {
    int n = 0;
    while (n < UDFKIT_MAX_TERMS && Recherche[n].word) ++n;
    return n;
}

void reset_isocode() { std::strcpy(IsoCode, "UTF-8"); }

void pop_isocode(const HostCallTable *t) {
    t->PopString(IsoCode, UDFKIT_ISOCODE_SIZE);
    IsoCode[UDFKIT_ISOCODE_SIZE - 1] = '\0';
}

// Whether term j's best word is usable by the highlighting: scored at
// least the threshold, and lying inside the text of length len.
bool usable(const SearchTerm &t, double threshold, size_t len) {
    return t.score >= threshold && t.position >= 0 && t.matchLength > 0 &&
           static_cast<size_t>(t.position) + static_cast<size_t>(t.matchLength) <= len;
}

std::string highlight(const char *text, size_t len, double threshold) {
    const Markers mk;
    const int nt = count_terms();
    std::string out;
    out.reserve(len + 2000);
    for (size_t i = 0; i < len;) {
        const SearchTerm *hit = nullptr;
        for (int j = 0; j < nt; ++j) {
            const SearchTerm &t = Recherche[j];
            if (t.position >= 0 && static_cast<size_t>(t.position) == i && usable(t, threshold, len)) {
                hit = &t;
                break;
            }
        }
        if (!hit) {
            out += text[i++];
            continue;
        }
        mk.write_open(out, hit->score);
        out.append(text + i, static_cast<size_t>(hit->matchLength));
        out += mk.close;
        i += static_cast<size_t>(hit->matchLength);
    }
    return out;
}

std::string excerpt(const char *text, size_t len, int32_t lines, int32_t length, double threshold) {
    const Markers mk;
    const int nt = count_terms();
    const long long h = lines / 2;
    const long long n = nt > 0 ? nt : 1;
    const long long r = std::max<long long>(10, (length / 2) / n);
    std::string out;
    out.reserve(len + 2000);
    long long e = -1;  // end of the previous piece
    for (int j = 0; j < nt; ++j) {
        const SearchTerm &t = Recherche[j];
        if (t.score < threshold || t.position == -1) continue;
        if (j > 0) out += '\n';
        if (!usable(t, threshold, len)) continue;  // a position this text cannot hold
        const long long p = t.position;
        const long long f = std::max<long long>(e, 0);
        long long s;
        if (p <= f) {
            s = p;
        } else {
            long long k = p, newlines = 0;
            for (;;) {
                if (text[k] == '\n') ++newlines;
                if (p + 1 - k >= r || newlines > h) break;
                if (--k <= f) break;
            }
            s = k;
        }
        if (e > s) continue;
        const long long m = p + t.matchLength;
        long long x = m;
        if (static_cast<size_t>(m) < len) {
            long long newlines = 0;
            for (;;) {
                if (text[x] == '\n') ++newlines;
                if (x - m + 1 >= r || newlines >= h) break;
                if (static_cast<size_t>(++x) >= len) break;
            }
        }
        bool ellipsis = true;
        if (j + 1 < UDFKIT_MAX_TERMS && Recherche[j + 1].word && Recherche[j + 1].position < x) {
            // Taken as stored: -1 for a term that matched nothing.
            x = static_cast<long long>(Recherche[j + 1].position) - 1;
            ellipsis = false;
        }
        out.append(text + s, static_cast<size_t>(p - s));
        mk.write_open(out, t.score);
        out.append(text + p, static_cast<size_t>(t.matchLength));
        out += mk.close;
        if (x > m) out.append(text + m, static_cast<size_t>(x - m));
        if (ellipsis) out += " ...";
        e = x;
    }
    return out;
}

}  // namespace

extern "C" {

UDFKIT_API void fuzzysearch(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                            int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_FLOAT, 8)) return;
    guarded([&] {
        if (nargs == 3) pop_isocode(t);
        else reset_isocode();
        PoppedText text(t);
        PoppedText pattern(t);
        t->PushDouble(FuzzySearch(pattern.c_str(), text.c_str()));
    });
}

UDFKIT_API void fuzzyhighlight(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                               int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_VCHAR, 65536)) return;
    guarded([&] {
        double threshold = kDefaultThreshold;
        if (nargs == 4) {
            pop_isocode(t);
            t->PopDouble(&threshold);
        } else {
            reset_isocode();
            if (nargs == 3) t->PopDouble(&threshold);
        }
        PoppedText text(t);
        PoppedText pattern(t);
        FuzzySearch(pattern.c_str(), text.c_str());
        t->PushString(highlight(text.c_str(), text.length(), threshold).c_str());
    });
}

UDFKIT_API void fuzzyexcerpt(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                             int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_VCHAR, 65536)) return;
    guarded([&] {
        double threshold = kDefaultThreshold;
        if (nargs == 6) {
            pop_isocode(t);
            t->PopDouble(&threshold);
        } else {
            reset_isocode();
            if (nargs == 5) t->PopDouble(&threshold);
        }
        int32_t length = 0, lines = 0;
        t->PopInt(&length);
        t->PopInt(&lines);
        PoppedText text(t);
        PoppedText pattern(t);
        FuzzySearch(pattern.c_str(), text.c_str());
        t->PushString(excerpt(text.c_str(), text.length(), lines, length, threshold).c_str());
    });
}

UDFKIT_API void fuzzysetspans(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                              int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 0)) return;
    char open[kMarkerCap], close[kMarkerCap];
    open[0] = close[0] = '\0';
    t->PopString(close, kMarkerCap);
    close[kMarkerCap - 1] = '\0';
    t->PopString(open, kMarkerCap);
    open[kMarkerCap - 1] = '\0';
    std::memcpy(g_open, open, sizeof g_open);
    std::memcpy(g_close, close, sizeof g_close);
    SpanOpen = g_open;
    SpanClose = g_close;
}

}  // extern "C"
