// O_NOFOLLOW refuses a link planted in place of a file, and O_NONBLOCK keeps
// the open itself from waiting: on a named pipe without a peer, or on a
// file whose owner holds a lease on it. Whether the result is a plain file
// can only be trusted from fstat on the descriptor, since the name may be
// swapped between a check and the open.
#include "io/regular_file.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

int open_regular_file(const char* path, int flags) {
  int fd;
  do {
    fd = ::open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return -1;
  struct stat status;
  int file_flags = fcntl(fd, F_GETFL);
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || file_flags < 0 ||
      fcntl(fd, F_SETFL, file_flags & ~O_NONBLOCK) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}
