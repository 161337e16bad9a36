#include "stats/summary_file.h"

#include <gtest/gtest.h>

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

#include "io/output_paths.h"
#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using testing_support::read_file;

// An empty directory of its own, removed at exit with the other test files.
std::string temp_dir() {
  fs::path file = testing_support::temp_file("");
  fs::remove(file);
  return file.parent_path();
}

struct Tables {
  CountTable client = {}, virus = {}, file = {}, tally = {};
  bool operator==(const Tables&) const = default;
};

void PrintTo(const Tables& t, std::ostream* os) {
  for (const CountTable* table : {&t.client, &t.virus, &t.file, &t.tally}) {
    *os << testing::PrintToString(*table) << ' ';
  }
}

int merge_into(Tables& t, std::istream& in) {
  return merge_summary_text(t.client, t.virus, t.file, t.tally, in);
}

Tables merged(const std::string& bytes, Tables tables = {}) {
  std::istringstream in(bytes);
  EXPECT_EQ(merge_into(tables, in), 0);
  return tables;
}

// The eight result keys at 0, plus `counts`.
SummaryTally tally_of(const CountTable& counts) {
  SummaryTally tally;
  init_summary_tally(tally);
  for (const auto& [name, count] : counts) add_count(tally, name, count);
  return tally;
}

// Writes the lists into a fresh directory and returns the file's bytes.
std::string written(const RankedList& clients, const RankedList& viruses,
                    const RankedList& files, const SummaryTally& tally) {
  const std::string dir = temp_dir();
  // A longer file already there must be replaced, not appended to.
  testing_support::write_file(dir + "/summary.txt", std::string(5000, 'x'));
  EXPECT_EQ(write_summary_text(clients, viruses, files, tally, dir.c_str()), 0);
  return read_file(dir + "/summary.txt");
}

TEST(WriteSummaryText, WritesListsAsGivenAndTheTallyInKeyOrder) {
  const SummaryTally tally =
      tally_of({{"Zed", INT32_MAX}, {"clean", 4}, {"error", 1}, {"foo", 4}});
  EXPECT_EQ(written({{"ws02", 2}, {"ws01", 3}, {"", 5}},
                    {{"Sample.A", 1}, {"[Top 10 File]", INT32_MIN}},
                    {{"/srv/a.doc", 4}, {"a=b", 3}, {"/x y\r", -7}}, tally),
            "[Top 10 Client]\nws02=2\nws01=3\n=5\n"
            "[Top 10 Virus]\nSample.A=1\n[Top 10 File]=-2147483648\n"
            "[Top 10 File]\n/srv/a.doc=4\na=b=3\n/x y\r=-7\n"
            "[Summary]\nZed=2147483647\nacterror=0\nclean=4\ncured=0\n"
            "deleted=0\ndenied=0\nerror=1\nexcluded=0\nfoo=4\nquarantined=0\n");
}

TEST(WriteSummaryText, EmptyListsAndDirectoriesThatCannotBeUsed) {
  const std::string base = temp_dir(), missing = base + "/missing";
  EXPECT_EQ(write_summary_text({{"a", 1}}, {}, {}, {}, missing.c_str()), -1);
  EXPECT_TRUE(fs::is_empty(base));

  // The path buffer holds out_dir + "/summary.txt" for directories of up to
  // PATH_BUFFER_SIZE - 13 characters; a longer one must not open a cut-off
  // path, which would name some other file.
  const size_t longest = PATH_BUFFER_SIZE - 13;
  std::string dir = base;
  while (longest - dir.size() > 202) dir.append("/").append(200, 'd');
  dir += "/";
  dir.append(longest - dir.size(), 'e');
  ASSERT_EQ(dir.size(), longest);
  fs::create_directories(dir);
  EXPECT_EQ(write_summary_text({}, {}, {}, tally_of({}), dir.c_str()), 0);
  EXPECT_EQ(read_file(dir + "/summary.txt"),
            "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n"
            "acterror=0\nclean=0\ncured=0\ndeleted=0\ndenied=0\nerror=0\n"
            "excluded=0\nquarantined=0\n");
  fs::remove(dir + "/summary.txt");
  EXPECT_EQ(write_summary_text({}, {}, {}, tally_of({}), (dir + "/").c_str()),
            -1);
  EXPECT_TRUE(fs::is_empty(dir));
}

