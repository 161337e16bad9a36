// Every output path goes through format_path, so a path that does not fit
// its buffer is treated the same way everywhere: as a file that cannot be
// opened, never as the shorter path that snprintf would leave behind.
#include "io/output_paths.h"

#include <cstdarg>
#include <cstdio>

namespace {

[[gnu::format(printf, 2, 3)]] bool format_path(char* out, const char* format,
                                               ...) {
  va_list args;
  va_start(args, format);
  int length = std::vsnprintf(out, PATH_BUFFER_SIZE, format, args);
  va_end(args);
  if (length >= 0 && length < PATH_BUFFER_SIZE) return true;
  out[0] = '\0';
  return false;
}

}  // namespace

bool day_dir_path(int32_t day, char* out) {
  return format_path(out, "%s%d", TRAFFIC_DIR, day);
}

bool run_file_path(const char* dir, const char* name, char* out) {
  return format_path(out, "%s/%s", dir, name);
}

bool quarantine_page_path(int32_t day, char* out) {
  return format_path(out, "%s/%d/quarantine.htm", TRAFFIC_DIR, day);
}

bool day_summary_path(int32_t day, char* out) {
  return format_path(out, "%s%d/summary.txt", TRAFFIC_DIR, day);
}
