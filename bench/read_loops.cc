// The reference loops for the pass over earlier days: the least any
// reader of the log can do on this host, measured beside the program in
// the same rounds of bench/run. Each finds the first line dated on or
// after a day (the date is the second ",,"-separated field, dd-mm-yyyy)
// and prints how many lines come before it.
//
//   read_loops read LOG dd-mm-yyyy      read(2) of 1 MiB blocks + memchr
//   read_loops map:N LOG dd-mm-yyyy     mapped windows of N MiB + memchr
//
// A mapped window is faulted in at once (MAP_POPULATE) and unmapped when
// passed, as a careful mapping reader would; whether that beats the copy
// of read(2) depends on what a page fault costs on the host.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr size_t kMiB = 1 << 20;
constexpr size_t kLongestLine = 2048;

long stamp_of(const char* ddmmyyyy) {
  auto digits = [&](int at, int n) {
    long v = 0;
    for (int i = 0; i < n; ++i) v = v * 10 + (ddmmyyyy[at + i] - '0');
    return v;
  };
  return digits(6, 4) * 10000 + digits(3, 2) * 100 + digits(0, 2);
}

// Whether the line [line, end) is dated on or after `first`.
bool on_or_after(const char* line, const char* end, long first) {
  for (const char* p = line; p + 12 <= end; ++p) {
    if (p[0] == ',' && p[1] == ',') return stamp_of(p + 2) >= first;
  }
  return false;
}

// Judges the whole lines of [begin, end); returns where the unjudged rest
// begins, or null once the dated line is found.
const char* judge_lines(const char* begin, const char* end, long first,
                        long& lines) {
  const char* line = begin;
  while (const char* lf = static_cast<const char*>(
             std::memchr(line, '\n', static_cast<size_t>(end - line)))) {
    if (on_or_after(line, lf, first)) return nullptr;
    ++lines;
    line = lf + 1;
  }
  return line;
}

long read_loop(int fd, long first) {
  auto block = std::make_unique<char[]>(kMiB + kLongestLine);
  size_t kept = 0;  // the start of a line that the last block cut
  long lines = 0;
  for (;;) {
    const ssize_t n = read(fd, block.get() + kept, kMiB);
    if (n <= 0) return lines;
    const char* end = block.get() + kept + n;
    const char* rest = judge_lines(block.get(), end, first, lines);
    if (rest == nullptr) return lines;
    kept = static_cast<size_t>(end - rest);
    if (kept > kLongestLine) kept = 0;  // not a log line: dropped
    std::memmove(block.get(), rest, kept);
  }
}

long map_loop(int fd, size_t window, long first) {
  struct stat st;
  if (fstat(fd, &st) != 0) return -1;
  const size_t size = static_cast<size_t>(st.st_size);
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  long lines = 0;
  // Each window reaches a line's length past its end, so that the line
  // that starts in it ends in it; the next window begins at the page of
  // the first line not judged.
  for (size_t from = 0, start = 0; start < size;) {
    const size_t length = std::min(size - from, window + kLongestLine);
    void* mapped = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_POPULATE,
                        fd, static_cast<off_t>(from));
    if (mapped == MAP_FAILED) return -1;
    const char* base = static_cast<const char*>(mapped);
    const char* end = base + length;
    const char* rest = judge_lines(base + (start - from), end, first, lines);
    const size_t next = rest == nullptr ? size : from + (rest - base);
    munmap(mapped, length);
    if (rest == nullptr || next == start) break;
    start = next;
    from = start & ~(page - 1);
  }
  return lines;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4 || std::strlen(argv[3]) != 10) {
    std::fprintf(stderr, "usage: read_loops read|map:MiB LOG dd-mm-yyyy\n");
    return 2;
  }
  const int fd = open(argv[2], O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    std::perror(argv[2]);
    return 1;
  }
  const long first = stamp_of(argv[3]);
  const long lines =
      std::strncmp(argv[1], "map:", 4) == 0
          ? map_loop(fd, std::strtoul(argv[1] + 4, nullptr, 10) * kMiB, first)
          : read_loop(fd, first);
  close(fd);
  std::printf("%ld\n", lines);
  return lines < 0;
}
