// The day-number calendar: closed-form conversions against an independent
// Gregorian computation and against the year-by-year walk with its cache.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <random>
#include <vector>

#include "runtime/date_internal.hpp"
#include "udfkit/date.h"

namespace {

namespace chr = std::chrono;

// Day number 1 is 1 January 1810.
constexpr int kDayOf1970 = 58440;

chr::year_month_day reference_ymd(Date n) {
    return chr::year_month_day{chr::sys_days{chr::days{static_cast<int64_t>(n) - kDayOf1970}}};
}

// The year-by-year walk, written out plainly, with its own cache pair.
struct Walk {
    int32_t last_year = 1810, last_date = 0;
    struct R { int y, m, d; };

    static bool leap(int64_t y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); }
    static int ylen(int64_t y) { return leap(y) ? 366 : 365; }
    static int mlen(int64_t y, int m) {
        static const int l[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
        return m == 2 && leap(y) ? 29 : l[m - 1];
    }
    static R months(int64_t y, int64_t r) {
        int m = 1;
        while (r > mlen(y, m)) r -= mlen(y, m++);
        return {static_cast<int>(y), m, static_cast<int>(r)};
    }
    R operator()(int64_t n) {
        if (n >= 1 && n <= 217175) {
            int64_t y = 1810, total = 0, r = n;
            if (n > last_date) {
                y = last_year;
                total = last_date;
                r = n - last_date;
            }
            while (r > ylen(y) && y < 2406) {
                r -= ylen(y);
                total += ylen(y);
                ++y;
            }
            last_year = static_cast<int32_t>(y);
            last_date = static_cast<int32_t>(total);
            return months(y, r);
        }
        if (n > 217175) {
            int64_t y = 1810, r = n;
            while (r > ylen(y)) r -= ylen(y++);
            return months(y, r);
        }
        int64_t y = 1809, r = -n;
        while (r >= ylen(y)) r -= ylen(y--);
        int m = 12;
        while (r >= mlen(y, m)) r -= mlen(y, m--);
        return {static_cast<int>(y), m, static_cast<int>(mlen(y, m) - r)};
    }
};

TEST(Calendar, TablesHoldTheirTellingRows) {
    EXPECT_EQ(maxjours[1], 28);
    EXPECT_EQ(maxjoursBissext[1], 29);
    const struct { int i, days; } rows[] = {{0, 0},      {1, 365},      {2, 730},
                                            {3, 1096},   {90, 32872},   {160, 58439},
                                            {190, 69396}, {594, 216954}, {595, 217320},
                                            {1189, 434274}, {1190, 0}};
    for (auto r : rows) EXPECT_EQ(DaysToYear0[r.i], r.days) << r.i;
    for (int i = 0; i < 1190; ++i)
        ASSERT_EQ(DaysOfYear[i], Walk::leap(1810 + i) ? 1 : 0) << 1810 + i;
    EXPECT_EQ(DaysOfYear[1190], 0);
}

TEST(Calendar, DayMonthYearToDayNumber) {
    const struct { int d, m, y; Date want; } cases[] = {
        {1, 1, 1810, 1},       {31, 12, 1809, 0},     {1, 1, 1809, -364},
        {1, 1, 1970, 58440},   {1, 1, 2000, 69397},   {8, 8, 2404, 217175},
        {1, 1, 2405, 217321},  {25, 12, 2020, 77061}, {0, 3, 2020, 77061 - 300},
    };
    for (auto c : cases) {
        EXPECT_EQ(dmy2days(c.d, c.m, c.y), c.want) << c.d << "/" << c.m << "/" << c.y;
    }
    EXPECT_EQ(dmy2days(0, 3, 2020), dmy2days(29, 2, 2020));
    EXPECT_EQ(dmy2days(29, 2, 1900), dmy2days(1, 3, 1900));
    EXPECT_EQ(dmy2days(29, 2, 2000) + 1, dmy2days(1, 3, 2000));
    EXPECT_EQ(dmy2days(32, 1, 2021), dmy2days(1, 2, 2021));
    EXPECT_EQ(mdy2date(12, 25, 2020), 77061);
    // Months outside 1 ... 12 carry into the year.
    EXPECT_EQ(dmy2days(1, 13, 2020), dmy2days(1, 1, 2021));
    EXPECT_EQ(dmy2days(1, 0, 2020), dmy2days(1, 12, 2019));
    EXPECT_EQ(dmy2days(1, INT32_MIN, 2020), dmy2days(1, INT32_MIN, 2020));
}

// Every day number of [-1000000, 1000000] against the C++ calendar, both
// directions, with the weekday.
TEST(Calendar, AgreesWithProlepticGregorianOverTwoMillionDays) {
    for (int32_t n = -1000000; n <= 1000000; ++n) {
        const auto ref = reference_ymd(n);
        const int y = static_cast<int>(ref.year()), m = static_cast<unsigned>(ref.month()),
                  d = static_cast<unsigned>(ref.day());
        const auto got = udfkit::date::split(n);
        if (got.year != y || got.month != m || got.day != d) {
            FAIL() << n << ": " << got.year << "-" << got.month << "-" << got.day << " want " << y
                   << "-" << m << "-" << d;
        }
        ASSERT_EQ(dmy2days(d, m, y), n);
        ASSERT_EQ(weekdaydate(n),
                  static_cast<int>(chr::weekday{chr::sys_days{ref}}.c_encoding()))
            << n;
    }
}

// Results and the cache pair after each call are those of the walk, for day
// numbers in random order (so the cache is hit, missed and restarted).
TEST(Calendar, PartsAndCacheMatchTheWalk) {
    std::mt19937 rng(20201225);
    std::vector<int32_t> ns;
    std::uniform_int_distribution<int32_t> wide(-1000000, 1000000), fast(-5, 217180);
    for (int i = 0; i < 20000; ++i) ns.push_back(wide(rng));
    for (int i = 0; i < 60000; ++i) ns.push_back(fast(rng));
    for (int32_t n : {0, 1, -1, 217175, 217176, 69397, 58440, 365, 366, 217174})
        ns.push_back(n);
    std::shuffle(ns.begin(), ns.end(), rng);
    // An ascending run, as a column read in order gives.
    for (int32_t n = 70000; n < 71000; n += 7) ns.push_back(n);

    Walk walk;
    LastYear = 1810;
    LastDate = 0;
    int call = 0;
    for (int32_t n : ns) {
        const auto want = walk(n);
        int32_t got[3];
        switch (call++ % 4) {  // every entry point walks and keeps the cache
        case 0: got[0] = yeardate(n), got[1] = monthdate(n), got[2] = daydate(n); break;
        case 1: got[2] = daydate(n), got[1] = monthdate(n), got[0] = yeardate(n); break;
        default: {
            const auto r = udfkit::date::split(n);
            got[0] = r.year, got[1] = r.month, got[2] = r.day;
        }
        }
        ASSERT_EQ(got[0], want.y) << n;
        ASSERT_EQ(got[1], want.m) << n;
        ASSERT_EQ(got[2], want.d) << n;
        ASSERT_EQ(LastYear, walk.last_year) << n;
        ASSERT_EQ(LastDate, walk.last_date) << n;
        ASSERT_EQ(LastDate, DaysToYear0[LastYear - 1810]);
    }
}

// The 32-bit extremes convert and round-trip; the cache is left alone.
TEST(Calendar, WholeThirtyTwoBitRange) {
    LastYear = 2000;
    LastDate = DaysToYear0[190];
    for (int32_t n : {INT32_MIN, INT32_MIN + 1, -217175, 217176, INT32_MAX - 1, INT32_MAX}) {
        const int y = yeardate(n), m = monthdate(n), d = daydate(n);
        EXPECT_GE(m, 1);
        EXPECT_LE(m, 12);
        EXPECT_GE(d, 1);
        EXPECT_LE(d, 31);
        EXPECT_EQ(dmy2days(d, m, y), n) << n;
        EXPECT_GE(weekdaydate(n), 0);
        EXPECT_LE(weekdaydate(n), 6);
    }
    EXPECT_EQ(yeardate(INT32_MIN), -5877801);  // 2^31 days of 365.2425 before 1810
    EXPECT_EQ(LastYear, 2000);
    EXPECT_EQ(LastDate, DaysToYear0[190]);
    // Random day numbers anywhere in 32 bits round-trip, and their text
    // stays well inside the 50-byte areas callers print into.
    std::mt19937 rng(7);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
    for (int i = 0; i < 200000; ++i) {
        const int32_t n = any(rng);
        const auto r = udfkit::date::split(n);
        ASSERT_EQ(dmy2days(r.day, r.month, r.year), n);
        char text[64];
        ASSERT_LE(date2char(n, text) - text, 16);
    }
}

}  // namespace
