// Opening a file in a directory that others may be able to write to. The
// tool runs as root, so whatever stands at a report's path is checked on
// the open descriptor before a byte is read or written: only a plain file
// will do.
#ifndef SCANREPORT_IO_REGULAR_FILE_H_
#define SCANREPORT_IO_REGULAR_FILE_H_

// Opens `path` with `flags` (O_RDONLY, or O_WRONLY with or without O_CREAT;
// a new file gets mode 0666 less the umask) and returns the descriptor,
// blocking and close-on-exec. Returns -1, with nothing read, written or
// truncated, when the open fails or what was opened is not a regular file:
// a symbolic link as the last path component is not followed, and a named
// pipe, device or socket is closed again without waiting for a peer.
// Directories along the path may be links.
int open_regular_file(const char* path, int flags);

#endif  // SCANREPORT_IO_REGULAR_FILE_H_
