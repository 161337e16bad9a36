// The quarantine page keeps no tables: it reads the log once, skips to the
// day, and writes a row for each infected record that went to quarantine.
#include "html/quarantine_report.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "html/report_rows.h"
#include "io/output_file.h"
#include "log/line_reader.h"
#include "log/scan_record.h"
#include "report/output_paths.h"
#include "report/scan_start.h"

namespace {

void write_line(OutputFile& out, std::string_view text) {
  out << text;
  out.end_line();
}

void write_heading(OutputFile& out, DateStamp report_date) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%d", report_date);
  struct tm broken_down = {};
  strptime(digits, "%Y%m%d", &broken_down);
  char date_text[DISPLAY_DATE_SIZE] = {};
  if (std::strftime(date_text, sizeof date_text, "%d/%m/%Y", &broken_down) ==
      0) {
    date_text[0] = '\0';
  }
  write_line(out,
             "<table class=tabledata width='100%' border=1 cellspacing=0 "
             "cellpadding=4 align=center valign=top>");
  out << "<tr><td colspan='6' align='center'><b>Quarantine Report "
      << " on " << date_text;
  out.end_line();
  write_line(out, "<tr bgcolor='#AACCDD'>");
  write_line(out, "<th align='left'><input type='checkbox' id='selall'></th>");
  write_line(out, "<th align='left'>Date/Time</th>");
  write_line(out, "<th align='left'>Client</th>");
  write_line(out, "<th align='left'>File</th>");
  write_line(out, "<th align='left'>Virus</th>");
  write_line(out, "<th align='left'>Quarantine</th>");
  write_line(out, "</tr>");
}

struct PageState {
  bool shade = false;
  int32_t row_number = 1;
};

void write_row(OutputFile& out, const ScanRecord& r, PageState& page) {
  out << "<tr bgcolor='" << (page.shade ? "#cfe1fd" : "#bbccdd") << "'>";
  out.end_line();
  page.shade = !page.shade;
  out << "<td align='left'><input type='checkbox' id='chk_sel_"
      << page.row_number++ << "'></td>";
  out.end_line();
  out << "<td align='left'>" << *r.date << "/" << *r.time << "</td>";
  out.end_line();
  out << "<td align='left'>" << *r.client << "</td>";
  out.end_line();
  write_path_cell(out, *r.file);
  out << "<td align='left'>" << *r.virus << "</td>";
  out.end_line();
  write_path_cell(out, *r.quarantine);
  write_line(out, "</tr>");
}

bool is_quarantined_infection(const ScanRecord& r) {
  if (!r.time || !r.client || !r.result || !r.file) return false;
  if (!keyword_is(r.result, "INFECTED")) return false;
  return r.virus && keyword_is(r.action, "QUARANTINED") && r.quarantine;
}

// Rows for the records of the day, from the line in `line` on; ends at the
// first dated line of another day or at a failed read.
void write_day_rows(LineReader& log, OutputFile& out, DateStamp report_date,
                    char* line) {
  PageState page;
  for (;;) {
    ScanRecord record(line);
    if (record.date) {
      if (log_date_to_stamp(record.date->c_str()) != report_date) return;
      if (is_quarantined_infection(record)) write_row(out, record, page);
    }
    if (!log.getline(line)) return;
  }
}

}  // namespace

int run_quarantine_report(const char* log_path, DateStamp report_date) {
  LineReader log;
  bool log_open = log_path != nullptr && log.open(log_path);
  char path[PATH_BUFFER_SIZE];
  std::snprintf(path, sizeof path, "%s/%d/quarantine.htm", TRAFFIC_DIR,
                report_date);
  if (!log_open) return -1;
  OutputFile page;
  if (!page.open(path)) return -1;

  write_heading(page, report_date);
  auto line = std::make_unique<char[]>(LOG_LINE_SIZE);
  DateStamp found = scan_to_date(log, report_date, line.get());
  if (!log.eof() && found <= report_date) {
    write_day_rows(log, page, report_date, line.get());
  }
  write_line(page, "</table>");
  return 0;
}
