// How values cross a bridge, for every host: text cut and checked as
// UTF-8, floats as plain decimal text, and the nesting of catalogue
// queries that re-enter the library.
#pragma once

#include <cstddef>
#include <cstdint>

namespace udfkit::sqlhelp {

// The longest prefix of s[0, len) of at most `max` bytes that does not end
// inside a UTF-8 character.  Bytes that are not UTF-8 are cut anywhere.
size_t utf8_cut(const char *s, size_t len, size_t max) noexcept;

// How many bytes of s[0, len) PopString writes into a buffer of `capacity`
// bytes (terminator included): at most capacity - 1, cut with utf8_cut.  A
// pop of capacity 2 asks for one character, which to the library is one
// byte: it gets the first byte, whatever character it starts.
size_t pop_length(const char *s, size_t len, int64_t capacity) noexcept;

// Whether s[0, len) is valid UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool utf8_valid(const char *s, size_t len) noexcept;

// Drops an incomplete character at either end of s[0, len): continuation
// bytes at the start, a lead byte whose character is cut at the end.
void utf8_trim_ends(const char *&s, size_t &len) noexcept;

// Whether `text` matches the glob `pattern`, character by UTF-8 character
// and case-sensitive: * any run, ? one character, [...] one of a set with
// ranges a-z, [^...] one not in it (a ] first in a set is itself).  A set
// left open matches nothing.  Time stays proportional to the product of
// the lengths, whatever the stars.
bool glob_match(const char *pattern, const char *text) noexcept;

// A float as the shortest plain decimal text that reads back to the same
// double (no exponent): 2500000000000000, 0.00005.  Infinities and NaN
// give "inf", "-inf", "nan".  Returns the length written, terminator not
// counted; `buf` must hold kRealTextMax bytes.
constexpr size_t kRealTextMax = 400;
size_t real_to_text(double d, char *buf) noexcept;

// How deep catalogue queries may nest: a query run from inside a function
// that a query called.  Beyond this, the host's ExecuteQuery fails.
constexpr int kMaxQueryDepth = 4;

// Counts the queries a thread is inside; `entered()` is false when one
// more would be too deep (and then nothing is counted).
class QueryDepth {
public:
    QueryDepth() noexcept;
    ~QueryDepth();
    QueryDepth(const QueryDepth &) = delete;
    QueryDepth &operator=(const QueryDepth &) = delete;
    bool entered() const noexcept { return entered_; }

private:
    bool entered_;
};

}  // namespace udfkit::sqlhelp
