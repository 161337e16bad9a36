// A single day is counted from the log; a range is assembled from the
// summary files and row files that earlier single-day runs left behind, so
// the log is read only as far as the first line of the period.
#include "report/scan_report.h"

#include <fcntl.h>

#include <cstdio>
#include <ext/stdio_filebuf.h>
#include <istream>
#include <memory>
#include <string>

#include "html/report_rows.h"
#include "html/summary_page.h"
#include "io/output_file.h"
#include "io/regular_file.h"
#include "log/line_reader.h"
#include "report/output_paths.h"
#include "report/scan_start.h"
#include "stats/summary_file.h"

namespace {

struct Tables {
  CountTable client_counts, virus_counts, file_counts;
  SummaryTally tally;
  RankedList client_list, virus_list, file_list;
};

void write_line(OutputFile& out, std::string_view text) {
  out << text;
  out.end_line();
}

void write_page_header(OutputFile& php, DateStamp start_date,
                       DateStamp end_date, bool is_range) {
  char first[DISPLAY_DATE_SIZE];
  char last[DISPLAY_DATE_SIZE];
  format_stamp(start_date, first);
  format_stamp(end_date, last);
  write_line(php,
             "<table class=tabledata  border=1  cellspacing=1 cellpadding=4 "
             "align=\"center\" style=\"font-size:9pt\" valign=top >");
  php << "<tr><td nowrap colspan='9' align='center'><b>Report Table ";
  if (is_range) {
    php << "from " << first << " to " << last;
  } else {
    php << "as on " << first;
  }
  php.end_line();
  write_line(php, "<tr bgcolor='#AACCDD'>");
  write_line(php, "<th align='left'><input type='checkbox' id='selall'></th>");
  write_line(php, "<th align='left' >Date/Time</th>");
  write_line(php, "<th align='left' >Client</th>");
  write_line(php, "<th align='left' >File</th>");
  write_line(php, "<th align='left' >Result</th>");
  write_line(php, "<th align='left' >Virus/Remark</th>");
  write_line(php, "<th align='left' >Action</th>");
  write_line(php, "<th align='left' >Quarantine</th>");
  write_line(php, "</tr>");
}

// Adds a day's summary file into the tables. Anything but a plain file at
// that path (a link, a pipe, a device) counts as missing: whoever can write
// into a day directory must not make a root run read it.
void merge_day_summary(Tables& t, DateStamp day) {
  char path[PATH_BUFFER_SIZE];
  std::snprintf(path, sizeof path, "%s%d/summary.txt", TRAFFIC_DIR, day);
  int fd = open_regular_file(path, O_RDONLY);
  if (fd < 0) return;
  __gnu_cxx::stdio_filebuf<char> buffer(fd, std::ios::in);  // closes fd
  std::istream summary(&buffer);
  merge_summary_text(t.client_counts, t.virus_counts, t.file_counts, t.tally,
                     summary);
}

// Sums the days' summary files and includes each day's rows, for every
// local calendar day of the range. A day without its files contributes an
// include line and nothing else; a date the zone skipped contributes
// nothing at all.
void assemble_range(Tables& t, OutputFile& php, DateStamp start_date,
                    DateStamp end_date) {
  for (DateStamp day : local_days(start_date, end_date)) {
    merge_day_summary(t, day);
    php << "<?php include(\"" << TRAFFIC_DIR << day << "/report.txt\") ?>\n";
  }
}

void write_summaries(Tables& t, const char* out_dir, DateStamp start_date,
                     DateStamp end_date) {
  ranked_list_from_table(t.client_counts, t.client_list);
  ranked_list_from_table(t.virus_counts, t.virus_list);
  ranked_list_from_table(t.file_counts, t.file_list);
  write_summary_text(t.client_list, t.virus_list, t.file_list, t.tally,
                     out_dir);
  select_top_ten(t.client_list);
  select_top_ten(t.virus_list);
  select_top_ten(t.file_list);
  write_summary_page(t.client_list, t.virus_list, t.file_list, t.tally, out_dir,
                     start_date, end_date);
}

}  // namespace

int run_scan_report(const char* log_path, DateStamp start_date,
                    DateStamp end_date) {
  if (log_path == nullptr) return -1;
  LineReader log;
  if (!log.open(log_path)) return -1;

  const bool is_range = end_date != 0 && end_date != start_date;
  char out_dir[PATH_BUFFER_SIZE];
  if (is_range) {
    std::snprintf(out_dir, sizeof out_dir, "%s", RANGE_DIR);
  } else {
    std::snprintf(out_dir, sizeof out_dir, "%s%d", TRAFFIC_DIR, start_date);
  }
  OutputFile php;
  php.open((std::string(out_dir) + "/report.php").c_str());
  OutputFile rows;
  rows.open((std::string(out_dir) + "/report.txt").c_str());
  if (!php.is_open()) return -1;

  write_page_header(php, start_date, end_date, is_range);
  Tables t;
  init_summary_tally(t.tally);

  auto pending_line = std::make_unique<char[]>(LOG_LINE_SIZE);
  DateStamp found = scan_to_date(log, start_date, pending_line.get());
  const DateStamp period_end = is_range ? end_date : start_date;
  const bool has_records = !log.eof() && found <= period_end;
  if (has_records && is_range) {
    assemble_range(t, php, start_date, end_date);
  } else if (has_records) {
    write_report_rows(t.client_counts, t.virus_counts, t.file_counts, t.tally,
                      log, rows, start_date, pending_line.get());
    // The doubled slash is what existing pages have always been given.
    php << "<?php include(\"" << TRAFFIC_DIR << "/" << start_date
        << "/report.txt\") ?>";
  }
  write_line(php, "</table>");
  log.close();
  php.close();
  write_summaries(t, out_dir, start_date, end_date);
  return 0;
}
