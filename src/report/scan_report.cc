// A single day is counted from the log; a range is assembled from the
// summary files and row files that earlier single-day runs left behind, so
// the log is read only as far as the period start.
#include "report/scan_report.h"

#include <fcntl.h>

#include <ext/stdio_filebuf.h>
#include <istream>
#include <memory>

#include "html/report_page.h"
#include "html/report_rows.h"
#include "html/summary_page.h"
#include "io/output_file.h"
#include "io/output_paths.h"
#include "io/regular_file.h"
#include "log/line_reader.h"
#include "log/period_start.h"
#include "stats/count_table.h"
#include "stats/summary_file.h"

namespace {

// The tables of one run: the counts, then the lists they become.
struct RunTables {
  CountTable client_counts, virus_counts, file_counts;
  SummaryTally tally;
  RankedList client_list, virus_list, file_list;
};

// The two files a run writes while it reads: the page (report.php) and the
// day's rows (report.txt).
struct ReportFiles {
  OutputFile page;
  OutputFile rows;
};

// Adds a day's summary file into the tables. Anything but a plain file at
// that path (a link, a pipe, a device) counts as missing: whoever can write
// into a day directory must not make a root run read it.
void merge_day_summary(RunTables& tables, DateStamp day) {
  char path[PATH_BUFFER_SIZE];
  day_summary_path(day, path);
  int fd = open_regular_file(path, O_RDONLY);
  if (fd < 0) return;
  __gnu_cxx::stdio_filebuf<char> buffer(fd, std::ios::in);  // closes fd
  std::istream summary(&buffer);
  merge_summary_text(tables.client_counts, tables.virus_counts,
                     tables.file_counts, tables.tally, summary);
}

// Sums the days' summary files and includes each day's rows, for every
// local calendar day of the range. A day without its files contributes an
// include line and nothing else; a date the zone skipped contributes
// nothing at all.
void assemble_range(RunTables& tables, OutputFile& php, DateStamp start_date,
                    DateStamp end_date) {
  for (DateStamp day : local_days(start_date, end_date)) {
    merge_day_summary(tables, day);
    write_range_day_include(php, day);
  }
}

// Counts the period's records into the tables, from the log for a single
// day and from the days' files for a range, and includes their rows in
// report.php. A period without records leaves both untouched.
void report_period(LineReader& log, ReportFiles& files, RunTables& tables,
                   DateStamp start_date, DateStamp end_date, bool is_range) {
  auto pending_line = std::make_unique<char[]>(LOG_LINE_SIZE);
  DateStamp start_line_date =
      find_period_start(log, start_date, pending_line.get());
  const DateStamp last_day = is_range ? end_date : start_date;
  if (!period_has_records(log, start_line_date, last_day)) return;
  if (is_range) {
    assemble_range(tables, files.page, start_date, end_date);
    return;
  }
  write_report_rows(tables.client_counts, tables.virus_counts,
                    tables.file_counts, tables.tally, log, files.rows,
                    start_date, pending_line.get());
  write_single_day_include(files.page, start_date);
}

// summary.txt gets the full lists, for later range runs to add up; the
// page shows only their top ten.
void write_summaries(RunTables& tables, const char* out_dir,
                     DateStamp start_date, DateStamp end_date) {
  ranked_list_from_table(tables.client_counts, tables.client_list);
  ranked_list_from_table(tables.virus_counts, tables.virus_list);
  ranked_list_from_table(tables.file_counts, tables.file_list);
  write_summary_text(tables.client_list, tables.virus_list, tables.file_list,
                     tables.tally, out_dir);
  select_top_ten(tables.client_list);
  select_top_ten(tables.virus_list);
  select_top_ten(tables.file_list);
  write_summary_page(tables.client_list, tables.virus_list, tables.file_list,
                     tables.tally, out_dir, start_date, end_date);
}

bool open_run_file(OutputFile& out, const char* out_dir, const char* name) {
  char path[PATH_BUFFER_SIZE];
  run_file_path(out_dir, name, path);
  return out.open(path);
}

}  // namespace

int run_scan_report(const char* log_path, DateStamp start_date,
                    DateStamp end_date) {
  if (log_path == nullptr) return -1;
  LineReader log;
  if (!log.open(log_path)) return -1;

  const bool is_range = end_date != 0 && end_date != start_date;
  char day_dir[PATH_BUFFER_SIZE];
  if (!is_range && !day_dir_path(start_date, day_dir)) return -1;
  const char* out_dir = is_range ? RANGE_DIR : day_dir;
  ReportFiles files;
  open_run_file(files.page, out_dir, "report.php");
  open_run_file(files.rows, out_dir, "report.txt");
  if (!files.page.is_open()) return -1;

  write_report_page_head(files.page, start_date, end_date, is_range);
  RunTables tables;
  init_summary_tally(tables.tally);
  report_period(log, files, tables, start_date, end_date, is_range);
  write_report_page_end(files.page);
  log.close();
  files.page.close();
  write_summaries(tables, out_dir, start_date, end_date);
  return 0;
}
