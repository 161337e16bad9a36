#include "stats/summary_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>

#include "report/output_paths.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using testing_support::file_exists;
using testing_support::read_file;

// A fresh directory under /tmp, removed with everything in it at the end
// of the test.
struct TempDir {
  TempDir() {
    char dir_template[] = "/tmp/scanreport-summary-XXXXXX";
    if (mkdtemp(dir_template) == nullptr) throw std::runtime_error("mkdtemp");
    path = dir_template;
  }
  ~TempDir() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  std::string path;
};

struct Tables {
  CountTable client = {}, virus = {}, file = {}, tally = {};
  bool operator==(const Tables&) const = default;
};

void PrintTo(const Tables& t, std::ostream* os) {
  const char* titles[] = {"client", "virus", "file", "tally"};
  const CountTable* tables[] = {&t.client, &t.virus, &t.file, &t.tally};
  for (int i = 0; i < 4; ++i) {
    *os << titles[i] << "{";
    for (const auto& [name, count] : *tables[i]) {
      *os << testing::PrintToString(name) << ":" << count << " ";
    }
    *os << "} ";
  }
}

Tables merged(const std::string& bytes, Tables tables = {}) {
  std::istringstream in(bytes);
  EXPECT_EQ(merge_summary_text(tables.client, tables.virus, tables.file,
                               tables.tally, in),
            0);
  return tables;
}

SummaryTally fresh_tally() {
  SummaryTally tally;
  init_summary_tally(tally);
  return tally;
}

const char kEmptyFile[] =
    "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n"
    "acterror=0\nclean=0\ncured=0\ndeleted=0\ndenied=0\nerror=0\n"
    "excluded=0\nquarantined=0\n";

TEST(WriteSummaryText, EmptyListsGiveTwelveLines) {
  TempDir temp;
  const std::string& dir = temp.path;
  EXPECT_EQ(write_summary_text({}, {}, {}, fresh_tally(), dir.c_str()), 0);
  EXPECT_EQ(read_file(dir + "/summary.txt"), kEmptyFile);
}

TEST(WriteSummaryText, WritesListsAsGivenAndTheTallyInKeyOrder) {
  TempDir temp;
  const std::string& dir = temp.path;
  // A longer file already there must be replaced, not appended to.
  testing_support::write_file(dir + "/summary.txt", std::string(5000, 'x'));
  RankedList clients = {{"ws02", 2}, {"ws01", 3}, {"", 5}};
  RankedList viruses = {{"Sample.A", 1}};
  RankedList files = {{"/srv/a.doc", 4},
                      {"a=b", 3},
                      {"/x y\r", -7},
                      {"[Top 10 Virus]", INT32_MIN}};
  SummaryTally tally = fresh_tally();
  add_count(tally, "clean", 4);
  add_count(tally, "quarantined", 1);
  add_count(tally, "foo", 4);
  add_count(tally, "Zed", 2147483647);
  EXPECT_EQ(write_summary_text(clients, viruses, files, tally, dir.c_str()), 0);
  EXPECT_EQ(read_file(dir + "/summary.txt"),
            "[Top 10 Client]\n"
            "ws02=2\n"
            "ws01=3\n"
            "=5\n"
            "[Top 10 Virus]\n"
            "Sample.A=1\n"
            "[Top 10 File]\n"
            "/srv/a.doc=4\n"
            "a=b=3\n"
            "/x y\r=-7\n"
            "[Top 10 Virus]=-2147483648\n"
            "[Summary]\n"
            "Zed=2147483647\n"
            "acterror=0\n"
            "clean=4\n"
            "cured=0\n"
            "deleted=0\n"
            "denied=0\n"
            "error=0\n"
            "excluded=0\n"
            "foo=4\n"
            "quarantined=1\n");
}

TEST(WriteSummaryText, UnopenableDirectoryCreatesNothing) {
  TempDir temp;
  const std::string& dir = temp.path;
  std::string missing = dir + "/missing";
  EXPECT_EQ(
      write_summary_text({{"a", 1}}, {}, {}, fresh_tally(), missing.c_str()),
      -1);
  EXPECT_FALSE(file_exists(missing));
  EXPECT_TRUE(fs::is_empty(dir));
}

