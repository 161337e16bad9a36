// The nightly run: the day reports of every day that is due, made from
// the log wherever rotation put its lines, with a state that lets a later
// run make up what an earlier one missed or did not finish.
#ifndef SCANREPORT_NIGHTLY_NIGHTLY_RUN_H_
#define SCANREPORT_NIGHTLY_NIGHTLY_RUN_H_

#include <functional>
#include <string>

#include "log/date.h"

// At most this many days are made by one run that catches up; older ones
// are skipped, with a line that says which.
inline constexpr int CATCH_UP_DAYS = 31;

struct NightlySettings {
  std::string log_path;   // the live scan log; must be absolute
  std::string state_dir;  // the state file and the lock
  int lock_wait_seconds = 600;
  // Where scanreport.prom goes after the run; empty for no metrics.
  std::string metrics_dir;
  // The days asked for; 0 and 0 for the days that are due: from the day
  // after the state's last day up to yesterday (yesterday alone before
  // the first run).
  DateStamp first_day = 0;
  DateStamp last_day = 0;
};

// One line for the journal, without the program's name.
using Say = std::function<void(const std::string&)>;

// Makes the days and says what it did: one line per day (the files read,
// the day's lines and infected records), one per day that could not be
// made and why, one for the days a catch-up skipped. Returns 0 only when
// every day asked for was written and none of them was cut, and the
// metrics, when asked for, were written too.
int run_nightly(const NightlySettings& settings, const Say& say,
                const Say& complain);

#endif  // SCANREPORT_NIGHTLY_NIGHTLY_RUN_H_
