// The quarantine page end to end: real scan logs in, whole pages out,
// each compared with a page written out by hand.
#include "report/quarantine_report.h"

#include <gtest/gtest.h>

#include <string>

#include "test_support.h"

namespace {

using testing_support::data_path;
using testing_support::day_dir;
using testing_support::file_exists;
using testing_support::make_day_dir;
using testing_support::read_file;
using testing_support::reset_output_root;
using testing_support::write_file;

constexpr DateStamp kDay = 20240131;

std::string page_path(DateStamp day) {
  return day_dir(day) + "/quarantine.htm";
}

// An earlier page, longer than any expected one, so that every case also
// shows the page being replaced rather than appended to or overwritten in
// part.
const std::string kOldPage = "old page\n" + std::string(5000, 'o') + "\n";

TEST(QuarantineReport, PagesFromLogs) {
  const struct {
    const char* log;
    const char* expected;
    const char* why;
    DateStamp day = kDay;
  } cases[] = {
      {"normal.log", "normal.htm",
       "mixed results and case, skipped rows, an empty line, paths"},
      {"no_quarantined.log", "empty.htm", "records, none quarantined"},
      {"earlier.log", "empty.htm", "every line before the day"},
      {"jump.log", "empty.htm", "the log jumps past the day"},
      {"jump.log", "jump_next_day.htm",
       "a line of an earlier day after the day ends the listing", 20240201},
      {"empty.log", "empty.htm", "empty log"},
      {"long_day.log", "long_day.htm",
       "a long line of the day ends the search; its head is listed"},
      {"long_earlier.log", "empty.htm",
       "a long line of an earlier day ends the search and the listing"},
      {"no_lf_first.log", "empty.htm",
       "the day's first line is the last, without a line feed"},
      {"no_lf_later.log", "no_lf_later.htm",
       "a later line of the day is the last, without a line feed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.log) + ": " + c.why);
    reset_output_root();
    make_day_dir(c.day);
    write_file(page_path(c.day), kOldPage);
    const std::string log = data_path(std::string("quarantine/") + c.log);
    EXPECT_EQ(run_quarantine_report(log.c_str(), c.day), 0);
    EXPECT_EQ(read_file(page_path(c.day)),
              read_file(data_path(std::string("quarantine/") + c.expected)));
  }
}

TEST(QuarantineReport, SecondRunReplacesThePage) {
  reset_output_root();
  make_day_dir(kDay);
  const std::string normal = data_path("quarantine/normal.log");
  const std::string empty = data_path("quarantine/empty.log");
  ASSERT_EQ(run_quarantine_report(normal.c_str(), kDay), 0);
  ASSERT_EQ(run_quarantine_report(empty.c_str(), kDay), 0);
  EXPECT_EQ(read_file(page_path(kDay)),
            read_file(data_path("quarantine/empty.htm")));
  // The row colours and numbers start afresh in each run.
  ASSERT_EQ(run_quarantine_report(normal.c_str(), kDay), 0);
  EXPECT_EQ(read_file(page_path(kDay)),
            read_file(data_path("quarantine/normal.htm")));
}

TEST(QuarantineReport, LogThatCannotBeOpenedLeavesThePageAlone) {
  reset_output_root();
  make_day_dir(kDay);
  write_file(page_path(kDay), kOldPage);
  const std::string missing = data_path("quarantine/no-such.log");
  EXPECT_EQ(run_quarantine_report(missing.c_str(), kDay), -1);
  EXPECT_EQ(read_file(page_path(kDay)), kOldPage);
}

TEST(QuarantineReport, MissingDayDirectoryIsNotCreated) {
  reset_output_root();
  const std::string log = data_path("quarantine/normal.log");
  EXPECT_EQ(run_quarantine_report(log.c_str(), kDay), -1);
  EXPECT_FALSE(file_exists(day_dir(kDay)));
}

}  // namespace
