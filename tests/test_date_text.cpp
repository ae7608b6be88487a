// Date settings, parsing and printing of dates.
#include <gtest/gtest.h>

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

}  // namespace
