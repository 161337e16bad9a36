// The walk takes one name at a time, rather than handing the kernel the
// whole path, because each directory on the way must be checked: a day
// directory that its maker may write into can have its entries replaced
// at any moment, so what the run would find there is not what root put
// there. A directory is judged on the descriptor the next name is opened
// from, so nothing can be swapped between the check and its use.
//
// Each name is opened with openat2 and RESOLVE_NO_SYMLINKS |
// RESOLVE_BENEATH, and with openat and O_NOFOLLOW where the kernel lacks
// openat2 or a sandbox forbids it: for a single name that is neither "."
// nor ".." both refuse exactly a symbolic link.
#include "io/beneath_root.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "io/output_paths.h"
#include "sys/file_descriptor.h"

namespace {

// Longest file name Linux accepts (NAME_MAX), and its NUL.
constexpr size_t kNameSize = 256;

int open_name(int dir, const char* name, int flags) {
  flags |= O_NOFOLLOW | O_CLOEXEC;
  open_how how{};
  how.flags = static_cast<unsigned>(flags);
  how.mode = (flags & O_CREAT) != 0 ? 0666 : 0;
  how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_BENEATH;
  const long fd = retry_interrupted(
      [&] { return syscall(SYS_openat2, dir, name, &how, sizeof how); });
  if (fd >= 0 || (errno != ENOSYS && errno != EPERM)) {
    return static_cast<int>(fd);
  }
  return open_file_at(dir, name, flags, 0666).release();
}

// Moves `dir` down into the directory `name`, closing the one it leaves;
// `dir` holds nothing when that directory cannot be entered.
void enter(FileDescriptor& dir, const char* name) {
  FileDescriptor next(open_name(dir.get(), name, O_RDONLY | O_DIRECTORY));
  if (next.is_open() && !is_trusted_directory(next.get())) next.reset();
  dir = std::move(next);
}

}  // namespace

// As sshd's StrictModes judges a home directory: whoever else may write
// into it decides what its names mean.
bool is_trusted_directory(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_uid == 0 || status.st_uid == geteuid()) &&
         (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

int open_beneath_root(const char* path, int flags) {
  const size_t root_length = std::strlen(OUTPUT_ROOT);
  if (std::strncmp(path, OUTPUT_ROOT, root_length) != 0) return -1;
  FileDescriptor dir = open_file(OUTPUT_ROOT, O_RDONLY | O_DIRECTORY);
  if (dir.is_open() && !is_trusted_directory(dir.get())) return -1;
  std::string_view rest(path + root_length);
  while (dir.is_open()) {
    rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
    const std::string_view name = rest.substr(0, rest.find('/'));
    rest.remove_prefix(name.size());
    const bool last = rest.find_first_not_of('/') == rest.npos;
    if (name.empty() || name.size() >= kNameSize || name == "." ||
        name == "..") {
      return -1;
    }
    char text[kNameSize];
    name.copy(text, name.size());
    text[name.size()] = '\0';
    if (last) return open_name(dir.get(), text, flags);
    enter(dir, text);
  }
  return -1;
}
