// Date parsing is strict because a date decides which lines a report shows:
// anything that is not exactly a valid date becomes 0, never a guess. The
// day arithmetic is calendar arithmetic, blind to the time zone, because
// steps of fixed seconds between local times go wrong wherever a zone's
// offset changes by other than a daylight-saving hour added in summer (Irish
// winter time, Moroccan Ramadan time, a zone moving its standard offset).
// The zone is asked only whether a date happened there at all.
#include "log/date.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): calendar order
int days_in_month(int month, int year) {
  if (year <= 1900) return 0;
  unsigned m = static_cast<unsigned>(month);
  if (m > 12) return 0;
  if ((0x15AAu >> m) & 1u) return 31;
  if ((0x0A50u >> m) & 1u) return 30;
  if (m == 2) {
    if (year % 400 == 0) return 29;
    if (year % 4 != 0) return 28;
    if (year % 100 == 0) return 28;
    return 29;
  }
  return 0;
}

namespace {

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): calendar order
bool is_valid_day(long long day, long long month, long long year) {
  if (month < -2147483647LL || month > 2147483647LL) return false;
  if (year < -2147483647LL || year > 2147483647LL) return false;
  int days = days_in_month(static_cast<int>(month), static_cast<int>(year));
  return day >= 1 && days != 0 && day <= days;
}

}  // namespace

DateStamp parse_date_arg(const char* text) {
  if (text == nullptr || std::strlen(text) != 8) return 0;
  if (std::strspn(text, "0123456789") != 8) return 0;
  DateStamp value = 0;
  for (int i = 0; i < 8; ++i) value = value * 10 + (text[i] - '0');
  if (!is_valid_day(value % 100, value % 10000 / 100, value / 10000)) return 0;
  return value;
}

namespace {

// The number at `text` as atoi reads it over digits and hyphens: an optional
// leading minus, then digits. Runs are at most ten characters long, so a
// 64-bit value cannot overflow.
long long read_number(const char* text) {
  bool negative = *text == '-';
  if (negative) ++text;
  long long value = 0;
  while (*text >= '0' && *text <= '9') value = value * 10 + (*text++ - '0');
  return negative ? -value : value;
}

}  // namespace

DateStamp log_date_to_stamp(const char* text) {
  if (text == nullptr || std::strlen(text) != 10) return 0;
  if (std::strspn(text, "0123456789-") != 10) return 0;
  long long parts[3];
  int count = 0;
  const char* position = text;
  for (;;) {
    parts[count++] = read_number(position);
    if (count == 3) break;
    const char* hyphen = std::strchr(position, '-');
    if (hyphen == nullptr) break;
    position = hyphen + 1;
  }
  if (count < 3 || std::strchr(position, '-') != nullptr) return 0;
  long long day = parts[0], month = parts[1], year = parts[2];
  if (!is_valid_day(day, month, year)) return 0;
  long long stamp = year * 10000 + month * 100 + day;
  if (stamp > 2147483647LL) return 0;
  return static_cast<DateStamp>(stamp);
}

void format_stamp(DateStamp stamp, char* out) {
  if (stamp == 0) {
    std::memset(out, 0, DISPLAY_DATE_SIZE);
    return;
  }
  format_stamp_as(stamp, "%d-%m-%Y", out);
}

void format_stamp_as(DateStamp stamp, const char* format, char* out) {
  char digits[16];  // holds any int32_t, so the text is never cut
  (void)std::snprintf(digits, sizeof digits, "%d", stamp);
  struct tm broken_down = {};
  strptime(digits, "%Y%m%d", &broken_down);
  std::memset(out, 0, DISPLAY_DATE_SIZE);
  if (std::strftime(out, DISPLAY_DATE_SIZE, format, &broken_down) == 0) {
    out[0] = '\0';  // a year too wide for the buffer
  }
}

DateStamp today_stamp() {
  time_t now = time(nullptr);
  struct tm local = {};
  localtime_r(&now, &local);
  char text[DAY_TEXT_SIZE] = {};  // stays empty, and so 0, if it cannot hold
  (void)std::strftime(text, sizeof text, "%Y%m%d", &local);
  return std::atoi(text);
}

namespace {

std::chrono::sys_days to_days(DateStamp stamp) {
  return std::chrono::year_month_day{
      std::chrono::year(stamp / 10000),
      std::chrono::month(static_cast<unsigned>(stamp % 10000 / 100)),
      std::chrono::day(static_cast<unsigned>(stamp % 100))};
}

// Whether asking mktime for `hour` o'clock on `stamp` lands on that date.
// A time inside a gap is moved by the gap's length, so it still lands on
// the date unless the gap swallowed the rest of the day.
bool lands_on_date(DateStamp stamp, int hour) {
  struct tm wanted = {};
  wanted.tm_year = stamp / 10000 - 1900;
  wanted.tm_mon = stamp % 10000 / 100 - 1;
  wanted.tm_mday = stamp % 100;
  wanted.tm_hour = hour;
  wanted.tm_isdst = -1;  // whichever offset the zone had then
  time_t t = mktime(&wanted);
  struct tm local = {};
  if (localtime_r(&t, &local) == nullptr) return false;
  return (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 +
             local.tm_mday ==
         stamp;
}

}  // namespace

DateStamp next_day(DateStamp stamp) {
  std::chrono::year_month_day next{to_days(stamp) + std::chrono::days(1)};
  return static_cast<int>(next.year()) * 10000 +
         static_cast<int>(static_cast<unsigned>(next.month())) * 100 +
         static_cast<int>(static_cast<unsigned>(next.day()));
}

bool local_day_exists(DateStamp stamp) {
  // Noon settles nearly every day in one call; every other hour is asked
  // only when noon fell into a gap.
  if (lands_on_date(stamp, 12)) return true;
  for (int hour = 0; hour < 24; ++hour) {
    if (lands_on_date(stamp, hour)) return true;
  }
  return false;
}

std::vector<DateStamp> local_days(DateStamp first, DateStamp last) {
  std::vector<DateStamp> days;
  if (first > last) return days;
  days.reserve(static_cast<size_t>(day_count(first, last)) + 1);
  for (DateStamp day = first; day <= last; day = next_day(day)) {
    if (local_day_exists(day)) days.push_back(day);
  }
  return days;
}

int32_t day_count(DateStamp a, DateStamp b) {
  return static_cast<int32_t>((to_days(b) - to_days(a)).count());
}
