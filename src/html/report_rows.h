// The rows of a day's report table ("report.txt").
#ifndef SCANREPORT_HTML_REPORT_ROWS_H_
#define SCANREPORT_HTML_REPORT_ROWS_H_

#include "io/output_file.h"
#include "log/date.h"
#include "log/line_reader.h"
#include "stats/count_table.h"

// Writes one row per record of `day` that carries the fields its result
// needs, starting with the line in `pending_line` (LOG_LINE_SIZE bytes, used
// exactly as given) and reading on from `log`, and counts each such record
// by file, client, virus and result. Lines without a date are skipped; the
// first line of another (or an invalid) date, or a failed read, ends the
// day. On return `pending_line` holds the last line read: the line that
// ended the day, or what the failed read left. Always returns 0.
//
// Row colours alternate for the life of the process, starting with
// "#bbccdd"; checkbox numbers start at 0 in each call.
int write_report_rows(CountTable& client_counts, CountTable& virus_counts,
                      CountTable& file_counts, SummaryTally& tally,
                      LineReader& log, OutputFile& rows_out, DateStamp day,
                      char* pending_line);

#endif  // SCANREPORT_HTML_REPORT_ROWS_H_
