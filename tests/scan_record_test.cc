// The field rules of a scan-log line, held to an independent reading of
// them on random lines: cut the line at every ",," first, then take fields
// by number, where a number past the last field repeats the last one.
#include "log/scan_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using Fields = std::array<std::optional<std::string>, 9>;
enum { kDate, kTime, kClient, kFile, kResult, kAction, kRemark, kVirus, kQuar };

Fields fields_of(const std::string& line) {
  const ScanRecord r(line.c_str());
  return {r.date,   r.time,   r.client, r.file,      r.result,
          r.action, r.remark, r.virus,  r.quarantine};
}

bool is(const std::optional<std::string>& text, const std::string& keyword) {
  return text &&
         std::equal(text->begin(), text->end(), keyword.begin(), keyword.end(),
                    [](char a, char b) {
                      return std::toupper(static_cast<unsigned char>(a)) == b;
                    });
}

Fields model(const std::string& line) {
  std::vector<std::string> parts;
  for (size_t start = 0, separator;; start = separator + 2) {
    separator = line.find(",,", start);
    parts.push_back(line.substr(start, separator - start));
    if (separator == line.npos) break;
  }
  auto field = [&](size_t n) { return parts[std::min(n, parts.size()) - 1]; };
  Fields f;
  // Takes the fields numbered `first` on into `slots`, up to an empty one.
  auto take = [&](size_t first, std::initializer_list<int> slots) {
    for (int slot : slots) {
      if (field(first).empty()) return false;
      f[slot] = field(first++);
    }
    return true;
  };
  if (field(1).empty() || !take(2, {kDate, kTime}) || field(4).empty() ||
      field(5).empty() || parts.size() < 5) {
    return f;
  }
  f[kClient] = field(4) + "[" + field(5) + "]";
  if (!take(6, {kResult})) return f;
  if (is(f[kResult], "CLEAN")) {
    take(7, {kFile});
  } else if (is(f[kResult], "INFECTED")) {
    if (take(7, {kAction, kVirus, kFile}) && is(f[kAction], "QUARANTINED")) {
      take(10, {kQuar});
    }
  } else if (is(f[kResult], "CURED")) {
    take(7, {kVirus, kFile});
  } else if (is(f[kResult], "ERROR") || is(f[kResult], "EXCLUDED")) {
    take(7, {kRemark, kFile});
  }
  return f;
}

TEST(ScanRecord, FieldsFollowTheLayoutOfEachResult) {
  const std::string valid = "F,,31-01-2024,,10:00:00,,host,,user,,";
  const char* tokens[] = {",",       ",,",       ",,,",         "CLEAN",
                          "clean",   "INFECTED", "infected",    "CURED",
                          "ERROR",   "EXCLUDED", "QUARANTINED", "quarantined",
                          "DELETED", "a",        " ",           "\t",
                          "\r",      "\xff",     "31-01-2024"};
  std::vector<std::string> lines = {"", ",,", std::string(2047, ','),
                                    std::string(2046, ',') + "a"};
  std::mt19937 random(20240131);
  for (int i = 0; i < 20000; ++i) {
    std::string line = random() % 2 ? valid : "";
    const size_t limit = random() % 8 ? random() % 120 : 2047;
    while (line.size() < limit) line += tokens[random() % std::size(tokens)];
    lines.push_back(line.substr(0, limit));
  }
  for (const std::string& line : lines) {
    ASSERT_EQ(fields_of(line), model(line)) << line;
  }
}

}  // namespace
