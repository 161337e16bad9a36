// run_scan_report called directly. Rows share one colour flag for the whole
// process, so these tests judge rows by their counts in summary.txt, or
// make days with an even number of rows, never by a row's colour.
#include "report/scan_report.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "io/output_paths.h"
#include "test_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

const std::string kHeaderEnd = "<th align='left' >Quarantine</th>\n</tr>\n";

std::string log_line(const char* date, const char* tail) {
  return std::string("E1,,") + date + ",,09:00:00,,pc1,,10.0.0.1,," + tail +
         "\n";
}

std::string clean(const char* date, const char* file) {
  return log_line(date, (std::string("CLEAN,,") + file).c_str());
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos;
       start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

std::string zero_summary() {
  return read_file(data_path("e2e/no_records/summary.txt"));
}

// Every file under the test root with its bytes.
std::map<std::string, std::string> snapshot() {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(TEST_OUTPUT_ROOT)) {
    std::string name = entry.path().string();
    files[name] = entry.is_regular_file() ? read_file(name) : "<dir>";
  }
  return files;
}

std::string include_line(const std::string& day) {
  return "<?php include(\"" + std::string(TRAFFIC_DIR) + day +
         "/report.txt\") ?>";
}

class ScanReport : public ::testing::Test {
 protected:
  void SetUp() override { reset_output_root(); }
};

// An end date equal to the start date is a single day, also when the
// driver is called without the entry settling the dates first.
TEST_F(ScanReport, TitleLineNamesTheDayOrTheRange) {
  const std::string log =
      temp_file(clean("31-12-2023", "/a") + clean("31-01-2024", "/b"));
  struct Case {
    DateStamp start, end;
    std::string dir, title;
  };
  const Case cases[] = {
      {20240131, 0, day_dir(20240131), "as on 31-01-2024"},
      {20240131, 20240131, day_dir(20240131), "as on 31-01-2024"},
      {20240101, 20240131, range_dir(), "from 01-01-2024 to 31-01-2024"},
  };
  make_day_dir(20240131);
  for (const Case& c : cases) {
    ASSERT_EQ(run_scan_report(log.c_str(), c.start, c.end), 0);
    std::vector<std::string> page = lines_of(read_file(c.dir + "/report.php"));
    ASSERT_GE(page.size(), 13u);
    EXPECT_EQ(
        page[1],
        "<tr><td nowrap colspan='9' align='center'><b>Report Table " + c.title);
  }
}

// Include lines and range sums are compared whole, file by file,
// in the end-to-end tests; these cover what those logs do not reach.
TEST_F(ScanReport, RangeWithoutRecordsHasNoIncludeLines) {
  const std::string log =
      temp_file(clean("28-02-2024", "/a") + clean("05-03-2024", "/b"));
  ASSERT_EQ(run_scan_report(log.c_str(), 20240301, 20240303), 0);
  const std::string page = read_file(range_dir() + "report.php");
  EXPECT_EQ(page.substr(page.find(kHeaderEnd) + kHeaderEnd.size()),
            "</table>\n");
}

// A line too long for the buffer ends the search as if the period had
// begun; what the buffer holds of it becomes the first line of the day.
TEST_F(ScanReport, LongLineBeforeThePeriodStartsIt) {
  const std::string long_path = "/" + std::string(2100, 'x');
  const std::string long_line = clean("03-03-2024", long_path.c_str());
  const std::string log = temp_file(clean("03-03-2024", "/a") + long_line +
                                    clean("04-03-2024", "/b"));
  make_day_dir(20240304);
  ASSERT_EQ(run_scan_report(log.c_str(), 20240304, 0), 0);
  const std::string page = read_file(day_dir(20240304) + "/report.php");
  EXPECT_NE(page.find(include_line("/20240304") + "</table>\n"),
            std::string::npos);
  EXPECT_EQ(read_file(day_dir(20240304) + "/report.txt"), "");
  EXPECT_EQ(read_file(day_dir(20240304) + "/summary.txt"), zero_summary());

  // The same log for a range: the days' files make it as usual.
  make_day_dir(20240305);
  const std::string day_summary =
      read_file(data_path("e2e/week/day_20240301/summary.txt"));
  write_file(day_dir(20240305) + "/summary.txt", day_summary);
  ASSERT_EQ(run_scan_report(log.c_str(), 20240304, 20240305), 0);
  EXPECT_NE(read_file(range_dir() + "report.php")
                .find(include_line("20240304") + "\n" +
                      include_line("20240305") + "\n</table>\n"),
            std::string::npos);
  EXPECT_EQ(read_file(range_dir() + "summary.txt"), day_summary);
}

