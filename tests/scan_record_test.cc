#include "log/scan_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

TEST(TrimBlanks, CutsTrailingBlanksInPlaceAndSkipsLeadingOnes) {
  const struct {
    const char* in;
    size_t skipped, kept;  // leading blanks passed over; characters left
  } cases[] = {
      {"abc", 0, 3},      {"  abc \t ", 2, 5}, {"\ta b", 1, 4}, {"abc\r", 0, 4},
      {"abc\r \t", 0, 4}, {" \r ", 1, 2},      {"a\n", 0, 2},   {"\v\f", 0, 2},
      {"   ", 0, 0},      {"\t \t", 0, 0},     {"", 0, 0},
  };
  for (const auto& c : cases) {
    const size_t size = std::strlen(c.in);
    char buffer[16];
    std::memcpy(buffer, c.in, size + 1);
    const char* start = trim_blanks(buffer);
    EXPECT_EQ(start, buffer + c.skipped) << '"' << c.in;
    EXPECT_EQ(std::memcmp(buffer, c.in, c.kept), 0) << '"' << c.in;
    for (size_t i = c.kept; i <= size; ++i) {
      EXPECT_EQ(buffer[i], '\0') << '"' << c.in << "\" at " << i;
    }
  }
}

TEST(NextField, StopsAtTheLastField) {
  const struct {
    const char* text;
    int length;
    int advance;  // offset of the returned position
  } cases[] = {
      {"abc,,def", 3, 5}, {"abc", 3, 0},  {"", 0, 0},       {",,abc", 0, 2},
      {",,", 0, 2},       {",,,,", 0, 2}, {"a,b,,c", 3, 5}, {"a,,,b", 1, 3},
      {",b", 2, 0},       {"a,", 2, 0},
  };
  for (const auto& c : cases) {
    int length = -1;
    const char* next = next_field(c.text, &length);
    EXPECT_EQ(length, c.length) << '"' << c.text << '"';
    EXPECT_EQ(next, c.text + c.advance) << '"' << c.text << '"';
  }
  const char* last = "tail";
  for (int i = 0; i < 3; ++i) {
    int length = 0;
    EXPECT_EQ(next_field(last, &length), last);
    EXPECT_EQ(length, 4);
  }
}

// The nine fields in record order; absent ones are nullopt.
using Fields = std::array<std::optional<std::string>, 9>;
enum { kDate, kTime, kClient, kFile, kResult, kAction, kRemark, kVirus, kQuar };

Fields fields_of(const char* line) {
  ScanRecord r(line);
  return {r.date,   r.time,   r.client, r.file,      r.result,
          r.action, r.remark, r.virus,  r.quarantine};
}

bool same_word(const std::string& text, const char* keyword) {
  return std::equal(
      text.begin(), text.end(), keyword, keyword + std::strlen(keyword),
      [](char a, char b) { return (a >= 'a' && a <= 'z' ? a - 32 : a) == b; });
}

// An independent reading of a line: cut it into its ",," fields first, then
// take fields by number, where a number past the last field repeats it.
Fields model(const std::string& line) {
  std::vector<std::string> parts;
  for (size_t start = 0;;) {
    size_t separator = line.find(",,", start);
    parts.push_back(line.substr(start, separator - start));
    if (separator == std::string::npos) break;
    start = separator + 2;
  }
  auto field = [&](size_t n) { return parts[std::min(n, parts.size()) - 1]; };
  Fields f;
  auto take = [&](size_t n, int slot) {
    if (field(n).empty()) return false;
    f[slot] = field(n);
    return true;
  };
  if (field(1).empty() || !take(2, kDate) || !take(3, kTime)) return f;
  if (field(4).empty() || field(5).empty() || parts.size() < 5) return f;
  f[kClient] = field(4) + "[" + field(5) + "]";
  if (!take(6, kResult)) return f;
  const std::string result = *f[kResult];
  if (same_word(result, "CLEAN")) {
    take(7, kFile);
  } else if (same_word(result, "INFECTED")) {
    if (take(7, kAction) && take(8, kVirus) && take(9, kFile) &&
        same_word(*f[kAction], "QUARANTINED")) {
      take(10, kQuar);
    }
  } else if (same_word(result, "CURED")) {
    take(7, kVirus) && take(8, kFile);
  } else if (same_word(result, "ERROR") || same_word(result, "EXCLUDED")) {
    take(7, kRemark) && take(8, kFile);
  }
  return f;
}

