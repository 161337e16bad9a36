// The lines that the reports of one day are made from, gathered from the
// log's files into one private file for the report drivers.
#ifndef SCANREPORT_NIGHTLY_DAY_INPUT_H_
#define SCANREPORT_NIGHTLY_DAY_INPUT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "log/date.h"
#include "nightly/rotated_logs.h"
#include "sys/file_descriptor.h"

struct DayInput {
  std::vector<std::string> files_read;
  int64_t lines_of_day = 0;  // records of the day the reports show
  int64_t infected = 0;      // of them, found infected
  // A line too long for the program's reader ended the reports early:
  // where it is, and how many lines of the day (itself included when it is
  // of the day) the reports do not show.
  bool cut = false;
  std::string cut_file;
  int64_t cut_line = 0;
  int64_t lines_left_out = 0;
  // Non-empty when the day's lines could not all be read.
  std::string error;
};

// Writes into `out` (a descriptor of an empty file) the part of the log
// that the reports of `day` read: the files [first, last) of `files`
// (oldest first, as choose_day_files gives them) joined in order, from
// the line where the program's search for the day stops to the line where
// its walk over the day stops. The report drivers, run on `out`, then
// write byte for byte the reports that they write from the whole log
// never rotated, but for one thing: a line too long for the reader that
// lies before the day, which would end the reading of every later day,
// is passed over like the other lines before it. A rotated file's last
// line without a line feed is taken as ended; only the newest file's last
// line stands as it is.
DayInput write_day_input(const std::vector<LogFile>& files, size_t first,
                         size_t last, DateStamp day, const FileDescriptor& out);

#endif  // SCANREPORT_NIGHTLY_DAY_INPUT_H_
