// One line of the scan log and the record it becomes.
//
// A line is a sequence of fields separated by ",,". Field 1 is ignored but
// must be non-empty; then come date, time, the two client parts and the
// result keyword, after which the layout depends on the result:
//   CLEAN     file
//   INFECTED  action, virus, file[, quarantine when action is QUARANTINED]
//   CURED     virus, file
//   ERROR     remark, file
//   EXCLUDED  remark, file
// Keywords compare without regard to ASCII case; texts are kept exactly.
#ifndef SCANREPORT_LOG_SCAN_RECORD_H_
#define SCANREPORT_LOG_SCAN_RECORD_H_

#include <optional>
#include <string>
#include <string_view>

struct ScanRecord {
  // Parses `line` (NUL-terminated, only read, never referenced afterwards).
  // Fields are filled in line order; the first empty field, or a client
  // whose first part was the line's last field, ends the filling and leaves
  // every later field absent.
  explicit ScanRecord(const char* line);

  std::optional<std::string> date;
  std::optional<std::string> time;
  std::optional<std::string> client;  // "first[second]"
  std::optional<std::string> file;
  std::optional<std::string> result;
  std::optional<std::string> action;
  std::optional<std::string> remark;
  std::optional<std::string> virus;
  std::optional<std::string> quarantine;
};

// Whether `text` is present and equals `keyword` without regard to ASCII
// case, as every keyword of the log (results, actions) is compared.
bool keyword_is(const std::optional<std::string>& text,
                std::string_view keyword);

// Overwrites the blanks and tabs at the end of `line` with NUL and returns
// the first non-blank character of the same buffer.
char* trim_blanks(char* line);

// Sets *length to the length of the field starting at `text` and returns
// where the next field starts. A last field (no ",," follows) returns
// `text` itself: asking again yields the same last field.
const char* next_field(const char* text, int* length);

#endif  // SCANREPORT_LOG_SCAN_RECORD_H_