std::string show(const Fields& f) {
  std::string text;
  for (const auto& field : f) text += field ? "\"" + *field + "\" " : "- ";
  return text;
}

// From a table row of texts, nullptr for an absent field.
Fields to_fields(const std::array<const char*, 9>& texts) {
  Fields fields;
  for (int i = 0; i < 9; ++i) {
    if (texts[i] != nullptr) fields[i] = texts[i];
  }
  return fields;
}

constexpr const char* kNo = nullptr;
const std::string P = "F,,31-01-2024,,10:00:00,,host,,user,,";
const char *D = "31-01-2024", *T = "10:00:00", *C = "host[user]";

TEST(ScanRecord, FieldsByLayout) {
  const struct {
    std::string line;
    // date, time, client, file, result, action, remark, virus, quarantine
    std::array<const char*, 9> want;
  } cases[] = {
      {P + "CLEAN,,/a", {D, T, C, "/a", "CLEAN"}},
      {P + "clean,, /a b ,,x", {D, T, C, " /a b ", "clean"}},
      {P + "CLEAN", {D, T, C, "CLEAN", "CLEAN"}},
      {P + "CLEAN,,", {D, T, C, kNo, "CLEAN"}},
      {P + "CLEAN,,,/a", {D, T, C, ",/a", "CLEAN"}},
      {P + "CLEAN,,/a\r", {D, T, C, "/a\r", "CLEAN"}},
      {P + "CLEAN ,,/a", {D, T, C, kNo, "CLEAN "}},
      {P + "INFECTED,,QUARANTINED,,V,,/a,,/q,,x",
       {D, T, C, "/a", "INFECTED", "QUARANTINED", kNo, "V", "/q"}},
      {P + "iNfEcTeD,,QuArAnTiNeD,,V,,/a,,/q",
       {D, T, C, "/a", "iNfEcTeD", "QuArAnTiNeD", kNo, "V", "/q"}},
      {P + "INFECTED,,DELETED,,V,,/a,,/q",
       {D, T, C, "/a", "INFECTED", "DELETED", kNo, "V"}},
      {P + "INFECTED,,QUARANTINED ,,V,,/a,,/q",
       {D, T, C, "/a", "INFECTED", "QUARANTINED ", kNo, "V"}},
      {P + "INFECTED,,QUARANTINED,,V",
       {D, T, C, "V", "INFECTED", "QUARANTINED", kNo, "V", "V"}},
      {P + "INFECTED,,DELETED,,V",
       {D, T, C, "V", "INFECTED", "DELETED", kNo, "V"}},
      {P + "INFECTED,,QUARANTINED,,V,,",
       {D, T, C, kNo, "INFECTED", "QUARANTINED", kNo, "V"}},
      {P + "INFECTED,,QUARANTINED,,V,,/a",
       {D, T, C, "/a", "INFECTED", "QUARANTINED", kNo, "V", "/a"}},
      {P + "INFECTED,,QUARANTINED,,V,,/a,,",
       {D, T, C, "/a", "INFECTED", "QUARANTINED", kNo, "V"}},
      {P + "INFECTED,,QUARANTINED",
       {D, T, C, "QUARANTINED", "INFECTED", "QUARANTINED", kNo, "QUARANTINED",
        "QUARANTINED"}},
      {P + "INFECTED,,,,V,,/a", {D, T, C, kNo, "INFECTED"}},
      {P + "INFECTED,,QUARANTINED,,,,/a,,/q",
       {D, T, C, kNo, "INFECTED", "QUARANTINED"}},
      {P + "CURED,,V,,/a,,x", {D, T, C, "/a", "CURED", kNo, kNo, "V"}},
      {P + "cured,,V", {D, T, C, "V", "cured", kNo, kNo, "V"}},
      {P + "ERROR,,cannot open,,/a",
       {D, T, C, "/a", "ERROR", kNo, "cannot open"}},
      {P + "ERROR", {D, T, C, "ERROR", "ERROR", kNo, "ERROR"}},
      {P + "EXCLUDED,,rule,,/a,,x", {D, T, C, "/a", "EXCLUDED", kNo, "rule"}},
      {P + "eXcLuDeD,,,,/a", {D, T, C, kNo, "eXcLuDeD"}},
      {P + "SKIPPED,,/a,,V", {D, T, C, kNo, "SKIPPED"}},
      {P + ",,CLEAN,,/a", {D, T, C}},
      {"F,,31-01-2024,,10:00:00,,host", {D, T}},
      {"F,,31-01-2024,,10:00:00,,host,,", {D, T}},
      {"F,,31-01-2024,,10:00:00,,host,,user", {D, T, C, kNo, "user"}},
      {"F,,31-01-2024,,10:00:00,,host,,CLEAN",
       {D, T, "host[CLEAN]", "CLEAN", "CLEAN"}},
      {"F,,31-01-2024", {D, D}},
      {"31-01-2024", {D, D}},
      {"F,,31-01-2024,,", {D}},
      {"F,,31-01-2024,,,,host,,user,,CLEAN,,/a", {D}},
      {"F,,,31-01-2024,,10:00:00,,h,,u,,CLEAN,,/a",
       {",31-01-2024", T, "h[u]", "/a", "CLEAN"}},
      {"F,, 31-01-2024 ,,\t10:00 ,, h ,,u u,,CLEAN,,/a",
       {" 31-01-2024 ", "\t10:00 ", " h [u u]", "/a", "CLEAN"}},
      {"F,x,,d,,t", {"d", "t"}},
      {"", {}},
      {",,", {}},
      {",,,", {}},
      {",," + P + "CLEAN,,/a", {}},
  };
  for (const auto& c : cases) {
    const Fields want = to_fields(c.want);
    EXPECT_EQ(fields_of(c.line.c_str()), want) << c.line << "\n" << show(want);
    EXPECT_EQ(model(c.line), want) << "model: " << c.line;
  }
}

