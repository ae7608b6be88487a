// Date tests change process-wide settings; this fixture puts them back.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
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

}  // namespace udfkit::test
