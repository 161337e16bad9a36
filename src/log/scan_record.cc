// Parsing never fails: a short or malformed line simply leaves the fields
// it does not reach absent, and each report decides from the absent fields
// whether the line is worth a row. The walk reuses next_field's habit of
// returning the last field again, so a line cut short repeats its last
// field into the following ones exactly as the pages have always shown.
#include "log/scan_record.h"

#include <strings.h>

#include <cstring>
#include <utility>

char* trim_blanks(char* line) {
  size_t length = std::strlen(line);
  while (length > 0 && (line[length - 1] == ' ' || line[length - 1] == '\t')) {
    line[--length] = '\0';
  }
  while (*line == ' ' || *line == '\t') ++line;
  return line;
}

// Fields are short, so a plain walk to the separator or the end of the
// text beats strstr, whose set-up is paid once per field.
const char* next_field(const char* text, int* length) {
  const char* p = text;
  for (; *p != '\0'; ++p) {
    if (p[0] == ',' && p[1] == ',') {
      *length = static_cast<int>(p - text);
      return p + 2;
    }
  }
  *length = static_cast<int>(p - text);
  return text;
}

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

// Reads the client's two fields at `position` into `client` as
// "first[second]"; false (client left absent) when either is empty or the
// first was the line's last field.
bool take_client(const char*& position, std::optional<std::string>& client) {
  const char* first = position;
  int first_length = 0;
  const char* second = next_field(first, &first_length);
  if (first_length == 0) return false;
  int second_length = 0;
  const char* next = next_field(second, &second_length);
  if (second_length == 0) return false;
  // When the first part was the line's last field, next_field handed it
  // back as the second.
  if (second == first) return false;
  std::string& text = client.emplace();
  text.reserve(static_cast<size_t>(first_length) + second_length + 2);
  text.append(first, static_cast<size_t>(first_length));
  text += '[';
  text.append(second, static_cast<size_t>(second_length));
  text += ']';
  position = next;
  return true;
}

// The fields that follow the result keyword, which chooses their layout.
void take_result_fields(const char* position, ScanRecord& record) {
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

}  // namespace

bool keyword_is(const std::optional<std::string>& text,
                std::string_view keyword) {
  // A field holds no NUL byte: it is cut from NUL-terminated text.
  return text && text->size() == keyword.size() &&
         strncasecmp(text->data(), keyword.data(), keyword.size()) == 0;
}

ScanRecord::ScanRecord(const char* line) {
  const char* position = line;
  int length = 0;
  const char* next = next_field(position, &length);
  if (length == 0) return;  // field 1 is not kept, but must be there
  position = next;
  if (!take_field(position, date)) return;
  if (!take_field(position, time)) return;
  if (!take_client(position, client)) return;
  if (!take_field(position, result)) return;
  take_result_fields(position, *this);
}