// The path buffer holds out_dir + "/summary.txt" for directories of up to
// PATH_BUFFER_SIZE - 13 characters; a longer one must not open a cut-off
// path, which would name some other file.
TEST(WriteSummaryText, DirectoryTooLongForThePathBuffer) {
  TempDir temp;
  const std::string& base = temp.path;
  const size_t longest = PATH_BUFFER_SIZE - 13;
  std::string dir = base;
  while (longest - dir.size() > 202) dir.append("/").append(200, 'd');
  const size_t last = longest - dir.size() - 1;
  dir.append("/").append(last, 'e');
  ASSERT_EQ(dir.size(), longest);
  fs::create_directories(dir);

  EXPECT_EQ(write_summary_text({}, {}, {}, fresh_tally(), dir.c_str()), 0);
  EXPECT_EQ(read_file(dir + "/summary.txt"), kEmptyFile);
  fs::remove(dir + "/summary.txt");
  const std::string same_dir_one_longer = dir + "/";
  EXPECT_EQ(write_summary_text({}, {}, {}, fresh_tally(),
                               same_dir_one_longer.c_str()),
            -1);
  EXPECT_TRUE(fs::is_empty(dir));
}

TEST(MergeSummaryText, ReadsBackWhatWasWritten) {
  TempDir temp;
  const std::string& dir = temp.path;
  RankedList clients = {{"ws01[10.0.0.1]", 3}, {"WS01", 2}, {"", 1}};
  RankedList viruses = {{"Sample.A", 0}, {"Sample B\r", -4}};
  RankedList files = {{"/srv/\xC3\xA9t\xC3\xA9.doc", 2147483647},
                      {"/srv/ a]b", INT32_MIN},
                      {" 12", 12}};
  SummaryTally tally = fresh_tally();
  add_count(tally, "cured", 9);
  add_count(tally, "foo", 4);
  ASSERT_EQ(write_summary_text(clients, viruses, files, tally, dir.c_str()), 0);
  auto table_of = [](const RankedList& list) {
    CountTable table;
    for (const RankedEntry& e : list) table.emplace(e.name, e.count);
    return table;
  };
  Tables want{table_of(clients), table_of(viruses), table_of(files)};
  want.tally = tally;
  EXPECT_EQ(merged(read_file(dir + "/summary.txt")), want);
}

TEST(MergeSummaryText, AddsTwoDaysTogether) {
  TempDir temp1, temp2;
  const std::string &day1 = temp1.path, &day2 = temp2.path;
  SummaryTally tally1 = fresh_tally(), tally2 = fresh_tally();
  add_count(tally1, "clean", 10);
  add_count(tally2, "clean", 5);
  add_count(tally2, "error", 1);
  write_summary_text({{"X", 2}, {"Y", 1}}, {{"V", 1}}, {}, tally1,
                     day1.c_str());
  write_summary_text({{"X", 5}, {"Z", 3}}, {}, {{"/f", 2}}, tally2,
                     day2.c_str());
  Tables tables;
  init_summary_tally(tables.tally);
  for (const std::string& dir : {day1, day2}) {
    std::ifstream in(dir + "/summary.txt", std::ios::binary);
    ASSERT_TRUE(in.is_open());
    merge_summary_text(tables.client, tables.virus, tables.file, tables.tally,
                       in);
  }
  Tables want;
  want.client = {{"X", 7}, {"Y", 1}, {"Z", 3}};
  want.virus = {{"V", 1}};
  want.file = {{"/f", 2}};
  want.tally = fresh_tally();
  want.tally["clean"] = 15;
  want.tally["error"] = 1;
  EXPECT_EQ(tables, want);
}

