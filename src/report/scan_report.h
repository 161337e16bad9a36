// The scan report of one day or of a date range.
#ifndef SCANREPORT_REPORT_SCAN_REPORT_H_
#define SCANREPORT_REPORT_SCAN_REPORT_H_

#include "log/date.h"

// Writes report.php, report.txt, summary.txt and summary.htm into the day's
// directory under TRAFFIC_DIR (`end_date` 0 or equal to `start_date`) or
// into RANGE_DIR (a range, `start_date` < `end_date`). A single day is
// counted from the scan log; a range sums the summary.txt files that earlier
// single-day runs left and includes their report.txt files, for each local
// calendar day from `start_date` to `end_date` once (a date the time zone
// skipped has no day and is left out). A day's summary.txt is read only if
// it is a regular file, not a link, pipe or device. Returns -1 when
// `log_path` is null, the log cannot be opened or report.php cannot be
// opened (nothing is written then), otherwise 0.
int run_scan_report(const char* log_path, DateStamp start_date,
                    DateStamp end_date);

#endif  // SCANREPORT_REPORT_SCAN_REPORT_H_
