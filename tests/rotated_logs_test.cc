// Rotated names, their order, and which files can hold a day: as tables.
#include "nightly/rotated_logs.h"

#include <gtest/gtest.h>

namespace {

struct NameCase {
  const char* name;
  bool rotated;
  bool dated = false;
  int64_t age_key = 0;
  Compression compression = Compression::kNone;
};

constexpr NameCase kNames[] = {
    {"scan.log.1", true, false, -1, Compression::kNone},
    {"scan.log.2.gz", true, false, -2, Compression::kGzip},
    {"scan.log.12.xz", true, false, -12, Compression::kXz},
    {"scan.log.3.zst", true, false, -3, Compression::kZstd},
    {"scan.log.4.bz2", true, false, -4, Compression::kBzip2},
    {"scan.log-20240307", true, true, 2024030700, Compression::kNone},
    {"scan.log-2024030713.gz", true, true, 2024030713, Compression::kGzip},
    {"scan.log", false},
    {"scan.log.", false},
    {"scan.log.0", false},
    {"scan.log.01", false},
    {"scan.log.gz", false},
    {"scan.log.1.gz.tmp", false},
    {"scan.log.1.gz.gz", false},
    {"scan.log.-1", false},
    {"scan.log.1x", false},
    {"scan.log-2024030", false},
    {"scan.log-20240230", false},    // no such date
    {"scan.log-2024030724", false},  // no such hour
    {"scan.log-202403071", false},   // nine digits
    {"scan.log-20240307-1709856000", false},
    {"scan.log_20240307", false},
    {"scan.logs.1", false},
    {"other.log.1", false},
    {"scan.log.1234567890", false},  // no count of files
};

TEST(RotatedNames, AsTheyAreWritten) {
  for (const NameCase& c : kNames) {
    SCOPED_TRACE(c.name);
    const auto parsed = parse_rotated_name("scan.log", c.name);
    ASSERT_EQ(parsed.has_value(), c.rotated);
    if (!parsed) continue;
    EXPECT_EQ(parsed->dated, c.dated);
    EXPECT_EQ(parsed->age_key, c.age_key);
    EXPECT_EQ(parsed->compression, c.compression);
  }
}

LogFile file(const char* name, int64_t mtime = 0, DateStamp first = 0) {
  LogFile f;
  f.name = name;
  f.live = std::string(name) == "scan.log";
  if (!f.live) f.rotated = *parse_rotated_name("scan.log", name);
  f.mtime_ns = mtime;
  f.first_date = first;
  return f;
}

std::string names(const std::vector<LogFile>& files) {
  std::string text;
  for (const LogFile& f : files) text += f.name + " ";
  return text;
}

TEST(RotatedNames, OldestFirst) {
  // Numbered by number, dated by date, the two kinds merged by time; of a
  // file being compressed, the uncompressed copy.
  const std::pair<const char*, int64_t> found[] = {
      {"scan.log", 9},           {"scan.log.1", 5},    {"scan.log-20240307", 7},
      {"scan.log.10.gz", 1},     {"scan.log.2.gz", 4}, {"scan.log.2", 3},
      {"scan.log-2024030612", 6}};
  std::vector<LogFile> files;
  for (const auto& [name, mtime] : found) files.push_back(file(name, mtime));
  order_oldest_first(files);
  EXPECT_EQ(names(files),
            "scan.log.10.gz scan.log.2 scan.log.1 scan.log-2024030612 "
            "scan.log-20240307 scan.log ");
}

struct ChoiceCase {
  const char* what;
  std::vector<DateStamp> first_dates;  // oldest first; 0: no dated line
  DateStamp day;
  size_t first, last;
  bool gone;
  int unreadable = -1;  // the index of a file that cannot be read
};

// Files oldest first by their first dated line (0: none), the day, the
// files chosen [first, last), whether the day is gone; a file that cannot
// be read. A file may end with the next day's first lines: a rotation runs
// late, or by size.
// clang-format off
const ChoiceCase kChoices[] = {
  {"midnight: yesterday in .1, perhaps .2", {20240305, 20240306, 20240307}, 20240306, 0, 2, false},
  {"midnight: not the day before that", {20240304, 20240305, 20240306, 20240307}, 20240306, 1, 3, false},
  {"by size: the day over three files", {20240305, 20240306, 20240306, 20240307}, 20240306, 0, 3, false},
  {"the live log, today's first line", {20240305, 20240306}, 20240306, 0, 2, false},
  {"after the newest line: the live log", {20240305, 20240306}, 20240308, 1, 2, false},
  {"an empty live log after copytruncate", {20240305, 20240306, 0}, 20240306, 0, 3, false},
  {"an empty file between two of the day", {20240306, 0, 20240306}, 20240306, 0, 3, false},
  {"an empty file past the day", {20240305, 20240307, 0}, 20240305, 0, 1, false},
  {"before the oldest line: gone", {20240305, 20240306}, 20240304, 0, 0, true},
  {"before an empty oldest file: gone", {0, 20240305}, 20240304, 0, 1, true},
  {"an unreadable oldest file may hold it", {0, 20240305}, 20240304, 0, 1, false, 0},
  {"no dated line anywhere: the empty report", {0, 0}, 20240304, 0, 2, false},
};
// clang-format on

TEST(DayFiles, ThoseThatCanHoldTheDay) {
  for (const ChoiceCase& c : kChoices) {
    SCOPED_TRACE(c.what);
    std::vector<LogFile> files(c.first_dates.size());
    for (size_t i = 0; i < files.size(); ++i) {
      files[i].first_date = c.first_dates[i];
      if (static_cast<int>(i) == c.unreadable) files[i].unreadable = "no";
    }
    const DayFiles chosen = choose_day_files(files, c.day);
    EXPECT_EQ(chosen.gone, c.gone);
    if (!c.gone) {
      EXPECT_EQ(chosen.first, c.first);
      EXPECT_EQ(chosen.last, c.last);
    }
  }
}

}  // namespace
