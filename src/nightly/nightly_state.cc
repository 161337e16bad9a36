// The state file is a few "key=value" lines, replaced through rename(2)
// after an fsync, so that a power cut leaves one whole version. The lock
// is a file of root's own: the traffic directory that earlier versions
// locked can be opened, and so locked forever, by any user.
#include "nightly/nightly_state.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>

#include "sys/file_descriptor.h"

namespace {

constexpr const char* kStateName = "state";

std::string system_error(const std::string& what) {
  return what + ": " + std::strerror(errno);
}

bool only_root_writes(const struct stat& status) {
  return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool parse_number(const std::string& text, int64_t& value) {
  const char* end = text.data() + text.size();
  auto [at, code] = std::from_chars(text.data(), end, value);
  return code == std::errc() && at == end && value >= 0;
}

// The state file's first 4096 bytes, far more than it ever holds; nullopt
// when it cannot be opened, errno telling why (ENOENT: there is none).
std::optional<std::string> read_head(const std::string& path) {
  const FileDescriptor fd = open_file(path.c_str(), O_RDONLY | O_NOFOLLOW);
  if (!fd.is_open()) return std::nullopt;
  std::string text(4096, '\0');
  const ssize_t got = fd.read(text.data(), text.size());
  text.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return text;
}

}  // namespace

bool prepare_state_dir(const std::string& dir, std::string& error) {
  if (mkdir(dir.c_str(), 0755) == 0) (void)chmod(dir.c_str(), 0755);
  struct stat status;
  if (lstat(dir.c_str(), &status) != 0) {
    error = system_error("cannot make the state directory " + dir);
    return false;
  }
  if (!S_ISDIR(status.st_mode) || !only_root_writes(status)) {
    error = "the state directory " + dir +
            " is not a directory that only root may write";
    return false;
  }
  return true;
}

bool read_state(const std::string& dir, NightlyState& state,
                std::string& error) {
  state = NightlyState{};
  const std::string path = dir + "/" + kStateName;
  const std::optional<std::string> text = read_head(path);
  if (!text) {
    if (errno == ENOENT) return true;
    error = system_error("cannot read " + path);
    return false;
  }
  std::istringstream lines(*text);
  std::string line;
  bool day_seen = false;
  while (std::getline(lines, line)) {
    const size_t equals = line.find('=');
    int64_t value = 0;
    if (equals == line.npos || !parse_number(line.substr(equals + 1), value)) {
      continue;
    }
    const std::string key = line.substr(0, equals);
    if (key == "last_day") {
      // 00000000: no day settled yet.
      state.last_day = parse_date_arg(line.substr(equals + 1).c_str());
      day_seen = state.last_day != 0 || value == 0;
    } else if (key == "last_success_end") {
      state.last_success_end = value;
    } else if (key == "lines_left_out") {
      state.lines_left_out = value;
    }
  }
  if (!day_seen) {
    error = path + " holds no last_day=yyyymmdd line";
    return false;
  }
  return true;
}

bool write_state(const std::string& dir, const NightlyState& state,
                 std::string& error) {
  char text[160];
  (void)std::snprintf(
      text, sizeof text,
      "last_day=%08d\nlast_success_end=%lld\nlines_left_out=%lld\n",
      static_cast<int>(state.last_day),
      static_cast<long long>(state.last_success_end),
      static_cast<long long>(state.lines_left_out));
  const std::string path = dir + "/" + kStateName;
  std::string temporary = path + ".XXXXXX";
  FileDescriptor fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd.is_open()) {
    error = system_error("cannot write the state into " + dir);
    return false;
  }
  bool done =
      fchmod(fd.get(), 0644) == 0 && fd.write_all(text) && fsync(fd.get()) == 0;
  done = fd.close() && done;
  done = done && rename(temporary.c_str(), path.c_str()) == 0;
  if (!done) {
    error = system_error("cannot write " + path);
    (void)unlink(temporary.c_str());
    return false;
  }
  const FileDescriptor dir_fd = open_file(dir.c_str(), O_RDONLY | O_DIRECTORY);
  if (dir_fd.is_open()) (void)fsync(dir_fd.get());
  return true;
}

FileDescriptor take_lock(const std::string& dir, int wait_seconds,
                         const std::function<void()>& waiting,
                         std::string& error) {
  const std::string path = dir + "/lock";
  FileDescriptor fd =
      open_file(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
  struct stat status;
  if (!fd.is_open() || fstat(fd.get(), &status) != 0) {
    error = system_error("cannot open the lock " + path);
    return {};
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != 0 ||
      (status.st_mode & 077) != 0) {
    error = "the lock " + path + " is not root's alone (mode 0600)";
    return {};
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(wait_seconds);
  bool said = false;
  while (retry_interrupted(
             [&] { return flock(fd.get(), LOCK_EX | LOCK_NB); }) != 0) {
    if (errno != EWOULDBLOCK) {
      error = system_error("cannot lock " + path);
      return {};
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      error = "another run still holds " + path + " after " +
              std::to_string(wait_seconds) + " s: giving up";
      return {};
    }
    if (!said) waiting();
    said = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return fd;
}
