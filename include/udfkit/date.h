/*
 * udfkit dates and datetimes.
 *
 * A Date is a day number: day 1 is 1 January 1810, day 0 is 31 December
 * 1809, and the proleptic Gregorian calendar runs without limit in both
 * directions.  The null date is INT32_MIN; day 0 also stands for "no date".
 *
 * A DateTime is a count of seconds since 1970-01-01 00:00:00 UTC; it is
 * split into calendar fields, and built from them, in the process's local
 * time zone.  The null datetime is INT64_MIN.
 *
 * Date texts follow the settings DbDate (dates) and DbDateTime (the date
 * part of datetimes): three letters D, M, Y in writing order, a year width
 * ('2' for two digits, anything else for four) and a separator, e.g.
 * "DMY4/" (the default) or "MDY2-".  _date_init reads them from the
 * environment variables DBDATE and DBDATETIME, and DBTODAY freezes today.
 *
 * Everything here is process-wide state without a lock: call the date
 * functions one at a time, and _date_init before any of them.
 */
#ifndef UDFKIT_DATE_H
#define UDFKIT_DATE_H

#include <stdint.h>
#include <stddef.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

struct tm;

typedef int32_t Date;     /* day number, 1 = 1 January 1810 */
typedef int64_t DateTime; /* seconds since 1970-01-01 00:00:00 UTC */

#define UDFKIT_NULL_DATE ((Date)INT32_MIN)
#define UDFKIT_NULL_DATETIME ((DateTime)INT64_MIN)

/* ------------------------------------------------------------ calendar */

/* Month lengths of a common year and of a leap year. */
UDFKIT_API extern const int32_t maxjours[12];
UDFKIT_API extern const int32_t maxjoursBissext[12];

/* Entry i (0 ... 1189): days from 1 January 1810 to 1 January of year
 * 1810 + i; DaysOfYear[i] is 1 when that year is a leap year.  Entry 1190
 * of both is 0. */
UDFKIT_API extern const int32_t DaysToYear0[1191];
UDFKIT_API extern const unsigned char DaysOfYear[1191];

/* The year reached by the last conversion of a day number in 1 ... 217175
 * to year, month and day, and the day count from 1 January 1810 to
 * 1 January of that year (always DaysToYear0[LastYear - 1810]). */
UDFKIT_API extern int32_t LastYear;
UDFKIT_API extern int32_t LastDate;

/* Day number of month/day/year.  The day is not checked: day 0 is the last
 * day of the previous month, day 32 of January is 1 February. */
UDFKIT_API Date mdy2date(int32_t month, int32_t day, int32_t year);

/* ------------------------------------------------------------ settings */

UDFKIT_API extern char DbDate[30];     /* date format setting, "DMY4/" */
UDFKIT_API extern char DbDateTime[30]; /* date part of datetimes, "DMY4/" */
UDFKIT_API extern int32_t Siecle;          /* added to two-digit years 0 ... 50 */
UDFKIT_API extern int32_t SieclePrecedent; /* added to two-digit years 51 ... 99 */
UDFKIT_API extern int32_t FixedTime;       /* when not 0, the moment that is "now" */

/* Reads DBDATE, DBDATETIME and DBTODAY and fixes the two-digit-year
 * centuries from the local clock. */
UDFKIT_API void _date_init(void);

/* Today's day number in local time. */
UDFKIT_API Date todaydate(void);

/* ------------------------------------------------------------ date text */

/* Date of a text under a format setting ("DDMMYYYY" and "MMDDYYYY" are
 * accepted too); 0 for an empty text, 0 and the conversion error flag for
 * an unusable one.  The text "today" gives todaydate(). */
UDFKIT_API Date Char2Date(const char *text, const char *format);
/* Char2Date under DbDate. */
UDFKIT_API Date char2date(const char *text);
/* Char2Date under DbDate when the text looks like a date (it holds a
 * settings separator, begins with a digit, is at most 20 characters), else 0. */
UDFKIT_API Date _is_date(const char *text);
/* 1 when the text holds the separator of DbDate or of DbDateTime. */
UDFKIT_API int32_t _isdateFast(const char *text);

/* Writes the date under DbDate at the start of out and returns a pointer to
 * its terminating NUL.  10 bytes with the default setting; 50 bytes are
 * enough for every day number. */
UDFKIT_API char *date2char(Date n, char *out);

UDFKIT_API int32_t daydate(Date n);     /* 1 ... 31 */
UDFKIT_API int32_t monthdate(Date n);   /* 1 ... 12 */
UDFKIT_API int32_t yeardate(Date n);    /* all digits: 2020 */
UDFKIT_API int32_t weekdaydate(Date n); /* 0 Sunday ... 6 Saturday */

/* ------------------------------------------------------------ datetimes */

/* Datetime of "date [hh[:mm[:ss]]]" in local time, the date part under
 * DbDateTime with 6 or 8 digits and any separators.  The null for an empty
 * date word; the null and the conversion error flag for a bad text. */
UDFKIT_API DateTime Char2GMT(const char *text);
/* Char2GMT of a 20-character text that looks like a datetime, else the null. */
UDFKIT_API DateTime _is_datetime(const char *text);
/* Writes the local datetime "date hh:mm:ss" into out (at least 20 bytes);
 * the empty text for a negative value or one that does not fit. */
UDFKIT_API void GMT2Char(DateTime t, char *out);
/* Local midnight of a day; the null and the error flag when it cannot be
 * represented. */
UDFKIT_API DateTime date2GMT(Date n);
/* The local calendar day of a moment. */
UDFKIT_API Date GMT2date(DateTime t);

/* ------------------------------------------------------------ time text */

/* Names and composite formats used by StrFTime: 0-6 short weekdays, 7-13
 * weekdays, 14-25 short months, 26-37 months, 38-39 AM/PM, 40 date and time,
 * 41 date, 42 time. */
UDFKIT_API extern const char *const __time_C[43];

/* Formats t under a %-format with fixed English names.  Returns the number
 * of characters written (terminator excluded), or 0 when the text does not
 * fit in max - 1 characters or a numeric field has an unexpected width.
 * With out null only the length is computed. */
UDFKIT_API int32_t StrFTime(char *out, size_t max, const char *format, const struct tm *t);

#ifdef __cplusplus
}
#endif

#endif /* UDFKIT_DATE_H */
