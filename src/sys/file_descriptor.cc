// Thin wrappers: each system call once, in the one retry loop.
#include "sys/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

void FileDescriptor::reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

bool FileDescriptor::close() { return fd_ < 0 || ::close(release()) == 0; }

ssize_t FileDescriptor::read(void* buffer, size_t size) const {
  return retry_interrupted([&] { return ::read(fd_, buffer, size); });
}

ssize_t FileDescriptor::read_at(void* buffer, size_t size, off_t offset) const {
  return retry_interrupted([&] { return ::pread(fd_, buffer, size, offset); });
}

bool FileDescriptor::write_all(const void* data, size_t size) const {
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n =
        retry_interrupted([&] { return ::write(fd_, bytes, size); });
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

bool FileDescriptor::truncate(off_t length) const {
  return retry_interrupted([&] { return ::ftruncate(fd_, length); }) == 0;
}

FileDescriptor open_file(const char* path, int flags, mode_t mode) {
  return FileDescriptor(
      retry_interrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); }));
}

FileDescriptor open_file_at(int dir, const char* name, int flags, mode_t mode) {
  return FileDescriptor(retry_interrupted(
      [&] { return ::openat(dir, name, flags | O_CLOEXEC, mode); }));
}
