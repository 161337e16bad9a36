// Reaching a file of the output root. Others may be able to write into
// parts of the web tree; a run as root must never be steered out of the
// root by a symbolic link, nor work inside a directory that somebody else
// controls, who could swap its entries between any two system calls.
#ifndef SCANREPORT_IO_BENEATH_ROOT_H_
#define SCANREPORT_IO_BENEATH_ROOT_H_

// Opens `path`, which must begin with OUTPUT_ROOT, with `flags` (plus
// O_NOFOLLOW and O_CLOEXEC; a new file gets mode 0666 less the umask) and
// returns the descriptor. The walk starts from a descriptor of the root
// and takes one name at a time, so every directory it passes is checked
// on the descriptor it then opens the next name from. Returns -1, with
// nothing opened or created, when `path` does not lie beneath the root,
// when a name after the root is a symbolic link, "." or "..", or when the
// root or a directory below it on the way is not owned by root (or by the
// effective user, where that is not root) or is writable by its group or
// by others. The root's own path is the administrator's and may hold
// links.
int open_beneath_root(const char* path, int flags);

// Whether `fd` is a directory that the walk above would pass: owned by
// root (or by the effective user, where that is not root) and writable by
// neither its group nor others.
bool is_trusted_directory(int fd);

#endif  // SCANREPORT_IO_BENEATH_ROOT_H_
