/*
 * udfkit picture masks: numbers and dates laid out under masks.
 *
 * Number masks.  Each mask character stands for one character of the
 * result.  Left of the mask's first '.' (the integer part):
 *   '#' a digit, else a blank          '&' a digit, else '0'
 *   '*' a digit, else '*'              ',' a comma (a fill left of the digits)
 *   '-' a digit, else a blank or the minus sign of a negative number
 *   '<' like '-', and the result is left-justified
 *   '(' a digit, else a blank or '(' for a negative number
 *   '$' a digit, else a blank; one '$' sign floats next to the digits
 *   ' ' a blank; any other character: a digit, else itself
 * Right of the point each position takes the next fraction digit, then '0'
 * ('%' shows '%'); ')' shows ')' for a negative number.  The number is
 * rounded (halves away from zero) to the count of '#', '$', '&', '-' and '<'
 * after the point.  A number that does not fit gives '*' in every position.
 *
 *   ###,###.##   1234.567  ->  "  1,234.57"
 *   $$$,$$$.##   1234.567  ->  " $1,234.57"
 *   (###.##)     -12.5     ->  "( 12.50)"
 *   &&&          7         ->  "007"
 *
 * Date masks: runs of the lowercase letters d, m and y become parts of the
 * date (dd day, ddd weekday name, mm month, mmm month name, yy, yyyy year,
 * yyy 'y' and the two-digit year); everything else is copied.
 *
 *   ddd dd mmm yyyy   day 77061  ->  "Fri 25 Dec 2020"
 */
#ifndef UDFKIT_MASKS_H
#define UDFKIT_MASKS_H

#include <stdint.h>

#include "udfkit/host.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Clean-up of a number text, in place: leading zeros become nothing (the
 * zero before a point too), signs stay, blanks anywhere go.  "-0012.50"
 * becomes "-12.50", "0.5" becomes ".5", "0" becomes "". */
UDFKIT_API void garbage_str(char *text);

/* Lays the number text (plain decimal notation: optional '-', digits, at
 * most one '.') out under mask into out, which holds at least
 * strlen(mask) + 1 bytes.  The result has the mask's width, except under a
 * '<' mask (left-justified), where its leading blanks are dropped.  Always
 * returns 0. */
UDFKIT_API int32_t _mk_using_nombre(const char *number, const char *mask, char *out);

/* Lays the date (a day number, Date of udfkit/date.h: day 1 = 1 January
 * 1810) out under mask into out, which holds at least strlen(mask) + 1
 * bytes; the result always has the mask's width.  Always returns 0. */
UDFKIT_API int32_t _mk_using_date(int32_t date, const char *mask, char *out);

/* Weekday abbreviations, 0 Sunday .. 6 Saturday, and month abbreviations,
 * 0 January .. 11 December, as the date masks write them. */
UDFKIT_API extern const char *const Ar_jour[7];
UDFKIT_API extern const char *const Ar_mois[12];

#ifdef __cplusplus
}
#endif

#endif
