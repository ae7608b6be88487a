// Dates and datetimes in SQL, on the library's date runtime:
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
// A date value is an integer day number (day 1 = 1 January 1810) marked as
// a date; a datetime value counts seconds since 1970 UTC.
#include <cstring>

#include "host/sqlite/bridge.hpp"
#include "udfkit/date.h"

namespace {
using namespace udfkit::sqlite;

bool null_arg(sqlite3_value *v) { return sqlite3_value_type(v) == SQLITE_NULL; }

// A day number argument, or false for NULL, the null date and day 0.
bool date_arg(sqlite3_value *v, Date *out) {
    if (null_arg(v)) return false;
    const sqlite3_int64 n = sqlite3_value_int64(v);
    if (n <= INT32_MIN || n > INT32_MAX || n == 0) return false;
    *out = static_cast<Date>(n);
    return true;
}

void result_date(sqlite3_context *ctx, Date d) {
    if (d == 0 || d == UDFKIT_NULL_DATE) {
        sqlite3_result_null(ctx);
        return;
    }
    sqlite3_result_int64(ctx, d);
    sqlite3_result_subtype(ctx, kDateSubtype);
}

void sql_todate(sqlite3_context *ctx, int argc, sqlite3_value **argv) {
    if (null_arg(argv[0])) return sqlite3_result_null(ctx);
    const char *text = reinterpret_cast<const char *>(sqlite3_value_text(argv[0]));
    const char *setting = nullptr;
    if (argc > 1 && !null_arg(argv[1]))
        setting = reinterpret_cast<const char *>(sqlite3_value_text(argv[1]));
    LibraryLock lock(library_lock());
    result_date(ctx, Char2Date(text ? text : "", setting ? setting : DbDate));
}

void sql_datetext(sqlite3_context *ctx, int, sqlite3_value **argv) {
    Date d;
    if (!date_arg(argv[0], &d)) return sqlite3_result_null(ctx);
    char buf[64];
    LibraryLock lock(library_lock());
    date2char(d, buf);
    sqlite3_result_text(ctx, buf, -1, SQLITE_TRANSIENT);
}

void sql_todatetime(sqlite3_context *ctx, int, sqlite3_value **argv) {
    if (null_arg(argv[0])) return sqlite3_result_null(ctx);
    const char *text = reinterpret_cast<const char *>(sqlite3_value_text(argv[0]));
    LibraryLock lock(library_lock());
    const DateTime t = Char2GMT(text ? text : "");
    if (t == UDFKIT_NULL_DATETIME) return sqlite3_result_null(ctx);
    sqlite3_result_int64(ctx, t);
    sqlite3_result_subtype(ctx, kDateTimeSubtype);
}

void sql_datetimetext(sqlite3_context *ctx, int, sqlite3_value **argv) {
    if (null_arg(argv[0])) return sqlite3_result_null(ctx);
    char buf[20];
    LibraryLock lock(library_lock());
    GMT2Char(sqlite3_value_int64(argv[0]), buf);
    if (!buf[0]) return sqlite3_result_null(ctx);
    sqlite3_result_text(ctx, buf, -1, SQLITE_TRANSIENT);
}

void sql_today(sqlite3_context *ctx, int, sqlite3_value **) {
    LibraryLock lock(library_lock());
    result_date(ctx, todaydate());
}

template <int32_t (*Part)(Date)>
void sql_part(sqlite3_context *ctx, int, sqlite3_value **argv) {
    Date d;
    if (!date_arg(argv[0], &d)) return sqlite3_result_null(ctx);
    LibraryLock lock(library_lock());
    sqlite3_result_int(ctx, Part(d));
}

void sql_datesettings(sqlite3_context *ctx, int, sqlite3_value **) {
    char buf[64];
    LibraryLock lock(library_lock());
    const int n = static_cast<int>(strnlen(DbDate, sizeof DbDate));
    const int m = static_cast<int>(strnlen(DbDateTime, sizeof DbDateTime));
    sqlite3_snprintf(sizeof buf, buf, "%.*s %.*s", n, DbDate, m, DbDateTime);
    sqlite3_result_text(ctx, buf, -1, SQLITE_TRANSIENT);
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
        {"daydate", 1, pure, sql_part<daydate>},
        {"monthdate", 1, pure, sql_part<monthdate>},
        {"yeardate", 1, pure, sql_part<yeardate>},
        {"weekdaydate", 1, pure, sql_part<weekdaydate>},
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
