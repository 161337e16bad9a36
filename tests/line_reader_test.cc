// Every read of the log must be indistinguishable from std::istream::getline
// into a LOG_LINE_SIZE buffer, and the pass over the lines before a period
// from a plain getline loop. Both are compared with the standard library on
// random logs, through every read path and many block sizes.
#include "log/line_reader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <random>

#include "log/period_start.h"

namespace {

// The ways a reader can be opened on a file, with a block size (0: the
// default). A new read path (a memory map for regular files, say) adds its
// row here and is held to the same comparisons.
struct ReadPath {
  const char* name;
  std::function<bool(LineReader&, const std::string&, size_t)> open;
};
const ReadPath kReadPaths[] = {
    {"read(2) blocks",
     [](LineReader& reader, const std::string& path, size_t block) {
       return reader.open(path.c_str(), block);
     }}};
const size_t kBlockSizes[] = {0, 1, 2, 7, 64, 2047, 2048, 2049, 4096};

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

void expect_reads_like_getline(const ReadPath& read_path,
                               const std::string& path, size_t block) {
  LineReader reader;
  ASSERT_TRUE(read_path.open(reader, path, block));
  std::ifstream stream(path);
  for (int read = 0, failures = 0; failures < 2; ++read) {
    char mine[LOG_LINE_SIZE], theirs[LOG_LINE_SIZE];
    std::memset(mine, 'm', sizeof mine);
    std::memset(theirs, 't', sizeof theirs);
    const bool ok = reader.getline(mine);
    stream.getline(theirs, LOG_LINE_SIZE);
    // gcount includes the line feed that a good stream consumed.
    const size_t stored = stream.gcount() - (stream.good() ? 1 : 0);
    SCOPED_TRACE(std::string(read_path.name) + ", block " +
                 std::to_string(block) + ", read " + std::to_string(read));
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
        expect_reads_like_getline(read_path, path, block);
        if (HasFatalFailure()) return;
      }
    }
  }
}

// The date the scan stops at, the line left in the buffer, the reader's
// state, then every line read after it.
using Outcome = std::vector<std::string>;

Outcome plain_scan(const std::string& path, DateStamp first) {
  std::ifstream in(path);
  char line[LOG_LINE_SIZE] = "";
  DateStamp found = 0;
  while (in.getline(line, LOG_LINE_SIZE) && (found = line_date(line)) < first) {
  }
  Outcome seen = {std::to_string(found), line,
                  std::to_string(in.eof() * 2 + in.fail())};
  while (in.getline(line, LOG_LINE_SIZE)) seen.push_back(line);
  return seen;
}

Outcome fast_scan(const ReadPath& read_path, const std::string& path,
                  DateStamp first, size_t block) {
  LineReader reader;
  EXPECT_TRUE(read_path.open(reader, path, block));
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
      const size_t block = kBlockSizes[random() % std::size(kBlockSizes)];
      ASSERT_EQ(fast_scan(read_path, path, first, block),
                plain_scan(path, first))
          << read_path.name << ", log " << i << ", block " << block;
    }
  }
}

}  // namespace
