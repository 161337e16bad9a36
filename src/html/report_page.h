// The report page ("report.php"): the head of the report table, PHP lines
// that include the rows files of the period's days, and the table's end.
#ifndef SCANREPORT_HTML_REPORT_PAGE_H_
#define SCANREPORT_HTML_REPORT_PAGE_H_

#include "io/output_file.h"
#include "log/date.h"

// The twelve lines of the table head. The title reads "as on" the start
// day, or "from" the start day "to" `end_date` for a range; its bold text,
// cell and row are left open.
void write_report_page_head(OutputFile& php, DateStamp start_date,
                            DateStamp end_date, bool is_range);

// The include line of one day of a range, ending with a line feed.
void write_range_day_include(OutputFile& php, DateStamp day);

// The include line of a single day's rows, with two slashes in a row before
// the day and no line feed: the table's end follows on the same line.
void write_single_day_include(OutputFile& php, DateStamp day);

// "</table>", ending the page's last line.
void write_report_page_end(OutputFile& php);

#endif  // SCANREPORT_HTML_REPORT_PAGE_H_