TEST(MergeSummaryText, ReadsBackWhatWasWrittenAndAddsDaysUp) {
  RankedList clients = {{"ws01[10.0.0.1]", 3}, {"WS01", 2}, {"", 1}};
  RankedList viruses = {{"Sample.A", 0}, {"Sample B\r", -4}};
  RankedList files = {{"/srv/\xC3\xA9t\xC3\xA9.doc", 2147483647},
                      {"/srv/ a]b", INT32_MIN},
                      {" 12", 12}};
  SummaryTally tally = tally_of({{"cured", 9}, {"foo", 4}});
  auto table_of = [](const RankedList& list) {
    CountTable table;
    for (const RankedEntry& e : list) table.emplace(e.name, e.count);
    return table;
  };
  Tables want{table_of(clients), table_of(viruses), table_of(files), tally};
  Tables days = merged(written(clients, viruses, files, tally));
  EXPECT_EQ(days, want);

  // The next day adds to what the first left, keeping what it does not name.
  days = merged(written({{"WS01", 5}, {"Z", 3}}, {}, {{"/f", 2}},
                        tally_of({{"cured", 1}, {"error", 1}})),
                days);
  want.client["WS01"] += 5;
  want.client["Z"] = 3;
  want.file["/f"] = 2;
  want.tally["cured"] += 1;
  want.tally["error"] += 1;
  EXPECT_EQ(days, want);
}

TEST(MergeSummaryText, LinesAndHeaders) {
  const std::string c = "[Top 10 Client]\n";
  const std::pair<std::string, Tables> cases[] = {
      {"", {}},
      {"\n\n\n", {}},
      {c + "a=1\nb=2", {{{"a", 1}, {"b", 2}}}},  // no final line feed
      {c + "\na=1\n\n\na=1\n\n", {{{"a", 2}}}},
      // Entries before any header that names a table are skipped.
      {"a=1\nclean=2\n[Top 10 File]\nb=2\n", {{}, {}, {{"b", 2}}}},
      {"[Other]\na=1\n", {}},
      // Without '=' the whole line is both name and value.
      {c + "12abc\n  -7x\nplain\n",
       {{{"  -7x", -7}, {"12abc", 12}, {"plain", 0}}}},
      {c + "=5\n=1\n", {{{"", 6}}}},
      {c + "a=b=3\na==4\n", {{{"a", 0}}}},  // only the first '=' splits
      // New names are added even with 0 or less.
      {c + "z=\nn=-3\nq=0\n", {{{"n", -3}, {"q", 0}, {"z", 0}}}},
      // Carriage returns stay in names and end values.
      {"[Top 10 Client]\r\nws\r=1\r\nws=2\r\n[Summary]\r\nclean=3\r\n",
       {{{"ws", 2}, {"ws\r", 1}}, {}, {}, {{"clean", 3}}}},
      // A header matching nothing keeps the current table.
      {"[Top 10 Virus]\na=1\n[Other]\nb=2\n[]\n[\nc=3\n",
       {{}, {{"a", 1}, {"b", 2}, {"c", 3}}}},
      // Headers are told apart by byte 8 and byte 1 alone, case-sensitively,
      // and byte 1 'S' wins; a name starting with '[' is a header too.
      {"[abcdefgF]\nf=1\n[xxxxxxxV\nv=1\n[top 10 client]\nv=1\n"
       "[Sxxxxxx]\nt=1\n[Top 10 C=9\nc=1\n[SxxxxxxC]\ns=1\n",
       {{{"c", 1}}, {{"v", 2}}, {{"f", 1}}, {{"s", 1}, {"t", 1}}}},
      {c + "a=1\n[abcdefgV=2\nb=3\n", {{{"a", 1}}, {{"b", 3}}}},
      // Names never choose the table; unknown tally keys are kept.
      {c + "clean=5\n", {{{"clean", 5}}}},
      {"[Summary]\nfoo=4\nclean=1\n", {{}, {}, {}, {{"clean", 1}, {"foo", 4}}}},
      // Sections may repeat and sum.
      {c + "a=1\n[Summary]\nx=1\n" + c + "a=2\n",
       {{{"a", 3}}, {}, {}, {{"x", 1}}}},
  };
  for (const auto& [in, want] : cases) {
    EXPECT_EQ(merged(in), want) << testing::PrintToString(in);
  }
}

