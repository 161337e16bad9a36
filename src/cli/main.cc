// The entry: refuses anyone but root, checks the arguments and the log,
// settles the dates and runs exactly one report. Every refusal is one
// message on standard error and exit status 1; once a report has run the
// status is 0, whatever it managed to write.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli/command_line.h"
#include "log/date.h"
#include "report/quarantine_report.h"
#include "report/scan_report.h"

namespace {

[[noreturn]] void refuse(const std::string& message) {
  // With standard error gone there is no one left to tell; the status
  // still says it.
  (void)std::fputs(message.c_str(), stderr);
  std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  if (getuid() != 0) refuse(ROOT_REQUIRED_MESSAGE);
  // An older kernel lets a caller start the program with no argument
  // vector at all; the usage text then names no program.
  if (argc < 3 || argc > 4) refuse(usage_message(argc > 0 ? argv[0] : ""));

  const bool quarantine_mode = is_quarantine_selector(argv[1]);
  const char* log_path = quarantine_mode ? argv[2] : argv[1];
  if (access(log_path, R_OK) < 0) refuse(missing_log_message(log_path));

  // A quarantine request of three arguments has no date argument at all; it
  // is refused as an invalid date that shows as the empty text.
  const char* date_argument =
      quarantine_mode ? (argc > 3 ? argv[3] : nullptr) : argv[2];
  DateStamp start_date = parse_date_arg(date_argument);
  if (start_date == 0) {
    refuse(invalid_date_message(date_argument ? date_argument : ""));
  }
  DateStamp end_date = 0;
  if (argc == 4 && !quarantine_mode) {
    end_date = parse_date_arg(argv[3]);
    if (end_date == 0) refuse(invalid_date_message(argv[3]));
  }

  const DateRange dates = normalize_dates(start_date, end_date, today_stamp());
  if (quarantine_mode) {
    run_quarantine_report(log_path, dates.start_date);
  } else {
    run_scan_report(log_path, dates.start_date, dates.end_date);
  }
  return 0;
}
