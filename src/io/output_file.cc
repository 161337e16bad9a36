// Output files are opened with open(2) rather than std::ofstream so that
// O_NOFOLLOW can refuse a symbolic link planted where a report belongs: the
// tool runs as root inside a web tree that others may be able to write to.
#include "io/output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <charconv>

OutputFile::~OutputFile() { close(); }

bool OutputFile::open(const char* path) {
  close();
  // O_NONBLOCK makes a named pipe planted in place of a report fail to open
  // (no reader) instead of hanging the run; regular files ignore it, and it
  // is cleared again before anything is written.
  do {
    fd_ = ::open(
        path,
        O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
        0666);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) return false;
  int flags = fcntl(fd_, F_GETFL);
  if (flags >= 0) fcntl(fd_, F_SETFL, flags & ~O_NONBLOCK);
  return true;
}

OutputFile& OutputFile::operator<<(std::string_view text) {
  if (fd_ >= 0) pending_.append(text);
  return *this;
}

OutputFile& OutputFile::operator<<(char c) {
  if (fd_ >= 0) pending_.push_back(c);
  return *this;
}

OutputFile& OutputFile::operator<<(int32_t number) {
  char digits[16];
  auto [end, ec] = std::to_chars(digits, digits + sizeof digits, number);
  (void)ec;  // 16 bytes always hold an int32_t
  return *this << std::string_view(digits, end - digits);
}

void OutputFile::end_line() {
  *this << '\n';
  flush();
}

void OutputFile::flush() {
  size_t done = 0;
  while (fd_ >= 0 && done < pending_.size()) {
    ssize_t n = ::write(fd_, pending_.data() + done, pending_.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;  // a full disk loses the rest, as a stream would
    done += static_cast<size_t>(n);
  }
  pending_.clear();
}

void OutputFile::close() {
  if (fd_ < 0) return;
  flush();
  ::close(fd_);
  fd_ = -1;
}
