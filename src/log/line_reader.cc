// The log is copied block by block with read(2) into one buffer that is
// reused for the whole run, so the memory of a run is one block whatever
// the size of the log, and the cost of a pass is the copy out of the page
// cache: no page of the process is mapped or unmapped per megabyte read,
// which on some hosts (page faults taken through a hypervisor) costs more
// than the copy. The block is small enough to stay in the core's cache
// while its lines are looked at. Lines are found with memchr, and
// buffered_lines lets a caller look at a block's lines where they lie.
// The state rules copy std::istream::getline so that the rest of the tool
// can rely on exactly its behaviour.
#include "log/line_reader.h"

#include <fcntl.h>
#include <string.h>  // memrchr

#include <algorithm>
#include <cstring>

namespace {
// Large enough that the read calls cost nothing, small enough that a block
// is still in the core's cache when its lines are looked at.
constexpr size_t kDefaultBlockSize = 256 << 10;
constexpr size_t kMaxLineLength = LOG_LINE_SIZE - 1;
}  // namespace

LineReader::~LineReader() { close(); }

bool LineReader::open(const char* path, size_t block_size) {
  close();
  fd_ = open_file(path, O_RDONLY);
  if (!fd_.is_open()) return false;
  posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  block_size_ = block_size != 0 ? block_size : kDefaultBlockSize;
  block_ = std::make_unique_for_overwrite<char[]>(block_size_);
  pos_ = end_ = 0;
  eof_ = failed_ = false;
  return true;
}

void LineReader::close() {
  fd_.reset();
  block_.reset();
  pos_ = end_ = 0;
}

// A read error ends the log as the end of the file does: a file stream
// reports both as end of file.
bool LineReader::refill() {
  if (!fd_.is_open()) return false;
  const ssize_t n = fd_.read(block_.get(), block_size_);
  if (n <= 0) return false;
  pos_ = 0;
  end_ = static_cast<size_t>(n);
  return true;
}

bool LineReader::getline(char* buf) {
  buf[0] = '\0';
  if (eof_ || failed_ || !fd_.is_open()) {
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
    const char* start = block_.get() + pos_;
    const size_t room = kMaxLineLength - stored;
    // One byte beyond the room tells a full line from one too long.
    const size_t span = std::min(end_ - pos_, room + 1);
    const char* line_feed =
        static_cast<const char*>(std::memchr(start, '\n', span));
    const size_t n = line_feed != nullptr
                         ? static_cast<size_t>(line_feed - start)
                         : std::min(span, room);
    std::memcpy(buf + stored, start, n);
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
  if (eof_ || failed_ || !fd_.is_open() || pos_ == end_) return {};
  const char* start = block_.get() + pos_;
  const void* last = memrchr(start, '\n', end_ - pos_);
  if (last == nullptr) return {};
  return std::string_view(
      start, static_cast<size_t>(static_cast<const char*>(last) - start) + 1);
}
