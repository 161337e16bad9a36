// The one way the scan log is read. LineReader behaves exactly like
// std::istream::getline into a LOG_LINE_SIZE buffer, so every reader of the
// log sees the same lines, the same failures and the same end-of-file
// state, while the reading itself can be made fast in one place.
#ifndef SCANREPORT_LOG_LINE_READER_H_
#define SCANREPORT_LOG_LINE_READER_H_

#include <cstddef>
#include <memory>
#include <string_view>

#include "log/mapped_window.h"

inline constexpr int LOG_LINE_SIZE = 2048;

class LineReader {
 public:
  LineReader() = default;
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Opens `path` for reading; false when it cannot be opened. The reader
  // looks at the log through a window of `window_size` bytes: a mapping of
  // the file when it is a regular file that can be mapped, otherwise the
  // block that each read(2) fills (a pipe, a device, a file that mapping
  // refuses). 0 chooses the default of each, which suits the page cache.
  // Lines are the same whatever the window and however it is filled: tests
  // make it small so that lines straddle windows with small inputs.
  //
  // A log cut while it is mapped (truncated in place by a rotation) never
  // ends the process with SIGBUS: the log ends where the file now ends.
  // Should the cut fall on the very line being read at that moment, the
  // line's lost tail may read as NUL bytes.
  bool open(const char* path, size_t window_size = 0);
  void close();

  // Whether the log is looked at through mappings rather than read(2).
  bool is_mapped() const { return mapped_; }

  // Reads the next line into `buf` (LOG_LINE_SIZE bytes) and returns
  // !failed(). Exactly as std::istream::getline(buf, LOG_LINE_SIZE):
  // - a line of up to 2047 characters is stored whole, NUL-terminated; its
  //   line feed is consumed and not stored; bytes are copied unchanged, NUL
  //   bytes included;
  // - a longer line stores its first 2047 characters and fails; nothing
  //   after them is consumed;
  // - a last line without a line feed is stored and sets eof();
  // - a read at the end of the file stores the empty text, sets eof() and
  //   fails;
  // - once eof() or failed() is set, every later read fails and stores the
  //   empty text.
  bool getline(char* buf);

  // The whole lines that the current window holds from the read position
  // on, line feeds included: a view into the reader's window, valid until
  // the next getline or close. Empty once eof() or failed() is set, and
  // when the window holds no further line feed (getline then reads on).
  // Nothing is consumed.
  std::string_view buffered_lines();

  // Consumes the first `count` bytes of buffered_lines(). They must end
  // with a line feed and hold only lines of at most 2047 characters: the
  // state is then exactly as after reading those lines with getline.
  void consume(size_t count) { pos_ += count; }

  bool eof() const { return eof_; }
  bool failed() const { return failed_; }

 private:
  bool refill();
  bool map_next_window();
  bool read_next_window();
  bool window_cut(bool ask_size);

  int fd_ = -1;
  size_t window_size_ = 0;
  bool mapped_ = false;
  bool cut_ = false;
  MappedWindow mapping_;
  off_t window_offset_ = 0;  // where the mapped window starts in the file
  std::unique_ptr<char[]> buffer_;  // what read(2) fills
  const char* window_ = nullptr;
  size_t pos_ = 0;
  size_t end_ = 0;
  bool eof_ = false;
  bool failed_ = false;
};

#endif  // SCANREPORT_LOG_LINE_READER_H_
