// The collector reads the directory whenever it is scraped, so the file
// is only ever replaced whole: a reader sees the old file or the new one.
// The temporary keeps one fixed name, so that one left by a killed run is
// removed by the next instead of piling up, and it is created exclusively
// and without following a link, since the directory may be the exporter's
// account's to write.
#include "metrics/metrics_file.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include "log/date.h"
#include "metrics/label_value.h"
#include "sys/file_descriptor.h"

namespace {

constexpr const char* kFileName = "scanreport.prom";
constexpr const char* kTemporaryName = ".scanreport.prom.tmp";

void append_family(std::string& out, const char* name, const char* type,
                   const char* help) {
  out += "# HELP ";
  out += name;
  out += ' ';
  out += help;
  out += "\n# TYPE ";
  out += name;
  out += ' ';
  out += type;
  out += '\n';
}

void append_sample(std::string& out, const char* name, int64_t value) {
  out += name;
  out += ' ';
  out += std::to_string(value);
  out += '\n';
}

void append_labelled_sample(std::string& out, const char* name,
                            const char* label, std::string_view label_value,
                            int64_t value) {
  out += name;
  out += '{';
  out += label;
  out += "=\"";
  append_escaped_label_value(out, label_value);
  out += "\"} ";
  out += std::to_string(value);
  out += '\n';
}

// The top ten as label values. Two names could still end in one value
// (a cut name whose hash collides), which would make one series twice and
// the collector drop the whole file: such counts are added up instead.
std::vector<std::pair<std::string, int64_t>> virus_samples(
    const RankedList& viruses) {
  std::vector<std::pair<std::string, int64_t>> samples;
  for (const RankedEntry& entry : viruses) {
    std::string value = shown_label_value(entry.name);
    bool merged = false;
    for (auto& [shown, count] : samples) {
      if (shown == value) {
        count += entry.count;
        merged = true;
      }
    }
    if (!merged) samples.emplace_back(std::move(value), entry.count);
  }
  return samples;
}

// The start of `day` in local time: its midnight, or the first moment of
// the day where midnight is skipped by a change of offset.
std::optional<int64_t> local_day_start(DateStamp day) {
  tm fields{};
  fields.tm_year = day / 10000 - 1900;
  fields.tm_mon = day / 100 % 100 - 1;
  fields.tm_mday = day % 100;
  fields.tm_isdst = -1;
  const time_t start = mktime(&fields);
  if (start == static_cast<time_t>(-1)) return std::nullopt;
  return static_cast<int64_t>(start);
}

// Writes `text` to the temporary in `dir`, flushed to disk, and renames
// it to kFileName; the temporary is gone whatever happens.
bool replace_file(int dir, const std::string& text, std::string& error) {
  if (unlinkat(dir, kTemporaryName, 0) != 0 && errno != ENOENT) {
    error = std::string("cannot remove ") + kTemporaryName;
    return false;
  }
  FileDescriptor fd = open_file_at(
      dir, kTemporaryName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0644);
  if (!fd.is_open()) {
    error = std::string("cannot create ") + kTemporaryName;
    return false;
  }
  // The exporter's account reads it, whatever the caller's umask.
  bool done =
      fchmod(fd.get(), 0644) == 0 && fd.write_all(text) && fsync(fd.get()) == 0;
  done = fd.close() && done;
  done = done && renameat(dir, kTemporaryName, dir, kFileName) == 0;
  if (!done) {
    error = std::string("cannot write ") + kFileName + ": " + strerror(errno);
    unlinkat(dir, kTemporaryName, 0);
    return false;
  }
  // The rename itself reaches the disk with the directory.
  fsync(dir);
  return true;
}

// Holds back the signals that would end the process while a temporary
// exists; they are delivered once the mask is restored.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXFSZ}) {
      sigaddset(&held, signal);
    }
    sigprocmask(SIG_BLOCK, &held, &previous_);
  }
  ~HeldSignals() { sigprocmask(SIG_SETMASK, &previous_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t previous_;
};

int fail(std::string* error, std::string reason) {
  if (error != nullptr) *error = std::move(reason);
  return -1;
}

}  // namespace

std::string format_metrics(const DaySummary& summary, int64_t day_start,
                           const NightlyOutcome& outcome) {
  std::string out;
  append_family(out, "scanreport_day_objects", "gauge",
                "Objects of the newest reported day by result key, as its "
                "summary.txt counts them.");
  for (const auto& [key, count] : summary.tally) {
    append_labelled_sample(out, "scanreport_day_objects", "key", key, count);
  }
  const auto viruses = virus_samples(summary.top_viruses);
  if (!viruses.empty()) {
    append_family(out, "scanreport_day_virus_objects", "gauge",
                  "Infected objects of the newest reported day by virus: the "
                  "day's top ten as its summary page ranks them.");
    for (const auto& [name, count] : viruses) {
      append_labelled_sample(out, "scanreport_day_virus_objects", "virus", name,
                             count);
    }
  }
  append_family(out, "scanreport_day_timestamp_seconds", "gauge",
                "Start of the newest reported day, local time.");
  append_sample(out, "scanreport_day_timestamp_seconds", day_start);
  append_family(out, "scanreport_day_lines_left_out", "gauge",
                "Lines of the newest reported day that its report left out: "
                "the reading stopped at a line longer than the reader's "
                "limit.");
  append_sample(out, "scanreport_day_lines_left_out", outcome.lines_left_out);
  if (outcome.last_success_end) {
    append_family(out, "scanreport_last_success_timestamp_seconds", "gauge",
                  "End of the last nightly run that wrote every day it was "
                  "asked for.");
    append_sample(out, "scanreport_last_success_timestamp_seconds",
                  *outcome.last_success_end);
  }
  return out;
}

int write_metrics_file(const std::string& metrics_dir,
                       const std::string& traffic_dir,
                       const NightlyOutcome& outcome, std::string* error) {
  const DateStamp day = parse_date_arg(outcome.day.c_str());
  if (day == 0) return fail(error, "'" + outcome.day + "' is not a real day");
  const std::optional<int64_t> day_start = local_day_start(day);
  if (!day_start)
    return fail(error, "the start of " + outcome.day + " is unknown");
  const std::string summary_path = traffic_dir +
                                   (traffic_dir.ends_with('/') ? "" : "/") +
                                   outcome.day + "/summary.txt";
  DaySummary summary;
  std::string reason;
  if (!read_day_summary(summary_path.c_str(), summary, reason)) {
    return fail(error, summary_path + ": " + reason);
  }
  const std::string text = format_metrics(summary, *day_start, outcome);
  bool replaced;
  {
    const FileDescriptor dir =
        open_file(metrics_dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (!dir.is_open()) {
      return fail(error, metrics_dir + " is not a directory");
    }
    const HeldSignals held;
    replaced = replace_file(dir.get(), text, reason);
  }
  if (!replaced) return fail(error, metrics_dir + ": " + reason);
  return 0;
}
