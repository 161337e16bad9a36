// Output files are opened with open(2) rather than std::ofstream so that a
// symbolic link, named pipe or device planted where a report belongs is
// refused: the tool runs as root inside a web tree that others may be able
// to write to.
#include "io/output_file.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <charconv>

#include "io/regular_file.h"

OutputFile::~OutputFile() { close(); }

bool OutputFile::open(const char* path) {
  close();
  fd_ = open_regular_file(path, O_WRONLY | O_CREAT);
  if (fd_ < 0) return false;
  // Emptied only once it is known to be a plain file.
  int result;
  do {
    result = ftruncate(fd_, 0);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    ::close(fd_);
    fd_ = -1;
  }
  return fd_ >= 0;
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
