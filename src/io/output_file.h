// Buffered output to one report file. Text is gathered in a buffer of
// kOutputBufferSize bytes and handed to the kernel whenever the buffer
// fills and at flush() or close(): the bytes of a file are its contract,
// not the moments at which they reach it, and a day's report.txt of
// hundreds of megabytes would otherwise cost a write(2) per line.
#ifndef SCANREPORT_IO_OUTPUT_FILE_H_
#define SCANREPORT_IO_OUTPUT_FILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "sys/file_descriptor.h"

inline constexpr size_t kOutputBufferSize = 256 << 10;

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Opens `path` for writing with truncation, creating it (mode 0666 less
  // the umask) when missing. Fails, as for a missing directory, wherever
  // open_regular_file refuses (a link on the way, a directory others may
  // write, a named pipe, device, socket or hard link at the path), and
  // then leaves what stands there untouched.
  bool open(const char* path);
  bool is_open() const { return fd_.is_open(); }

  // Appends text or a decimal number. Without an open file the output is
  // dropped, as a stream that failed to open drops it. A write that fails
  // (a full disk) loses what the buffer held then, at most
  // kOutputBufferSize bytes, and is not reported: a file stream would have
  // lost everything after it. Later output is written on.
  OutputFile& operator<<(std::string_view text) {
    if (text.size() <= kOutputBufferSize - used_) {
      if (buffer_ != nullptr) {
        std::char_traits<char>::copy(buffer_.get() + used_, text.data(),
                                     text.size());
        used_ += text.size();
      }
      return *this;
    }
    return append_slow(text);
  }
  OutputFile& operator<<(const char* text) {
    return *this << std::string_view(text);
  }
  OutputFile& operator<<(char c) { return *this << std::string_view(&c, 1); }
  OutputFile& operator<<(int32_t number);

  // A line feed. Lines are not flushed one by one.
  void end_line() { *this << '\n'; }
  // Hands what the buffer holds to the kernel.
  void flush();
  // Flushes and closes; the object can then be opened again.
  void close();

 private:
  OutputFile& append_slow(std::string_view text);

  FileDescriptor fd_;
  // Allocated while a file is open, so that output without one (and
  // everything past a failed open) is dropped by the same test.
  std::unique_ptr<char[]> buffer_;
  size_t used_ = 0;
};

// `text` and end_line(): how the pages write a line of fixed text.
inline void write_line(OutputFile& out, std::string_view text) {
  out << text;
  out.end_line();
}

#endif  // SCANREPORT_IO_OUTPUT_FILE_H_
