// scanreport.prom: the newest reported day's counts and the nightly run's
// health, for the node exporter's textfile collector, which serves every
// *.prom file of its directory to Prometheus. Names and meanings in
// doc/metrics.md.
#ifndef SCANREPORT_METRICS_METRICS_FILE_H_
#define SCANREPORT_METRICS_METRICS_FILE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "metrics/day_summary.h"

// What a nightly run tells the fleet.
struct NightlyOutcome {
  std::string day;  // yyyymmdd, the newest day written
  // When the last run that wrote every day it was asked for ended, in
  // seconds since the epoch; none when no run has done so yet.
  std::optional<int64_t> last_success_end;
  // Lines of `day` that its report left out: the reading stopped at a line
  // longer than the reader's limit.
  int64_t lines_left_out = 0;
};

// The text of scanreport.prom for `summary`, the summary of the day that
// starts at `day_start` (seconds since the epoch), and `outcome`: HELP and
// TYPE for each family, no sample timestamps. A family without a sample
// (no virus that day, no successful run yet) is left out whole.
std::string format_metrics(const DaySummary& summary, int64_t day_start,
                           const NightlyOutcome& outcome);

// Reads `traffic_dir`/DAY/summary.txt (read_day_summary: `traffic_dir`
// lies beneath OUTPUT_ROOT) and replaces `metrics_dir`/scanreport.prom
// atomically: the text goes to a temporary name in the same directory
// that the collector ignores (it does not end in .prom), is flushed to
// disk, then renamed over the file. The signals that end a run are held
// back meanwhile, so the temporary is gone on every exit but a kill or a
// crash, and a later run removes one so left. Returns 0, or -1 with the
// reason in `*error` (when `error` is not null) and the previous file
// untouched: the day is not a real yyyymmdd date, its summary is missing
// or refused, or the file cannot be written.
int write_metrics_file(const std::string& metrics_dir,
                       const std::string& traffic_dir,
                       const NightlyOutcome& outcome, std::string* error);

#endif  // SCANREPORT_METRICS_METRICS_FILE_H_
