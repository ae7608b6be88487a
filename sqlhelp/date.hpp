// Dates and datetimes for SQL, for every host.  A date is a day number
// (day 1 = 1 January 1810), a datetime counts seconds since 1970 UTC; the
// nulls of both (and day 0) are SQL NULL, so every result here is optional.
//
// The date settings and the day-number cache are process-wide: a host calls
// these under its library lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "udfkit/date.h"

namespace udfkit::sqlhelp {

// An SQL integer as a day number: nothing for the null date, day 0 and
// values beyond 32 bits.
std::optional<Date> date_arg(int64_t day) noexcept;

// The text under the given setting (DBDATE when null).
std::optional<Date> date_parse(const char *text, const char *setting) noexcept;
std::optional<std::string> date_text(Date day);
std::optional<DateTime> datetime_parse(const char *text) noexcept;
std::optional<std::string> datetime_text(int64_t seconds);
std::optional<Date> date_today() noexcept;

enum class DatePart { Day, Month, Year, Weekday };
int32_t date_part(DatePart part, Date day) noexcept;

// The settings in force: "DMY4/ DMY4/" (dates, then datetimes).
std::string date_settings();

}  // namespace udfkit::sqlhelp
