// Date parsing is strict because a date decides which lines a report shows:
// anything that is not exactly a valid date becomes 0, never a guess. The
// day arithmetic works on local midnights in standard time so that walking
// a range in steps of SECONDS_PER_DAY cannot skip or repeat a day across a
// daylight-saving change.
#include "log/date.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

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

time_t stamp_to_time(DateStamp stamp) {
  struct tm broken_down = {};
  broken_down.tm_year = stamp / 10000 - 1900;
  broken_down.tm_mon = stamp % 10000 / 100 - 1;
  broken_down.tm_mday = stamp % 100;
  return mktime(&broken_down);
}

void time_to_day_text(time_t t, char* out) {
  struct tm local = {};
  localtime_r(&t, &local);
  if (std::strftime(out, DAY_TEXT_SIZE, "%Y%m%d", &local) == 0) out[0] = '\0';
}

int32_t day_count(DateStamp a, DateStamp b) {
  long long seconds = static_cast<long long>(stamp_to_time(b)) -
                      static_cast<long long>(stamp_to_time(a));
  return static_cast<int32_t>(seconds / SECONDS_PER_DAY);
}
