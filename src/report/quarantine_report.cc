// The quarantine report keeps no tables: it reads the log once, up to the
// day, and has a row written for each infected record that went to
// quarantine.
#include "report/quarantine_report.h"

#include <memory>

#include "html/quarantine_page.h"
#include "io/output_file.h"
#include "io/output_paths.h"
#include "log/line_reader.h"
#include "log/period_start.h"

int run_quarantine_report(const char* log_path, DateStamp report_date) {
  LineReader log;
  bool log_open = log_path != nullptr && log.open(log_path);
  char path[PATH_BUFFER_SIZE];
  quarantine_page_path(report_date, path);
  if (!log_open) return -1;
  OutputFile page;
  if (!page.open(path)) return -1;

  write_quarantine_heading(page, report_date);
  auto line = std::make_unique<char[]>(LOG_LINE_SIZE);
  DateStamp start_line_date = find_period_start(log, report_date, line.get());
  if (period_has_records(log, start_line_date, report_date)) {
    write_quarantine_rows(log, page, report_date, line.get());
  }
  write_quarantine_end(page);
  return 0;
}
