// The day-number calendar against an independent Gregorian computation,
// with the cache pair the conversions keep.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <random>

#include "runtime/date_internal.hpp"
#include "udfkit/date.h"

namespace {

namespace chr = std::chrono;

// Day number 1 is 1 January 1810.
constexpr int kDayOf1970 = 58440;

chr::year_month_day reference_ymd(Date n) {
    return chr::year_month_day{chr::sys_days{chr::days{static_cast<int64_t>(n) - kDayOf1970}}};
}

TEST(Calendar, DayMonthYearOutOfRange) {
    // Days and months outside their range carry.
    EXPECT_EQ(dmy2days(0, 3, 2020), dmy2days(29, 2, 2020));
    EXPECT_EQ(dmy2days(29, 2, 1900), dmy2days(1, 3, 1900));
    EXPECT_EQ(dmy2days(32, 1, 2021), dmy2days(1, 2, 2021));
    EXPECT_EQ(dmy2days(1, 13, 2020), dmy2days(1, 1, 2021));
    EXPECT_EQ(dmy2days(1, 0, 2020), dmy2days(1, 12, 2019));
    EXPECT_EQ(dmy2days(1, INT32_MIN, 2020), dmy2days(1, INT32_MIN, 2020));
    EXPECT_EQ(mdy2date(12, 25, 2020), 77061);
}

// Every day number of [-1000000, 1000000] against the C++ calendar, both
// directions, with the weekday.
TEST(Calendar, AgreesWithProlepticGregorianOverTwoMillionDays) {
    for (int32_t n = -1000000; n <= 1000000; ++n) {
        const auto ref = reference_ymd(n);
        const int y = static_cast<int>(ref.year()), m = static_cast<unsigned>(ref.month()),
                  d = static_cast<unsigned>(ref.day());
        const auto got = udfkit::date::split(n);
        ASSERT_TRUE(got.year == y && got.month == m && got.day == d)
            << n << ": " << got.year << "-" << got.month << "-" << got.day << " want " << y << "-" << m << "-" << d;
        ASSERT_EQ(dmy2days(d, m, y), n);
        ASSERT_EQ(weekdaydate(n), static_cast<int>(chr::weekday{chr::sys_days{ref}}.c_encoding())) << n;
    }
}

// Any 32-bit day number splits into a date that converts back, with a text
// well inside the 50-byte areas callers print into.  In days 1 ... 217175
// every entry point leaves LastYear/LastDate at the year it found and the
// day before its first day; elsewhere they stay.
TEST(Calendar, EntryPointsOverTheWholeRangeKeepTheCachePair) {
    EXPECT_EQ(yeardate(INT32_MIN), -5877801);  // 2^31 days of 365.2425 before 1810
    std::mt19937 rng(20201225);
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX), fast(-5, 217180);
    const int32_t edges[] = {0, 1, -1, 217175, 217176, 69397, 58440, 365, 366, INT32_MIN, INT32_MAX};
    LastYear = 2000;
    LastDate = DaysToYear0[190];
    for (int i = 0; i < 200000; ++i) {
        const int32_t n = i < 11 ? edges[i] : i % 4 ? fast(rng) : any(rng);
        const int32_t year_before = LastYear, date_before = LastDate;
        int32_t got[3];
        switch (i % 3) {
        case 0: got[0] = yeardate(n), got[1] = monthdate(n), got[2] = daydate(n); break;
        case 1: got[2] = daydate(n), got[1] = monthdate(n), got[0] = yeardate(n); break;
        default: {
            const auto r = udfkit::date::split(n);
            got[0] = r.year, got[1] = r.month, got[2] = r.day;
        }
        }
        const int32_t year_after = LastYear, date_after = LastDate;
        if (n > -1000000 && n < 1000000) {
            const auto ref = reference_ymd(n);
            ASSERT_EQ(got[0], static_cast<int>(ref.year())) << n;
            ASSERT_EQ(got[1], static_cast<int>(static_cast<unsigned>(ref.month()))) << n;
            ASSERT_EQ(got[2], static_cast<int>(static_cast<unsigned>(ref.day()))) << n;
        }
        ASSERT_TRUE(got[1] >= 1 && got[1] <= 12 && got[2] >= 1 && got[2] <= 31) << n;
        ASSERT_EQ(dmy2days(got[2], got[1], got[0]), n);
        ASSERT_TRUE(weekdaydate(n) >= 0 && weekdaydate(n) <= 6) << n;
        char text[64];
        ASSERT_LE(date2char(n, text) - text, 16);
        const bool fast_range = n >= 1 && n <= 217175;
        const chr::sys_days first{chr::year{fast_range ? got[0] : 2000} / 1 / 1};
        ASSERT_EQ(year_after, fast_range ? got[0] : year_before) << n;
        const int64_t day_before_first = first.time_since_epoch().count() + kDayOf1970 - 1;
        ASSERT_EQ(date_after, fast_range ? day_before_first : date_before) << n;
    }
}

}  // namespace
