// find_period_start judges most lines in place, without copying them; these
// tests hold it to the plain loop it replaces: std::istream::getline into
// a LOG_LINE_SIZE buffer and line_date on each line, stopping at the first
// date on or after the start.
#include "log/period_start.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

using testing_support::temp_file;

struct Outcome {
  DateStamp found = 0;
  std::string line;  // the stored bytes, up to the stored length
  bool eof = false;
  bool failed = false;
  std::vector<std::string> rest;  // what getline reads afterwards
};

Outcome reference(const std::string& path, DateStamp first_date) {
  Outcome o;
  std::ifstream in(path, std::ios::binary);
  std::vector<char> buf(LOG_LINE_SIZE);
  size_t stored = 0;
  for (;;) {
    in.getline(buf.data(), LOG_LINE_SIZE);
    stored = static_cast<size_t>(in.gcount());
    if (!in.fail() && !in.eof()) --stored;  // the line feed
    if (in.fail()) break;
    o.found = line_date(buf.data());
    if (o.found >= first_date) break;
  }
  o.line.assign(buf.data(), stored);
  o.eof = in.eof();
  o.failed = in.fail();
  while (in.getline(buf.data(), LOG_LINE_SIZE)) o.rest.push_back(buf.data());
  return o;
}

Outcome scanned(const std::string& path, DateStamp first_date,
                size_t block_size, size_t stored) {
  Outcome o;
  LineReader reader;
  EXPECT_TRUE(reader.open(path.c_str(), block_size));
  std::vector<char> buf(LOG_LINE_SIZE, 'x');
  o.found = find_period_start(reader, first_date, buf.data());
  o.line.assign(buf.data(), stored);
  o.eof = reader.eof();
  o.failed = reader.failed();
  while (reader.getline(buf.data())) o.rest.push_back(buf.data());
  return o;
}

void expect_same(const std::string& bytes, DateStamp first_date,
                 size_t block_size) {
  const std::string path = temp_file(bytes);
  Outcome want = reference(path, first_date);
  Outcome got = scanned(path, first_date, block_size, want.line.size());
  SCOPED_TRACE("first date " + std::to_string(first_date) + ", block " +
               std::to_string(block_size));
  EXPECT_EQ(got.found, want.found);
  EXPECT_EQ(got.line, want.line);
  EXPECT_EQ(got.eof, want.eof);
  EXPECT_EQ(got.failed, want.failed);
  EXPECT_EQ(got.rest, want.rest);
}

const char kDay1[] = "J1,,01-01-2024,,10:00:00,,ws1,,10.0.0.1,,CLEAN,,/a\n";
const char kDay2[] = "J2,,02-01-2024,,10:00:00,,ws1,,10.0.0.1,,CLEAN,,/b\n";
const char kDay3[] = "J3,,03-01-2024,,10:00:00,,ws1,,10.0.0.1,,CLEAN,,/c\n";

TEST(FindPeriodStart, StopsWhereThePlainLoopStops) {
  const std::string long_first_field(40, 'F');
  const std::string cases[] = {
      "",
      std::string(kDay1) + kDay2 + kDay3,
      std::string(kDay1) + kDay3 + kDay2,  // out of order: stops at day 3
      std::string(kDay1) + kDay1 + kDay2 + "J4,,02-01-2024,,x",  // no newline
      std::string(kDay1) + "\n   \t\n" + kDay2,                  // blank lines
      std::string(kDay1) + "  J9,,02-01-2024,,x  \t\n" + kDay3,  // blanks
      std::string(kDay1) + "02-01-2024\n" + kDay3,      // the whole line a date
      std::string(kDay1) + "J5,,02-01-2024\n" + kDay3,  // date field last
      std::string(kDay1) + "J5,,02-01-2024,,,x\n" + kDay3,
      std::string(kDay1) + "J5,,,02-01-2024,,x\n" + kDay3,
      std::string(kDay1) + "J5,,31-02-2024,,x\n" + kDay2,  // invalid date
      std::string(kDay1) + "J5,,2-1-02024,,x\n" + kDay3,   // loose runs
      std::string(kDay1) + std::string("J\0,,02-01-2024,,x\n", 18) + kDay3,
      std::string(kDay1) + long_first_field + ",,02-01-2024,,x\n" + kDay3,
      std::string(kDay1) + std::string(2047, 'L') + "\n" + kDay2,
      std::string(kDay1) + std::string(2048, 'L') + "\n" + kDay2,  // too long
      std::string(kDay1) + "J6,,02-01-2024,," + std::string(3000, 'p') + "\n" +
          kDay3,
  };
  for (const std::string& bytes : cases) {
    for (DateStamp first : {20240101, 20240102, 20240103, 20240104}) {
      for (size_t block : {size_t{0}, size_t{1}, size_t{7}, size_t{64}}) {
        expect_same(bytes, first, block);
      }
    }
  }
}

// Random logs mixing lines of the usual shape with every kind of odd line,
// read through blocks of random sizes so that lines straddle them.
std::string random_log(std::mt19937& rng) {
  auto pick = [&rng](int n) { return static_cast<int>(rng() % n); };
  static const char* const kBits[] = {" ", "\t", ",", ",,", ",,,", "\r",
                                      "x", "-",  "1", "",   "J01"};
  auto noise = [&]() {
    std::string s;
    for (int i = pick(4); i > 0; --i) {
      s += pick(12) == 0 ? std::string(1, '\0') : kBits[pick(11)];
    }
    return s;
  };
  std::string log;
  int day = 1;
  for (int i = pick(300); i > 0; --i) {
    if (pick(20) == 0) day += 1;
    char date[32];  // days past 31 make invalid dates on purpose
    std::snprintf(date, sizeof date, "%02d-01-2024", day);
    std::string first = pick(8) ? "J" + std::to_string(pick(1000000)) : noise();
    switch (pick(8)) {
      case 0:
        log += noise() + first + noise() + ",," + date + noise();
        break;
      case 1:
        log += first + ",," + std::string(date).substr(0, pick(11)) + noise();
        break;
      case 2:
        log += std::string(2040 + pick(20), 'a');
        break;
      default:
        log += noise().substr(0, 1) + first + ",," + date + ",,t,,c";
        break;
    }
    if (i > 1 || pick(2)) log += '\n';
  }
  return log;
}

TEST(FindPeriodStart, MatchesThePlainLoopOnRandomLogs) {
  std::mt19937 rng(20240101);
  for (int i = 0; i < 300; ++i) {
    const std::string log = random_log(rng);
    const DateStamp first = 20240100 + 1 + static_cast<int>(rng() % 20);
    const size_t block = rng() % 3 == 0 ? 0 : 1 + rng() % 400;
    expect_same(log, first, block);
  }
}

}  // namespace
