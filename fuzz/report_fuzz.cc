// A whole run over a fuzzed log: the single-day scan report and the
// quarantine report of one day, then a two-day range report that merges the
// summary file the single day just wrote. Everything is written under the
// scratch root of this build (TRAFFIC_DIR and RANGE_DIR point there).
//
// The day is taken from the log itself, the date of its middle dated line,
// so that mutations of the dates keep reaching the row writer. Run with
// -max_len (64 KiB is plenty) to keep each execution fast.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "io/output_paths.h"
#include "log/date.h"
#include "log/line_reader.h"
#include "log/period_start.h"
#include "report/quarantine_report.h"
#include "report/scan_report.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kMaxLog = 1 << 20;
constexpr DateStamp kDefaultDay = 20240131;

void check(bool ok) {
  if (!ok) std::abort();
}

// The fuzzed log lives in one temporary file for the whole process.
std::string& log_path() {
  static std::string path;
  return path;
}

void remove_log() {
  if (!log_path().empty()) unlink(log_path().c_str());
}

void write_log(const uint8_t* data, size_t size) {
  if (log_path().empty()) {
    char name[] = "/tmp/scanreport-fuzz-log-XXXXXX";
    int fd = mkstemp(name);
    check(fd >= 0);
    close(fd);
    log_path() = name;
    std::atexit(remove_log);
  }
  int fd = open(log_path().c_str(), O_WRONLY | O_TRUNC);
  check(fd >= 0);
  size_t done = 0;
  while (done < size) {
    ssize_t n = write(fd, data + done, size - done);
    check(n > 0);
    done += static_cast<size_t>(n);
  }
  close(fd);
}

// The dates of the log's lines as the period start search sees them.
DateStamp pick_day(const uint8_t* data, size_t size) {
  std::vector<DateStamp> dates;
  std::vector<char> line(LOG_LINE_SIZE);
  size_t start = 0;
  while (start < size) {
    size_t end = start;
    while (end < size && data[end] != '\n') ++end;
    size_t length = std::min(end - start, size_t{LOG_LINE_SIZE - 1});
    std::copy(data + start, data + start + length, line.begin());
    line[length] = '\0';
    DateStamp stamp = line_date(line.data());
    // Days the range walk can name: four-digit years only.
    if (stamp >= 19010101 && stamp <= 99991230) dates.push_back(stamp);
    start = end + 1;
  }
  return dates.empty() ? kDefaultDay : dates[dates.size() / 2];
}

const std::set<std::string> kDayFiles = {
    "quarantine.htm", "report.php", "report.txt", "summary.htm", "summary.txt"};
const std::set<std::string> kRangeFiles = {"report.php", "report.txt",
                                           "summary.htm", "summary.txt"};

std::set<std::string> names_in(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

// Both pages end their table on every path through a run.
bool ends_with_table_end(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)),
                    std::istreambuf_iterator<char>());
  const std::string end = "</table>\n";
  return bytes.size() >= end.size() &&
         bytes.compare(bytes.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxLog) return 0;
  write_log(data, size);
  const DateStamp day = pick_day(data, size);
  const DateStamp after = next_day(day);
  check(after > day);

  const std::string day_dir = std::string(TRAFFIC_DIR) + std::to_string(day);
  const std::string after_dir =
      std::string(TRAFFIC_DIR) + std::to_string(after);
  // A fresh root each time, so that what one input left cannot change what
  // the next one finds.
  fs::remove_all(TRAFFIC_DIR);
  fs::remove_all(RANGE_DIR);
  // Directories that the group may write are refused, whatever the umask
  // of the fuzzing session.
  umask(022);
  fs::create_directories(day_dir);
  fs::create_directories(RANGE_DIR);

  check(run_scan_report(log_path().c_str(), day, 0) == 0);
  check(run_quarantine_report(log_path().c_str(), day) == 0);
  check(ends_with_table_end(day_dir + "/report.php"));
  check(ends_with_table_end(day_dir + "/quarantine.htm"));
  check(names_in(day_dir) == kDayFiles);
  check(run_scan_report(log_path().c_str(), day, after) == 0);
  // A day without its directory writes nothing and says so.
  check(run_quarantine_report(log_path().c_str(), after) == -1);
  check(!fs::exists(after_dir));
  check(names_in(RANGE_DIR) == kRangeFiles);
  check(names_in(TRAFFIC_DIR) == std::set<std::string>{std::to_string(day)});

  return 0;
}
