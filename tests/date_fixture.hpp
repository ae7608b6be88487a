// Date tests change process-wide settings; this fixture puts them back.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "runtime/date_internal.hpp"
#include "udfkit/convert.h"
#include "udfkit/date.h"

namespace udfkit::test {

class DateTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::memcpy(saved_date_, DbDate, sizeof saved_date_);
        std::memcpy(saved_datetime_, DbDateTime, sizeof saved_datetime_);
        saved_siecle_ = Siecle;
        saved_prec_ = SieclePrecedent;
        saved_fixed_ = FixedTime;
        const char *tz = std::getenv("TZ");
        had_tz_ = tz != nullptr;
        if (tz) saved_tz_ = tz;
        set_settings("DMY4/", "DMY4/");
        Siecle = 2000;
        SieclePrecedent = 1900;
        FixedTime = 0;
        IsConvertionError();
    }
    void TearDown() override {
        std::memcpy(DbDate, saved_date_, sizeof saved_date_);
        std::memcpy(DbDateTime, saved_datetime_, sizeof saved_datetime_);
        Siecle = saved_siecle_;
        SieclePrecedent = saved_prec_;
        FixedTime = saved_fixed_;
        if (had_tz_) setenv("TZ", saved_tz_.c_str(), 1);
        else unsetenv("TZ");
        tzset();
        IsConvertionError();
    }

    static void set_settings(const char *date, const char *datetime) {
        std::strncpy(DbDate, date, sizeof DbDate - 1);
        DbDate[sizeof DbDate - 1] = '\0';
        std::strncpy(DbDateTime, datetime, sizeof DbDateTime - 1);
        DbDateTime[sizeof DbDateTime - 1] = '\0';
    }
    static void set_tz(const char *tz) {
        setenv("TZ", tz, 1);
        tzset();
    }
    static std::string text_of(Date n) {
        char buf[64];
        date2char(n, buf);
        return buf;
    }

private:
    char saved_date_[30], saved_datetime_[30];
    int32_t saved_siecle_ = 0, saved_prec_ = 0, saved_fixed_ = 0;
    bool had_tz_ = false;
    std::string saved_tz_;
};

}  // namespace udfkit::test
