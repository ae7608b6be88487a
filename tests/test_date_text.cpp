// Date settings, parsing and printing of dates; the day-number calendar
// against an independent Gregorian computation, with the cache pair the
// conversions keep.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <random>
#include <string>

#include "tests/date_fixture.hpp"

namespace {

using udfkit::test::DateTest;

constexpr Date kChristmas2020 = 77061;

TEST_F(DateTest, ParsesUnderEachSetting) {
    const struct { const char *setting, *text; Date want; } cases[] = {
        {"DMY4/", "25122020", kChristmas2020},    {"DMY4/", "251220", kChristmas2020},
        {"DMY4/", "25.12.2020", kChristmas2020},  {"DMY4/", "25/12/20", kChristmas2020},
        {"DMY4/", "25/12/0020", kChristmas2020},  // the value is completed, not the digits
        {"DMY4/", "1/1/51", dmy2days(1, 1, 1951)}, {"DMY4/", "1/1/50", dmy2days(1, 1, 2050)},
        {"DMY4/", "1/1/0099", dmy2days(1, 1, 1999)}, {"DMY4/", "00/03/2020", dmy2days(29, 2, 2020)},
        {"DMY4/", "01/01/1809", -364},            {"DMY4/", "08/08/2404", 217175},
        {"DMY4/", "01/01/2405", 217321},          {"MDY4/", "12/25/2020", kChristmas2020},
        {"MDY4/", "12252020", kChristmas2020},    // month-first 8 digits split 2, 2, 4
        {"YMD4-", "2020-12-25", kChristmas2020},  {"YMD4-", "20201225", kChristmas2020},
        {"YMD4-", "201225", kChristmas2020},      {"DDMMYYYY", "25122020", kChristmas2020},
        {"MMDDYYYY", "12/25/2020", kChristmas2020}, {"DMY", "25/12/2020", kChristmas2020},
        {"DMY4/", "25/12/20201", dmy2days(25, 12, 20201)},
        {"DMY4/", "", 0},  // no date, no failure
    };
    for (auto c : cases) {
        EXPECT_EQ(Char2Date(c.text, c.setting), c.want) << c.setting << " " << c.text;
        EXPECT_EQ(IsConvertionError(), 0) << c.setting << " " << c.text;
    }
}

TEST_F(DateTest, RejectsBadTextsWithTheFlag) {
    const struct { const char *setting, *text; } cases[] = {
        {"MDY4/", "25/12/2020"},  // month 25
        {"DMY4/", "29/02/2021"},  {"DMY4/", "29/02/1900"}, {"DMY4/", "31/04/2020"}, {"DMY4/", "32/01/2020"},
        {"DMY4/", "25//2020"},    {"DMY4/", "25/12/2020x"}, {"DMY4/", "Today"},     {"DMY4/", "25/12/20/20"},
        {"DMY4/", "2512202"},     {"DMY4/", "25/122020"},
        {"DMY4/", "25/12/2020      x"}, {"DMY4/", "000000000000000000001"},  // 21 characters
        {"DMY4/", "1/1/99999999999999"},  // a year no day number holds
        {"DMY4/", "99999999999999999999"},
        {"XYZ", "25122020"},  // no field named
    };
    for (auto c : cases) {
        IsConvertionError();
        EXPECT_EQ(Char2Date(c.text, c.setting), 0) << c.setting << " " << c.text;
        EXPECT_EQ(IsConvertionError(), 1) << c.setting << " " << c.text;
    }
}

TEST_F(DateTest, Recognisers) {
    EXPECT_EQ(_is_date("25/12/2020"), kChristmas2020);
    EXPECT_EQ(_is_date("2020"), 0);
    EXPECT_EQ(_is_date(" 25/12/2020"), 0);
    EXPECT_EQ(_is_date("25/12/2020          x"), 0);  // 21 characters: not a date
    EXPECT_EQ(IsConvertionError(), 0);
    EXPECT_EQ(_is_date("25/13/2020"), 0);
    EXPECT_EQ(IsConvertionError(), 1);  // looked like a date, did not parse
    EXPECT_EQ(_isdateFast("a/b"), 1);
    EXPECT_EQ(_isdateFast("2020-12-25"), 0);
    set_settings("DMY4/", "YMD4-");
    EXPECT_EQ(_isdateFast("2020-12-25"), 1);  // the datetime setting's separator
    set_settings("DMY", "YMD");
    EXPECT_EQ(_isdateFast("2020"), 1);  // no separator: every text passes
    EXPECT_EQ(_is_date("25122020"), kChristmas2020);
}

TEST_F(DateTest, PrintsUnderEachSetting) {
    const struct { const char *setting; Date n; const char *want; } cases[] = {
        {"DMY4/", kChristmas2020, "25/12/2020"}, {"MDY2-", kChristmas2020, "12-25-20"},
        {"YMD4.", kChristmas2020, "2020.12.25"}, {"DMY4", kChristmas2020, "25122020"},
        {"DMY4/", 0, "31/12/1809"},              {"DMY4/", -364, "01/01/1809"},
        {"DMY4/", 217176, "09/08/2404"},         {"DMY2/", dmy2days(5, 3, 1905), "05/03/05"},
        {"DMY4/", dmy2days(1, 1, 12345), "01/01/12345"}, {"DMY4/", dmy2days(1, 1, 5), "01/01/0005"},
        {"DMY4/", dmy2days(1, 1, -5), "01/01/-0005"},
        {"DXY4/", kChristmas2020, "25//2020"},  // a position naming no field writes nothing
        {"D", kChristmas2020, "25"},             {"", kChristmas2020, ""},
        {"DMY4/", INT32_MIN, "21/06/-5877801"},
    };
    for (auto c : cases) {
        set_settings(c.setting, "DMY4/");
        char buf[64];
        std::memset(buf, 'z', sizeof buf);
        const char *end = date2char(c.n, buf);
        EXPECT_STREQ(buf, c.want) << c.setting << " " << c.n;
        EXPECT_EQ(end, buf + std::strlen(c.want));
    }
}

class DateInitTest : public DateTest {
protected:
    void TearDown() override {
        for (const char *v : {"DBDATE", "DBDATETIME", "DBTODAY"}) unsetenv(v);
        DateTest::TearDown();
    }
};

TEST_F(DateInitTest, ReadsTheEnvironment) {
    setenv("DBDATE", "MDY2", 1);
    setenv("DBDATETIME", "DMY4", 1);
    unsetenv("DBTODAY");
    _date_init();
    EXPECT_STREQ(DbDate, "MDY2/");
    EXPECT_STREQ(DbDateTime, "DMY4-");
    EXPECT_EQ(SieclePrecedent, Siecle - 100);
    time_t now = time(nullptr);
    EXPECT_EQ(Siecle, (localtime(&now)->tm_year + 1900) / 100 * 100);

    // Empty or unset: the setting stays.
    setenv("DBDATE", "", 1);
    unsetenv("DBDATETIME");
    _date_init();
    EXPECT_STREQ(DbDate, "MDY2/");
    EXPECT_STREQ(DbDateTime, "DMY4-");

    // A long value is cut to the area.
    setenv("DBDATE", std::string(100, 'Y').c_str(), 1);
    _date_init();
    EXPECT_EQ(std::strlen(DbDate), sizeof DbDate - 1);
    char buf[64];
    date2char(kChristmas2020, buf);
    EXPECT_STREQ(buf, "2020Y2020Y2020");  // three years, separated by the fifth Y
}

TEST_F(DateInitTest, FreezesToday) {
    set_tz("Europe/Paris");
    setenv("DBDATE", "YMD4-", 1);
    setenv("DBTODAY", "2020-12-25", 1);
    _date_init();
    EXPECT_EQ(todaydate(), kChristmas2020);
    EXPECT_EQ(FixedTime, date2GMT(kChristmas2020));
    EXPECT_EQ(char2date("today"), kChristmas2020);
    set_tz("America/New_York");  // the frozen moment is a day earlier there
    EXPECT_EQ(todaydate(), kChristmas2020 - 1);

    // Unparsable or out of 32-bit seconds: back to the clock, flag untouched.
    for (const char *bad : {"garbage", "2040-01-01", "1900-01-01"}) {
        setenv("DBTODAY", bad, 1);
        _date_init();
        EXPECT_EQ(FixedTime, 0) << bad;
        EXPECT_EQ(IsConvertionError(), 0) << bad;
    }
    // A pending failure survives the call.
    SetConvertionError();
    setenv("DBTODAY", "garbage", 1);
    _date_init();
    EXPECT_EQ(IsConvertionError(), 1);
}

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
