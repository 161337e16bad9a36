// Runs once per time zone (see CMakeLists.txt): every expectation below must
// hold in each of them, and the zone itself is checked to be really loaded.
#include "log/date.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

TEST(DaysInMonth, GregorianFrom1901) {
  const int lengths_2023[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int month = 1; month <= 12; ++month) {
    EXPECT_EQ(days_in_month(month, 2023), lengths_2023[month - 1]) << month;
    EXPECT_EQ(days_in_month(month, 1900), 0) << month;
  }
  struct Case {
    int month, year, want;
  };
  const Case cases[] = {
      {2, 2024, 29},    {2, 2000, 29},      {2, 2100, 28},
      {2, 1904, 29},    {2, 1901, 28},      {2, 9999, 28},
      {12, 1901, 31},   {12, 1900, 0},      {1, -2024, 0},
      {1, INT_MIN, 0},  {0, 2024, 0},       {13, 2024, 0},
      {-1, 2024, 0},    {INT_MIN, 2024, 0}, {INT_MAX, 2024, 0},
      {2, 2000000, 29},  // far future stays Gregorian
  };
  for (const Case& c : cases) {
    EXPECT_EQ(days_in_month(c.month, c.year), c.want)
        << c.month << "/" << c.year;
  }
}

TEST(ParseDateArg, ExactlyEightDigitsOfAValidDate) {
  for (DateStamp valid : {19010101, 99991231, 20240229, 20000229, 20240131}) {
    EXPECT_EQ(parse_date_arg(std::to_string(valid).c_str()), valid);
  }
  const char* invalid[] = {"19001231", "21000229",  "20230229",  "20241301",
                           "20240001", "20240100",  "20240431",  "00000000",
                           "99999999", "2024013",   "202401311", "2024 131",
                           " 2024013", "2024013 ",  "+2024013",  "-2024013",
                           "2024-1-3", "2024013\n", ""};
  for (const char* text : invalid) {
    EXPECT_EQ(parse_date_arg(text), 0) << '"' << text << '"';
  }
  EXPECT_EQ(parse_date_arg(nullptr), 0);
}

TEST(LogDateToStamp, ThreeHyphenSeparatedRunsInTenCharacters) {
  const struct {
    const char* text;
    DateStamp want;
  } valid[] = {
      {"31-01-2024", 20240131},
      {"29-02-2024", 20240229},
      {"30-04-2024", 20240430},
      {"01-01-1901", 19010101},
      {"1-12-02024", 20241201},
      {"1-1-002024", 20240101},
      {"001-1-2024", 20240101},
      // Five- and six-digit years, up to the last that a stamp can hold.
      {"29-2-20000", 200000229},
      {"1-12-99999", 999991201},
      {"1-1-100000", 1000000101},
      {"1-1-214748", 2147480101},
  };
  for (const auto& c : valid) {
    EXPECT_EQ(log_date_to_stamp(c.text), c.want) << '"' << c.text << '"';
  }
  const char* invalid[] = {
      "29-02-2023",  "31-04-2024", "00-01-2024", "32-01-2024", "01-13-2024",
      "01-00-2024",  "31-12-1900", "31/01/2024", "1-01-2024 ", "1-01-2024/",
      "31-01-2024 ", " 1-01-2024", "1-1-2024",   "31-01-2O24", "+1-01-2024",
      "0101-20240",  "0101202400", "000031-12-", "----------", "",
      "2024-01-31",                 // the year would be read as 31
      "31--1-2024",  "01-01--024",  // doubled hyphen
      "-1-01-2024",                 // leading hyphen
      "1-01-2024-",  "1-2-3-2024",  // a third hyphen
      "1-1-214749",  "1-1-999999",  // the stamp would not fit 32 bits
  };
  for (const char* text : invalid) {
    EXPECT_EQ(log_date_to_stamp(text), 0) << '"' << text << '"';
  }
  EXPECT_EQ(log_date_to_stamp(nullptr), 0);
}

TEST(FormatStamp, DisplayFormWithinElevenBytes) {
  const struct {
    DateStamp stamp;
    const char* want;
  } cases[] = {{20240131, "31-01-2024"},
               {20240301, "01-03-2024"},
               {19010101, "01-01-1901"},
               {99991231, "31-12-9999"},
               {0, ""}};
  for (const auto& c : cases) {
    char out[DISPLAY_DATE_SIZE];
    std::memset(out, 'x', sizeof out);
    format_stamp(c.stamp, out);
    EXPECT_STREQ(out, c.want) << c.stamp;
    if (c.stamp == 0) {
      const char zeros[DISPLAY_DATE_SIZE] = {};
      EXPECT_EQ(std::memcmp(out, zeros, sizeof out), 0);
    }
  }
  // Stamps the parsers never produce: any text, but bounded and terminated.
  const DateStamp odd[] = {99999999, 123, -5,         2147483647, INT_MIN,
                           -1,       1,   1000000101, 20241301,   20240100};
  for (DateStamp stamp : odd) {
    char out[DISPLAY_DATE_SIZE + 1];
    std::memset(out, 'x', sizeof out);
    format_stamp(stamp, out);
    EXPECT_EQ(out[DISPLAY_DATE_SIZE], 'x') << stamp;
    EXPECT_NE(std::memchr(out, '\0', DISPLAY_DATE_SIZE), nullptr) << stamp;
  }
}

TEST(TimeZone, TheNamedZoneIsReallyLoaded) {
  const char* tz = std::getenv("TZ");
  if (tz == nullptr) GTEST_SKIP() << "TZ not set";
  const struct {
    const char* name;
    long january, july;  // UTC offsets in seconds
  } zones[] = {{"UTC", 0, 0},
               {"Europe/Berlin", 3600, 7200},
               {"America/New_York", -18000, -14400},
               {"Australia/Lord_Howe", 39600, 37800}};
  for (const auto& zone : zones) {
    if (std::strcmp(zone.name, tz) != 0) continue;
    time_t january = 1705320000;  // 2024-01-15 12:00 UTC
    time_t july = 1721044800;     // 2024-07-15 12:00 UTC
    struct tm local = {};
    localtime_r(&january, &local);
    EXPECT_EQ(local.tm_gmtoff, zone.january) << tz;
    localtime_r(&july, &local);
    EXPECT_EQ(local.tm_gmtoff, zone.july) << tz;
    return;
  }
  GTEST_SKIP() << "no offsets known for TZ=" << tz;
}

TEST(TodayStamp, IsTheLocalDate) {
  auto local_stamp = [] {
    time_t now = time(nullptr);
    struct tm local = {};
    localtime_r(&now, &local);
    return (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 +
           local.tm_mday;
  };
  DateStamp before = local_stamp();
  DateStamp got = today_stamp();
  DateStamp after = local_stamp();
  EXPECT_TRUE(got == before || got == after) << got;
}

TEST(DayCount, CalendarDaysAcrossDaylightSaving) {
  const struct {
    DateStamp a, b;
    int32_t want;
  } cases[] = {{20240131, 20240301, 30},  {20231231, 20240101, 1},
               {20240301, 20240401, 31},  {20241001, 20241110, 40},
               {20240101, 20241231, 365}, {20240115, 20240115, 0},
               {20230101, 20250101, 731}};
  for (const auto& c : cases) {
    EXPECT_EQ(day_count(c.a, c.b), c.want) << c.a << ".." << c.b;
  }
}

}  // namespace
