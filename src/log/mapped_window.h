// Windows of a regular file mapped for reading, so the log is looked at in
// the page cache rather than copied out of it. A mapped file that shrinks
// (a log rotated by copying it and truncating it in place) would kill the
// process with SIGBUS at the first page it lost; a guarded window reads
// such pages as zero bytes instead, and says that it was cut.
#ifndef SCANREPORT_LOG_MAPPED_WINDOW_H_
#define SCANREPORT_LOG_MAPPED_WINDOW_H_

#include <sys/types.h>

#include <cstddef>

struct MappedWindow {
  char* mapping = nullptr;  // page-aligned start of the mapping
  size_t mapping_size = 0;
  const char* data = nullptr;  // the bytes asked for, inside the mapping
  int guard = -1;              // index of the guard that covers it
};

// Takes one of the few guards that a process has, for a reader that maps
// windows one after another; false when all are taken (the reader then
// reads instead). The first guard taken installs the SIGBUS handler, which
// hands every fault outside a guarded window on to the handler it replaced.
bool take_window_guard(MappedWindow* window);

// Unmaps the window, if any, and gives its guard back.
void release_window_guard(MappedWindow* window);

// Replaces the window's mapping with the `size` bytes of `fd` from
// `offset`, faulted in at once so that the reader pays no page fault per
// page. `size` must be at least 1 and the window must hold a guard. False,
// with nothing mapped, when the file cannot be mapped.
bool map_window(int fd, off_t offset, size_t size, MappedWindow* window);

// Unmaps the window's mapping, if any, keeping its guard: the pages stop
// counting toward the process's memory once the reader has passed them.
void unmap_window(MappedWindow* window);

// Whether a page of the window has left the file since the last call, so
// that from that page on the window now reads as zero bytes. Each cut is
// told once.
bool take_window_cut(MappedWindow* window);

#endif  // SCANREPORT_LOG_MAPPED_WINDOW_H_
