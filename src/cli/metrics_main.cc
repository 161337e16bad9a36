// scanreport-metrics: writes scanreport.prom for the node exporter's
// textfile collector from a day that the nightly run has written, by hand
// (the nightly run writes the file itself after every run). All the work
// is write_metrics_file, the code the nightly run calls.
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "io/output_paths.h"
#include "metrics/metrics_file.h"

namespace {

constexpr const char* kUsage =
    "usage: scanreport-metrics METRICS_DIR YYYYMMDD [--last-success SECONDS] "
    "[--lines-left-out N]\n";

bool parse_count(const char* text, int64_t& value) {
  const char* end = text + std::strlen(text);
  const auto [stop, status] = std::from_chars(text, end, value);
  return *text != '\0' && status == std::errc() && stop == end && value >= 0;
}

// The options after the two positional arguments; false on anything else.
bool parse_options(int argc, char** argv, NightlyOutcome& outcome) {
  for (int i = 3; i < argc; i += 2) {
    const std::string_view option = argv[i];
    if (i + 1 >= argc) return false;
    int64_t value;
    if (!parse_count(argv[i + 1], value)) return false;
    if (option == "--last-success") {
      outcome.last_success_end = value;
    } else if (option == "--lines-left-out") {
      outcome.lines_left_out = value;
    } else {
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  NightlyOutcome outcome;
  if (argc < 3 || !parse_options(argc, argv, outcome)) {
    (void)std::fputs(kUsage, stderr);
    return 1;
  }
  outcome.day = argv[2];
  std::string error;
  if (write_metrics_file(argv[1], TRAFFIC_DIR, outcome, &error) != 0) {
    (void)std::fprintf(
        stderr, "scanreport-metrics: %s; the previous metrics file stays\n",
        error.c_str());
    return 1;
  }
  return 0;
}
