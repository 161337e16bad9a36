// One log line of any bytes through every way the tool cuts a line: the
// record parser, the date lookup that finds the period start, and the
// field walk. The line is a heap copy of exactly its length so that a read
// past its end is caught.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "log/line_reader.h"
#include "log/period_start.h"
#include "log/scan_record.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

// A present field is never empty and never holds the separator.
void check_field(const std::optional<std::string>& field) {
  if (!field) return;
  check(!field->empty());
  check(field->find(",,") == std::string::npos);
  check(field->find('\0') == std::string::npos);
}

void check_record(const ScanRecord& r) {
  for (const auto* field : {&r.date, &r.time, &r.file, &r.result, &r.action,
                            &r.remark, &r.virus, &r.quarantine}) {
    check_field(*field);
  }
  // Fields fill in line order: an absent one leaves every later one absent.
  if (!r.date) check(!r.time);
  if (!r.time) check(!r.client);
  if (!r.client) check(!r.result);
  if (!r.result) {
    check(!r.file && !r.action && !r.remark && !r.virus && !r.quarantine);
  }
  if (r.client) {
    check(r.client->size() >= 4 && r.client->back() == ']');
  }
  if (r.quarantine) check(r.action && r.virus && r.file);
  if (r.remark) check(!r.action && !r.virus);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The readers never hold more than one line buffer's worth.
  if (size >= LOG_LINE_SIZE) return 0;
  std::unique_ptr<char[]> line(new char[size + 1]);
  std::memcpy(line.get(), data, size);
  line[size] = '\0';

  ScanRecord record(line.get());
  check_record(record);

  // line_date cuts trailing blanks in place, as the scan does.
  std::unique_ptr<char[]> scanned(new char[size + 1]);
  std::memcpy(scanned.get(), line.get(), size + 1);
  DateStamp stamp = line_date(scanned.get());
  check(stamp == 0 || (stamp >= 19010101 && stamp % 100 >= 1));

  // Walking past the last field must stay on it, never run off the end.
  const char* text = trim_blanks(line.get());
  const char* end = line.get() + size;
  for (int i = 0; i < 12; ++i) {
    int length = -1;
    const char* next = next_field(text, &length);
    check(length >= 0 && text + length <= end);
    check(next >= text && next <= end);
    text = next;
  }
  return 0;
}