TEST(ScanRecord, EveryCutOfAValidLineIsSane) {
  const char* parts[] = {
      "F",        "31-01-2024",  "10:00:00",   "host",          "user",
      "INFECTED", "QUARANTINED", "EICAR-Test", "/home/a/b.com", "/var/q/b.com"};
  std::string full;
  size_t whole_from[11];  // the cut from which log field n is there whole
  for (int n = 1; n <= 10; ++n) {
    full += parts[n - 1];
    whole_from[n] = full.size() + (n < 10 ? 2 : 0);
    if (n < 10) full += ",,";
  }
  const Fields whole =
      to_fields({D, T, C, "/home/a/b.com", "INFECTED", "QUARANTINED", kNo,
                 "EICAR-Test", "/var/q/b.com"});
  // Record fields in line order, with the log field that completes each.
  const std::pair<int, int> order[] = {{kDate, 2},   {kTime, 3},   {kClient, 5},
                                       {kResult, 6}, {kAction, 7}, {kVirus, 8},
                                       {kFile, 9},   {kQuar, 10}};
  for (size_t cut = 0; cut <= full.size(); ++cut) {
    const std::string line = full.substr(0, cut);
    const Fields got = fields_of(line.c_str());
    EXPECT_EQ(got, model(line)) << line;
    EXPECT_FALSE(got[kRemark]);
    bool ended = false;
    for (const auto& [slot, log_field] : order) {
      if (ended) {
        EXPECT_FALSE(got[slot]) << line << " field " << slot;
      }
      ended = ended || !got[slot];
      if (whole_from[log_field] <= cut) {
        EXPECT_EQ(got[slot], whole[slot]) << line;
      }
    }
  }
}

TEST(ScanRecord, HostileLinesMatchTheFieldModel) {
  std::vector<std::string> lines = {
      std::string(2047, ','),
      std::string(2046, ',') + "a",
      std::string(2047, 'a'),
      P + "CLEAN,," + std::string(2047 - P.size() - 7, 'f'),
      P + "INFECTED,,QUARANTINED,,V,,/f,," +
          std::string(2047 - P.size() - 30, ','),
  };
  std::string pattern;
  while (pattern.size() < 2047) pattern += ",,x";
  lines.push_back(pattern.substr(0, 2047));
  lines.push_back(pattern.substr(1, 2047));

  const char* tokens[] = {",",       ",,",       ",,,",         "CLEAN",
                          "clean",   "INFECTED", "infected",    "CURED",
                          "ERROR",   "EXCLUDED", "QUARANTINED", "quarantined",
                          "DELETED", "a",        " ",           "\t",
                          "\r",      "\xff",     "31-01-2024"};
  std::mt19937 random(20240131);
  for (int i = 0; i < 5000; ++i) {
    std::string line = random() % 2 ? P : "";
    const size_t limit = random() % 4 ? random() % 120 : 2047;
    while (line.size() < limit) line += tokens[random() % std::size(tokens)];
    lines.push_back(line.substr(0, std::min<size_t>(limit, 2047)));
  }
  for (const std::string& line : lines) {
    ASSERT_EQ(fields_of(line.c_str()), model(line)) << line;
  }
}

}  // namespace
