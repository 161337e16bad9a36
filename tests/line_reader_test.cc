// Every read of the log must be indistinguishable from std::istream::getline
// into a LOG_LINE_SIZE buffer, and the pass over the lines before a period
// from a plain getline loop. Both are compared with the standard library on
// random logs, from a file and from a pipe with many block sizes, and on
// a log cut while it is being read.
#include "log/line_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>

#include "log/period_start.h"

namespace {

// Hands the reader the file's bytes through a pipe, filled and closed
// before the reader opens it, so that no writer has to run beside it.
bool open_pipe_of(LineReader& reader, const std::string& path, size_t block) {
  std::ifstream in(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  int ends[2];
  if (pipe(ends) != 0) return false;
  const bool filled =
      fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) >= static_cast<int>(bytes.size()) &&
      write(ends[1], bytes.data(), bytes.size()) ==
          static_cast<ssize_t>(bytes.size());
  close(ends[1]);
  const std::string name = "/dev/fd/" + std::to_string(ends[0]);
  const bool opened = filled && reader.open(name.c_str(), block);
  close(ends[0]);
  return opened;
}

// The ways a reader can be opened on a file, with a block size (0: the
// default), each held to the same comparisons: a pipe's reads end where
// its writes ended, a file's where the block ends.
struct ReadPath {
  const char* name;
  std::function<bool(LineReader&, const std::string&, size_t)> open;
};
const ReadPath kReadPaths[] = {
    {"file", [](LineReader& reader, const std::string& path,
                size_t block) { return reader.open(path.c_str(), block); }},
    {"pipe", open_pipe_of}};
// Blocks of a few bytes make every line straddle blocks; each block costs
// a system call, so they get fewer files.
const size_t kBlockSizes[] = {0, 1, 2, 7, 64, 2047, 2048, 2049, 4096};
bool block_for_file(size_t block, int file) {
  return block == 0 || block > 7 || file % 8 == 0;
}

// One file for the whole process, rewritten by each use, removed at exit.
const std::string& scratch_file(const std::string& bytes) {
  static const std::string path = [] {
    char name[] = "/tmp/scanreport-lines-XXXXXX";
    close(mkstemp(name));
    return std::string(name);
  }();
  static const int removed = std::atexit([] { unlink(path.c_str()); });
  (void)removed;
  std::ofstream(path, std::ios::trunc) << bytes;
  return path;
}

// Lines of the usual shape mixed with odd ones: blanks, tabs, CRs and NULs
// around them, separators missing or tripled, dates cut short or invalid
// (days past 31), bare dates, lines around the buffer's limit, and a last
// line with or without its line feed.
std::string random_log(std::mt19937& random) {
  const std::string bits[] = {" ", "\t", ",", ",,", ",,,",     "\r", "x",
                              "-", "1",  "",  "J",  {"\0", 1}, "\n"};
  auto noise = [&] { return bits[random() % 13] + bits[random() % 13]; };
  std::string log;
  for (int day = 1, i = random() % 200; i > 0; --i) {
    day += random() % 20 == 0;
    char date[16];
    std::snprintf(date, sizeof date, "%02d-01-2024", day % 100);
    const std::string shapes[] = {
        noise() + "J1,," + date + noise(),
        "J1,," + std::string(date, random() % 11),
        std::string(2043 + random() % 8, 'a'), date,
        "J1,," + std::string(date) + ",,t,,c" + noise()};
    log += shapes[random() % 5];
    if (i > 1 || random() % 2) log += '\n';
  }
  return log;
}

// Reads on from both until each has failed twice.
void expect_same_reads(LineReader& reader, std::istream& stream) {
  for (int read = 0, failures = 0; failures < 2; ++read) {
    char mine[LOG_LINE_SIZE], theirs[LOG_LINE_SIZE];
    std::memset(mine, 'm', sizeof mine);
    std::memset(theirs, 't', sizeof theirs);
    const bool ok = reader.getline(mine);
    stream.getline(theirs, LOG_LINE_SIZE);
    // gcount includes the line feed that a good stream consumed.
    const size_t stored = stream.gcount() - (stream.good() ? 1 : 0);
    SCOPED_TRACE("read " + std::to_string(read));
    ASSERT_EQ(ok, !stream.fail());
    ASSERT_EQ(reader.eof(), stream.eof());
    ASSERT_EQ(std::memcmp(mine, theirs, stored + 1), 0) << stored;
    failures += !ok;
  }
}

TEST(LineReader, ReadsLikeGetline) {
  std::mt19937 random(4242);
  for (const ReadPath& read_path : kReadPaths) {
    for (int file = 0; file < 200; ++file) {
      const std::string& path = scratch_file(random_log(random));
      for (size_t block : kBlockSizes) {
        if (!block_for_file(block, file)) continue;
        SCOPED_TRACE(std::string(read_path.name) + ", file " +
                     std::to_string(file) + ", block " + std::to_string(block));
        LineReader reader;
        ASSERT_TRUE(read_path.open(reader, path, block));
        std::ifstream stream(path);
        expect_same_reads(reader, stream);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// A file that reports no size (of /proc), or a size that is not its
// length (of /sys), reads as a stream reads it.
TEST(LineReader, ReadsFilesWhoseSizeIsNotTheirLength) {
  for (const char* path : {"/proc/version", "/sys/devices/system/cpu/online"}) {
    SCOPED_TRACE(path);
    LineReader reader;
    std::ifstream stream(path);
    if (!stream || !reader.open(path)) continue;  // not on this system
    expect_same_reads(reader, stream);
  }
}

// The date the scan stops at, the line left in the buffer, the reader's
// state, then every line read after it.
using Outcome = std::vector<std::string>;

Outcome plain_scan(std::istream& in, DateStamp first) {
  char line[LOG_LINE_SIZE] = "";
  DateStamp found = 0;
  while (in.getline(line, LOG_LINE_SIZE) && (found = line_date(line)) < first) {
  }
  Outcome seen = {std::to_string(found), line,
                  std::to_string(in.eof() * 2 + in.fail())};
  while (in.getline(line, LOG_LINE_SIZE)) seen.push_back(line);
  return seen;
}

Outcome fast_scan(LineReader& reader, DateStamp first) {
  char line[LOG_LINE_SIZE] = "";
  const DateStamp found = find_period_start(reader, first, line);
  Outcome seen = {std::to_string(found), line,
                  std::to_string(reader.eof() * 2 + reader.failed())};
  while (reader.getline(line)) seen.push_back(line);
  return seen;
}

TEST(ScanToDate, StopsWhereThePlainLoopStops) {
  std::mt19937 random(20240101);
  for (const ReadPath& read_path : kReadPaths) {
    for (int i = 0; i < 500; ++i) {
      const std::string& path = scratch_file(random_log(random));
      const DateStamp first = 20240101 + random() % 20;
      size_t block = kBlockSizes[random() % std::size(kBlockSizes)];
      if (!block_for_file(block, i)) block = 0;
      LineReader reader;
      ASSERT_TRUE(read_path.open(reader, path, block));
      std::ifstream stream(path);
      ASSERT_EQ(fast_scan(reader, first), plain_scan(stream, first))
          << read_path.name << ", log " << i << ", block " << block;
    }
  }
}

// A long run of usual lines before odd ones, so that the search of a
// regular file reaches its second half, which a child process has searched
// meanwhile: the plain loop's stop, state and following lines either way.
TEST(ScanToDate, TakesOverTheSecondHalfOfARegularFile) {
  std::mt19937 random(77);
  for (int i = 0; i < 200; ++i) {
    std::string log;
    for (int n = random() % 3000; n > 0; --n) log += "J1,,01-01-2024,,x\n";
    const std::string& path = scratch_file(log + random_log(random));
    const DateStamp first = random() % 4 ? 20240101 + random() % 20 : 20991231;
    const size_t block =
        kBlockSizes[3 + random() % (std::size(kBlockSizes) - 3)];
    LineReader reader;
    ASSERT_TRUE(reader.open(path.c_str(), block));
    std::ifstream stream(path);
    ASSERT_EQ(fast_scan(reader, first), plain_scan(stream, first))
        << "log " << i << ", block " << block;
  }
}

// A log truncated in place while it is read, as a rotation by copy and
// truncate does: the reader reads the block in hand as it stood when it
// was read, then the file as it now stands, and ends there, by getline and
// by the scan, whether the cut falls before, at or after that block's end.
TEST(LineReader, ACutLogEndsWhereTheFileNowEnds) {
  std::string log;
  for (int i = 0; log.size() < 40000; ++i) {
    log += "J1,,01-01-2024,,line " + std::to_string(i) + "\n";
  }
  constexpr size_t kBlock = 4096;
  for (size_t size : {30, 100, 4095, 4096, 4097, 5000, 12288, 39999}) {
    for (bool scan : {false, true}) {
      SCOPED_TRACE("cut to " + std::to_string(size) + (scan ? ", scan" : ""));
      const std::string& path = scratch_file(log);
      LineReader reader;
      ASSERT_TRUE(reader.open(path.c_str(), kBlock));
      char line[LOG_LINE_SIZE];
      ASSERT_TRUE(reader.getline(line));  // reads the first block
      ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
      std::istringstream seen(log.substr(0, std::max(size, kBlock)));
      seen.ignore(LOG_LINE_SIZE, '\n');
      if (scan) {
        EXPECT_EQ(fast_scan(reader, 20240102), plain_scan(seen, 20240102));
      } else {
        expect_same_reads(reader, seen);
      }
    }
  }
}

}  // namespace
