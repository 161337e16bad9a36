// O_NONBLOCK keeps the open itself from waiting: on a named pipe without a
// peer, or on a file whose owner holds a lease on it. Whether the result is
// a plain file can only be trusted from fstat on the descriptor, since the
// name may be swapped between a check and the open.
#include "io/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "io/beneath_root.h"
#include "sys/file_descriptor.h"

int open_regular_file(const char* path, int flags) {
  // Truncating on open would empty a planted hard link before fstat could
  // refuse it.
  if ((flags & O_TRUNC) != 0) return -1;
  FileDescriptor fd(open_beneath_root(path, flags | O_NONBLOCK));
  if (!fd.is_open()) return -1;
  struct stat status;
  int file_flags = fcntl(fd.get(), F_GETFL);
  if (fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_nlink > 1 || file_flags < 0 ||
      fcntl(fd.get(), F_SETFL, file_flags & ~O_NONBLOCK) != 0) {
    return -1;
  }
  return fd.release();
}