TEST(MergeSummaryText, LinesAndHeaders) {
  const std::string c = "[Top 10 Client]\n";
  const struct Case {
    const char* what;
    std::string in;
    Tables want;
  } cases[] = {
      {"nothing", "", {}},
      {"only line feeds", "\n\n\n", {}},
      {"a complete file",
       c + "ws01=3\nws02=2\n[Top 10 Virus]\nSample.A=1\n[Top 10 File]\n"
           "/srv/a.doc=4\n[Summary]\nclean=4\n",
       {{{"ws01", 3}, {"ws02", 2}},
        {{"Sample.A", 1}},
        {{"/srv/a.doc", 4}},
        {{"clean", 4}}}},
      {"entries before any header are skipped",
       "a=1\nclean=2\n[Top 10 File]\nb=2\n",
       {{}, {}, {{"b", 2}}, {}}},
      {"last line without line feed", c + "a=1\nb=2", {{{"a", 1}, {"b", 2}}}},
      {"blank lines between entries", c + "\na=1\n\n\na=1\n\n", {{{"a", 2}}}},
      {"no '=': the whole line is name and value",
       c + "12abc\n  -7x\nplain\n",
       {{{"  -7x", -7}, {"12abc", 12}, {"plain", 0}}}},
      {"empty name", c + "=5\n=1\n", {{{"", 6}}}},
      {"only the first '=' splits", c + "a=b=3\na==4\n", {{{"a", 0}}}},
      {"new names are added even with 0 or less",
       c + "z=\nn=-3\nq=0\n",
       {{{"n", -3}, {"q", 0}, {"z", 0}}}},
      {"carriage returns stay in names and end values",
       "[Top 10 Client]\r\nws\r=1\r\nws=2\r\n[Summary]\r\nclean=3\r\n",
       {{{"ws", 2}, {"ws\r", 1}}, {}, {}, {{"clean", 3}}}},
      {"a header matching nothing keeps the current table",
       "[Top 10 Virus]\na=1\n[Other]\nb=2\n[]\n[\nc=3\n",
       {{}, {{"a", 1}, {"b", 2}, {"c", 3}}}},
      {"[Other] before any table keeps none", "[Other]\na=1\n", {}},
      {"headers are tested by byte 8 and byte 1, case-sensitive",
       "[abcdefgF]\nf=1\n[xxxxxxxV\nv=1\n[top 10 client]\nv=1\n"
       "[Sxxxxxx]\nt=1\n[Top 10 C=9\nc=1\n",
       {{{"c", 1}}, {{"v", 2}}, {{"f", 1}}, {{"t", 1}}}},
      {"byte 1 S wins over byte 8",
       "[SxxxxxxC]\ns=1\n",
       {{}, {}, {}, {{"s", 1}}}},
      {"a name starting with '[' switches tables",
       c + "a=1\n[abcdefgV=2\nb=3\n",
       {{{"a", 1}}, {{"b", 3}}}},
      {"names never choose the table", c + "clean=5\n", {{{"clean", 5}}}},
      {"unknown tally keys are added",
       "[Summary]\nfoo=4\nclean=1\n",
       {{}, {}, {}, {{"clean", 1}, {"foo", 4}}}},
      {"sections may repeat and sum",
       c + "a=1\n[Summary]\nx=1\n" + c + "a=2\n",
       {{{"a", 3}}, {}, {}, {{"x", 1}}}},
  };
  for (const Case& k : cases) {
    EXPECT_EQ(merged(k.in), k.want) << k.what;
  }
}

TEST(MergeSummaryText, AddsToWhatTheTablesHold) {
  Tables before;
  before.client = {{"a", 1}, {"keep", 9}};
  before.tally = fresh_tally();
  Tables want = before;
  want.client["a"] = 5;
  want.tally["clean"] = 2;
  EXPECT_EQ(merged("[Top 10 Client]\na=4\n[Summary]\nclean=2\n", before), want);
}

int32_t read_value(const std::string& text) {
  Tables t = merged("[Summary]\nv=" + text + "\n");
  return lookup_count(t.tally, "v");
}

// Values are read as the C library's atoi reads them; on this platform that
// is strtol cut to int, which also fixes what huge values become.
TEST(MergeSummaryText, ValuesAreReadAsAtoiReadsThem) {
  // Texts that stay within int, separated by '|'.
  std::istringstream in_range(
      "0|-0|+12|  42|\t-8x|\v\f\r7|007|0000000000000000000000000042|1e5|"
      "0x1F||   |x9|--1|+-1|- 1|+|2147483647|-2147483648| +3 4|12=3");
  for (std::string text; std::getline(in_range, text, '|');) {
    EXPECT_EQ(read_value(text), std::atoi(text.c_str())) << '"' << text << '"';
  }
  const struct {
    const char* text;
    int32_t want;
  } huge[] = {
      {"2147483648", INT32_MIN},
      {"-2147483649", INT32_MAX},
      {"4294967296", 0},
      {"12345678901", -539222987},
      {"9223372036854775807", -1},
      {"9223372036854775808", -1},
      {"99999999999999999999999999", -1},
      {"-9223372036854775808", 0},
      {"-9223372036854775809", 0},
      {"-99999999999999999999999999", 0},
      {"18446744073709551621", -1},  // 2^64 + 5: must not wrap to 5
      {"-18446744073709551621", 0},
      {"  +000000000000000000000000000000009223372036854775806x", -2},
  };
  for (const auto& h : huge) {
    EXPECT_EQ(read_value(h.text),
              static_cast<int32_t>(std::strtol(h.text, nullptr, 10)))
        << h.text;
    EXPECT_EQ(read_value(h.text), h.want) << h.text;
  }
  std::mt19937 rng(7);
  const char alphabet[] = " \t+-0123456789x0123456789";
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (size_t n = rng() % 32; n > 0; --n) {
      text += alphabet[rng() % (sizeof alphabet - 1)];
    }
    ASSERT_EQ(read_value(text),
              static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10)))
        << '"' << text << '"';
  }
}

