// Every line before the period is looked at only for its date, so this is
// the loop that decides how fast a report for a recent day can be made.
#include "report/scan_start.h"

#include <algorithm>
#include <cstring>

#include "log/scan_record.h"

namespace {
constexpr int kDateFieldSize = 64;
}

DateStamp line_date(char* line) {
  const char* text = trim_blanks(line);
  int length = 0;
  const char* date_field = next_field(text, &length);
  next_field(date_field, &length);
  char date[kDateFieldSize] = {};
  std::memcpy(date, date_field, std::min(length, kDateFieldSize - 1));
  return log_date_to_stamp(date);
}

DateStamp scan_to_date(LineReader& log, DateStamp first_date, char* line) {
  DateStamp found = 0;
  while (log.getline(line)) {
    found = line_date(line);
    if (found >= first_date) break;
  }
  return found;
}
