// Opening a file in a directory that others may be able to write to. The
// tool runs as root, so whatever stands at a report's path is checked on
// the open descriptor before a byte is read or written: only a plain file
// of its own will do, reached without a symbolic link through directories
// that only root may write.
#ifndef SCANREPORT_IO_REGULAR_FILE_H_
#define SCANREPORT_IO_REGULAR_FILE_H_

// Opens `path`, a path beneath OUTPUT_ROOT, with `flags` (O_RDONLY, or
// O_WRONLY with or without O_CREAT; a new file gets mode 0666 less the
// umask) and returns the descriptor, blocking and close-on-exec. O_TRUNC
// fails: a caller that writes empties the file itself once it has been
// accepted. Returns -1, with nothing read, written or truncated, when the
// open fails, when the way to the file is refused
// (open_beneath_root: a symbolic link anywhere after the root, or a
// directory that someone other than root may write into), or when what
// was opened is not a regular file with a single link: a named pipe,
// device or socket is closed again without waiting for a peer, and a hard
// link may name a file elsewhere that must not be changed.
int open_regular_file(const char* path, int flags);

#endif  // SCANREPORT_IO_REGULAR_FILE_H_
