// Dates and datetimes: the settings, parsing and printing of dates, the
// day-number calendar against an independent Gregorian computation (with
// the cache pair the conversions keep), datetimes in several time zones,
// StrFTime (its agreement with the C library is a fuzz target), and the
// date helpers as hosts put them in SQL.
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <random>
#include <string>

#include "runtime/date_internal.hpp"
#include "sqlhelp/date.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"

namespace {
using namespace udfkit::sqlhelp;

// Date tests change process-wide settings; this fixture puts them back.
class DateTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::memcpy(saved_date_, DbDate, sizeof saved_date_);
        std::memcpy(saved_datetime_, DbDateTime, sizeof saved_datetime_);
        saved_ = {Siecle, SieclePrecedent, FixedTime};
        const char *tz = std::getenv("TZ");
        saved_tz_ = tz ? tz : "";
        had_tz_ = tz != nullptr;
        set_settings("DMY4/", "DMY4/");
        Siecle = 2000, SieclePrecedent = 1900, FixedTime = 0;
        IsConvertionError();
    }
    void TearDown() override {
        std::memcpy(DbDate, saved_date_, sizeof saved_date_);
        std::memcpy(DbDateTime, saved_datetime_, sizeof saved_datetime_);
        Siecle = saved_.siecle, SieclePrecedent = saved_.previous, FixedTime = saved_.fixed;
        had_tz_ ? setenv("TZ", saved_tz_.c_str(), 1) : unsetenv("TZ");
        tzset();
        IsConvertionError();
    }

    static void set_settings(const char *date, const char *datetime) {
        std::snprintf(DbDate, sizeof DbDate, "%s", date);
        std::snprintf(DbDateTime, sizeof DbDateTime, "%s", datetime);
    }
    static void set_tz(const char *tz) {
        setenv("TZ", tz, 1);
        tzset();
    }

private:
    char saved_date_[sizeof DbDate], saved_datetime_[sizeof DbDateTime];
    struct { int32_t siecle, previous, fixed; } saved_{};
    bool had_tz_ = false;
    std::string saved_tz_;
};

constexpr DateTime kChristmasUtc = 1608854400;  // 2020-12-25 00:00:00 UTC
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

TEST_F(DateTest, SqlHelperDayArguments) {
    const struct { int64_t in; bool ok; } cases[] = {
        {77061, true}, {-364, true}, {1, true}, {0, false}, {INT32_MIN, false},
        {INT32_MAX, true}, {int64_t{INT32_MAX} + 1, false}, {INT64_MIN, false},
    };
    for (const auto &c : cases) EXPECT_EQ(date_arg(c.in).has_value(), c.ok) << c.in;
}

TEST_F(DateTest, SqlHelperParsesAndPrints) {
    set_settings("DMY4/", "YMD4-");
    const struct { const char *text, *setting; int32_t want; } cases[] = {
        {"25/12/2020", nullptr, 77061}, {"2020-12-25", "YMD4-", 77061},
        {"12252020", "MMDDYYYY", 77061}, {"31/02/2020", nullptr, 0},
        {"", nullptr, 0}, {nullptr, nullptr, 0},
    };
    for (const auto &c : cases)
        EXPECT_EQ(date_parse(c.text, c.setting).value_or(0), c.want) << (c.text ? c.text : "null");
    EXPECT_EQ(date_text(77061).value_or("NULL"), "25/12/2020");
    EXPECT_EQ(date_part(DatePart::Day, 77061) * 10000 + date_part(DatePart::Month, 77061) * 100 +
                  date_part(DatePart::Weekday, 77061),
              251205);
    EXPECT_EQ(date_part(DatePart::Year, 77061), 2020);
    EXPECT_EQ(date_settings(), "DMY4/ YMD4-");
}

TEST_F(DateTest, SqlHelperDatetimes) {
    set_tz("Europe/Paris");
    set_settings("DMY4/", "YMD4-");
    EXPECT_EQ(datetime_parse("2020-12-25 13:45:00").value_or(0), 1608900300);
    EXPECT_FALSE(datetime_parse("2020-12-25 24:00"));
    EXPECT_FALSE(datetime_parse(nullptr));
    EXPECT_EQ(datetime_text(1608900300).value_or("NULL"), "2020-12-25 13:45:00");
    EXPECT_EQ(datetime_text(*datetime_parse("2021-03-28 02:30")).value_or("NULL"), "2021-03-28 03:30:00");
    EXPECT_FALSE(datetime_text(-1));
}

