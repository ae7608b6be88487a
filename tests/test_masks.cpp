// Number picture masks: layouts, rounding, signs, currency, fill,
// justification, and robustness against texts that are not numbers.
#include <gtest/gtest.h>

#include <string>

#include "udfkit/masks.h"

namespace {

std::string garbage(std::string s) {
    garbage_str(s.data());
    return s.c_str();
}

std::string lay(const std::string &mask, const std::string &number) {
    std::string out(mask.size() + 1, '\x7f');
    EXPECT_EQ(_mk_using_nombre(number.c_str(), mask.c_str(), out.data()), 0);
    EXPECT_NE(out.find('\0'), std::string::npos);
    return out.c_str();
}

TEST(GarbageStr, LeadingZerosGoSignsStayBlanksGo) {
    const struct { const char *in, *out; } cases[] = {
        {"-0012.50", "-12.50"}, {"0.5", ".5"}, {"0", ""}, {"000", ""},
        {" - 0 7", "-7"}, {"100", "100"}, {"1 000", "1000"}, {"--5", "--5"},
        {"0a0", "a0"}, {"", ""}, {"   ", ""},
    };
    for (const auto &c : cases) EXPECT_EQ(garbage(c.in), c.out) << c.in;
}

TEST(NumberMask, Layouts) {
    const std::string nines(400, '9');
    const struct { const char *mask, *number, *want; } cases[] = {
        // plain digits, fill and grouping
        {"###,###.##", "1234.567", "  1,234.57"}, {"###,###.##", "12", "     12.00"},
        {"###.##", "0", "   .00"},     {"&&&.&&", "0", "000.00"},   {"&&,&&&", "123", "000123"},
        {"***.**", "12", "*12.00"},    {"%%%", "5", "  5"},         {"", "123", ""},
        {"###", "", "   "},
        // rounding, halves away from zero
        {"#.##", "1.005", "1.01"},     {"#.#", "-0.25", " .3"},     {"##.##", "99.999", "*****"},
        {"#.#*", "1.25", "1.30"},
        // signs
        {"-###,###.##", "-1234.567", "-  1,234.57"}, {"---.--", "-3", " -3.00"},
        {"--,---", "-123", " - 123"},  {"###", "-5", "  5"},        {"(###.##)", "-12.5", "( 12.50)"},
        {"(###.##)", "12.5", "   12.50"}, {"(&&&)", "-7", "(0007"}, {"###.##)", "123.45", " 123.45"},
        {"###.#%%", "1.5", "  1.5%%"},
        // left justification
        {"<<<<.##", "-12.5", "-12.50"}, {"<<<<", "0", ""},          {"-<<<", "-7", "-7"},
        // floating currency
        {"$$$,$$$.##", "1234.567", " $1,234.57"}, {"$$$,$$$.##", "5", "     $5.00"},
        {"$###.##", "5", "$  5.00"},   {"$$$,$$$.##", "123456", "**********"},
        {"($$$.##)", "-12", "($12.00)"}, {"-$$$.##", "-12", "-$12.00"},
        // overflow, also beyond a double
        {"###", "1234", "***"},        {".##", "12.5", "***"},
        {"###,###.##", nines.c_str(), "**********"},
        // text that is not a number keeps the width
        {"######", "1e5", "   1e5"},   {"###.##", "1.2.3", "  1.2."}, {"###.##", "abc", "abc.00"},
        {"###", "-", "   "},           {"##.##", "+5", "+5.00"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(lay(c.mask, c.number), c.want) << "mask '" << c.mask << "' number '" << c.number << "'";
}

}  // namespace
