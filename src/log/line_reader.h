// The one way the scan log is read. LineReader behaves exactly like
// std::istream::getline into a LOG_LINE_SIZE buffer, so every reader of the
// log sees the same lines, the same failures and the same end-of-file
// state, while the reading itself can be made fast in one place.
#ifndef SCANREPORT_LOG_LINE_READER_H_
#define SCANREPORT_LOG_LINE_READER_H_

#include <cstddef>
#include <memory>
#include <string_view>

#include "sys/file_descriptor.h"

inline constexpr int LOG_LINE_SIZE = 2048;

class LineReader {
 public:
  LineReader() = default;
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Opens `path` for reading; false when it cannot be opened. The log is
  // read with read(2) into one block of `block_size` bytes (0: the
  // default), reused from block to block, whatever the file is: a regular
  // file, a pipe, a device. Lines are the same whatever the block size:
  // tests make it small so that lines straddle blocks with small inputs.
  //
  // A log that grows while it is read is read on. A log cut while it is
  // read (truncated in place by a rotation) ends where the file then ends
  // once the reader reads past what it holds: the lines of the block in
  // hand are read as they stood when it was read, and a read that finds
  // the end of the file ends the log for good, so what is written into
  // the emptied file afterwards is not read.
  bool open(const char* path, size_t block_size = 0);
  void close();

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

  // The whole lines that the current block holds from the read position
  // on, line feeds included: a view into the reader's block, valid until
  // the next getline or close. Empty once eof() or failed() is set, and
  // when the block holds no further line feed (getline then reads on).
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

  FileDescriptor fd_;
  size_t block_size_ = 0;
  std::unique_ptr<char[]> block_;
  size_t pos_ = 0;  // the read position in the block
  size_t end_ = 0;  // how much of the block the last read filled
  bool eof_ = false;
  bool failed_ = false;
};

#endif  // SCANREPORT_LOG_LINE_READER_H_
