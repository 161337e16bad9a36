// Compressed files are read through their own tools (gzip, xz, zstd,
// bzip2), run as children without a shell, rather than through libraries:
// one way for all four formats, nothing new to link or to package (gzip is
// part of every Debian system, the others work wherever they are
// installed), and the bytes of a compressed file, which arrive from the
// scanned machines' file names, are taken apart in a process of their own.
// The child reads the descriptor the run opened, never a path, so a name
// swapped meanwhile cannot steer it.
#include "nightly/log_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "log/period_start.h"
#include "sys/file_descriptor.h"

namespace {

constexpr size_t kBlockSize = size_t{64} * 1024;

const char* tool_name(Compression compression) {
  switch (compression) {
    case Compression::kGzip:
      return "gzip";
    case Compression::kXz:
      return "xz";
    case Compression::kZstd:
      return "zstd";
    case Compression::kBzip2:
      return "bzip2";
    case Compression::kNone:
      break;
  }
  return nullptr;
}

// The tool's path in the system's own directories, never in a PATH that
// the caller chose; empty when it is not installed.
std::string tool_path(const char* name) {
  for (const char* dir : {"/usr/bin/", "/bin/"}) {
    std::string path = std::string(dir) + name;
    if (access(path.c_str(), X_OK) == 0) return path;
  }
  return {};
}

// Runs the decompressing tool on `input` and returns the read end of a
// pipe of its output; not open when the tool cannot be run.
FileDescriptor spawn_tool(const std::string& tool, int input, pid_t& child) {
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return {};
  FileDescriptor read_end(out[0]);
  // Once the tool runs, the write end is its own: this one closes here.
  const FileDescriptor write_end(out[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, write_end.get(), STDOUT_FILENO);
  // -d decompress, -c to standard output, -q (zstd) no progress.
  const bool zstd = tool.ends_with("zstd");
  char* argv[] = {const_cast<char*>(tool.c_str()), const_cast<char*>("-dc"),
                  zstd ? const_cast<char*>("-q") : nullptr, nullptr};
  char* envp[] = {const_cast<char*>("PATH=/usr/bin:/bin"), nullptr};
  const int failed =
      posix_spawn(&child, tool.c_str(), &actions, nullptr, argv, envp);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    child = -1;
    return {};
  }
  return read_end;
}

// Opens one name of the directory as a LogFile, or says why it cannot.
LogFile open_entry(int dir, const std::string& name, bool live,
                   const RotatedName& rotated) {
  LogFile file;
  file.name = name;
  file.live = live;
  file.rotated = rotated;
  // O_NONBLOCK: a named pipe planted under a log's name must not hold the
  // run; it is refused below, unread.
  file.fd = open_file_at(dir, name.c_str(),
                         O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  struct stat status;
  if (!file.fd.is_open() || fstat(file.fd.get(), &status) != 0) {
    file.unreadable = std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    file.unreadable = "not a regular file";
  } else {
    file.size = status.st_size;
    file.mtime_ns = static_cast<int64_t>(status.st_mtim.tv_sec) * 1000000000 +
                    status.st_mtim.tv_nsec;
    (void)fcntl(file.fd.get(), F_SETFL, 0);
  }
  if (!file.unreadable.empty()) file.fd.reset();
  return file;
}

void find_first_date(LogFile& file) {
  LogFileReader reader;
  if (!reader.open(file, file.unreadable)) return;
  auto line = std::make_unique<LogLine>();
  char buffer[LOG_LINE_SIZE];
  while (file.first_date == 0 && reader.next(*line)) {
    std::memcpy(buffer, line->text, LOG_LINE_SIZE - 1);
    buffer[LOG_LINE_SIZE - 1] = '\0';
    file.first_date = line_date(buffer);
  }
  std::string error;
  // A file whose first date was found may stop early; one without has
  // been read whole, so a failure of its tool leaves it unknown.
  if (!reader.close(error) && file.first_date == 0) file.unreadable = error;
}

// A listing of `dir` on a descriptor of its own, which closedir closes.
DIR* open_listing(const FileDescriptor& dir) {
  FileDescriptor copy(dir.is_open() ? dup(dir.get()) : -1);
  DIR* listing = copy.is_open() ? fdopendir(copy.get()) : nullptr;
  if (listing != nullptr) (void)copy.release();
  return listing;
}

// Opens the live log `live` and its rotated predecessors in `dir_path`,
// in the directory's order.
bool list_log_files(const std::string& dir_path, const std::string& live,
                    std::vector<LogFile>& files, std::string& error) {
  const FileDescriptor dir =
      open_file(dir_path.c_str(), O_RDONLY | O_DIRECTORY);
  DIR* listing = open_listing(dir);
  if (listing == nullptr) {
    error =
        "cannot read the directory " + dir_path + ": " + std::strerror(errno);
    return false;
  }
  files.clear();
  while (const dirent* entry = readdir(listing)) {
    const std::string name = entry->d_name;
    if (name == live) {
      files.push_back(open_entry(dir.get(), name, true, {}));
    } else if (auto rotated = parse_rotated_name(live, name)) {
      files.push_back(open_entry(dir.get(), name, false, *rotated));
    }
  }
  closedir(listing);
  return true;
}

}  // namespace

bool open_log_files(const std::string& configured_path,
                    std::vector<LogFile>& files, std::string& error) {
  // The administrator's path may be a link to where the engine writes; the
  // rotated files lie beside the file it leads to. Links among the rotated
  // names are not followed.
  char resolved[PATH_MAX];
  const std::string log_path =
      realpath(configured_path.c_str(), resolved) != nullptr ? resolved
                                                             : configured_path;
  const size_t slash = log_path.rfind('/');
  const std::string dir_path = slash == 0 ? "/" : log_path.substr(0, slash);
  const std::string live = log_path.substr(slash + 1);
  if (!list_log_files(dir_path, live, files, error)) return false;
  order_oldest_first(files);
  for (LogFile& file : files) find_first_date(file);
  return true;
}

void close_log_files(std::vector<LogFile>& files) {
  for (LogFile& file : files) file.fd.reset();
}

LogFileReader::~LogFileReader() {
  std::string ignored;
  close(ignored);
}

bool LogFileReader::open(const LogFile& file, std::string& error) {
  if (!file.unreadable.empty()) {
    error = file.unreadable;
    return false;
  }
  buffer_.resize(kBlockSize);
  size_at_start_ = file.size;
  const char* tool = tool_name(file.rotated.compression);
  if (tool == nullptr) {
    fd_ = file.fd.get();
    return true;
  }
  const std::string path = tool_path(tool);
  if (path.empty()) {
    error = std::string("no ") + tool + " installed to read it";
    return false;
  }
  // The tool reads the shared descriptor from wherever an earlier reading
  // left it.
  if (lseek(file.fd.get(), 0, SEEK_SET) != 0 ||
      !(tool_output_ = spawn_tool(path, file.fd.get(), child_)).is_open()) {
    error = std::string("cannot run ") + path + ": " + std::strerror(errno);
    return false;
  }
  fd_ = tool_output_.get();
  return true;
}

bool LogFileReader::refill() {
  if (at_end_) return false;
  const ssize_t got =
      tool_output_.is_open()
          ? tool_output_.read(buffer_.data(), buffer_.size())
          : retry_interrupted([&] {
              return pread(fd_, buffer_.data(), buffer_.size(), offset_);
            });
  if (got <= 0) {
    at_end_ = true;
    read_failed_ = got < 0;
    return false;
  }
  offset_ += got;
  pos_ = 0;
  end_ = static_cast<size_t>(got);
  return true;
}

bool LogFileReader::next(LogLine& line) {
  line.kept = 0;
  line.ended = false;
  size_t length = 0;
  bool any = false;
  while (!line.ended) {
    if (pos_ == end_ && !refill()) break;
    any = true;
    const char* start = buffer_.data() + pos_;
    const auto* feed =
        static_cast<const char*>(std::memchr(start, '\n', end_ - pos_));
    const size_t chunk = feed ? static_cast<size_t>(feed - start) : end_ - pos_;
    const size_t room = static_cast<size_t>(LOG_LINE_SIZE) - line.kept;
    const size_t copied = chunk < room ? chunk : room;
    std::memcpy(line.text + line.kept, start, copied);
    line.kept += copied;
    length += chunk;
    pos_ += chunk;
    if (feed) {
      ++pos_;
      line.ended = true;
    }
  }
  if (!any) return false;
  line.text[line.kept] = '\0';
  line.too_long = length > static_cast<size_t>(LOG_LINE_SIZE - 1);
  line.number = ++lines_;
  return true;
}

bool LogFileReader::close(std::string& error) {
  bool good = true;
  const bool whole = at_end_;
  const bool piped = tool_output_.is_open();
  tool_output_.reset();
  if (child_ > 0) {
    // Stopped early, the tool ends on its next write into the closed pipe.
    int status = 0;
    (void)retry_interrupted([&] { return waitpid(child_, &status, 0); });
    if (whole && !(WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
      error = "its decompressing tool failed";
      good = false;
    }
  } else if (fd_ >= 0 && whole && (read_failed_ || offset_ < size_at_start_)) {
    error = read_failed_ ? "a read failed"
                         : "it was cut while it was read (copytruncate)";
    good = false;
  }
  if (piped && whole && read_failed_) {
    error = "a read failed";
    good = false;
  }
  fd_ = -1;
  child_ = -1;
  return good;
}
