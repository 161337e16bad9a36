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
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace {
// Large enough that the read calls cost nothing, small enough that a block
// is still in the core's cache when its lines are looked at.
constexpr size_t kDefaultBlockSize = 256 << 10;
constexpr size_t kMaxLineLength = LOG_LINE_SIZE - 1;

bool is_regular_file(const FileDescriptor& fd) {
  struct stat st;
  return fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode);
}
}  // namespace

LineReader::~LineReader() { close(); }

bool LineReader::open(const char* path, size_t block_size) {
  close();
  fd_ = open_file(path, O_RDONLY);
  if (!fd_.is_open()) return false;
  posix_fadvise(fd_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  source_ = &fd_;
  regular_file_ = is_regular_file(fd_);
  block_size_ = block_size != 0 ? block_size : kDefaultBlockSize;
  block_ = std::make_unique_for_overwrite<char[]>(block_size_);
  return true;
}

bool LineReader::open_part(const LineReader& whole, off_t offset) {
  close();
  if (whole.source_ == nullptr || !whole.regular_file_) return false;
  source_ = whole.source_;
  regular_file_ = by_offset_ = true;
  next_offset_ = offset;
  block_size_ = whole.block_size_;
  block_ = std::make_unique_for_overwrite<char[]>(block_size_);
  return true;
}

void LineReader::close() {
  fd_.reset();
  source_ = nullptr;
  block_.reset();
  regular_file_ = by_offset_ = at_end_at_ = false;
  next_offset_ = 0;
  end_at_ = -1;
  pos_ = end_ = 0;
  eof_ = failed_ = false;
}

// A read error ends the log as the end of the file does: a file stream
// reports both as end of file.
bool LineReader::refill() {
  if (source_ == nullptr) return false;
  size_t size = block_size_;
  if (end_at_ >= 0) {
    if (next_offset_ >= end_at_) {
      at_end_at_ = true;
      return false;
    }
    size = static_cast<size_t>(
        std::min<off_t>(static_cast<off_t>(size), end_at_ - next_offset_));
  }
  const ssize_t n = by_offset_
                        ? source_->read_at(block_.get(), size, next_offset_)
                        : source_->read(block_.get(), size);
  if (n <= 0) return false;
  next_offset_ += n;
  pos_ = 0;
  end_ = static_cast<size_t>(n);
  return true;
}

off_t LineReader::read_offset() const {
  if (!regular_file_) return -1;
  return next_offset_ - static_cast<off_t>(end_ - pos_);
}

off_t LineReader::file_size() const {
  struct stat st;
  return source_ != nullptr && fstat(source_->get(), &st) == 0 ? st.st_size : 0;
}

off_t LineReader::line_start_from(off_t offset) const {
  char bytes[LOG_LINE_SIZE];
  if (source_ == nullptr || offset < 1) return -1;
  const ssize_t n = source_->read_at(bytes, sizeof bytes, offset - 1);
  if (n <= 0) return -1;
  const void* line_feed = std::memchr(bytes, '\n', static_cast<size_t>(n));
  if (line_feed == nullptr) return -1;
  return offset + (static_cast<const char*>(line_feed) - bytes);
}

void LineReader::end_at(off_t offset) {
  if (at_end_at_) eof_ = failed_ = false;
  end_at_ = offset;
  at_end_at_ = false;
}

void LineReader::read_from(off_t offset) {
  next_offset_ = offset;
  pos_ = end_ = 0;
  eof_ = failed_ = false;
  // This reader's own file offset stands wherever it stopped; reading on
  // by offset leaves it alone.
  by_offset_ = true;
  end_at(-1);
}

bool LineReader::getline(char* buf) {
  buf[0] = '\0';
  if (eof_ || failed_ || source_ == nullptr) {
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
  if (eof_ || failed_ || source_ == nullptr || pos_ == end_) return {};
  const char* start = block_.get() + pos_;
  const void* last = memrchr(start, '\n', end_ - pos_);
  if (last == nullptr) return {};
  return std::string_view(
      start, static_cast<size_t>(static_cast<const char*>(last) - start) + 1);
}