std::string gmt_text(DateTime t) {
    char buf[20];
    std::memset(buf, 'z', sizeof buf);
    GMT2Char(t, buf);
    return buf;
}

// Seconds east of UTC on 25 December 2020 (Lord Howe: summer time, +10:30 +30 min).
const struct Zone { const char *tz; int christmas_offset; } kZones[] = {
    {"UTC", 0}, {"Europe/Paris", 3600}, {"America/New_York", -5 * 3600}, {"Australia/Lord_Howe", 11 * 3600},
};

TEST_F(DateTest, ParsesDatetimesInEachZone) {
    for (const Zone &z : kZones) {
        set_tz(z.tz);
        const DateTime want = kChristmasUtc + 13 * 3600 + 45 * 60 - z.christmas_offset;
        for (const char *text : {"25/12/2020 13:45:00", "25122020 13:45", "251220 13:45",
                                 "25/12/2020    13:45", "25/12/2020 13:45:00:17", "25/12/2020 13:45: 0",
                                 "2/5/1/2/2/0/2/0 13:45"}) {
            EXPECT_EQ(Char2GMT(text), want) << z.tz << " " << text;
        }
        EXPECT_EQ(Char2GMT("25/12/2020 10::30"), want - 3 * 3600 - 15 * 60) << z.tz;
        EXPECT_EQ(Char2GMT("25/12/2020"), kChristmasUtc - z.christmas_offset) << z.tz;
        EXPECT_EQ(Char2GMT("25/12/2020"), date2GMT(kChristmas2020)) << z.tz;
        EXPECT_EQ(gmt_text(want), "25/12/2020 13:45:00") << z.tz;
        EXPECT_EQ(GMT2date(want), kChristmas2020) << z.tz;
        EXPECT_EQ(IsConvertionError(), 0) << z.tz;
    }
}

TEST_F(DateTest, RejectsBadDatetimes) {
    set_tz("Europe/Paris");
    for (const char *text : {"25/12/2020 24:00:00", "25/12/2020 23:59:60", "25/12/2020 23:60",
                             "25/12/2020 -1:00", "25/12/2020 10:-5", "29/02/2021 10:00",
                             "31/04/2020", "01/01/1809 00:00", "01/01/2406", "25/13/2020",
                             "25/12/2020T13:45", "25/12/20201 10:00", "2512202 10:00", "1",
                             "25/12/2020 99999999999999999999999999999999999999",
                             "25/12/2020 12:00000000000000000000000000000000000000000",
                             "2/5/1/2/2/0/2/0////////////////////// 13:45"}) {
        IsConvertionError();
        EXPECT_EQ(Char2GMT(text), UDFKIT_NULL_DATETIME) << text;
        EXPECT_EQ(IsConvertionError(), 1) << text;
    }
    // No date at all: the null, and no failure recorded.
    for (const char *text : {"", " 25/12/2020 13:45", "// 13:45", "/"}) {
        EXPECT_EQ(Char2GMT(text), UDFKIT_NULL_DATETIME) << text;
        EXPECT_EQ(IsConvertionError(), 0) << text;
    }
    EXPECT_EQ(Char2GMT("29/02/2020 10:00"), Char2GMT("01/03/2020 10:00") - 86400);
    EXPECT_EQ(Char2GMT("00/03/2020"), Char2GMT("29/02/2020"));
}

TEST_F(DateTest, TwoDigitYearsFollowTheCenturies) {
    set_tz("UTC");
    EXPECT_EQ(Char2GMT("010151"), Char2GMT("01011951"));
    EXPECT_EQ(Char2GMT("010150"), Char2GMT("01012050"));
    set_settings("DMY4/", "YMD4-");
    EXPECT_EQ(Char2GMT("2020-12-25 13:45"), kChristmasUtc + 13 * 3600 + 45 * 60);
    EXPECT_EQ(Char2GMT("201225"), kChristmasUtc);
    // The year never named, or more digits asked for than there are.
    for (const char *setting : {"DDM4-", "YYY4-"}) {
        set_settings("DMY4/", setting);
        EXPECT_EQ(Char2GMT("25122020"), UDFKIT_NULL_DATETIME) << setting;
        EXPECT_EQ(IsConvertionError(), 1) << setting;
    }
}