TEST_F(ScanReport, LongLineOfTheDayIsCutToTheBuffer) {
  const std::string long_path = "/" + std::string(2100, 'y');
  const std::string long_line = clean("04-03-2024", long_path.c_str());
  const std::string log = temp_file(clean("03-03-2024", "/a") + long_line +
                                    clean("04-03-2024", "/b"));
  make_day_dir(20240304);
  ASSERT_EQ(run_scan_report(log.c_str(), 20240304, 0), 0);
  const std::string kept = long_line.substr(0, 2047);
  const std::string file = kept.substr(kept.find("CLEAN,,") + 7);
  EXPECT_NE(read_file(day_dir(20240304) + "/summary.txt")
                .find("[Top 10 File]\n" + file + "=1\n[Summary]"),
            std::string::npos);
}

TEST_F(ScanReport, BareDateLineCountsAsADatedLine) {
  // 05-03-2024 alone is its own date field: the search for 04-03-2024
  // stops there, a later day, so the lines after it are never reached.
  const std::string day_log = temp_file(
      clean("03-03-2024", "/a") + "05-03-2024\n" + clean("04-03-2024", "/b"));
  make_day_dir(20240304);
  ASSERT_EQ(run_scan_report(day_log.c_str(), 20240304, 0), 0);
  const std::string page = read_file(day_dir(20240304) + "/report.php");
  EXPECT_EQ(page.substr(page.find(kHeaderEnd) + kHeaderEnd.size()),
            "</table>\n");
  EXPECT_EQ(read_file(day_dir(20240304) + "/summary.txt"), zero_summary());

  // Inside a range it is a record of the range.
  const std::string range_log =
      temp_file(clean("28-02-2024", "/a") + "02-03-2024\n");
  ASSERT_EQ(run_scan_report(range_log.c_str(), 20240301, 20240303), 0);
  EXPECT_EQ(lines_of(read_file(range_dir() + "report.php")).size(), 16u);
}

TEST_F(ScanReport, LogOutOfDateOrder) {
  const std::string log =
      temp_file(clean("05-03-2024", "/late1") + clean("04-03-2024", "/early") +
                clean("05-03-2024", "/late2"));
  make_day_dir(20240304);
  make_day_dir(20240305);
  ASSERT_EQ(run_scan_report(log.c_str(), 20240304, 0), 0);
  EXPECT_EQ(read_file(day_dir(20240304) + "/summary.txt"), zero_summary());
  ASSERT_EQ(run_scan_report(log.c_str(), 20240305, 0), 0);
  EXPECT_NE(read_file(day_dir(20240305) + "/summary.txt")
                .find("[Top 10 File]\n/late1=1\n[Summary]"),
            std::string::npos);
}

TEST_F(ScanReport, RunningAgainReplacesEveryFile) {
  const std::string log = temp_file(
      clean("31-01-2024", "/b") + log_line("31-01-2024", "ERROR,,Locked,,/c"));
  make_day_dir(20240131);
  for (const char* name :
       {"report.php", "report.txt", "summary.txt", "summary.htm"}) {
    write_file(day_dir(20240131) + "/" + name, std::string(20000, '~'));
  }
  ASSERT_EQ(run_scan_report(log.c_str(), 20240131, 0), 0);
  const auto first = snapshot();
  ASSERT_EQ(run_scan_report(log.c_str(), 20240131, 0), 0);
  EXPECT_EQ(snapshot(), first);
  for (const auto& [name, bytes] : first) {
    EXPECT_EQ(bytes.find('~'), std::string::npos) << name;
  }
  ASSERT_EQ(run_scan_report(log.c_str(), 20240130, 20240201), 0);
  const auto with_range = snapshot();
  ASSERT_EQ(run_scan_report(log.c_str(), 20240130, 20240201), 0);
  EXPECT_EQ(snapshot(), with_range);
}

TEST_F(ScanReport, FailuresTouchNothing) {
  const std::string log = temp_file(clean("31-01-2024", "/b"));
  make_day_dir(20240131);
  for (const char* name : {"report.php", "report.txt", "summary.txt"}) {
    write_file(day_dir(20240131) + "/" + name, "old\n");
  }
  const auto before = snapshot();
  EXPECT_EQ(run_scan_report(nullptr, 20240131, 0), -1);
  EXPECT_EQ(run_scan_report("/nonexistent/scan.log", 20240131, 0), -1);
  EXPECT_EQ(run_scan_report("/nonexistent/scan.log", 20240101, 20240131), -1);
  // A day without its directory: nothing to write into, nothing created.
  EXPECT_EQ(run_scan_report(log.c_str(), 20240130, 0), -1);
  EXPECT_EQ(snapshot(), before);

  fs::remove(range_dir());
  EXPECT_EQ(run_scan_report(log.c_str(), 20240101, 20240131), -1);
  EXPECT_FALSE(fs::exists(range_dir()));
}

TEST_F(ScanReport, UnwritablePageStopsTheRun) {
  const std::string log = temp_file(clean("31-01-2024", "/b"));
  make_day_dir(20240131);
  fs::create_directory(day_dir(20240131) + "/report.php");
  EXPECT_EQ(run_scan_report(log.c_str(), 20240131, 0), -1);
  EXPECT_FALSE(file_exists(day_dir(20240131) + "/summary.txt"));
  EXPECT_FALSE(file_exists(day_dir(20240131) + "/summary.htm"));
}

}  // namespace
