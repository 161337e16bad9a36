// Buffered output to one report file. Lines are assembled in memory and
// handed to the kernel at each end_line() or flush(), which is where the
// pages' consumers may see them.
#ifndef SCANREPORT_IO_OUTPUT_FILE_H_
#define SCANREPORT_IO_OUTPUT_FILE_H_

#include <cstdint>
#include <string>
#include <string_view>

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
  bool is_open() const { return fd_ >= 0; }

  // Appends text or a decimal number. Without an open file the output is
  // dropped, as a stream that failed to open drops it. Write errors are
  // ignored.
  OutputFile& operator<<(std::string_view text);
  OutputFile& operator<<(const char* text) {
    return *this << std::string_view(text);
  }
  OutputFile& operator<<(char c);
  OutputFile& operator<<(int32_t number);

  // A line feed, then flush.
  void end_line();
  void flush();
  // Flushes and closes; the object can then be opened again.
  void close();

 private:
  int fd_ = -1;
  std::string pending_;
};

// `text` and end_line(): how the pages write a line of fixed text.
inline void write_line(OutputFile& out, std::string_view text) {
  out << text;
  out.end_line();
}

#endif  // SCANREPORT_IO_OUTPUT_FILE_H_
