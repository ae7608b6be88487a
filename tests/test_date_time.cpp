// Datetimes in several time zones, and StrFTime.
#include <gtest/gtest.h>

#include <clocale>
#include <random>
#include <string>

#include "tests/date_fixture.hpp"

namespace {

using udfkit::test::DateTest;

constexpr DateTime kChristmasUtc = 1608854400;  // 2020-12-25 00:00:00 UTC
constexpr Date kChristmas2020 = 77061;

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

// Against the C library in the C locale, on random moments of years
// 1000 ... 9999, for every conversion both define alike.
TEST(StrFTime, AgreesWithTheCLibrary) {
    std::setlocale(LC_TIME, "C");
    const char *format =
        "%a %A %b %B %C %d %e %H %I %j %k %l %m %M %p %S %y %Y %D %R %T %r %x %X %h %n %t %%";
    std::mt19937_64 rng(42);
    std::uniform_int_distribution<int64_t> when(-30610224000LL, 253402300799LL);
    for (int i = 0; i < 20000; ++i) {
        const time_t t = when(rng);
        struct tm tm;
        gmtime_r(&t, &tm);
        char want[256], got[256];
        const size_t wn = strftime(want, sizeof want, format, &tm);
        const int32_t gn = StrFTime(got, sizeof got, format, &tm);
        ASSERT_EQ(static_cast<size_t>(gn), wn) << want;
        ASSERT_STREQ(got, want);
    }
}

}  // namespace
