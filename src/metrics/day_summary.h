// A day's summary.txt read strictly, for numbers that leave the host: the
// fleet's counts must be exactly what the day's run wrote, so a file that
// is not in the writer's form is refused as a whole rather than read the
// forgiving way a range report merges it.
#ifndef SCANREPORT_METRICS_DAY_SUMMARY_H_
#define SCANREPORT_METRICS_DAY_SUMMARY_H_

#include <string>

#include "stats/count_table.h"

struct DaySummary {
  // The eight result keys of the file's final Summary section.
  SummaryTally tally;
  // The day's viruses ranked as the summary page ranks them, at most ten.
  RankedList top_viruses;
};

// Reads `path`, a day's summary.txt beneath OUTPUT_ROOT, opened as every
// file of the web tree is (open_regular_file: no symbolic link on the
// way, only root's directories, a regular file with a single link). The
// file must be exactly the writer's form: the headers "[Top 10 Client]",
// "[Top 10 Virus]", "[Top 10 File]" and "[Summary]" in that order, each
// other line "name=count" with a decimal 32-bit count after the last '=',
// the Summary section exactly the eight result keys in key order, and a
// line feed after the last line. Returns true and fills `out`, or false
// with the reason in `error` (`out` is then unspecified).
bool read_day_summary(const char* path, DaySummary& out, std::string& error);

#endif  // SCANREPORT_METRICS_DAY_SUMMARY_H_
