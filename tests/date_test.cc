// Dates: the log's date field, and the walk over a range against days
// worked out without it: calendar days from UTC noons, and whether a local
// day exists from localtime at every hour around the range. Random ranges
// of up to 60 days from 1990 to 2025, plus the ranges where a walk in fixed
// steps of seconds went wrong, in zones whose offsets change in every way
// the time-zone database knows. Each zone is checked to be really loaded
// first: a missing zone behaves as UTC without a word and proves nothing.
#include "log/date.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

DateStamp date_at(time_t t, bool local) {
  struct tm d;
  local ? localtime_r(&t, &d) : gmtime_r(&t, &d);
  return (d.tm_year + 1900) * 10000 + (d.tm_mon + 1) * 100 + d.tm_mday;
}

TEST(RangeWalk, EachLocalCalendarDayOnceInEveryZone) {
  const struct {
    const char* name;
    long july_2024_offset;  // proves that the zone is really loaded
  } zones[] = {{"Europe/Dublin", 3600},        {"Africa/Casablanca", 3600},
               {"Europe/Volgograd", 10800},    {"Europe/Moscow", 10800},
               {"Asia/Almaty", 18000},         {"Pacific/Apia", 46800},
               {"Australia/Lord_Howe", 37800}, {"UTC", 0},
               {"America/New_York", -14400},   {"Asia/Kolkata", 19800}};
  const char* saved_tz = std::getenv("TZ");
  const std::string old_tz = saved_tz != nullptr ? saved_tz : "";
  std::mt19937 random(13);
  for (const auto& zone : zones) {
    setenv("TZ", zone.name, 1);
    tzset();
    struct tm july;
    const time_t july_2024 = 1721044800;
    ASSERT_EQ(localtime_r(&july_2024, &july)->tm_gmtoff, zone.july_2024_offset)
        << zone.name;
    // Days since 1970: 2024-02-27, 2024-02-28, 2024-10-25, 2011-12-15.
    std::vector<std::pair<long, long>> ranges = {
        {19780, 40}, {19781, 40}, {20021, 40}, {15323, 40}};
    for (int i = 0; i < 400; ++i) {
      ranges.emplace_back(
          std::uniform_int_distribution<long>(7305, 20089)(random),
          std::uniform_int_distribution<long>(1, 60)(random));
    }
    for (auto [first_day, length] : ranges) {
      const time_t first_noon = first_day * 86400 + 43200;
      std::set<DateStamp> local;  // every local date that some hour is on
      for (long hour = -40; hour <= length * 24 + 40; ++hour) {
        local.insert(date_at(first_noon + hour * 3600, true));
      }
      std::vector<DateStamp> want;
      for (long i = 0; i <= length; ++i) {
        DateStamp day = date_at(first_noon + i * 86400, false);
        if (local.count(day) != 0) want.push_back(day);
      }
      DateStamp first = date_at(first_noon, false);
      DateStamp last = date_at(first_noon + length * 86400, false);
      ASSERT_EQ(day_count(first, last), length) << zone.name << " " << first;
      ASSERT_EQ(local_days(first, last), want)
          << zone.name << " " << first << ".." << last;
    }
  }
  saved_tz != nullptr ? setenv("TZ", old_tz.c_str(), 1) : unsetenv("TZ");
  tzset();
}

// Both date forms accept exactly the real dates from 1901 on: the month
// lengths, the leap years with their century rule, and the first year.
TEST(DateForms, RealDatesOnly) {
  // The log form, from which the argument form is made, and the stamp
  // that both must give (0: no date).
  const std::pair<std::string, DateStamp> kDates[] = {
      {"31-01-2024", 20240131}, {"29-02-2024", 20240229},
      {"29-02-2023", 0},        {"29-02-2100", 0},
      {"29-02-2000", 20000229}, {"31-08-2024", 20240831},
      {"31-04-2024", 0},        {"30-04-2024", 20240430},
      {"00-01-2024", 0},        {"01-13-2024", 0},
      {"01-01-1901", 19010101}, {"31-12-1900", 0}};
  for (const auto& [logged, stamp] : kDates) {
    const std::string argument =
        logged.substr(6) + logged.substr(3, 2) + logged.substr(0, 2);
    EXPECT_EQ(parse_date_arg(argument.c_str()), stamp) << argument;
    EXPECT_EQ(log_date_to_stamp(logged.c_str()), stamp) << logged;
  }
}

// The argument is exactly eight digits; the log's date field is three runs
// of digits joined by single hyphens, ten characters in all.
TEST(DateForms, MalformedTexts) {
  EXPECT_EQ(log_date_to_stamp("1-12-02024"), 20241201);
  EXPECT_EQ(log_date_to_stamp("1-1-214748"), 2147480101);
  for (const char* text :
       {"2024013", "202401310", "20240131x", "2024013/", "2024-131", ""}) {
    EXPECT_EQ(parse_date_arg(text), 0) << text;
  }
  for (const char* text :
       {"2024-01-31", "1-1-2024", "31--1-2024", "-1-01-2024", "1-2-3-2024",
        "1-2-2024-5", "3a-01-2024", "31/01/2024", "1-1-214749", ""}) {
    EXPECT_EQ(log_date_to_stamp(text), 0) << text;
  }
  EXPECT_EQ(parse_date_arg(nullptr), 0);
  EXPECT_EQ(log_date_to_stamp(nullptr), 0);
}

}  // namespace
