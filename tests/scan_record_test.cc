// The field rules of a scan-log line, held to an independent reading of
// them on random lines: cut the line at every ",," first, then take fields
// by number, where a number past the last field repeats the last one.
#include "log/scan_record.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <array>
#include <random>

namespace {

using Fields = std::array<std::optional<std::string>, 9>;
enum { kDate, kTime, kClient, kFile, kResult, kAction, kRemark, kVirus, kQuar };

bool is(const std::optional<std::string>& text, const char* keyword) {
  return text && strcasecmp(text->c_str(), keyword) == 0;
}

Fields model(const std::string& line) {
  std::vector<std::string> parts;
  for (size_t start = 0, end = 0; end != line.npos; start = end + 2) {
    end = line.find(",,", start);
    parts.push_back(line.substr(start, end - start));
  }
  auto field = [&](size_t n) { return parts[std::min(n, parts.size()) - 1]; };
  Fields f;
  // Fields numbered `first` on into `slots`, up to the first empty one.
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
  if (is(f[kResult], "CLEAN")) take(7, {kFile});
  if (is(f[kResult], "CURED")) take(7, {kVirus, kFile});
  if (is(f[kResult], "ERROR") || is(f[kResult], "EXCLUDED")) {
    take(7, {kRemark, kFile});
  }
  if (is(f[kResult], "INFECTED") && take(7, {kAction, kVirus, kFile}) &&
      is(f[kAction], "QUARANTINED")) {
    take(10, {kQuar});
  }
  return f;
}

TEST(ScanRecord, FieldsFollowTheLayoutOfEachResult) {
  const char* tokens[] = {",",       ",,",       ",,,",         "CLEAN",
                          "clean",   "INFECTED", "infected",    "CURED",
                          "ERROR",   "EXCLUDED", "QUARANTINED", "quarantined",
                          "DELETED", "a",        " ",           "\t",
                          "\r",      "\xff",     "31-01-2024"};
  std::mt19937 random(20240131);
  for (int i = 0; i < 20000; ++i) {
    std::string line = random() % 2 ? "F,,31-01-2024,,10:00:00,,h,,u,," : "";
    const size_t limit = random() % 8 ? random() % 120 : 2047;
    while (line.size() < limit) line += tokens[random() % std::size(tokens)];
    line.resize(std::min(line.size(), limit));
    const ScanRecord r(line.c_str());
    ASSERT_EQ(Fields({r.date, r.time, r.client, r.file, r.result, r.action,
                      r.remark, r.virus, r.quarantine}),
              model(line))
        << line;
  }
}

}  // namespace
