// Finding where a report's period begins in the scan log.
#ifndef SCANREPORT_REPORT_SCAN_START_H_
#define SCANREPORT_REPORT_SCAN_START_H_

#include "log/date.h"
#include "log/line_reader.h"

// Reads lines into `line` (LOG_LINE_SIZE bytes) until one whose date field
// (the second ",,"-separated field of the blank-trimmed line, at most 63
// characters of it) is on or after `first_date`, and returns that line's
// date, 0 when it has none. Trailing blanks of that line are cut in
// `line`. The log is taken to be in date order, so every line before it is
// passed over, dated or not.
//
// A failed read ends the scan: at the end of the log (eof() is then set,
// also when the last line had no line feed) or at a line too long for the
// buffer, whose first 2047 characters are then left in `line`, untrimmed.
// The result is then the date of the last line read, or 0.
DateStamp scan_to_date(LineReader& log, DateStamp first_date, char* line);

// The date of one line as the scan sees it; cuts trailing blanks in `line`.
DateStamp line_date(char* line);

#endif  // SCANREPORT_REPORT_SCAN_START_H_
