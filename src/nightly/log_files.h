// Finding the log's files and reading their lines, compressed or not.
#ifndef SCANREPORT_NIGHTLY_LOG_FILES_H_
#define SCANREPORT_NIGHTLY_LOG_FILES_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "log/line_reader.h"
#include "nightly/rotated_logs.h"
#include "sys/file_descriptor.h"

// Opens the live log `log_path` (absolute; a link to it is followed) and
// every rotated predecessor in its directory, ordered oldest first, each
// with its first_date found.
// Only regular files are opened, without following a link and without
// waiting on a pipe; another kind of file under a rotated name is listed
// as unreadable, as is a compressed file whose tool is not installed or
// fails. A missing live log is no error (rotation may have just moved it).
// Returns false, with `error` set, when the directory cannot be read.
bool open_log_files(const std::string& log_path, std::vector<LogFile>& files,
                    std::string& error);
// Closes the files' descriptors now, rather than when the list goes.
void close_log_files(std::vector<LogFile>& files);

// One line of a log file as the program's reader would meet it: `text`
// holds its first LOG_LINE_SIZE bytes at most (enough to show that a line
// is too long for the reader), NUL-terminated.
struct LogLine {
  char text[LOG_LINE_SIZE + 1];
  size_t kept = 0;
  bool too_long = false;  // more than LOG_LINE_SIZE - 1 bytes
  bool ended = false;     // by a line feed, not by the end of the file
  int64_t number = 0;     // from 1, in its file
};

// Reads the lines of one LogFile from its beginning, through its
// decompressing tool where it has a compression suffix. Lines of any
// length are read; only their head is kept, so memory stays bounded.
class LogFileReader {
 public:
  LogFileReader() = default;
  ~LogFileReader();
  LogFileReader(const LogFileReader&) = delete;
  LogFileReader& operator=(const LogFileReader&) = delete;

  // False, with `error` set, when the file cannot be read.
  bool open(const LogFile& file, std::string& error);
  // The next line; false at the end of the file or on a read error.
  bool next(LogLine& line);
  // Ends the reading. True when the file was read whole and well: its
  // tool succeeded, and a plain file was not cut shorter than it was when
  // the run found it (a copytruncate rotation while it was read). `error`
  // says what went wrong otherwise. Reading stopped early is never wrong.
  bool close(std::string& error);

 private:
  bool refill();

  // The descriptor read: the LogFile's own, or the tool's output.
  int fd_ = -1;
  FileDescriptor tool_output_;
  pid_t child_ = -1;
  off_t offset_ = 0;
  off_t size_at_start_ = 0;
  bool at_end_ = false;
  bool read_failed_ = false;
  int64_t lines_ = 0;
  std::vector<char> buffer_;
  size_t pos_ = 0;
  size_t end_ = 0;
};

#endif  // SCANREPORT_NIGHTLY_LOG_FILES_H_
