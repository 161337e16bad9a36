// A run holds the lock for its whole length, finds the log's files once
// (their descriptors pin them against a rotation during the run), and
// makes its days oldest first. Each day's lines go into a file without a
// name in the state directory, which the kernel removes however the run
// ends, and the report drivers, in a child process as in a run of the
// program, read it as they would read the log.
//
// The state advances only over days that are settled, written or beyond
// recovery (gone, skipped), and only without a gap: a day that failed,
// or a run killed half-way, is made again, whole, by the next run.
#include "nightly/nightly_run.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

#include "io/beneath_root.h"
#include "io/output_paths.h"
#include "metrics/metrics_file.h"
#include "nightly/day_input.h"
#include "nightly/log_files.h"
#include "nightly/nightly_state.h"
#include "report/quarantine_report.h"
#include "report/scan_report.h"
#include "sys/file_descriptor.h"

namespace {

enum class Result { kWritten, kCut, kGone, kFailed };

std::string day_text(DateStamp day) {
  char text[16];
  (void)std::snprintf(text, sizeof text, "%08d", static_cast<int>(day));
  return text;
}

DateStamp previous_day(DateStamp day) {
  using namespace std::chrono;
  const year_month_day date{year{day / 10000},
                            month{static_cast<unsigned>(day / 100 % 100)},
                            std::chrono::day{static_cast<unsigned>(day % 100)}};
  const year_month_day before{sys_days{date} - days{1}};
  return static_cast<DateStamp>(static_cast<int>(before.year()) * 10000 +
                                static_cast<int>(unsigned{before.month()}) *
                                    100 +
                                static_cast<int>(unsigned{before.day()}));
}

// Makes the day's directory, root's with mode 0755, or accepts one that
// is already root's alone (made by an earlier run). One that anybody else
// owns or may write into is never written into.
bool make_day_directory(DateStamp day, std::string& error) {
  FileDescriptor traffic(
      open_beneath_root(TRAFFIC_DIR, O_RDONLY | O_DIRECTORY));
  if (!traffic.is_open() || !is_trusted_directory(traffic.get())) {
    error =
        std::string(TRAFFIC_DIR) + " is not a directory only root may write";
    return false;
  }
  const std::string name = day_text(day);
  const bool made = mkdirat(traffic.get(), name.c_str(), 0755) == 0;
  const int saved_errno = errno;
  const FileDescriptor dir = open_file_at(traffic.get(), name.c_str(),
                                          O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  traffic.reset();
  if (!made && saved_errno != EEXIST) {
    error = "cannot make its directory: " + std::string(strerror(saved_errno));
  } else if (!dir.is_open()) {
    error = std::string(TRAFFIC_DIR) + name + " is not a directory of its own";
  } else if (made &&
             (fchown(dir.get(), 0, 0) != 0 || fchmod(dir.get(), 0755) != 0)) {
    error = "cannot give its directory owner root and mode 0755";
  } else if (!is_trusted_directory(dir.get())) {
    error = std::string(TRAFFIC_DIR) + name +
            " is not root's alone: not writing there";
  }
  return error.empty();
}

// A file for the day's lines that no other process can reach by a name.
FileDescriptor open_private_file(const std::string& dir) {
  FileDescriptor fd = open_file(dir.c_str(), O_TMPFILE | O_RDWR, 0600);
  if (fd.is_open() ||
      (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) {
    return fd;
  }
  std::string name = dir + "/day.XXXXXX";
  fd.reset(mkostemp(name.data(), O_CLOEXEC));
  if (fd.is_open()) (void)unlink(name.c_str());
  return fd;
}

// Both reports of the day, made in a child process: the report table's
// row colour lives as long as the process, as in a run of the program, so
// that each day's first row has the colour it has there.
bool run_reports(int input, DateStamp day) {
  const std::string path = "/proc/self/fd/" + std::to_string(input);
  (void)std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    // Each report is tried, as one run of the program each would be.
    const bool scan = run_scan_report(path.c_str(), day, 0) == 0;
    const bool quarantine = run_quarantine_report(path.c_str(), day) == 0;
    _exit(scan && quarantine ? 0 : 1);
  }
  int status = 0;
  if (child < 0) return false;
  (void)retry_interrupted([&] { return waitpid(child, &status, 0); });
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text.empty() ? "no file" : text;
}

Result make_day(const std::vector<LogFile>& files, DateStamp day,
                const NightlySettings& settings, const Say& say,
                const Say& complain, int64_t& lines_left_out) {
  const std::string text = day_text(day);
  const DayFiles chosen = choose_day_files(files, day);
  if (chosen.gone) {
    complain(text + " is gone: the oldest line the logs still hold is of " +
             day_text(chosen.oldest_date) + "; nothing written for it");
    return Result::kGone;
  }
  std::string error;
  const FileDescriptor input = open_private_file(settings.state_dir);
  if (!input.is_open()) {
    complain(text + " not written: no private file in " + settings.state_dir +
             ": " + strerror(errno));
    return Result::kFailed;
  }
  const DayInput read =
      write_day_input(files, chosen.first, chosen.last, day, input);
  if (!read.error.empty() || !make_day_directory(day, error)) {
    complain(text +
             " not written: " + (read.error.empty() ? error : read.error));
    return Result::kFailed;
  }
  const bool written = run_reports(input.get(), day);
  if (!written) {
    complain(text + " not written: its directory refused the reports");
    return Result::kFailed;
  }
  say("reports of " + text + " written from " + joined(read.files_read) + ": " +
      std::to_string(read.lines_of_day) + " lines of the day, " +
      std::to_string(read.infected) + " infected");
  if (!read.cut) return Result::kWritten;
  lines_left_out += read.lines_left_out;
  complain("reports of " + text + " are cut: line " +
           std::to_string(read.cut_line) + " of " + read.cut_file +
           " is longer than " + std::to_string(LOG_LINE_SIZE - 1) +
           " bytes, and they leave out " + std::to_string(read.lines_left_out) +
           " of the day's lines from there on");
  return Result::kCut;
}

// The run's first and last day; false when nothing is due.
bool plan_days(const NightlySettings& settings, NightlyState& state,
               DateStamp yesterday, DateStamp& first, DateStamp& last,
               const Say& say) {
  if (settings.first_day != 0) {
    first = settings.first_day;
    last = settings.last_day;
    return true;
  }
  first = state.last_day != 0 ? next_day(state.last_day) : yesterday;
  last = yesterday;
  if (first > last) {
    say("reports up to " + day_text(state.last_day) +
        " are made: nothing is due");
    return false;
  }
  if (day_count(first, last) >= CATCH_UP_DAYS) {
    DateStamp kept = last;
    for (int i = 1; i < CATCH_UP_DAYS; ++i) kept = previous_day(kept);
    const DateStamp skipped_last = previous_day(kept);
    say("skipped " + day_text(first) + " to " + day_text(skipped_last) +
        ": more than " + std::to_string(CATCH_UP_DAYS) +
        " days behind; make them by hand with scanreport-daily " +
        day_text(first) + " " + day_text(skipped_last));
    state.last_day = skipped_last;
    first = kept;
  }
  return true;
}

int64_t now_seconds() { return static_cast<int64_t>(time(nullptr)); }

struct Run {
  const NightlySettings& settings;
  const Say& say;
  const Say& complain;
  NightlyState state;
  DateStamp yesterday = 0;
  bool all_written = true;
  // The newest day this run wrote, and the lines its report left out.
  DateStamp newest_written = 0;
  int64_t newest_lines_left_out = 0;

  // Saves the state after each day and at the end of the run: the one
  // place where the newest day settled, the end of the last successful run
  // and the lines that the run's cut days left out are all known.
  void save() {
    std::string error;
    if (!write_state(settings.state_dir, state, error)) {
      complain(error);
      all_written = false;
    }
  }

  void make_days(const std::vector<LogFile>& files, DateStamp first,
                 DateStamp last) {
    state.lines_left_out = 0;
    bool without_gap = true;
    for (DateStamp day = first; day <= last; day = next_day(day)) {
      const int64_t left_out_before = state.lines_left_out;
      const Result result =
          make_day(files, day, settings, say, complain, state.lines_left_out);
      if (result == Result::kWritten || result == Result::kCut) {
        newest_written = day;
        newest_lines_left_out = state.lines_left_out - left_out_before;
      }
      all_written = all_written && result == Result::kWritten;
      without_gap = without_gap && result != Result::kFailed;
      const bool follows =
          state.last_day == 0 || day <= next_day(state.last_day);
      if (without_gap && follows && day <= yesterday && day > state.last_day) {
        state.last_day = day;
      }
      save();
    }
  }

  // The run once it holds the lock.
  int run() {
    std::string error;
    if (!read_state(settings.state_dir, state, error)) {
      complain(error + ": taken as no state");
      all_written = false;
    }
    yesterday = previous_day(today_stamp());
    DateStamp first = 0, last = 0;
    if (plan_days(settings, state, yesterday, first, last, say)) {
      std::vector<LogFile> files;
      if (open_log_files(settings.log_path, files, error) && !files.empty()) {
        make_days(files, first, last);
      } else {
        complain(error.empty() ? "no scan log " + settings.log_path +
                                     " nor any rotated file of it"
                               : error);
        all_written = false;
      }
      close_log_files(files);
    }
    if (all_written) state.last_success_end = now_seconds();
    save();
    const bool metrics_written = write_metrics();
    return all_written && metrics_written ? 0 : 1;
  }

  // The fleet sees the newest day reported so far: a run asked for old
  // days by hand does not take the place of a later settled one.
  bool write_metrics() {
    if (settings.metrics_dir.empty()) return true;
    const DateStamp day = std::max(newest_written, state.last_day);
    if (day == 0) return true;
    NightlyOutcome outcome{day_text(day), std::nullopt,
                           day == newest_written ? newest_lines_left_out : 0};
    if (state.last_success_end > 0) {
      outcome.last_success_end = state.last_success_end;
    }
    std::string error;
    if (write_metrics_file(settings.metrics_dir, TRAFFIC_DIR, outcome,
                           &error) != 0) {
      complain("metrics of " + outcome.day + " not written: " + error);
      return false;
    }
    return true;
  }
};

}  // namespace

int run_nightly(const NightlySettings& settings, const Say& say,
                const Say& complain) {
  if (settings.log_path.empty() || settings.log_path[0] != '/') {
    complain("the scan log '" + settings.log_path +
             "' is not an absolute path: nothing done");
    return 1;
  }
  std::string error;
  if (!prepare_state_dir(settings.state_dir, error)) {
    complain(error);
    return 1;
  }
  FileDescriptor lock = take_lock(
      settings.state_dir, settings.lock_wait_seconds,
      [&] { complain("waiting for another run to end"); }, error);
  if (!lock.is_open()) {
    complain(error);
    return 1;
  }
  // Handed to the process: held until it ends, output flushed and all.
  (void)lock.release();
  Run run{settings, say, complain, {}};
  return run.run();
}