int32_t read_value(const std::string& text) {
  return lookup_count(merged("[Summary]\nv=" + text + "\n").tally, "v");
}

int32_t strtol_as_int(const std::string& text) {
  return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
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
  // Huge texts as "text>value|": 2^64 + 5 must not wrap to 5.
  std::istringstream huge(
      "2147483648>-2147483648|-2147483649>2147483647|4294967296>0|"
      "12345678901>-539222987|9223372036854775807>-1|"
      "9223372036854775808>-1|99999999999999999999999999>-1|"
      "-9223372036854775808>0|-9223372036854775809>0|"
      "-99999999999999999999999999>0|18446744073709551621>-1|"
      "-18446744073709551621>0|"
      "  +000000000000000000000000000000009223372036854775806x>-2");
  for (std::string text, want;
       std::getline(huge, text, '>') && std::getline(huge, want, '|');) {
    EXPECT_EQ(read_value(text), strtol_as_int(text)) << text;
    EXPECT_EQ(read_value(text), std::stoi(want)) << text;
  }
  std::mt19937 rng(7);
  const std::string alphabet = " \t+-0123456789x0123456789";
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (size_t n = rng() % 32; n > 0; --n) {
      text += alphabet[rng() % alphabet.size()];
    }
    ASSERT_EQ(read_value(text), strtol_as_int(text)) << '"' << text << '"';
  }
}

// Hands out its text a few bytes at a time and then fails the way a read
// error does: by throwing out of underflow.
struct FailingBuf : std::streambuf {
  FailingBuf(std::string text, size_t fail_at)
      : text(std::move(text)), fail_at(fail_at) {}
  int_type underflow() override {
    if (served >= fail_at) throw std::runtime_error("read error");
    size_t n = std::min<size_t>({3, fail_at - served, text.size() - served});
    if (n == 0) return traits_type::eof();
    setg(&text[served], &text[served], &text[served] + n);
    served += n;
    return traits_type::to_int_type(text[served - n]);
  }
  std::string text;
  size_t fail_at, served = 0;
};

TEST(MergeSummaryText, StopsAtAReadErrorWithoutRepeatingALine) {
  const std::string text = "[Top 10 Client]\na=1\nb=20\n\nc=300\n";
  for (size_t fail_at = 0; fail_at <= text.size() + 1; ++fail_at) {
    FailingBuf buf(text, fail_at);
    std::istream in(&buf);
    Tables got;
    EXPECT_EQ(merge_into(got, in), 0);
    // Exactly the lines completed before the error count, each once.
    std::string served = text.substr(0, fail_at);
    std::string prefix = served.substr(0, served.rfind('\n') + 1);
    EXPECT_EQ(got, merged(prefix)) << "failing at byte " << fail_at;
  }
  // Streams that fail before the first line give nothing.
  std::istringstream failed("[Top 10 Client]\na=1\n");
  failed.setstate(std::ios::failbit);
  Tables got;
  merge_into(got, failed);
  EXPECT_EQ(got, Tables{});

  // A directory in place of summary.txt opens, then fails to read.
  const std::string dir = temp_dir() + "/summary.txt";
  fs::create_directory(dir);
  std::ifstream in(dir);
  if (in.is_open()) merge_into(got, in);
  EXPECT_EQ(got, Tables{});
}

// The reading rules applied with different tools: split at line feeds,
// strtol for the values.
Tables reference_merge(const std::string& bytes) {
  Tables t;
  CountTable* current = nullptr;
  for (size_t start = 0, end; start < bytes.size(); start = end + 1) {
    end = std::min(bytes.find('\n', start), bytes.size());
    std::string line = bytes.substr(start, end - start);
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
    const size_t eq = line.find('=');
    int32_t& count = (*current)[line.substr(0, eq)];
    // Without '=', eq + 1 is 0: the whole line is the value.
    uint32_t n = static_cast<uint32_t>(strtol_as_int(line.substr(eq + 1)));
    count = static_cast<int32_t>(static_cast<uint32_t>(count) + n);
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
