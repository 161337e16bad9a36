// The real program run as an administrator runs it: reports of single days
// and of ranges over them, the quarantine page, and every refusal of the
// command line. Expected pages are in tests/data/e2e/; their include paths
// hold @TRAFFIC_DIR@ in place of the traffic directory of the test root.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using namespace testing_support;
namespace fs = std::filesystem;

const std::string kTrafficDir = std::string(TEST_OUTPUT_ROOT) + "traffic/";
const char* const kDayFiles[] = {"report.php", "report.txt", "summary.txt",
                                 "summary.htm"};

std::string replace_all(std::string text, const std::string& from,
                        const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string expected(const std::string& relative) {
  return replace_all(read_file(data_path("e2e/" + relative)), "@TRAFFIC_DIR@",
                     kTrafficDir);
}

// Compares each file of `dir` with e2e/<case_dir>/<same name>.
void expect_files(const std::string& dir, const std::string& case_dir,
                  const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    SCOPED_TRACE(case_dir + "/" + name);
    ASSERT_TRUE(file_exists(dir + "/" + name));
    EXPECT_EQ(read_file(dir + "/" + name), expected(case_dir + "/" + name));
  }
}

// Every path under the test root, relative to it, in order.
std::vector<std::string> output_tree() {
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(TEST_OUTPUT_ROOT)) {
    paths.push_back(fs::relative(entry.path(), TEST_OUTPUT_ROOT).string());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

const std::vector<std::string> kEmptyRoot = {"range", "traffic"};

void run_ok(const std::vector<std::string>& args) {
  RunResult run = run_scanreport(args);
  EXPECT_EQ(run.exit_status, 0);
  EXPECT_EQ(run.standard_output, "");
  EXPECT_EQ(run.standard_error, "");
}

int local_today() {
  std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  return (parts.tm_year + 1900) * 10000 + (parts.tm_mon + 1) * 100 +
         parts.tm_mday;
}

std::string display(int stamp) {
  char text[16];
  std::snprintf(text, sizeof text, "%02d-%02d-%04d", stamp % 100,
                stamp / 100 % 100, stamp / 10000);
  return text;
}

// The days from `first` to `last`, both included, as yyyymmdd texts.
std::vector<std::string> days_between(int first, int last) {
  using namespace std::chrono;
  auto civil = [](int stamp) {
    return sys_days{year{stamp / 10000} / (stamp / 100 % 100) / (stamp % 100)};
  };
  std::vector<std::string> texts;
  for (sys_days d = civil(first); d <= civil(last); d += days{1}) {
    year_month_day ymd{d};
    texts.push_back(std::to_string(int{ymd.year()} * 10000 +
                                   int(unsigned{ymd.month()}) * 100 +
                                   int(unsigned{ymd.day()})));
  }
  return texts;
}

class EndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "the program serves root only";
    reset_output_root();
  }
  const std::string week_log_ = data_path("e2e/week/scan.log");
};

TEST_F(EndToEnd, DaysThenARangeOverThem) {
  for (int day : {20240227, 20240229, 20240301}) {
    make_day_dir(day);
    run_ok({week_log_, std::to_string(day)});
  }
  expect_files(day_dir(20240227), "week/day_20240227",
               {std::begin(kDayFiles), std::end(kDayFiles)});
  expect_files(day_dir(20240229), "week/day_20240229",
               {"report.txt", "summary.txt"});
  expect_files(day_dir(20240301), "week/day_20240301", {"summary.txt"});

  // 20240228 has lines in the log but no report of its own, and 20240302
  // has no directory: both only get their include lines. Given later date
  // first, the dates still make the range.
  run_ok({week_log_, "20240302", "20240227"});
  expect_files(range_dir(), "week/range",
               {"report.php", "summary.txt", "summary.htm"});
  EXPECT_EQ(read_file(range_dir() + "report.txt"), "");
  EXPECT_FALSE(file_exists(day_dir(20240228)));

  // A second run replaces the files with the same text.
  run_ok({week_log_, "20240227", "20240302"});
  expect_files(range_dir(), "week/range",
               {"report.php", "summary.txt", "summary.htm"});
}