// Hands out its text a few bytes at a time and then fails the way a read
// error does: by throwing out of underflow.
class FailingBuf : public std::streambuf {
 public:
  FailingBuf(std::string text, size_t fail_at)
      : text_(std::move(text)), fail_at_(fail_at) {}

 protected:
  int_type underflow() override {
    if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
    if (served_ >= fail_at_) throw std::runtime_error("read error");
    size_t n =
        std::min<size_t>({3, fail_at_ - served_, text_.size() - served_});
    if (n == 0) return traits_type::eof();
    char* start = text_.data() + served_;
    setg(start, start, start + n);
    served_ += n;
    return traits_type::to_int_type(*start);
  }

 private:
  std::string text_;
  size_t fail_at_;
  size_t served_ = 0;
};

TEST(MergeSummaryText, StopsAtAReadErrorWithoutRepeatingALine) {
  const std::string text = "[Top 10 Client]\na=1\nb=20\n\nc=300\n";
  for (size_t fail_at = 0; fail_at <= text.size() + 1; ++fail_at) {
    FailingBuf buf(text, fail_at);
    std::istream in(&buf);
    Tables got;
    EXPECT_EQ(
        merge_summary_text(got.client, got.virus, got.file, got.tally, in), 0);
    // Exactly the lines completed before the error count, each once.
    std::string served = text.substr(0, fail_at);
    std::string prefix = served.substr(0, served.rfind('\n') + 1);
    EXPECT_EQ(got, merged(prefix)) << "failing at byte " << fail_at;
  }
}

TEST(MergeSummaryText, StreamsThatCannotBeRead) {
  std::istringstream failed("[Top 10 Client]\na=1\n");
  failed.setstate(std::ios::failbit);
  Tables got;
  merge_summary_text(got.client, got.virus, got.file, got.tally, failed);
  EXPECT_EQ(got, Tables{});

  // A directory where a day's summary.txt should be opens, then fails to
  // read.
  TempDir temp;
  const std::string& dir = temp.path;
  fs::create_directory(dir + "/summary.txt");
  std::ifstream in(dir + "/summary.txt");
  if (in.is_open()) {
    merge_summary_text(got.client, got.virus, got.file, got.tally, in);
  }
  EXPECT_EQ(got, Tables{});
}

// The reading rules applied with different tools: split at line feeds,
// strtol for the values.
Tables reference_merge(const std::string& bytes) {
  Tables t;
  CountTable* current = nullptr;
  size_t start = 0;
  while (start < bytes.size()) {
    size_t end = bytes.find('\n', start);
    if (end == std::string::npos) end = bytes.size();
    std::string line = bytes.substr(start, end - start);
    start = end + 1;
    if (line.empty()) continue;
    if (line[0] == '[') {
      char at8 = line.size() > 8 ? line[8] : 0;
      if (at8 == 'C') current = &t.client;
      if (at8 == 'V') current = &t.virus;
      if (at8 == 'F') current = &t.file;
      if (line.size() > 1 && line[1] == 'S') current = &t.tally;
      continue;
    }
    if (current == nullptr) continue;
    size_t eq = line.find('=');
    std::string value = eq == std::string::npos ? line : line.substr(eq + 1);
    int32_t n = static_cast<int32_t>(std::strtol(value.c_str(), nullptr, 10));
    std::string name = line.substr(0, eq);
    (*current)[name] = static_cast<int32_t>(
        static_cast<uint32_t>((*current)[name]) + static_cast<uint32_t>(n));
  }
  return t;
}

TEST(MergeSummaryText, RandomBytes) {
  std::mt19937 rng(99);
  const std::string common = "[[[CVFS=====\n\n\n\r -+0123456789";
  for (int round = 0; round < 3000; ++round) {
    std::string bytes;
    for (size_t n = rng() % 300; n > 0; --n) {
      bytes += rng() % 2 ? common[rng() % common.size()]
                         : static_cast<char>(rng() % 256);
    }
    if (round % 3 == 0) bytes.insert(0, "[Top 10 File]\n");
    ASSERT_EQ(merged(bytes), reference_merge(bytes)) << "round " << round;
  }
}

}  // namespace
