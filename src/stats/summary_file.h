// The day summary file "summary.txt": a day's (or a range's) full lists and
// result counts, kept so that range reports can add days up without reading
// the scan log again. Format in doc/summary-file.md.
#ifndef SCANREPORT_STATS_SUMMARY_FILE_H_
#define SCANREPORT_STATS_SUMMARY_FILE_H_

#include <istream>

#include "stats/count_table.h"

// Longer than any line the writer makes: a name is at most a log line of
// 2047 bytes and a count at most eleven characters. A longer line did not
// come from a run of this tool.
inline constexpr int LONGEST_SUMMARY_LINE = 4096;

// Writes `out_dir`/summary.txt (replacing it): the client, virus and file
// lists front to back, then the tally in key order. Returns 0, or -1 when
// the file cannot be opened or its path does not fit PATH_BUFFER_SIZE
// (nothing is written then).
int write_summary_text(const RankedList& client_list,
                       const RankedList& virus_list,
                       const RankedList& file_list, const SummaryTally& tally,
                       const char* out_dir);

// Reads a summary file from `in` to its end and adds every entry into the
// table its section header selects. Tolerates any bytes: malformed lines
// become entries by the same rules, entry lines before the first recognised
// header are skipped, and a stream that fails stops the reading without
// handling any line twice. A line longer than 4096 bytes, which no summary
// file written by this tool holds, ends the reading there. Always returns 0.
int merge_summary_text(CountTable& client_table, CountTable& virus_table,
                       CountTable& file_table, SummaryTally& tally,
                       std::istream& in);

#endif  // SCANREPORT_STATS_SUMMARY_FILE_H_
