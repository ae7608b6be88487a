#include "sqlhelp/date.hpp"

#include <cstring>

#include "runtime/null_traits.hpp"

namespace udfkit::sqlhelp {

namespace {

std::optional<Date> date_result(Date d) noexcept {
    if (udfkit::nulls::is_date_null(d)) return std::nullopt;
    return d;
}

}  // namespace

std::optional<Date> date_arg(int64_t day) noexcept {
    if (day <= INT32_MIN || day > INT32_MAX || day == 0) return std::nullopt;
    return static_cast<Date>(day);
}

std::optional<Date> date_parse(const char *text, const char *setting) noexcept {
    return date_result(Char2Date(text ? text : "", setting ? setting : DbDate));
}

std::optional<std::string> date_text(Date day) {
    char buf[64];
    date2char(day, buf);
    return std::string(buf);
}

std::optional<DateTime> datetime_parse(const char *text) noexcept {
    const DateTime t = Char2GMT(text ? text : "");
    if (t == udfkit::nulls::kLong) return std::nullopt;
    return t;
}

std::optional<std::string> datetime_text(int64_t seconds) {
    char buf[20];
    GMT2Char(seconds, buf);
    if (!buf[0]) return std::nullopt;
    return std::string(buf);
}

std::optional<Date> date_today() noexcept { return date_result(todaydate()); }

int32_t date_part(DatePart part, Date day) noexcept {
    switch (part) {
    case DatePart::Day: return daydate(day);
    case DatePart::Month: return monthdate(day);
    case DatePart::Year: return yeardate(day);
    case DatePart::Weekday: return weekdaydate(day);
    }
    return 0;
}

std::string date_settings() {
    std::string s(DbDate, strnlen(DbDate, sizeof DbDate));
    s += ' ';
    s.append(DbDateTime, strnlen(DbDateTime, sizeof DbDateTime));
    return s;
}

}  // namespace udfkit::sqlhelp