// Local times that do not exist or exist twice still give a moment of the
// right day, and printed text parses back to the same text.
TEST_F(DateTest, DaylightSavingChanges) {
    const struct { const char *tz, *gap, *fold; } cases[] = {
        {"Europe/Paris", "28/03/2021 02:30:00", "31/10/2021 02:30:00"},
        {"America/New_York", "14/03/2021 02:30:00", "07/11/2021 01:30:00"},
        {"Australia/Lord_Howe", "03/10/2021 02:15:00", "04/04/2021 01:45:00"},
    };
    for (auto c : cases) {
        set_tz(c.tz);
        for (const char *text : {c.gap, c.fold}) {
            const DateTime t = Char2GMT(text);
            ASSERT_NE(t, UDFKIT_NULL_DATETIME) << c.tz << " " << text;
            EXPECT_EQ(GMT2date(t), char2date(std::string(text, 10).c_str())) << c.tz << text;
            const DateTime midnight = date2GMT(GMT2date(t));
            EXPECT_GE(t - midnight, 3600) << c.tz << " " << text;
            EXPECT_LE(t - midnight, 4 * 3600) << c.tz << " " << text;
            // Every quarter hour across the change day.
            for (DateTime q = midnight - 3600; q < midnight + 30 * 3600; q += 900) {
                const std::string printed = gmt_text(q);
                const DateTime back = Char2GMT(printed.c_str());
                EXPECT_EQ(gmt_text(back), printed) << c.tz;
                EXPECT_LE(std::llabs(back - q), 3600) << c.tz << " " << printed;
            }
        }
    }
    EXPECT_EQ(IsConvertionError(), 0);
}

TEST_F(DateTest, DaysAndMidnightsAgreeInEachZone) {
    for (const Zone &z : kZones) {
        set_tz(z.tz);
        for (Date n = dmy2days(2, 1, 1970); n < dmy2days(1, 1, 2037); n += 13) {
            const DateTime t = date2GMT(n);
            ASSERT_EQ(GMT2date(t), n) << z.tz << " " << n;
            ASSERT_EQ(GMT2date(t - 1), n - 1) << z.tz << " " << n;
            char text[32];
            date2char(n, text);
            ASSERT_EQ(Char2GMT(text), t) << z.tz << " " << text;
        }
    }
}

TEST_F(DateTest, PrintsDatetimes) {
    set_tz("UTC");
    const DateTime t = kChristmasUtc + 13 * 3600 + 45 * 60;
    const struct { const char *setting; DateTime t; const char *want; } cases[] = {
        {"MDY2-", t, "12-25-20 13:45:00"},     {"DMY4", t, "25122020 13:45:00"},
        {"YMD4%", t, "2020%12%25 13:45:00"},   {"DXY4/", t, "25//2020 13:45:00"},
        {"DMY4/", 0, "01/01/1970 00:00:00"},   {"DMY4/", -1, ""},
        {"DMY4/", UDFKIT_NULL_DATETIME, ""},   {"DMY4/", 253402300800, ""},  // year 10000
        {"DMY4/", INT64_MAX, ""},
    };
    for (auto c : cases) {
        set_settings("DMY4/", c.setting);
        EXPECT_EQ(gmt_text(c.t), c.want) << c.setting << " " << c.t;
    }
}

TEST_F(DateTest, RecognisesDatetimes) {
    set_tz("UTC");
    const DateTime t = kChristmasUtc + 13 * 3600 + 45 * 60;
    EXPECT_EQ(_is_datetime("25/12/2020 13:45:00"), UDFKIT_NULL_DATETIME);  // 19 characters
    EXPECT_EQ(_is_datetime("25/12/2020 13:45:00 "), t);
    EXPECT_EQ(_is_datetime("25/12/2020 13:45:001"), t + 1);
    EXPECT_EQ(_is_datetime(" 5/12/2020 13:45:001"), UDFKIT_NULL_DATETIME);
    EXPECT_EQ(_is_datetime("25/12/2020 13-45-001"), UDFKIT_NULL_DATETIME);  // no colon
    EXPECT_EQ(_is_datetime("25-12-2020 13:45:001"), UDFKIT_NULL_DATETIME);  // no separator
    EXPECT_EQ(IsConvertionError(), 0);
    EXPECT_EQ(_is_datetime("25/13/2020 13:45:001"), UDFKIT_NULL_DATETIME);
    EXPECT_EQ(IsConvertionError(), 1);
}

TEST_F(DateTest, FarDaysAndMoments) {
    set_tz("UTC");
    EXPECT_EQ(date2GMT(INT32_MIN), (INT64_C(-2147483648) - 58440) * 86400);
    EXPECT_EQ(GMT2date(INT64_MIN), UDFKIT_NULL_DATE);
    EXPECT_EQ(GMT2date(date2GMT(INT32_MAX)), INT32_MAX);
    EXPECT_EQ(GMT2date(date2GMT(-1000000)), -1000000);
}

