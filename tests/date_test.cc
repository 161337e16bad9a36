// Dates and the walk over a range, in several time zones switched inside
// this process. Each zone is checked to be really loaded first: a zone
// that is missing behaves as UTC without a word and would prove nothing.
#include "log/date.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <ctime>
#include <string>
#include <vector>

namespace {

namespace chr = std::chrono;

struct Zone {
  const char* name;
  long january, july;  // UTC offsets on 15 January and 15 July 2024
};
const Zone kZones[] = {{"UTC", 0, 0},
                       {"Europe/Berlin", 3600, 7200},
                       {"America/New_York", -18000, -14400},
                       // Daylight saving adds half an hour here.
                       {"Australia/Lord_Howe", 39600, 37800}};
constexpr time_t kJanuary = 1705320000, kJuly = 1721044800;  // noon UTC

long utc_offset(time_t t) {
  std::tm local{};
  localtime_r(&t, &local);
  return local.tm_gmtoff;
}

class InZone : public testing::TestWithParam<Zone> {
 protected:
  void SetUp() override {
    if (const char* tz = getenv("TZ")) saved_ = tz;
    setenv("TZ", GetParam().name, 1);
    tzset();
    ASSERT_EQ(utc_offset(kJanuary), GetParam().january) << "zone not loaded";
    ASSERT_EQ(utc_offset(kJuly), GetParam().july) << "zone not loaded";
  }
  void TearDown() override {
    saved_.empty() ? unsetenv("TZ") : setenv("TZ", saved_.c_str(), 1);
    tzset();
  }
  std::string saved_;
};

DateStamp stamp_of(chr::sys_days day) {
  const chr::year_month_day d(day);
  return int(d.year()) * 10000 + int(unsigned(d.month())) * 100 +
         int(unsigned(d.day()));
}

// A range report walks from stamp_to_time(first) in steps of a day: every
// step must land on the next calendar day, across both changes of
// daylight saving, and day_count must count the steps.
TEST_P(InZone, RangeWalkNamesEveryCalendarDayOnce) {
  const long standard = std::min(GetParam().january, GetParam().july);
  const DateStamp ranges[][2] = {{20240227, 20240302},
                                 {20240301, 20240410},
                                 {20241001, 20241110},
                                 {20231225, 20250105}};
  for (const auto& [first, last] : ranges) {
    const time_t start = stamp_to_time(first);
    EXPECT_EQ((start + standard) % SECONDS_PER_DAY, 0) << first;
    std::vector<DateStamp> want, got;
    auto civil = [](DateStamp s) {
      return chr::sys_days(chr::year(s / 10000) / (s / 100 % 100) / (s % 100));
    };
    for (auto d = civil(first); d <= civil(last); d += chr::days(1)) {
      want.push_back(stamp_of(d));
    }
    ASSERT_EQ(day_count(first, last) + 1, int32_t(want.size())) << first;
    time_t t = start;
    for (size_t i = 0; i < want.size(); ++i, t += SECONDS_PER_DAY) {
      char text[DAY_TEXT_SIZE];
      time_to_day_text(t, text);
      got.push_back(std::stoi(text));
    }
    EXPECT_EQ(got, want) << first << ".." << last;
  }
}

INSTANTIATE_TEST_SUITE_P(, InZone, testing::ValuesIn(kZones),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           for (char& c : name) c = isalnum(c) ? c : '_';
                           return name;
                         });

// The log's date field: three runs of digits joined by single hyphens,
// ten characters in all, a valid date from 1901 on.
TEST(LogDateToStamp, ThreeRunsInTenCharacters) {
  EXPECT_EQ(log_date_to_stamp("1-12-02024"), 20241201);
  EXPECT_EQ(log_date_to_stamp("1-1-214748"), 2147480101);
  for (const char* text :
       {"29-02-2023", "31-12-1900", "2024-01-31", "1-1-2024", "31--1-2024",
        "-1-01-2024", "1-2-3-2024", "1-1-214749"}) {
    EXPECT_EQ(log_date_to_stamp(text), 0) << text;
  }
}

}  // namespace
