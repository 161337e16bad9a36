// The two date parsers over any text, and the display form and the next
// day of whatever they accept. Every output buffer is a heap block of exactly
// its documented size, so that one byte too many is caught.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "log/date.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

void check_valid_stamp(DateStamp stamp) {
  int day = stamp % 100;
  int month = stamp % 10000 / 100;
  int year = stamp / 10000;
  check(day >= 1 && day <= days_in_month(month, year));
}

// format_stamp must stay inside its buffer for any value at all.
std::string display(DateStamp stamp) {
  std::unique_ptr<char[]> out(new char[DISPLAY_DATE_SIZE]);
  format_stamp(stamp, out.get());
  check(std::memchr(out.get(), '\0', DISPLAY_DATE_SIZE) != nullptr);
  return out.get();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 64) return 0;  // both forms are at most ten characters
  std::unique_ptr<char[]> text(new char[size + 1]);
  std::memcpy(text.get(), data, size);
  text[size] = '\0';

  DateStamp argument = parse_date_arg(text.get());
  if (argument != 0) {
    check_valid_stamp(argument);
    check(argument >= 19010101 && argument <= 99991231);
    check(std::to_string(argument) == text.get());
    // The range walk steps from a date to its calendar successor.
    check(day_count(argument, argument) == 0);
    if (argument < 99991231) {
      DateStamp after = next_day(argument);
      check_valid_stamp(after);
      check(after > argument && day_count(argument, after) == 1);
    }
    std::string shown = display(argument);
    check(shown.size() == 10);
    check(shown.substr(6) == std::string(text.get(), 4));
  }

  DateStamp logged = log_date_to_stamp(text.get());
  if (logged != 0) {
    check_valid_stamp(logged);
    check(std::strlen(text.get()) == 10);
    display(logged);
  }

  DateStamp raw = 0;
  std::memcpy(&raw, data, size < sizeof raw ? size : sizeof raw);
  display(raw);
  return 0;
}