// ------------------------------------------------------------ StrFTime

struct tm make_tm(int y, int mon, int d, int h, int mi, int s) {
    struct tm tm {};
    tm.tm_year = y - 1900, tm.tm_mon = mon - 1, tm.tm_mday = d, tm.tm_hour = h, tm.tm_min = mi, tm.tm_sec = s;
    const time_t t = timegm(&tm);
    gmtime_r(&t, &tm);
    tm.tm_isdst = -1;
    return tm;
}

std::string fmt(const char *format, const struct tm &tm, size_t max = 100) {
    char buf[128];
    std::memset(buf, 'z', sizeof buf);
    return StrFTime(buf, max, format, &tm) || !format[0] || !max ? std::string(buf) : "<fail>";
}

TEST(StrFTime, Conversions) {
    const struct tm xmas = make_tm(2020, 12, 25, 13, 45, 7);
    // What the comparison with the C library below leaves out.
    const struct { const char *format; struct tm tm; const char *want; } cases[] = {
        {"%c", xmas, "Fri Dec 25 13:45:07 2020"},
        {"%w %U %W", xmas, "05 51 51"},
        {"%j %w %a %U %W", make_tm(2023, 1, 1, 0, 0, 0), "001 00 Sun 00 00"},  // a year starting on Sunday
        {"%U %W", make_tm(2021, 1, 3, 0, 0, 0), "01 00"},  // first Sunday
        {"%U %W", make_tm(2024, 1, 1, 0, 0, 0), "00 00"},  // a year starting on Monday
        {"%U %W", make_tm(2024, 1, 8, 0, 0, 0), "01 01"},
        {"%q|%d%", xmas, "|25"},
        {"%Z|", xmas, "|"},  // tm_isdst -1: no zone name
        {"", xmas, ""},
        {"caf\xc3\xa9 %d", xmas, "caf\xc3\xa9 25"},
    };
    for (auto c : cases) EXPECT_EQ(fmt(c.format, c.tm), c.want) << c.format;
}

TEST(StrFTime, LengthsAndFailures) {
    const struct tm xmas = make_tm(2020, 12, 25, 13, 45, 7);
    const char *f = "%d/%m/%Y %H:%M:%S";
    EXPECT_EQ(fmt(f, xmas, 20), "25/12/2020 13:45:07");
    EXPECT_EQ(fmt(f, xmas, 19), "<fail>");
    EXPECT_EQ(StrFTime(nullptr, 100, f, &xmas), 19);
    EXPECT_EQ(StrFTime(nullptr, 19, f, &xmas), 0);
    char one[1] = {'z'};
    EXPECT_EQ(StrFTime(one, 1, "", &xmas), 0);
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(StrFTime(one, 0, "", &xmas), 0);
    EXPECT_EQ(StrFTime(one, 1, "x", &xmas), 0);

    // Fields whose printed width is not the expected one fail a writing
    // call; a counting call counts the declared widths all the same.
    const struct { int year, mday; const char *format; int32_t counted; const char *written; } counts[] = {
        {10000, 25, "%Y", 4, "<fail>"},  {10000, 25, "%Y-%m", 7, nullptr}, {123456, 25, "%C", 2, nullptr},
        {2020, -5, "%d", 2, "<fail>"},   {-1, 25, "%Y", 4, "<fail>"},      {-1, 25, "%y", 2, nullptr},
        {2020, -5, "%e", 2, "-5"},  // "%2d" of -5 is two characters
    };
    struct tm odd;
    for (const auto &c : counts) {
        odd = xmas;
        odd.tm_year = c.year - 1900;
        odd.tm_mday = c.mday;
        EXPECT_EQ(StrFTime(nullptr, 100, c.format, &odd), c.counted) << c.format << " " << c.year;
        if (c.written) { EXPECT_EQ(fmt(c.format, odd), c.written) << c.format << " " << c.year; }
    }
    // Out-of-range names name nothing.
    odd = xmas;
    odd.tm_wday = 9;
    odd.tm_mon = -1;
    EXPECT_EQ(fmt("[%a%A%b%B]", odd), "[]");
    odd.tm_isdst = 0;
    tzset();
    EXPECT_EQ(fmt("%Z", odd), tzname[0]);
    // A composite that does not fit contributes nothing; the walk goes on.
    EXPECT_EQ(StrFTime(nullptr, 10, "%c", &xmas), 0);
    EXPECT_EQ(fmt("ab%cd", xmas, 5), "abd");
}

}  // namespace
