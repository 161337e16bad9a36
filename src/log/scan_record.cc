// Parsing never fails: a short or malformed line simply leaves the fields
// it does not reach absent, and each report decides from the absent fields
// whether the line is worth a row. The walk reuses next_field's habit of
// returning the last field again, so a line cut short repeats its last
// field into the following ones exactly as the pages have always shown.
#include "log/scan_record.h"

#include <strings.h>

#include <cctype>
#include <cstring>

char* trim_blanks(char* line) {
  size_t length = std::strlen(line);
  while (length > 0 && (line[length - 1] == ' ' || line[length - 1] == '\t')) {
    line[--length] = '\0';
  }
  while (*line == ' ' || *line == '\t') ++line;
  return line;
}

const char* next_field(const char* text, int* length) {
  const char* separator = std::strstr(text, ",,");
  if (separator == nullptr) {
    *length = static_cast<int>(std::strlen(text));
    return text;
  }
  *length = static_cast<int>(separator - text);
  return separator + 2;
}

ScanRecord::ScanRecord(const char* line) { parse_scan_record(*this, line); }

namespace {

// Reads the field at `position` into `into`; false (field left absent) when
// it is empty, which ends the parse.
bool take_field(const char*& position, std::optional<std::string>& into) {
  int length = 0;
  const char* next = next_field(position, &length);
  if (length == 0) return false;
  into.emplace(position, static_cast<size_t>(length));
  position = next;
  return true;
}

}  // namespace

bool keyword_is(const std::optional<std::string>& text, const char* keyword) {
  return text && strcasecmp(text->c_str(), keyword) == 0;
}

void parse_scan_record(ScanRecord& record, const char* line) {
  const char* position = line;
  int length = 0;
  const char* next = next_field(position, &length);
  if (length == 0) return;  // field 1 is not kept, but must be there
  position = next;
  if (!take_field(position, record.date)) return;
  if (!take_field(position, record.time)) return;

  const char* client_first = position;
  int first_length = 0;
  position = next_field(position, &first_length);
  if (first_length == 0) return;
  int second_length = 0;
  const char* client_second = position;
  next = next_field(position, &second_length);
  if (second_length == 0) return;
  // When the first part was the line's last field, the second repeated it.
  if (std::strlen(client_first) <
      static_cast<size_t>(first_length) + second_length + 1) {
    return;
  }
  position = next;
  std::string client(client_first, static_cast<size_t>(first_length));
  client += '[';
  client.append(client_second, static_cast<size_t>(second_length));
  client += ']';
  record.client = std::move(client);

  if (!take_field(position, record.result)) return;
  if (keyword_is(record.result, "CLEAN")) {
    take_field(position, record.file);
  } else if (keyword_is(record.result, "INFECTED")) {
    if (!take_field(position, record.action)) return;
    if (!take_field(position, record.virus)) return;
    if (!take_field(position, record.file)) return;
    if (keyword_is(record.action, "QUARANTINED")) {
      take_field(position, record.quarantine);
    }
  } else if (keyword_is(record.result, "CURED")) {
    if (!take_field(position, record.virus)) return;
    take_field(position, record.file);
  } else if (keyword_is(record.result, "ERROR") ||
             keyword_is(record.result, "EXCLUDED")) {
    if (!take_field(position, record.remark)) return;
    take_field(position, record.file);
  }
}
