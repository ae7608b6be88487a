// Stack use per call.  Hosts run calls on worker threads with small stacks:
// every function must stay within 16 KB, whatever its input, except the
// JSON parser's recursion per nesting level.  Each call runs on a thread
// whose 96 KB stack (with a guard page below) is painted beforehand; the
// depth reached is where the paint stops, less what an empty call takes.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/mman.h>
#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "host/testhost.hpp"
#include "sqlfunc/jsonlib.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"
#include "udfkit/decimal.h"
#include "udfkit/fuzzy.h"
#include "udfkit/masks.h"
#include "udfkit/md5.h"
#include "udfkit/quality.h"
#include "udfkit/sqlfunc.h"

using namespace udfkit::test;

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kSmallStack = 96 * 1024;
constexpr size_t kBudget = 16 * 1024;
constexpr unsigned char kPaint = 0xA5;

// Runs body on a thread with a painted stack of `size` bytes; returns the
// deepest byte the run touched, counted from the top of the stack.
size_t stack_depth(const std::function<void()> &body, size_t size = kSmallStack) {
    void *map = mmap(nullptr, size + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                     -1, 0);
    if (map == MAP_FAILED) return SIZE_MAX;
    auto *base = static_cast<unsigned char *>(map);
    mprotect(base, kPage, PROT_NONE);  // an overflow faults instead of writing on
    unsigned char *stack = base + kPage;
    std::memset(stack, kPaint, size);

    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstack(&attr, stack, size);
    pthread_t th;
    auto run = [](void *p) -> void * {
        (*static_cast<const std::function<void()> *>(p))();
        return nullptr;
    };
    const bool started = pthread_create(&th, &attr, run, const_cast<std::function<void()> *>(&body)) == 0;
    pthread_attr_destroy(&attr);
    if (started) pthread_join(th, nullptr);
    size_t untouched = 0;
    while (untouched < size && stack[untouched] == kPaint) ++untouched;
    munmap(map, size + kPage);
    return started ? size - untouched : SIZE_MAX;
}

// One SQL call through a test host made on the measuring thread.
std::function<void()> sql(udfkit_sqlfunc f, std::vector<Value> args,
                          std::function<void(TestHost &)> setup = nullptr) {
    return [f, args = std::move(args), setup] {
        TestHost h;
        if (setup) setup(h);
        h.call(f, args);
    };
}

std::string repeat(const std::string &unit, size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) s += unit;
    return s;
}

// A catalogue answering every statement with one row of one column.
void one_row(TestHost &h) {
    h.query = [](const std::string &, QueryRows &rows) {
        rows.columns = 1;
        rows.rows = {{S("label")}};
        return true;
    };
}

// The sanitizers' red zones make every frame larger than what ships.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UDFKIT_SKIP_UNDER_SANITIZERS() GTEST_SKIP() << "frames carry red zones"
#else
#define UDFKIT_SKIP_UNDER_SANITIZERS() (void)0
#endif