TEST_F(EndToEnd, SameDateTwiceIsOneDay) {
  make_day_dir(20240227);
  run_ok({week_log_, "20240227", "20240227"});
  expect_files(day_dir(20240227), "week/day_20240227",
               {std::begin(kDayFiles), std::end(kDayFiles)});
  EXPECT_EQ(
      output_tree(),
      (std::vector<std::string>{
          "range", "traffic", "traffic/20240227", "traffic/20240227/report.php",
          "traffic/20240227/report.txt", "traffic/20240227/summary.htm",
          "traffic/20240227/summary.txt"}));
}

TEST_F(EndToEnd, QuarantinePageOfADay) {
  for (const char* selector : {"Q", "Quarantine", "Qx"}) {
    SCOPED_TRACE(selector);
    reset_output_root();
    make_day_dir(20240229);
    run_ok({selector, week_log_, "20240229"});
    expect_files(day_dir(20240229), "week/day_20240229", {"quarantine.htm"});
    EXPECT_EQ(output_tree(),
              (std::vector<std::string>{"range", "traffic", "traffic/20240229",
                                        "traffic/20240229/quarantine.htm"}));
  }
}

TEST_F(EndToEnd, SampleLogDaysAndRange) {
  const std::string log = data_path("sample/scan.log");
  for (int day : {20240304, 20240305, 20240306, 20240307}) {
    make_day_dir(day);
    run_ok({log, std::to_string(day)});
    run_ok({"Q", log, std::to_string(day)});
    expect_files(day_dir(day), "sample/day_" + std::to_string(day),
                 {"summary.txt"});
  }
  expect_files(day_dir(20240306), "sample/day_20240306",
               {"report.php", "report.txt", "summary.htm", "quarantine.htm"});
  run_ok({log, "20240304", "20240307"});
  expect_files(range_dir(), "sample/range",
               {"report.php", "summary.txt", "summary.htm"});
}

TEST_F(EndToEnd, ReportsWithoutRecords) {
  const std::string before =
      "E1,,03-03-2024,,23:00:00,,pc1,,10.0.0.1,,CLEAN,,/home/u/a.txt\n";
  const std::string on_the_day =
      "E1,,04-03-2024,,08:00:00,,pc1,,10.0.0.1,,CLEAN,,/home/u/b.txt";
  const std::string later =
      "E1,,05-03-2024,,08:00:00,,pc1,,10.0.0.1,,CLEAN,,/home/u/c.txt\n";
  struct Case {
    const char* name;
    std::string log;
  };
  const Case cases[] = {
      {"empty log", ""},
      {"all dates before the day", before + before},
      {"first line after it of a later day", before + later},
      {"day's only line last, without line feed", before + on_the_day},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    reset_output_root();
    make_day_dir(20240304);
    run_ok({temp_file(c.log), "20240304"});
    expect_files(day_dir(20240304), "no_records",
                 {"report.php", "summary.txt", "summary.htm"});
    EXPECT_EQ(read_file(day_dir(20240304) + "/report.txt"), "");
  }
}

TEST_F(EndToEnd, MissingOutputDirectoryWritesNothing) {
  run_ok({week_log_, "20240227"});
  EXPECT_EQ(output_tree(), kEmptyRoot);

  fs::remove(range_dir());
  run_ok({week_log_, "20240227", "20240301"});
  EXPECT_EQ(output_tree(), std::vector<std::string>{"traffic"});
}

TEST_F(EndToEnd, FutureDatesBecomeToday) {
  const int today = local_today();
  make_day_dir(today);
  // The week log ends long before today: today's page has no records.
  const std::string today_page = replace_all(expected("no_records/report.php"),
                                             "04-03-2024", display(today));
  for (const auto& dates : std::vector<std::vector<std::string>>{
           {"20991231"}, {"20991231", "20991130"}}) {
    std::vector<std::string> args = {week_log_};
    args.insert(args.end(), dates.begin(), dates.end());
    run_ok(args);
    EXPECT_EQ(read_file(day_dir(today) + "/report.php"), today_page);
    EXPECT_EQ(read_file(day_dir(today) + "/summary.txt"),
              expected("no_records/summary.txt"));
    EXPECT_FALSE(file_exists(range_dir() + "report.php"));
  }

  // One date in the future: the range runs from the other one to today.
  run_ok({week_log_, "20991231", "20240301"});
  if (local_today() != today) GTEST_SKIP() << "the date changed meanwhile";
  std::string page =
      replace_all(expected("no_records/report.php"), "as on 04-03-2024",
                  "from 01-03-2024 to " + display(today));
  std::string includes;
  for (const std::string& day : days_between(20240301, today)) {
    includes += "<?php include(\"" + kTrafficDir + day + "/report.txt\") ?>\n";
  }
  page.insert(page.rfind("</table>"), includes);
  EXPECT_EQ(read_file(range_dir() + "report.php"), page);
  EXPECT_EQ(read_file(range_dir() + "summary.txt"),
            expected("no_records/summary.txt"));
}

