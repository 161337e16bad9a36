// Output files are opened with open(2) rather than std::ofstream so that a
// symbolic link, named pipe or device planted where a report belongs is
// refused: the tool runs as root inside a web tree that others may be able
// to write to. One fixed buffer per open file keeps the write calls few
// and the memory of a run independent of the size of what it writes.
#include "io/output_file.h"

#include <fcntl.h>

#include <charconv>

#include "io/regular_file.h"

OutputFile::~OutputFile() { close(); }

bool OutputFile::open(const char* path) {
  close();
  FileDescriptor fd(open_regular_file(path, O_WRONLY | O_CREAT));
  // Emptied only once it is known to be a plain file.
  if (!fd.is_open() || !fd.truncate(0)) return false;
  fd_ = std::move(fd);
  buffer_ = std::make_unique_for_overwrite<char[]>(kOutputBufferSize);
  used_ = 0;
  return true;
}

OutputFile& OutputFile::operator<<(int32_t number) {
  char digits[16];
  auto [end, ec] = std::to_chars(digits, digits + sizeof digits, number);
  (void)ec;  // 16 bytes always hold an int32_t
  return *this << std::string_view(digits, end - digits);
}

// Text that does not fit what is left of the buffer: the buffer is
// written, then the text is buffered, or written at once when it is as
// large as the buffer.
OutputFile& OutputFile::append_slow(std::string_view text) {
  if (buffer_ == nullptr) return *this;
  flush();
  if (text.size() >= kOutputBufferSize) {
    fd_.write_all(text.data(), text.size());
    return *this;
  }
  return *this << text;
}

void OutputFile::flush() {
  if (buffer_ != nullptr && used_ > 0) fd_.write_all(buffer_.get(), used_);
  used_ = 0;
}

void OutputFile::close() {
  if (!fd_.is_open()) return;
  flush();
  fd_.reset();
  buffer_.reset();
}