TEST(Stack, EveryFamilyStaysWithinItsBudget) {
    UDFKIT_SKIP_UNDER_SANITIZERS();
    const std::string big = repeat("Jean Dupont habite rue de la Paix. ", 6000);  // 210 KB
    const std::string words = repeat("anticonstitutionnellement ", 200);
    const std::string doc = "{\"a\":[1,2.5,\"x\\u00e9\",{\"b\":null}]," + repeat("\"k\":true,", 50) + "\"z\":0}";
    const size_t empty = stack_depth([] {});
    ASSERT_LT(empty, kSmallStack);

    struct Case {
        const char *name;
        std::function<void()> body;
    };
    const std::vector<Case> cases = {
        {"anonymize_letter", sql(anonymize_letter, {S(big), S("abcdefghij")})},
        {"anonymize_first", sql(anonymize_first, {S("Marie Claire"), I(2)})},
        {"anonymize_last", sql(anonymize_last, {S("Dupont")})},
        {"anonymize_nss", sql(anonymize_nss, {S("1234567890123"), S("")})},
        {"anonymize_email", sql(anonymize_email, {S(big.substr(0, 2000) + "@x.fr")})},
        {"upper", sql(upper, {S(big)})},
        {"strreplace", sql(strreplace, {S(big), S("Paix"), S(repeat("x", 3000))})},
        {"concat", sql(concat, {S(big), S(big), S("z")})},
        {"merge", sql(merge, {S(big), S(""), S(big)})},
        {"champ", sql(champ, {S(big), S("."), I(300)})},
        {"group_concat",
         [&] {
             TestHost h;
             h.call_aggregate(group_concat, {S(big), S(",")}, S(big));
         }},
        {"list_matches", sql(list_matches, {S(big.substr(0, 5000)), S(" "), S("D*")})},
        {"format number", sql(format, {S("-1234567.891"), S("-$$$,$$$,$$&.&&&")})},
        {"format date", sql(format, {Value::date(77061), S("dddd dd mmmm yyyy")})},
        {"fuzzysearch", sql(fuzzysearch, {S("jean +dupont -paris rue"), S(big)})},
        {"fuzzysearch long words", sql(fuzzysearch, {S(words.substr(0, 250)), S(words)})},
        {"fuzzyhighlight", sql(fuzzyhighlight, {S("dupont paix"), S(big.substr(0, 20000))})},
        {"fuzzyexcerpt", sql(fuzzyexcerpt, {S("dupont paix"), S(big), I(4), I(200)})},
        {"fuzzyrank", sql(fuzzyrank, {S("Jean Dupont"), S("Jean-Pierre Dupond")})},
        {"textquality", sql(textquality, {S(big.substr(0, 50000)), S("UTF-8"), I(1)})},
        {"digramquality", sql(digramquality, {S(big.substr(0, 50000)), S("UTF-8"), I(0)})},
        {"freqquality", sql(freqquality, {S(big.substr(0, 50000)), S("UTF-8"), I(0)})},
        {"convert", sql(convert, {S(big), S("UTF-8"), S("UTF-16")})},
        {"json parse and walk",
         [&] {
             TestHost h;
             const Value p = h.call(jsonlib_createparser, {S(doc)}).result();
             h.call(jsonlib_extractobject, {p, S("$.a[3].b")});
             h.call(jsonlib_getvalue4key, {p, S("z")});
             h.call(jsonlib_freeparser, {p});
         }},
        {"coltype2string", sql(coltype2string, {I(5), I(0x1004)}, one_row)},
        {"colattribute", sql(colattribute, {I(1), I(7), S("label")}, one_row)},
        {"colattributes", sql(colattributes, {I(1), I(7)}, one_row)},
        {"dates",
         [] {
             char out[64];
             date2char(char2date("25/12/2020"), out);
             GMT2Char(Char2GMT("2020-12-25 10:11:12"), out);
             struct tm tm {};
             tm.tm_year = 120;
             tm.tm_mday = 1;
             StrFTime(out, sizeof out, "%A %d %B %Y %H:%M:%S %j %U", &tm);
         }},
        {"decimals",
         [] {
             Decimal a, b, c;
             _deccvasc("-12345678901234567890.123456789", 31, &a);
             _deccvdbl(&b, 3.14159e-30);
             _decadd(&a, &b, &c);
             DecimalRound(&c, 0x1004);
             char out[80];
             _dectoasc(&c, out, 60, 10);
         }},
        {"conversions",
         [] {
             double d = 1e300;
             SqlVar v{UDF_T_FLOAT, 8, &d};
             VChar vc;
             Decimal out;
             cvt_char(&v);
             cvt_vchar(&v, &vc);
             std::free(vc.vc_data);
             cvt_decimal(&v, &out);
         }},
        {"md5",
         [&] {
             unsigned char digest[16];
             QXMD5(reinterpret_cast<const unsigned char *>(big.data()),
                   static_cast<uint32_t>(big.size()), digest);
         }},
    };
    for (const Case &c : cases) {
        const size_t used = stack_depth(c.body);
        ASSERT_NE(used, SIZE_MAX) << c.name;
        EXPECT_LE(used - empty, kBudget) << c.name << " uses " << used - empty << " bytes";
    }
}

// At its depth limit the parser needs more than a small stack; what it
// needs is stated in the README and checked here.
TEST(Stack, JsonParserAtItsDepthLimit) {
    UDFKIT_SKIP_UNDER_SANITIZERS();
    const int depth = udfkit::json::kMaxDepth;
    const std::string deepest = repeat("[", depth) + "1" + repeat("]", depth);
    const size_t empty = stack_depth([] {}, 1 << 20);
    const size_t used = stack_depth(
        [&] {
            TestHost h;
            const Value p = h.call(jsonlib_createparser, {S(deepest)}).result();
            EXPECT_GE(p.i, 0) << "the deepest document parses";
            h.call(jsonlib_freeparser, {p});
        },
        1 << 20);
    ASSERT_NE(used, SIZE_MAX);
#ifdef __OPTIMIZE__
    const size_t stated = 128 * 1024;
#else
    const size_t stated = 256 * 1024;  // unoptimised frames
#endif
    EXPECT_LE(used - empty, stated) << "at depth " << depth;
}

}  // namespace
