#include "cli/command_line.h"

#include <gtest/gtest.h>

TEST(NormalizeDates, ClampsOrdersAndFoldsEqualDates) {
  struct Case {
    DateStamp start, end, today;
    DateStamp want_start, want_end;
  };
  const Case cases[] = {
      {20241120, 20241125, 20241116, 20241116, 0},  // both clamp, then equal
      {20241201, 20240101, 20241116, 20240101, 20241116},  // clamp, swap
      {20250101, 0, 20241116, 20241116, 0},                // single clamps
      {20240131, 20240101, 20241116, 20240101, 20240131},  // swapped
      {20240101, 20240131, 20241116, 20240101, 20240131},  // kept
      {20240301, 20240301, 20241116, 20240301, 0},         // same day twice
      {20240301, 0, 20241116, 20240301, 0},                // end 0 stays 0
  };
  for (const Case& c : cases) {
    DateRange got = normalize_dates(c.start, c.end, c.today);
    EXPECT_EQ(got.start_date, c.want_start) << c.start << ".." << c.end;
    EXPECT_EQ(got.end_date, c.want_end) << c.start << ".." << c.end;
  }
}

TEST(QuarantineSelector, OnlyAnUpperCaseQFirst) {
  EXPECT_TRUE(is_quarantine_selector("Q"));
  EXPECT_TRUE(is_quarantine_selector("Quarantine"));
  EXPECT_TRUE(is_quarantine_selector("Qx"));
  EXPECT_FALSE(is_quarantine_selector("q"));
  EXPECT_FALSE(is_quarantine_selector("/var/log/Q"));
  EXPECT_FALSE(is_quarantine_selector(""));
}

TEST(Messages, AreExactBytes) {
  EXPECT_EQ(usage_message("scanreport"),
            "Usage: scanreport <rpt_file> <report_date1> [report_date2]\n"
            "Date format must be yyyymmdd\n");
  EXPECT_EQ(missing_log_message("/no/log"),
            "Report file (/no/log) missing or permission denied\n");
  EXPECT_EQ(invalid_date_message("2024-1-31"),
            "Invalid date stamp 2024-1-31\n");
  EXPECT_STREQ(ROOT_REQUIRED_MESSAGE, "Requires root permission\n");
}
