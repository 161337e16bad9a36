// LineReader must be indistinguishable from std::istream::getline into a
// LOG_LINE_SIZE buffer: the hand-written cases pin the rules, the randomized
// comparison runs the real getline next to it on the same bytes.
#include "log/line_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "test_support.h"

namespace {

using testing_support::temp_file;
using testing_support::write_file;

// A file for the whole test binary, rewritten by each case.
const std::string& scratch_path() {
  static const std::string path = temp_file("");
  return path;
}

struct Read {
  std::string stored;  // the characters stored before the terminating NUL
  bool ok, eof;
};

std::string line_of(size_t length, char fill = 'a') {
  return std::string(length, fill);
}

TEST(LineReader, BehavesLikeGetline) {
  using namespace std::string_literals;
  const std::string full = line_of(2047), over = line_of(2048);
  const struct {
    std::string content;
    std::vector<Read> reads;  // up to the first failure or eof
  } cases[] = {
      {"", {{"", false, true}}},
      {"abc\n", {{"abc", true, false}, {"", false, true}}},
      {"abc", {{"abc", true, true}}},
      {"\n", {{"", true, false}, {"", false, true}}},
      {"\n\nx", {{"", true, false}, {"", true, false}, {"x", true, true}}},
      {full + "\nb\n",
       {{full, true, false}, {"b", true, false}, {"", false, true}}},
      {full, {{full, true, true}}},
      {over + "\nb\n", {{full, false, false}}},
      {over, {{full, false, false}}},
      {"a\0b\nc"s, {{"a\0b"s, true, false}, {"c", true, true}}},
      {"\0\n"s, {{"\0"s, true, false}, {"", false, true}}},
      {"a\r\nb\r\n",
       {{"a\r", true, false}, {"b\r", true, false}, {"", false, true}}},
      {"a,,b\tc \n", {{"a,,b\tc ", true, false}, {"", false, true}}},
  };
  for (const auto& c : cases) {
    write_file(scratch_path(), c.content);
    LineReader reader;
    ASSERT_TRUE(reader.open(scratch_path().c_str()));
    size_t i = 0;
    for (const Read& want : c.reads) {
      char buf[LOG_LINE_SIZE];
      std::memset(buf, 'z', sizeof buf);
      EXPECT_EQ(reader.getline(buf), want.ok) << c.content << " read " << i;
      EXPECT_EQ(std::string(buf, want.stored.size() + 1), want.stored + '\0')
          << c.content << " read " << i;
      EXPECT_EQ(reader.eof(), want.eof) << c.content << " read " << i;
      EXPECT_EQ(reader.failed(), !want.ok) << c.content << " read " << i;
      // Nothing is offered for skimming once the reader has stopped.
      if (!want.ok || want.eof) {
        EXPECT_TRUE(reader.buffered_lines().empty()) << c.content;
      }
      ++i;
    }
    const bool eof = reader.eof();
    for (int later = 0; later < 3; ++later) {
      char buf[LOG_LINE_SIZE];
      std::memset(buf, 'z', sizeof buf);
      EXPECT_FALSE(reader.getline(buf)) << c.content;
      EXPECT_EQ(buf[0], '\0') << c.content;
      EXPECT_TRUE(reader.failed());
      EXPECT_EQ(reader.eof(), eof) << c.content;
    }
  }
}

TEST(LineReader, MissingFileDoesNotOpenAndNeverReads) {
  LineReader reader;
  EXPECT_FALSE(reader.open("/nonexistent/scan.log"));
  char buf[LOG_LINE_SIZE] = "stale";
  EXPECT_FALSE(reader.getline(buf));
  EXPECT_EQ(buf[0], '\0');
}

// Reads `path` with LineReader and with std::ifstream side by side and
// compares every read: result, stored bytes, terminator, eof and fail. With
// `skim`, lines are now and then taken from buffered_lines() and consumed
// instead, which must leave the reader as getline would.
void expect_same_as_getline(const std::string& path, size_t block_size,
                            const std::string& what,
                            std::mt19937* skim = nullptr) {
  LineReader reader;
  ASSERT_TRUE(reader.open(path.c_str(), block_size));
  std::ifstream stream(path, std::ios::binary);
  for (int read = 0, after_failure = 0; after_failure < 2; ++read) {
    char mine[LOG_LINE_SIZE], theirs[LOG_LINE_SIZE];
    std::memset(mine, 'm', sizeof mine);
    std::memset(theirs, 't', sizeof theirs);
    const std::string_view lines = reader.buffered_lines();
    ASSERT_TRUE(lines.empty() ||
                (lines.back() == '\n' && !reader.eof() && !reader.failed()))
        << what;
    if (skim != nullptr && (*skim)() % 2) {
      size_t taken = 0;  // whole lines, checked one by one, then consumed
      for (size_t end; (end = lines.find('\n', taken)) != lines.npos &&
                       end - taken < LOG_LINE_SIZE && (*skim)() % 4;
           taken = end + 1) {
        stream.getline(theirs, LOG_LINE_SIZE);
        ASSERT_TRUE(stream.good()) << what << " read " << read;
        ASSERT_EQ(lines.substr(taken, end - taken),
                  std::string_view(theirs, end - taken));
      }
      if (taken > 0) {
        reader.consume(taken);
        continue;
      }
    }
    const bool ok = reader.getline(mine);
    stream.getline(theirs, LOG_LINE_SIZE);
    // gcount includes a consumed line feed, which a good stream had.
    size_t stored = static_cast<size_t>(stream.gcount());
    if (stream.good() && stored > 0) --stored;
    ASSERT_EQ(ok, !stream.fail()) << what << " read " << read;
    ASSERT_EQ(reader.eof(), stream.eof()) << what << " read " << read;
    ASSERT_EQ(reader.failed(), stream.fail()) << what << " read " << read;
    ASSERT_EQ(std::memcmp(mine, theirs, stored + 1), 0)
        << what << " read " << read << " stored " << stored;
    if (!ok) ++after_failure;
  }
}

// Lines clustered around the buffer limit, short ones, NUL bytes and
// carriage returns, with and without a final line feed.
std::string random_content(std::mt19937& random) {
  const char alphabet[] = {'a', ',', ' ', '\r', '\0', '\xff', '\n'};
  std::string content;
  const int lines = static_cast<int>(random() % 7);
  for (int i = 0; i < lines; ++i) {
    size_t length;
    switch (random() % 4) {
      case 0:
        length = random() % 4;
        break;
      case 1:
        length = random() % 64;
        break;
      default:  // around the longest line that is read whole
        length = 2044 + random() % 7;
        break;
    }
    for (size_t j = 0; j < length; ++j) {
      // A line feed only rarely, so that long lines stay long.
      const size_t choices = random() % 50 ? 6 : 7;
      content += alphabet[random() % choices];
    }
    if (i + 1 < lines || random() % 2) content += '\n';
  }
  return content;
}

TEST(LineReader, MatchesIfstreamGetlineOnRandomFiles) {
  const size_t block_sizes[] = {1, 2, 3, 7, 64, 2047, 2048, 2049, 4096, 0};
  std::mt19937 random(4242);
  for (int file = 0; file < 300; ++file) {
    write_file(scratch_path(), random_content(random));
    for (size_t block_size : block_sizes) {
      expect_same_as_getline(scratch_path(), block_size,
                             "file " + std::to_string(file) + " block " +
                                 std::to_string(block_size),
                             file % 2 ? &random : nullptr);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(LineReader, MatchesIfstreamGetlineBeyondOneDefaultBlock) {
  std::mt19937 random(77);
  std::string content;
  while (content.size() < (1u << 20) + 300000) {
    content += line_of(random() % 2048, static_cast<char>('a' + random() % 26));
    content += '\n';
  }
  // One full-length line straddling the first block boundary.
  content.replace((1u << 20) - 1000, 2049, "\n" + line_of(2047, '#') + "\n");
  write_file(scratch_path(), content);
  expect_same_as_getline(scratch_path(), 0, "big file", &random);
  content.pop_back();  // and again without the final line feed
  write_file(scratch_path(), content);
  expect_same_as_getline(scratch_path(), 0, "big file without final LF");
}

// Leaves no scratch directory behind in the temporary directory.
class RemoveScratch : public ::testing::Environment {
 public:
  void TearDown() override {
    std::filesystem::remove_all(
        std::filesystem::path(scratch_path()).parent_path());
  }
};
const auto* const kRemoveScratch =
    ::testing::AddGlobalTestEnvironment(new RemoveScratch);

}  // namespace
