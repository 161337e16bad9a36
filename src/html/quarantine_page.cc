// The page keeps its own row colour and numbering, apart from the report
// table's: it is a page of its own, made by a run of its own.
#include "html/quarantine_page.h"

#include "html/cells.h"
#include "log/day_records.h"
#include "log/scan_record.h"

namespace {

bool is_quarantined_infection(const ScanRecord& r) {
  if (!r.time || !r.client || !r.result || !r.file) return false;
  if (!keyword_is(r.result, "INFECTED")) return false;
  return r.virus && keyword_is(r.action, "QUARANTINED") && r.quarantine;
}

}  // namespace

void write_quarantine_heading(OutputFile& page, DateStamp report_date) {
  char date_text[DISPLAY_DATE_SIZE];
  format_stamp_as(report_date, "%d/%m/%Y", date_text);
  write_line(page,
             "<table class=tabledata width='100%' border=1 cellspacing=0 "
             "cellpadding=4 align=center valign=top>");
  page << "<tr><td colspan='6' align='center'><b>Quarantine Report "
       << " on " << date_text;
  page.end_line();
  write_line(page, "<tr bgcolor='#AACCDD'>");
  write_line(page, "<th align='left'><input type='checkbox' id='selall'></th>");
  write_line(page, "<th align='left'>Date/Time</th>");
  write_line(page, "<th align='left'>Client</th>");
  write_line(page, "<th align='left'>File</th>");
  write_line(page, "<th align='left'>Virus</th>");
  write_line(page, "<th align='left'>Quarantine</th>");
  write_line(page, "</tr>");
}

void write_quarantine_rows(LineReader& log, OutputFile& page,
                           DateStamp report_date, char* line) {
  bool shade = false;
  int32_t row_number = 1;
  for_each_record_of_day(log, report_date, line, [&](const ScanRecord& r) {
    if (!is_quarantined_infection(r)) return;
    write_row_opening(page, shade, row_number++);
    write_date_time_cell(page, *r.date, *r.time);
    write_text_cell(page, *r.client);
    write_path_cell(page, *r.file);
    write_text_cell(page, *r.virus);
    write_path_cell(page, *r.quarantine);
    write_line(page, "</tr>");
  });
}

void write_quarantine_end(OutputFile& page) { write_line(page, "</table>"); }