std::string usage() {
  return std::string("Usage: ") + SCANREPORT_TESTBIN +
         " <rpt_file> <report_date1> [report_date2]\n"
         "Date format must be yyyymmdd\n";
}

TEST_F(EndToEnd, RefusalsGiveOneMessageAndStatusOne) {
  const std::string log = week_log_;
  const std::string missing = "/nonexistent/scan.log";
  const std::string no_log =
      "Report file (" + missing + ") missing or permission denied\n";
  auto bad_date = [](const std::string& text) {
    return "Invalid date stamp " + text + "\n";
  };
  make_day_dir(20240301);
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const Case cases[] = {
      {{}, usage()},
      {{log}, usage()},
      {{log, "20240301", "20240302", "20240303"}, usage()},
      {{"Q", log, "20240301", "20240302"}, usage()},
      {{missing, "20240301"}, no_log},
      {{missing, "abcdefgh"}, no_log},
      {{"Q", missing, "20240301"}, no_log},
      {{"Q", missing}, no_log},
      {{log, "20240230"}, bad_date("20240230")},
      {{log, "2024131"}, bad_date("2024131")},
      {{log, "2024-1-31"}, bad_date("2024-1-31")},
      {{log, "abcdefgh"}, bad_date("abcdefgh")},
      {{log, "20240301", "20240230"}, bad_date("20240230")},
      {{log, "2024131", "20240230"}, bad_date("2024131")},
      {{"Q", log, "20240230"}, bad_date("20240230")},
      // Only an upper-case Q selects the quarantine page; q is a log path.
      {{"q", log, "20240301"},
       "Report file (q) missing or permission denied\n"},
      // A log named Q... is taken for the selector, the date for the log.
      {{"Q.log", "20240301"},
       "Report file (20240301) missing or permission denied\n"},
  };
  for (const Case& c : cases) {
    std::string shown;
    for (const std::string& arg : c.args) shown += " '" + arg + "'";
    SCOPED_TRACE(shown);
    RunResult run = run_scanreport(c.args);
    EXPECT_EQ(run.exit_status, 1);
    EXPECT_EQ(run.standard_error, c.message);
    EXPECT_EQ(run.standard_output, "");
  }
  EXPECT_EQ(output_tree(),
            (std::vector<std::string>{"range", "traffic", "traffic/20240301"}));
}

// Three words name no date: the log is checked, then the missing date is
// refused in a single line, whatever stands for it.
TEST_F(EndToEnd, QuarantineWithoutDateIsAnInvalidDate) {
  RunResult run = run_scanreport({"Q", week_log_});
  EXPECT_EQ(run.exit_status, 1);
  const std::string prefix = "Invalid date stamp ";
  ASSERT_GE(run.standard_error.size(), prefix.size() + 1);
  EXPECT_EQ(run.standard_error.substr(0, prefix.size()), prefix);
  EXPECT_EQ(run.standard_error.find('\n'), run.standard_error.size() - 1);
  EXPECT_EQ(output_tree(), kEmptyRoot);
}

TEST_F(EndToEnd, NonRootCallerIsRefusedBeforeAnythingElse) {
  make_day_dir(20240227);
  for (const auto& args : std::vector<std::vector<std::string>>{
           {}, {week_log_, "20240227"}, {"/nonexistent/scan.log", "x"}}) {
    RunResult run = run_scanreport(args, 65534);
    EXPECT_EQ(run.exit_status, 1);
    EXPECT_EQ(run.standard_error, "Requires root permission\n");
    EXPECT_EQ(run.standard_output, "");
  }
  EXPECT_EQ(output_tree(),
            (std::vector<std::string>{"range", "traffic", "traffic/20240227"}));
}

}  // namespace
