// A regular file is looked at through mapped windows, so a pass over
// gigabytes of earlier days reads the page cache in place instead of
// copying it out; anything else is read in large read(2) blocks. Lines are
// found with memchr either way, and buffered_lines lets a caller look at a
// window's lines where they lie. A mapped window is unmapped as soon as the
// reader has passed it, which keeps the memory of a run the same whatever
// the size of the log. The state rules copy std::istream::getline so that
// the rest of the tool can rely on exactly its behaviour.
#include "log/line_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>  // memrchr
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {
// Small enough that a block is still in the core's cache when its lines
// are looked at, large enough that the read calls cost nothing.
constexpr size_t kDefaultReadSize = 256 << 10;
// Large enough that mapping and unmapping cost nothing per page, small
// enough that a mapped window adds little to the process's memory.
constexpr size_t kDefaultMappedSize = 1 << 20;
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
  // A file that reports no size may still have bytes to read (the files
  // of /proc do), so only a file with a size is mapped.
  struct stat st;
  mapped_ = fstat(fd_, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
            take_window_guard(&mapping_);
  window_size_ = window_size != 0 ? window_size
                 : mapped_        ? kDefaultMappedSize
                                  : kDefaultReadSize;
  cut_ = false;
  window_offset_ = 0;
  window_ = nullptr;
  pos_ = end_ = 0;
  eof_ = failed_ = false;
  return true;
}

void LineReader::close() {
  release_window_guard(&mapping_);
  window_ = nullptr;
  pos_ = end_ = 0;
  buffer_.reset();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

// A read error ends the log as the end of the file does: a file stream
// reports both as end of file. So does a cut: what a rotation left in the
// file from there on is another log.
bool LineReader::refill() {
  if (fd_ < 0 || cut_) return false;
  return mapped_ ? map_next_window() : read_next_window();
}

// The size is asked again for every window, so a log that grows while it
// is read is read on, as read(2) would.
bool LineReader::map_next_window() {
  const off_t next = window_offset_ + static_cast<off_t>(end_);
  unmap_window(&mapping_);
  window_ = nullptr;
  pos_ = end_ = 0;
  window_offset_ = next;
  struct stat st;
  if (fstat(fd_, &st) != 0 || st.st_size <= next) return false;
  const size_t size =
      std::min(static_cast<size_t>(st.st_size - next), window_size_);
  if (!map_window(fd_, next, size, &mapping_)) {
    // Reads on from the same place when the file cannot be mapped.
    release_window_guard(&mapping_);
    mapped_ = false;
    if (lseek(fd_, next, SEEK_SET) != next) return false;
    return read_next_window();
  }
  window_ = mapping_.data;
  end_ = size;
  return true;
}

bool LineReader::read_next_window() {
  if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(window_size_);
  for (;;) {
    ssize_t n = ::read(fd_, buffer_.get(), window_size_);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    window_ = buffer_.get();
    pos_ = 0;
    end_ = static_cast<size_t>(n);
    return true;
  }
}

// Called after each look at the window: when the file has lost bytes of
// the window, the window is ended where the file now ends (never before the
// read position) and the caller looks again. A lost page faults and tells
// the guard; the lost tail of the file's last page reads as zero bytes
// without a fault, and so the size is asked as well whenever the look found
// no line feed (zero bytes hold none, and it is rare in a window).
bool LineReader::window_cut(bool ask_size) {
  if (!mapped_) return false;
  const bool fault = take_window_cut(&mapping_);
  if (!fault && !ask_size) return false;
  struct stat st;
  const off_t size = fstat(fd_, &st) == 0 ? st.st_size : 0;
  const size_t left =
      size > window_offset_ ? static_cast<size_t>(size - window_offset_) : 0;
  if (!fault && left >= end_) return false;
  cut_ = true;
  end_ = std::clamp(left, pos_, end_);
  return true;
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
    const char* start = window_ + pos_;
    const size_t room = kMaxLineLength - stored;
    // One byte beyond the room tells a full line from one too long.
    const size_t span = std::min(end_ - pos_, room + 1);
    const char* line_feed =
        static_cast<const char*>(std::memchr(start, '\n', span));
    const size_t n = line_feed != nullptr
                         ? static_cast<size_t>(line_feed - start)
                         : std::min(span, room);
    std::memcpy(buf + stored, start, n);
    if (window_cut(line_feed == nullptr)) continue;
    stored += n;
    pos_ += n;
    if (line_feed != nullptr) {
      ++pos_;
      line_feed_seen = true;
      break;
    }
    if (span > room) {
      failed_ = true;
      break;
    }
  }
  buf[stored] = '\0';
  if (stored == 0 && !line_feed_seen) failed_ = true;
  return !failed_;
}

std::string_view LineReader::buffered_lines() {
  if (eof_ || failed_ || fd_ < 0 || pos_ == end_) return {};
  const void* last;
  do {
    last = memrchr(window_ + pos_, '\n', end_ - pos_);
  } while (window_cut(false));
  if (last == nullptr) return {};
  const char* start = window_ + pos_;
  return std::string_view(
      start, static_cast<size_t>(static_cast<const char*>(last) - start) + 1);
}
