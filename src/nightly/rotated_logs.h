// The scan log and the files that log rotation made of it, in the same
// directory: numbered (LOG.1, LOG.2.gz, ...) and dated (LOG-YYYYMMDD,
// LOG-YYYYMMDDHH), each with or without a compression suffix, in any mix.
// These are the pure parts: what a name says, which file is older, and
// which files can hold a given day.
#ifndef SCANREPORT_NIGHTLY_ROTATED_LOGS_H_
#define SCANREPORT_NIGHTLY_ROTATED_LOGS_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "log/date.h"
#include "sys/file_descriptor.h"

enum class Compression { kNone, kGzip, kXz, kZstd, kBzip2 };

struct RotatedName {
  bool dated = false;  // LOG-YYYYMMDD[HH] rather than LOG.N
  // Larger is newer within one scheme: -N for LOG.N, and YYYYMMDDHH for a
  // dated name (a name of eight digits counts as hour 00).
  int64_t age_key = 0;
  Compression compression = Compression::kNone;
};

// What `name` says as a rotated predecessor of the live log `live` (both
// plain file names, no directory). nullopt for the live log itself and for
// any other name: LOG.0, LOG.01, LOG-2024030, LOG-20240230, LOG.1.gz.tmp
// and the like are not rotation's names.
std::optional<RotatedName> parse_rotated_name(std::string_view live,
                                              std::string_view name);

// One file that may hold lines of the log, as it was found when the run
// began. The descriptor pins the file, so a rotation during the run
// neither hides nor doubles it.
struct LogFile {
  std::string name;
  bool live = false;
  RotatedName rotated;
  int64_t mtime_ns = 0;
  off_t size = 0;
  FileDescriptor fd;
  // The date of its first dated line; 0 when it has none or cannot be read.
  DateStamp first_date = 0;
  // Empty when it can be read; otherwise why not.
  std::string unreadable;
};

// Orders `files` oldest first, the live log last. Within one naming scheme
// the names decide; numbered and dated files left side by side by a change
// of the rotation's settings are merged by modification time. Of two files
// of the same name but for the compression suffix (a compression under
// way), only the uncompressed one is kept.
void order_oldest_first(std::vector<LogFile>& files);

// Which files (indices into files ordered oldest first) can hold lines of
// `day`, given each file's first date, the log being in date order: a file
// whose next newer dated file starts before the day ends before it, and a
// file that starts after the day holds none of it. A file without a first
// date (empty, undated or unreadable) is kept when its neighbours allow
// the day. The chosen files are the range [first, last), oldest first.
struct DayFiles {
  size_t first = 0;
  size_t last = 0;
  // The day lies before the oldest dated line that any file holds, and no
  // file that cannot be read could hold it: rotation has dropped it.
  bool gone = false;
  DateStamp oldest_date = 0;  // the oldest dated line's date, when gone
};
DayFiles choose_day_files(const std::vector<LogFile>& files, DateStamp day);

#endif  // SCANREPORT_NIGHTLY_ROTATED_LOGS_H_
