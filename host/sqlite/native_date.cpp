// Dates and datetimes in SQL (the rules are in sqlhelp/date.hpp):
//   todate(text [, setting])  the date of a text under DBDATE (or the given
//                             setting), as a date value; NULL when unusable
//   datetext(date)            the date as text under DBDATE
//   todatetime(text)          the datetime of "date [hh:mm:ss]" under
//                             DBDATETIME in local time, as a datetime value
//   datetimetext(seconds)     the datetime as local text
//   today()                   today's date (DBTODAY when set)
//   daydate(date), monthdate(date), yeardate(date), weekdaydate(date)
//                             the parts of a date (weekday 0 = Sunday)
//   datesettings()            the settings in force, "DMY4/ DMY4/"
// A date value is an integer marked as a date; a datetime value an integer
// marked as a datetime.
#include <string>

#include "host/sqlite/bridge.hpp"
#include "sqlhelp/date.hpp"

namespace {
using namespace udfkit::sqlite;
using namespace udfkit::sqlhelp;

bool null_arg(sqlite3_value *v) { return sqlite3_value_type(v) == SQLITE_NULL; }

const char *text_arg(sqlite3_value *v) {
    return null_arg(v) ? nullptr : reinterpret_cast<const char *>(sqlite3_value_text(v));
}

std::optional<Date> day_arg(sqlite3_value *v) {
    if (null_arg(v)) return std::nullopt;
    return date_arg(sqlite3_value_int64(v));
}

void result_marked(sqlite3_context *ctx, std::optional<int64_t> v, unsigned subtype) {
    if (!v) return sqlite3_result_null(ctx);
    sqlite3_result_int64(ctx, *v);
    sqlite3_result_subtype(ctx, subtype);
}

void result_text(sqlite3_context *ctx, const std::optional<std::string> &s) {
    if (!s) return sqlite3_result_null(ctx);
    sqlite3_result_text(ctx, s->data(), static_cast<int>(s->size()), SQLITE_TRANSIENT);
}

void sql_todate(sqlite3_context *ctx, int argc, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        if (null_arg(argv[0])) return sqlite3_result_null(ctx);
        result_marked(ctx, date_parse(text_arg(argv[0]), argc > 1 ? text_arg(argv[1]) : nullptr),
                      kDateSubtype);
    });
}

void sql_datetext(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        const auto d = day_arg(argv[0]);
        result_text(ctx, d ? date_text(*d) : std::nullopt);
    });
}

void sql_todatetime(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        if (null_arg(argv[0])) return sqlite3_result_null(ctx);
        result_marked(ctx, datetime_parse(text_arg(argv[0])), kDateTimeSubtype);
    });
}

void sql_datetimetext(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        if (null_arg(argv[0])) return sqlite3_result_null(ctx);
        result_text(ctx, datetime_text(sqlite3_value_int64(argv[0])));
    });
}

void sql_today(sqlite3_context *ctx, int, sqlite3_value **) noexcept {
    guarded(ctx, [&] { result_marked(ctx, date_today(), kDateSubtype); });
}

template <DatePart Part>
void sql_part(sqlite3_context *ctx, int, sqlite3_value **argv) noexcept {
    guarded(ctx, [&] {
        const auto d = day_arg(argv[0]);
        if (!d) return sqlite3_result_null(ctx);
        sqlite3_result_int(ctx, date_part(Part, *d));
    });
}

void sql_datesettings(sqlite3_context *ctx, int, sqlite3_value **) noexcept {
    guarded(ctx, [&] { result_text(ctx, date_settings()); });
}

int register_dates(sqlite3 *db) {
    const int text = SQLITE_UTF8;
    const int pure = SQLITE_UTF8 | SQLITE_DETERMINISTIC;
    const int marks = result_subtype_flag();
    const struct {
        const char *name;
        int nargs, flags;
        void (*fn)(sqlite3_context *, int, sqlite3_value **);
    } fns[] = {
        {"todate", 1, text | marks, sql_todate},
        {"todate", 2, text | marks, sql_todate},
        {"datetext", 1, text, sql_datetext},
        {"todatetime", 1, text | marks, sql_todatetime},
        {"datetimetext", 1, text, sql_datetimetext},
        {"today", 0, text | marks, sql_today},
        {"daydate", 1, pure, sql_part<DatePart::Day>},
        {"monthdate", 1, pure, sql_part<DatePart::Month>},
        {"yeardate", 1, pure, sql_part<DatePart::Year>},
        {"weekdaydate", 1, pure, sql_part<DatePart::Weekday>},
        {"datesettings", 0, text, sql_datesettings},
    };
    for (const auto &f : fns) {
        const int rc =
            sqlite3_create_function(db, f.name, f.nargs, f.flags, nullptr, f.fn, nullptr, nullptr);
        if (rc != SQLITE_OK) return rc;
    }
    return SQLITE_OK;
}
const NativeBlock kNatives(register_dates);
}  // namespace
