// The one way the scan log is read. LineReader behaves exactly like
// std::istream::getline into a LOG_LINE_SIZE buffer, so every reader of the
// log sees the same lines, the same failures and the same end-of-file
// state, while the reading itself can be made fast in one place.
#ifndef SCANREPORT_LOG_LINE_READER_H_
#define SCANREPORT_LOG_LINE_READER_H_

#include <sys/types.h>

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
  size_t block_size() const { return block_size_; }

  // Reading a regular file in parts, each in its own process, for a search
  // that only needs to know where a line starts (find_period_start).

  // The offset in the file of the next byte that getline would read; -1
  // when the log is not a regular file (a pipe, whose parts cannot be read
  // apart).
  off_t read_offset() const;
  // The size of the file now; 0 when it cannot be known.
  off_t file_size() const;
  // The offset just past the first line feed at or after `offset` - 1
  // (`offset` at least 1), when one comes within LOG_LINE_SIZE bytes; -1
  // otherwise. A reader that reads every line on from here without failing
  // starts a line there.
  off_t line_start_from(off_t offset) const;

  // Opens this reader on the file that `whole` reads, from `offset` on,
  // with whole's block size. It reads with pread(2), leaving the file
  // offset that `whole` reads at alone; `whole` must stay open as long as
  // this reader is used. False when `whole` is not a regular file.
  bool open_part(const LineReader& whole, off_t offset);
  // Makes the reader end at `offset` as if the file ended there (-1: at
  // the file's own end), and tells whether it did. It applies to the reads
  // to come: `offset` must not lie within the block in hand. A reader that
  // ended at the previous end_at, where a line starts, reads on from there
  // as if it had not ended.
  void end_at(off_t offset);
  bool ended_at_end_at() const { return at_end_at_; }
  // Drops the block in hand and reads on from `offset` of a regular file,
  // where a line starts, as a reader that had just read the line before;
  // eof() and failed() are cleared. Ends any end_at.
  void read_from(off_t offset);

 private:
  bool refill();

  FileDescriptor fd_;                       // held by a whole reader only
  const FileDescriptor* source_ = nullptr;  // what reads read: fd_ or a whole's
  bool regular_file_ = false;
  bool by_offset_ = false;  // reads with pread(2) at next_offset_
  off_t next_offset_ = 0;   // the offset of the byte after the block
  off_t end_at_ = -1;
  bool at_end_at_ = false;
  size_t block_size_ = 0;
  std::unique_ptr<char[]> block_;
  size_t pos_ = 0;  // the read position in the block
  size_t end_ = 0;  // how much of the block the last read filled
  bool eof_ = false;
  bool failed_ = false;
};

#endif  // SCANREPORT_LOG_LINE_READER_H_
