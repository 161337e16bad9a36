// The period start: the first line of the log dated on or after the first
// day of a report's period. Every report reads up to it before it reads a
// record, so finding it is the hot loop on big logs.
#ifndef SCANREPORT_LOG_PERIOD_START_H_
#define SCANREPORT_LOG_PERIOD_START_H_

#include "log/date.h"
#include "log/line_reader.h"

// Reads lines into `line` (LOG_LINE_SIZE bytes) until one whose date field
// (the second ",,"-separated field of the blank-trimmed line, at most 63
// characters of it) is on or after `first_day`, and returns that line's
// date, 0 when it has none. Trailing blanks of that line are cut in
// `line`. The log is taken to be in date order, so every line before it is
// passed over, dated or not.
//
// A failed read ends the search: at the end of the log (eof() is then set,
// also when the last line had no line feed) or at a line too long for the
// buffer, whose first 2047 characters are then left in `line`, untrimmed.
// The result is then the date of the last line read, or 0.
//
// On a regular file with more than 16 blocks left and a second core to
// run on, a search that goes on past its first 4 blocks has the second
// half of what is left searched by a child process at the same time: the
// result, `line` and the reader's state are still exactly those of the
// search line by line.
DateStamp find_period_start(LineReader& log, DateStamp first_day, char* line);

// Whether a period that ends on `last_day` has records, once
// find_period_start has returned `start_line_date`: the log is not at its
// end and the line it stopped at is dated no later than `last_day`.
bool period_has_records(const LineReader& log, DateStamp start_line_date,
                        DateStamp last_day);

// The date of one line as the search sees it; cuts trailing blanks in
// `line`.
DateStamp line_date(char* line);

#endif  // SCANREPORT_LOG_PERIOD_START_H_
