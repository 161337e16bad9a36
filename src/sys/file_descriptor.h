// One owner of a file descriptor, below io and log, which both open, read
// and write files: it closes what it holds on every path out of a scope,
// and the calls made through it are retried when a signal interrupts them,
// so no caller writes that loop again.
#ifndef SCANREPORT_SYS_FILE_DESCRIPTOR_H_
#define SCANREPORT_SYS_FILE_DESCRIPTOR_H_

#include <errno.h>
#include <sys/types.h>

#include <cstddef>
#include <string_view>
#include <utility>

// Calls `call` again for as long as it fails with EINTR, and returns its
// last result.
template <typename Call>
auto retry_interrupted(Call call) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    reset(other.release());
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  int get() const { return fd_; }
  bool is_open() const { return fd_ >= 0; }
  // Hands the descriptor over to the caller, who then closes it.
  int release() { return std::exchange(fd_, -1); }
  // Closes what is held (a close is never retried: Linux frees the
  // descriptor even when close reports EINTR) and holds `fd` instead.
  void reset(int fd = -1);
  // Closes what is held now, for a caller that must know that the bytes
  // written reached the file: a write that fails late (a full disk on some
  // file systems, a network file system) shows only here. False when
  // close(2) failed; true when nothing was held. Holds nothing after.
  bool close();

  // read(2) of up to `size` bytes: the count read, 0 at the end of the
  // file, -1 on an error.
  ssize_t read(void* buffer, size_t size) const;
  // pread(2): the same at `offset`, leaving the file offset as it is.
  ssize_t read_at(void* buffer, size_t size, off_t offset) const;
  // Writes all `size` bytes, going on after short writes; false on the
  // first error, or when nothing more can be written (a full disk), with
  // an unknown part of the bytes written.
  bool write_all(const void* data, size_t size) const;
  bool write_all(std::string_view text) const {
    return write_all(text.data(), text.size());
  }
  bool truncate(off_t length) const;

 private:
  int fd_ = -1;
};

// open(2) and openat(2), with O_CLOEXEC added; the result does not hold a
// descriptor when the open failed (errno tells why).
FileDescriptor open_file(const char* path, int flags, mode_t mode = 0);
FileDescriptor open_file_at(int dir, const char* name, int flags,
                            mode_t mode = 0);

#endif  // SCANREPORT_SYS_FILE_DESCRIPTOR_H_
