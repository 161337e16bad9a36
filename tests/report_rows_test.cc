// The day's report rows on small logs: whole report.txt contents against
// rows written out by hand, the counts, and the line handed back.
#include "html/report_rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "html/cells.h"
#include "test_support.h"

namespace {

using testing_support::data_path;
using testing_support::make_day_dir;
using testing_support::read_file;
using testing_support::reset_output_root;

constexpr DateStamp kDay = 20240131;

// The row colour runs on for the life of the process, so the colours a
// test sees depend on how many rows earlier tests wrote. Every call goes
// through run_day, which keeps count.
int rows_written = 0;

std::string swap_colours(std::string text) {
  const std::string a = "#bbccdd", b = "#cfe1fd";
  for (size_t at = 0; (at = text.find('#', at)) != std::string::npos;) {
    if (text.compare(at, a.size(), a) == 0) {
      text.replace(at, a.size(), b);
    } else if (text.compare(at, b.size(), b) == 0) {
      text.replace(at, b.size(), a);
    }
    ++at;
  }
  return text;
}

struct Tables {
  CountTable client, virus, file;
  SummaryTally tally;
  Tables() { init_summary_tally(tally); }
};

// The tally after the given counts; every other key stays 0.
SummaryTally tally_with(const CountTable& counts) {
  SummaryTally tally;
  init_summary_tally(tally);
  for (const auto& [key, count] : counts) tally[key] = count;
  return tally;
}

class ReportRows : public testing::Test {
 protected:
  // Expected rows are written as if the test were the first of the
  // process, whose first row is "#bbccdd".
  void SetUp() override {
    flipped_ = rows_written % 2 == 1;
    reset_output_root();
    out_path_ = make_day_dir(kDay) + "/report.txt";
  }

  std::string expected(const std::string& name) const {
    std::string text = read_file(data_path("rows/" + name));
    return flipped_ ? swap_colours(text) : text;
  }

  // Opens the log and takes its first line as the day's first line.
  void open_log(const std::string& name) {
    ASSERT_TRUE(log_.open(data_path("rows/" + name).c_str()));
    std::memset(pending_, 'z', sizeof pending_);
    ASSERT_TRUE(log_.getline(pending_));
  }

  // One call of write_report_rows; returns what it wrote.
  std::string run_day(DateStamp day) {
    OutputFile out;
    EXPECT_TRUE(out.open(out_path_.c_str()));
    EXPECT_EQ(write_report_rows(t_.client, t_.virus, t_.file, t_.tally, log_,
                                out, day, pending_),
              0);
    out.close();
    std::string rows = read_file(out_path_);
    for (size_t at = 0; (at = rows.find("<tr ", at)) != std::string::npos;
         ++at) {
      ++rows_written;
    }
    return rows;
  }

