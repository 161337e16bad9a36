// The quarantine page ("quarantine.htm"): one table of the day's records
// that were found infected and put into quarantine.
#ifndef SCANREPORT_HTML_QUARANTINE_PAGE_H_
#define SCANREPORT_HTML_QUARANTINE_PAGE_H_

#include "io/output_file.h"
#include "log/date.h"
#include "log/line_reader.h"

// The ten lines of the table head; the title shows `report_date` as
// dd/mm/yyyy and leaves its bold text, cell and row open.
void write_quarantine_heading(OutputFile& page, DateStamp report_date);

// One row per record of `report_date` whose result is INFECTED and action
// QUARANTINED, with its virus and quarantine location; the day's lines are
// walked from the line in `line` (LOG_LINE_SIZE bytes) as the report table
// walks them. Rows alternate in colour from "#bbccdd" and are numbered from
// 1 in each call.
void write_quarantine_rows(LineReader& log, OutputFile& page,
                           DateStamp report_date, char* line);

// "</table>", the page's last line.
void write_quarantine_end(OutputFile& page);

#endif  // SCANREPORT_HTML_QUARANTINE_PAGE_H_
