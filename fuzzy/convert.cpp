// Character-set conversion (Iconv, the SQL function convert) and the
// standard word (MakeStdMot) with its character-set setting IsoCode.
#include <iconv.h>
#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzzy/fuzzy_internal.hpp"
#include "sqlfunc/hostcall.hpp"
#include "udfkit/sqlfunc.h"

using udfkit::guarded;
using udfkit::PoppedText;

extern "C" {
UDFKIT_API char IsoCode[UDFKIT_ISOCODE_SIZE] = "UTF-8";
}

namespace {

// Grows buf (whose usable output space is *cap bytes, plus one byte kept
// for the terminator) by more bytes, keeping what was written and moving
// *out accordingly.  Returns false when memory runs out (buf is then left
// to the caller to release).
bool grow(char **buf, size_t *cap, size_t more, char **out, size_t *outleft) {
    size_t used = static_cast<size_t>(*out - *buf);
    char *nb = static_cast<char *>(std::realloc(*buf, *cap + more + 1));
    if (!nb) return false;
    *buf = nb;
    *cap += more;
    *out = nb + used;
    *outleft += more;
    return true;
}

inline unsigned char up(unsigned char c) { return static_cast<unsigned char>(std::toupper(c)); }

// What convert pushes of a converted text: its bytes up to the first NUL,
// as PushString reads them.  Only up to `cap` of them are kept; the
// length counts them all.
struct PushedText {
    explicit PushedText(uint64_t cap) : cap(cap) {}
    void add(const char *bytes, size_t n) {
        if (ended) return;
        if (const void *nul = std::memchr(bytes, '\0', n)) {
            n = static_cast<size_t>(static_cast<const char *>(nul) - bytes);
            ended = true;
        }
        length += n;
        if (kept.size() < cap) kept.append(bytes, std::min<uint64_t>(n, cap - kept.size()));
    }
    uint64_t cap;
    uint64_t length = 0;
    bool ended = false;
    std::string kept;
};

// Converts len bytes from one character set to another through a small
// window, whatever the output's size, handing every converted byte to
// out.  False when the conversion cannot be made (the same failures as
// Iconv's).
bool convert_all(const char *input, size_t len, const char *fromcode, const char *tocode,
                 PushedText &out) {
    iconv_t cd = iconv_open(tocode, fromcode);
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    char window[4096];
    char *in = const_cast<char *>(input);
    size_t inleft = len;
    bool flushing = len == 0, ok = true;
    for (;;) {
        char *w = window;
        size_t wleft = sizeof window;
        const size_t r = flushing ? iconv(cd, nullptr, nullptr, &w, &wleft)
                                  : iconv(cd, &in, &inleft, &w, &wleft);
        const int err = errno;
        out.add(window, static_cast<size_t>(w - window));
        if (r == static_cast<size_t>(-1)) {
            if (err == E2BIG && (flushing || inleft > 0)) continue;  // window full
            ok = false;
            break;
        }
        if (flushing) break;
        flushing = true;
    }
    iconv_close(cd);
    return ok;
}

}  // namespace

namespace udfkit::fuzzy {

StdMode std_mode() noexcept {
    if (strcasecmp(IsoCode, "UTF-8") == 0) return StdMode::Utf8;
    if (strcasecmp(IsoCode, "ISO-8859-1") == 0) return StdMode::Latin1;
    return StdMode::Translit;
}

UpperTable::UpperTable() noexcept {
    for (int c = 0; c < 128; ++c) up[c] = ::up(static_cast<unsigned char>(c));
}

size_t make_std(StdMode mode, const char *word, size_t len, char *out, size_t cap,
                bool *overflow, const UpperTable *upper) noexcept {
    const auto *w = reinterpret_cast<const unsigned char *>(word);
    auto ascii_up = [upper](unsigned char c) { return upper ? upper->up[c] : ::up(c); };
    const size_t room = cap - 1;
    size_t n = 0;
    bool over = false;
    auto put = [&](unsigned char c) {
        if (n < room) out[n++] = static_cast<char>(c);
        else over = true;
    };
    switch (mode) {
    case StdMode::Utf8:
        for (size_t i = 0; i < len; ++i) {
            unsigned char c = w[i];
            if (c < 0x80) {
                put(ascii_up(c));
            } else if (c == 0xC3) {
                // A lone lead byte at the end of the word ends the word.
                if (i + 1 >= len || w[i + 1] == 0) break;
                if (unsigned char l = kUtf8Fold.letter[w[++i]]) put(l);
            }
            // 0xC2 and every other byte >= 0x80 vanish.
        }
        break;
    case StdMode::Latin1:
        for (size_t i = 0; i < len; ++i) {
            unsigned char c = w[i];
            if (c < 0x80) put(ascii_up(c));
            else if (unsigned char l = kLatin1Fold.letter[c]) put(l);
        }
        break;
    case StdMode::Translit: {
        // iconv needs the word measured up to its first NUL, as the other
        // modes would see it.
        size_t wl = strnlen(word, len);
        char *t = Iconv(word, static_cast<int32_t>(wl > INT32_MAX ? INT32_MAX : wl), IsoCode,
                        "ASCII//TRANSLIT");
        if (t) {
            for (const unsigned char *p = reinterpret_cast<unsigned char *>(t); *p; ++p) put(up(*p));
            std::free(t);
        } else {
            for (size_t i = 0; i < wl; ++i) put(up(w[i]));
        }
        break;
    }
    }
    out[n] = '\0';
    if (overflow) *overflow = over;
    return n;
}

}  // namespace udfkit::fuzzy

