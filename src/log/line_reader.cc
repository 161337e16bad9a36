// The log is read in large windows with read(2) and lines are found with
// memchr; buffered_lines lets a caller look at a window's lines in place.
// This keeps a pass over gigabytes of earlier days close to the
// speed of the page cache. The state rules copy std::istream::getline so
// that the rest of the tool can rely on exactly its behaviour.
#include "log/line_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>  // memrchr
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {
// Small enough that a window is still in the core's cache when its lines
// are looked at, large enough that the read calls cost nothing.
constexpr size_t kDefaultWindowSize = 256 << 10;
constexpr size_t kMaxLineLength = LOG_LINE_SIZE - 1;
}  // namespace

LineReader::~LineReader() { close(); }

bool LineReader::open(const char* path, size_t window_size) {
  close();
  do {
    fd_ = ::open(path, O_RDONLY | O_CLOEXEC);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) return false;
  posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
  window_size_ = window_size != 0 ? window_size : kDefaultWindowSize;
  window_ = std::make_unique_for_overwrite<char[]>(window_size_);
  pos_ = end_ = 0;
  eof_ = failed_ = false;
  return true;
}

void LineReader::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

// A read error ends the log as the end of the file does: a file stream
// reports both as end of file.
bool LineReader::refill() {
  if (fd_ < 0) return false;
  for (;;) {
    ssize_t n = ::read(fd_, window_.get(), window_size_);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    pos_ = 0;
    end_ = static_cast<size_t>(n);
    return true;
  }
}

bool LineReader::getline(char* buf) {
  buf[0] = '\0';
  if (eof_ || failed_ || fd_ < 0) {
    failed_ = true;
    return false;
  }
  size_t stored = 0;
  bool line_feed_seen = false;
  for (;;) {
    if (pos_ == end_ && !refill()) {
      eof_ = true;
      break;
    }
    const char* start = window_.get() + pos_;
    size_t room = kMaxLineLength - stored;
    // One byte beyond the room tells a full line from one too long.
    size_t span = std::min(end_ - pos_, room + 1);
    const char* line_feed =
        static_cast<const char*>(std::memchr(start, '\n', span));
    if (line_feed != nullptr) {
      size_t n = static_cast<size_t>(line_feed - start);
      std::memcpy(buf + stored, start, n);
      stored += n;
      pos_ += n + 1;
      line_feed_seen = true;
      break;
    }
    if (span > room) {
      std::memcpy(buf + stored, start, room);
      stored += room;
      pos_ += room;
      failed_ = true;
      break;
    }
    std::memcpy(buf + stored, start, span);
    stored += span;
    pos_ += span;
  }
  buf[stored] = '\0';
  if (stored == 0 && !line_feed_seen) failed_ = true;
  return !failed_;
}

std::string_view LineReader::buffered_lines() const {
  if (eof_ || failed_ || fd_ < 0 || pos_ == end_) return {};
  const char* start = window_.get() + pos_;
  const void* last = memrchr(start, '\n', end_ - pos_);
  if (last == nullptr) return {};
  return std::string_view(
      start, static_cast<size_t>(static_cast<const char*>(last) - start) + 1);
}
