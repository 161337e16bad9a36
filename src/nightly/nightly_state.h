// What the nightly run keeps between runs, in a directory only root may
// write (/var/lib/scanreport by default): the state file and the lock.
// doc/nightly-state.md describes the file.
#ifndef SCANREPORT_NIGHTLY_NIGHTLY_STATE_H_
#define SCANREPORT_NIGHTLY_NIGHTLY_STATE_H_

#include <cstdint>
#include <functional>
#include <string>

#include "log/date.h"
#include "sys/file_descriptor.h"

struct NightlyState {
  // The last day settled: it and every day before it that runs were asked
  // for are written, or were gone or skipped. 0 before the first run.
  DateStamp last_day = 0;
  // When the last run that wrote every day it was asked for, none of them
  // cut, ended (seconds since the epoch); 0 before the first.
  int64_t last_success_end = 0;
  // Lines of their days that the last run's cut reports leave out.
  int64_t lines_left_out = 0;
};

// Makes `dir` if it is missing (root's, mode 0755) and checks it: a
// directory, owned by root, that neither group nor others may write.
bool prepare_state_dir(const std::string& dir, std::string& error);

// Reads the state file of `dir`. A missing file is the state before the
// first run; a file that does not read as one is an error.
bool read_state(const std::string& dir, NightlyState& state,
                std::string& error);

// Replaces the state file of `dir` at once: a run killed at any moment
// leaves the old state or the new one, never a mix.
bool write_state(const std::string& dir, const NightlyState& state,
                 std::string& error);

// Takes the exclusive lock of `dir` (its file `lock`, root's alone, mode
// 0600, so that no other user can hold it) and returns its descriptor,
// which holds the lock for as long as it is open. When another run holds
// it, calls `waiting` once and waits at most `wait_seconds`; a descriptor
// not open, with `error` set, when the lock cannot be had.
FileDescriptor take_lock(const std::string& dir, int wait_seconds,
                         const std::function<void()>& waiting,
                         std::string& error);

#endif  // SCANREPORT_NIGHTLY_NIGHTLY_STATE_H_
