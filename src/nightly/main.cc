// The entry of the nightly run, started by the scanreport-daily helper:
//   scanreport-nightly LOG [FIRST [LAST]]
// Checks the caller and the days asked for, reads its settings from
// the environment (SCANREPORT_STATE_DIR, SCANREPORT_LOCK_WAIT, so that
// tests need neither /var/lib nor a long wait, and SCANREPORT_METRICS_DIR) and
// prints what the run says, one journal line each, under the helper's name.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "log/date.h"
#include "nightly/nightly_run.h"

namespace {

constexpr const char* kName = "scanreport-daily";
constexpr const char* kUsage = "usage: scanreport-daily [yyyymmdd [yyyymmdd]]";

void print(std::FILE* stream, const std::string& line) {
  (void)std::fprintf(stream, "%s: %s\n", kName, line.c_str());
  (void)std::fflush(stream);
}

[[noreturn]] void refuse(const std::string& message) {
  print(stderr, message);
  std::exit(1);
}

DateStamp day_argument(const char* text, DateStamp today) {
  const DateStamp day = parse_date_arg(text);
  if (day == 0) {
    refuse(std::string("'") + text + "' is not a real date yyyymmdd from 1901");
  }
  if (day > today) refuse(std::string(text) + " is in the future");
  return day;
}

std::string setting(const char* name, const char* otherwise) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

// "auto" is the textfile directory of Debian's node exporter, where it is
// installed; otherwise the metrics are off.
std::string metrics_dir(const std::string& value) {
  if (value != "auto") return value;
  constexpr const char* kNodeExporterDir = "/var/lib/prometheus/node-exporter";
  struct stat status;
  const bool present =
      stat(kNodeExporterDir, &status) == 0 && S_ISDIR(status.st_mode);
  return present ? kNodeExporterDir : "";
}

}  // namespace

int main(int argc, char** argv) {
  if (getuid() != 0) refuse("only root may run it");
  if (argc < 2 || argc > 4) refuse(kUsage);
  NightlySettings settings;
  settings.log_path = argv[1];
  settings.state_dir = setting("SCANREPORT_STATE_DIR", "/var/lib/scanreport");
  settings.metrics_dir = metrics_dir(setting("SCANREPORT_METRICS_DIR", ""));
  settings.lock_wait_seconds =
      std::atoi(setting("SCANREPORT_LOCK_WAIT", "600").c_str());
  if (argc > 2) {
    const DateStamp today = today_stamp();
    settings.first_day = day_argument(argv[2], today);
    settings.last_day =
        argc > 3 ? day_argument(argv[3], today) : settings.first_day;
    if (settings.first_day > settings.last_day) {
      refuse(std::string(argv[2]) + " is after " + argv[3]);
    }
  }
  return run_nightly(
      settings, [](const std::string& line) { print(stdout, line); },
      [](const std::string& line) { print(stderr, line); });
}