  bool flipped_ = false;
  std::string out_path_;
  LineReader log_;
  char pending_[LOG_LINE_SIZE];
  Tables t_;
};

TEST_F(ReportRows, MixedDayEndingAtTheNextDay) {
  open_log("mixed.log");
  EXPECT_EQ(run_day(kDay), expected("mixed.txt"));
  EXPECT_STREQ(pending_,
               "13,,01-02-2024,,00:00:00,,PC01,,alice,,CLEAN,,"
               "/home/alice/next.txt");
  // The log is left just behind the line handed back.
  char next[LOG_LINE_SIZE];
  ASSERT_TRUE(log_.getline(next));
  EXPECT_STREQ(next,
               "14,,31-01-2024,,23:59:00,,PC01,,alice,,CLEAN,,"
               "/home/alice/late.txt");

  // Full paths as keys, compared exactly: case and trailing blanks count.
  EXPECT_EQ(t_.file, (CountTable{{"/home/alice/a.txt  ", 1},
                                 {"/tmp/eicar.com", 2},
                                 {"/home/alice/A.txt", 1},
                                 {"/var/lib/locked.db ", 1},
                                 {"/mnt/backup/", 1},
                                 {"C:\\Temp\\x.exe", 1},
                                 {"/home/alice/b.exe", 1},
                                 {"/tmp/r.exe", 1}}));
  EXPECT_EQ(t_.client, (CountTable{{"PC01[alice]", 3},
                                   {"PC02[bob]", 3},
                                   {"PC03[carol]", 2},
                                   {"pc01[alice]", 1}}));
  EXPECT_EQ(t_.virus,
            (CountTable{{"EICAR", 2}, {"Trojan.A", 2}, {"W32.Worm", 2}}));
  // The RENAMED row is shown and counted above, but has no tally key.
  EXPECT_EQ(t_.tally, tally_with({{"acterror", 1},
                                  {"clean", 1},
                                  {"cured", 1},
                                  {"deleted", 1},
                                  {"denied", 1},
                                  {"error", 1},
                                  {"excluded", 1},
                                  {"quarantined", 1}}));
}

TEST_F(ReportRows, LastLineWithoutLineFeedIsListed) {
  open_log("end_no_lf.log");
  EXPECT_EQ(run_day(kDay), expected("end_no_lf.txt"));
  EXPECT_STREQ(pending_, "");
  EXPECT_EQ(t_.file,
            (CountTable{{"/home/alice/a.txt", 1}, {"/home/alice/b.txt", 1}}));
  EXPECT_EQ(t_.client, (CountTable{{"PC01[alice]", 2}}));
  EXPECT_EQ(t_.virus, (CountTable{{"EICAR", 1}}));
  EXPECT_EQ(t_.tally, tally_with({{"clean", 1}, {"cured", 1}}));
}

TEST_F(ReportRows, LongLineEndsTheDayAndComesBackCut) {
  open_log("long_end.log");
  EXPECT_EQ(run_day(kDay), expected("long_end.txt"));
  std::string log = read_file(data_path("rows/long_end.log"));
  size_t second = log.find('\n') + 1;
  EXPECT_EQ(std::string(pending_), log.substr(second, LOG_LINE_SIZE - 1));
  EXPECT_TRUE(log_.failed());
  EXPECT_EQ(t_.tally, tally_with({{"clean", 1}}));
}

TEST_F(ReportRows, ColoursRunOnAcrossCallsAndNumbersStartAgain) {
  open_log("two_days.log");
  EXPECT_EQ(run_day(20240130), expected("two_days_1.txt"));
  EXPECT_STREQ(pending_, "1,,31-01-2024,,08:00:00,,PC02,,bob,,CLEAN,,/d2/a");
  // The second day ends at a date that does not convert.
  EXPECT_EQ(run_day(kDay), expected("two_days_2.txt"));
  EXPECT_STREQ(pending_, "1,,3l-01-2024,,08:02:00,,PC02,,bob,,CLEAN,,/d2/c");
  EXPECT_EQ(t_.client, (CountTable{{"PC01[alice]", 3}, {"PC02[bob]", 2}}));
  EXPECT_EQ(t_.tally, tally_with({{"clean", 5}}));
}

TEST_F(ReportRows, FirstLineOfAnotherDateEndsTheDayAtOnce) {
  // The caller's line is the day's first, whatever the log holds next.
  open_log("end_no_lf.log");
  std::strcpy(pending_, "1,,30-01-2024,,10:00:00,,PC01,,alice,,CLEAN,,/x");
  EXPECT_EQ(run_day(kDay), "");
  EXPECT_STREQ(pending_, "1,,30-01-2024,,10:00:00,,PC01,,alice,,CLEAN,,/x");
  EXPECT_TRUE(t_.file.empty());
  EXPECT_EQ(t_.tally, tally_with({}));
}

TEST(PathBasename, LastComponentOnly) {
  const struct {
    const char* path;
    const char* base;
  } cases[] = {
      {"/data/in/report.pdf", "report.pdf"},
      {"/srv/share/tools/", "tools"},
      {"/srv/share/tools//", "tools"},
      {"C:\\Temp\\x.exe", "C:\\Temp\\x.exe"},
      {"plain.txt", "plain.txt"},
      {"/", "/"},
      {"//", "/"},
      {"it's/a b", "a b"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(path_basename(c.path), c.base) << c.path;
  }
}

}  // namespace