extern "C" {

UDFKIT_API char *Iconv(const char *input, int32_t length, const char *fromcode,
                       const char *tocode) {
    if (!fromcode || !tocode) return nullptr;
    // A negative length other than -1, or a missing input with bytes to
    // convert, is refused like any failed conversion.
    if (length < -1 || (!input && length != 0)) return nullptr;
    iconv_t cd = iconv_open(tocode, fromcode);
    if (cd == reinterpret_cast<iconv_t>(-1)) return nullptr;
    size_t len = length == -1 ? std::strlen(input) : static_cast<size_t>(length);

    size_t cap = len + 32;
    char *buf = static_cast<char *>(std::malloc(cap + 1));
    if (!buf) {
        iconv_close(cd);
        return nullptr;
    }
    char *out = buf;
    size_t outleft = cap;
    auto fail = [&]() -> char * {
        iconv_close(cd);
        std::free(buf);
        return nullptr;
    };

    if (len > 0) {
        char *in = const_cast<char *>(input);
        size_t inleft = len;
        while (iconv(cd, &in, &inleft, &out, &outleft) == static_cast<size_t>(-1)) {
            if (errno != E2BIG || inleft == 0) return fail();
            // The buffer grows by the input's length, not by doubling.
            if (!grow(&buf, &cap, len, &out, &outleft)) return fail();
        }
    }
    while (iconv(cd, nullptr, nullptr, &out, &outleft) == static_cast<size_t>(-1)) {
        if (errno != E2BIG) return fail();
        if (!grow(&buf, &cap, 16, &out, &outleft)) return fail();
    }
    iconv_close(cd);
    *out = '\0';
    return buf;
}

UDFKIT_API void MakeStdMot(const char *word, char *out) {
    if (!out) return;
    if (!word) {
        out[0] = '\0';
        return;
    }
    // The output is held to the 272 bytes callers provide; only the
    // transliteration mode can produce a longer word, which is then cut.
    udfkit::fuzzy::make_std(udfkit::fuzzy::std_mode(), word, std::strlen(word), out,
                            udfkit::fuzzy::kStdSize, nullptr);
}

UDFKIT_API void convert(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                        int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_VCHAR, 65536)) return;
    guarded([&] {
        char tocode[128], fromcode[128];
        udfkit::pop_into(t, tocode);
        udfkit::pop_into(t, fromcode);
        PoppedText text(t);
        // The capacity counts the terminator: the text proper is one byte
        // shorter, and all of it is converted, NUL bytes included.
        PushedText out(udfkit::result_limit());
        if (!convert_all(text.c_str(), static_cast<size_t>(text.capacity() - 1), fromcode,
                         tocode, out)) {
            t->PushString(text.c_str());
            return;
        }
        if (udfkit::result_fits(out.length)) t->PushString(out.kept.c_str());
    });
}

UDFKIT_API void fuzzysetisocode(const HostCallTable *t, int32_t nargs, const ArgDesc *args,
                                int32_t *rtype, int32_t *rsize) {
    if (udfkit::describe_const(t, rtype, rsize, UDF_T_SMALLINT, 0)) return;
    udfkit::pop_into(t, IsoCode);
}

}  // extern "C"
