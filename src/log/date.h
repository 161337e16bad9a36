// Calendar dates in the forms the tool meets: the yyyymmdd argument form,
// the dd-mm-yyyy field of the scan log, the dd-mm-yyyy display form of the
// report titles and the eight-digit day text naming the day directories.
#ifndef SCANREPORT_LOG_DATE_H_
#define SCANREPORT_LOG_DATE_H_

#include <cstdint>
#include <vector>

// A date whose decimal digits read yyyymmdd; 0 means no date or an invalid
// one. Dates compare as plain signed integers.
using DateStamp = int32_t;

inline constexpr int DISPLAY_DATE_SIZE = 11;  // "31-01-2024" and its NUL
inline constexpr int DAY_TEXT_SIZE = 9;       // "20240131" and its NUL

// Days of `month` in `year` (Gregorian); 0 for a month outside 1..12 or a
// year of 1900 or earlier.
int days_in_month(int month, int year);

// Exactly eight decimal digits forming a valid date from 19010101 on.
// Returns 0 for anything else, including a null `text`.
DateStamp parse_date_arg(const char* text);

// Ten characters of digits and hyphens holding day, month and year as three
// hyphen-separated numbers (31-01-2024, also loose runs such as 1-12-02024).
// Returns 0 for anything else, including a null `text`. Years above 214748,
// whose stamp would not fit 32 bits, are refused as well.
DateStamp log_date_to_stamp(const char* text);

// Writes the display form dd-mm-yyyy of `stamp` into `out`, which must hold
// DISPLAY_DATE_SIZE bytes; the empty text for 0. Never writes past
// DISPLAY_DATE_SIZE bytes, whatever the stamp.
void format_stamp(DateStamp stamp, char* out);

// Writes `stamp` into `out` (DISPLAY_DATE_SIZE bytes, zero-filled first) in
// the strftime `format`, after reading its decimal digits back with
// strptime and "%Y%m%d"; the empty text when the result does not fit. Unlike
// format_stamp, 0 is formatted like any other number.
void format_stamp_as(DateStamp stamp, const char* format, char* out);

// The current date in the local time zone.
DateStamp today_stamp();

// The calendar day after `stamp`, whatever the time zone. `stamp` must be a
// valid date; the day after 99991231 is 100000101.
DateStamp next_day(DateStamp stamp);

// Whether the local time zone has any moment on the date of `stamp` (a valid
// date). False only for a date the zone skipped altogether, as Pacific/Apia
// skipped 30 December 2011 when it moved across the date line.
bool local_day_exists(DateStamp stamp);

// The local calendar days from `first` to `last` (valid dates, first not
// later than last), in order, each once: the days a range report covers. A
// date that the local zone skipped altogether is left out.
std::vector<DateStamp> local_days(DateStamp first, DateStamp last);

// Calendar days from `a` to `b` (both valid, a not later than b), the same
// in every time zone: 31 from 20240301 to 20240401.
int32_t day_count(DateStamp a, DateStamp b);

#endif  // SCANREPORT_LOG_DATE_H_
