#include "stats/count_table.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Entries = std::vector<std::pair<std::string, int32_t>>;

Entries entries_of(const RankedList& list) {
  Entries out;
  for (const RankedEntry& e : list) out.emplace_back(e.name, e.count);
  return out;
}

Entries entries_of(const CountTable& table) {
  return Entries(table.begin(), table.end());
}

RankedList list_of(const Entries& entries) {
  RankedList list;
  for (const auto& [name, count] : entries) list.push_back({name, count});
  return list;
}

// The pages have always shown the order of this exchange selection over
// the whole list, followed by the cut; kept here in its plain quadratic
// form so the fast selection can be checked against it.
void reference_top_ten(RankedList& list) {
  if (list.empty()) return;
  for (size_t p = 0; p < list.size(); ++p) {
    size_t best = p;
    for (size_t q = p + 1; q < list.size(); ++q) {
      if (list[q].count > list[best].count) best = q;
    }
    if (best != p) {
      RankedEntry held = list[p];
      list[p] = list[best];
      list[best] = held;
    }
  }
  while (list.size() > 11) list.pop_back();
  if (list.size() == 11 && list[9].count > list[10].count) list.pop_back();
}

TEST(CountTable, KeysAreOrderedByUnsignedBytes) {
  CountTable table;
  for (const char* name : {"b", "abc", "\xC3\xA9t\xC3\xA9", "a", "Zulu", "ab",
                           "", "host", "Host", "~", "A"}) {
    add_count(table, name, 1);
  }
  Entries want = {{"", 1},
                  {"A", 1},
                  {"Host", 1},
                  {"Zulu", 1},
                  {"a", 1},
                  {"ab", 1},
                  {"abc", 1},
                  {"b", 1},
                  {"host", 1},
                  {"~", 1},
                  {"\xC3\xA9t\xC3\xA9", 1}};
  EXPECT_EQ(entries_of(table), want);
}

TEST(CountTable, AddAndLookUp) {
  CountTable table;
  EXPECT_EQ(lookup_count(table, "x"), -1);
  add_count(table, "x", 0);
  EXPECT_EQ(lookup_count(table, "x"), 0);  // present with 0 is not absent
  add_count(table, "x", 1);
  add_count(table, "x", 1);
  add_count(table, "x", -5);
  EXPECT_EQ(lookup_count(table, "x"), -3);
  add_count(table, "X", 7);
  EXPECT_EQ(lookup_count(table, "X"), 7);
  EXPECT_EQ(lookup_count(table, "x"), -3);
  EXPECT_EQ(lookup_count(table, "x "), -1);
  EXPECT_EQ(lookup_count(table, ""), -1);
  EXPECT_EQ(table.size(), 2u);
}

TEST(CountTable, CountsWrapAtThirtyTwoBits) {
  constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
  constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
  CountTable table;
  add_count(table, "up", kMax);
  add_count(table, "up", 1);
  EXPECT_EQ(lookup_count(table, "up"), kMin);
  add_count(table, "down", kMin);
  add_count(table, "down", -1);
  EXPECT_EQ(lookup_count(table, "down"), kMax);
  add_count(table, "big", kMax);
  add_count(table, "big", kMax);
  EXPECT_EQ(lookup_count(table, "big"), -2);
}

TEST(SummaryTally, InitAddsTheEightKeysAndKeepsCounts) {
  SummaryTally tally;
  add_count(tally, "clean", 3);
  add_count(tally, "foo", 4);
  init_summary_tally(tally);
  Entries want = {{"acterror", 0}, {"clean", 3},  {"cured", 0},
                  {"deleted", 0},  {"denied", 0}, {"error", 0},
                  {"excluded", 0}, {"foo", 4},    {"quarantined", 0}};
  EXPECT_EQ(entries_of(tally), want);
  init_summary_tally(tally);
  EXPECT_EQ(entries_of(tally), want);
}

TEST(RankedListFromTable, AppendsInKeyOrderAndEmptiesTheTable) {
  RankedList list = list_of({{"zz", 9}, {"aa", 1}});
  CountTable empty;
  ranked_list_from_table(empty, list);
  EXPECT_EQ(entries_of(list), (Entries{{"zz", 9}, {"aa", 1}}));

  CountTable table;
  add_count(table, "b", 2);
  add_count(table, "B", -1);
  add_count(table, "a-long-name-beyond-any-small-string-buffer", 5);
  ranked_list_from_table(table, list);
  EXPECT_TRUE(table.empty());
  EXPECT_EQ(entries_of(list),
            (Entries{{"zz", 9},
                     {"aa", 1},
                     {"B", -1},
                     {"a-long-name-beyond-any-small-string-buffer", 5},
                     {"b", 2}}));
  // The emptied table is usable again.
  add_count(table, "b", 1);
  EXPECT_EQ(lookup_count(table, "b"), 1);
}

// Lists written as "name=count name=count ...".
RankedList parse(const std::string& text) {
  RankedList list;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    size_t eq = word.rfind('=');
    list.push_back({word.substr(0, eq), std::stoi(word.substr(eq + 1))});
  }
  return list;
}

std::string render(const RankedList& list) {
  std::string out;
  for (const RankedEntry& e : list) {
    out += (out.empty() ? "" : " ") + e.name + "=" + std::to_string(e.count);
  }
  return out;
}

TEST(SelectTopTen, ExchangeOrderAndCut) {
  const struct Case {
    const char* what;
    std::string in, want;
  } cases[] = {
      {"empty", "", ""},
      {"one", "a=0", "a=0"},
      {"equal counts are not kept stable", "ant=1 bee=1 cat=2",
       "cat=2 bee=1 ant=1"},
      {"ten are sorted and kept", "a=1 b=1 c=1 d=2 e=1 f=1 g=1 h=1 i=1 j=3",
       "j=3 d=2 c=1 b=1 e=1 f=1 g=1 h=1 i=1 a=1"},
      {"eleven, tenth above eleventh",
       "a=5 b=4 c=5 d=5 e=5 f=5 g=5 h=5 i=5 j=5 k=5",
       "a=5 c=5 d=5 e=5 f=5 g=5 h=5 i=5 j=5 k=5"},
      {"eleven, tenth ties eleventh",
       "a=5 b=6 c=5 d=5 e=5 f=5 g=5 h=5 i=5 j=5 k=5",
       "b=6 a=5 c=5 d=5 e=5 f=5 g=5 h=5 i=5 j=5 k=5"},
      {"twelve, cut to eleven then ten",
       "a=1 b=2 c=3 d=4 e=5 f=6 g=7 h=8 i=9 j=10 k=11 l=12",
       "l=12 k=11 j=10 i=9 h=8 g=7 f=6 e=5 d=4 c=3"},
      {"twelve, a tie keeps eleven",
       "a=1 b=2 c=2 d=2 e=2 f=2 g=2 h=2 i=2 j=2 k=2 l=2",
       "b=2 c=2 d=2 e=2 f=2 g=2 h=2 i=2 j=2 k=2 l=2"},
      {"host01 moves last and is cut",
       "host01=1 host02=1 host03=1 host04=1 host05=1 host06=1 host07=1 "
       "host08=1 host09=1 host10=1 host11=1 host12=2",
       "host12=2 host02=1 host03=1 host04=1 host05=1 host06=1 host07=1 "
       "host08=1 host09=1 host10=1 host11=1"},
      {"fifteen equal: the first eleven stay",
       "a=1 b=1 c=1 d=1 e=1 f=1 g=1 h=1 i=1 j=1 k=1 l=1 m=1 n=1 o=1",
       "a=1 b=1 c=1 d=1 e=1 f=1 g=1 h=1 i=1 j=1 k=1"},
      {"negative counts sort below zero", "a=-1 b=0 c=-5 d=2",
       "d=2 b=0 a=-1 c=-5"},
      {"extremes compare signed", "a=-2147483648 b=-1 c=2147483647 d=0",
       "c=2147483647 d=0 b=-1 a=-2147483648"},
  };
  for (const Case& c : cases) {
    RankedList list = parse(c.in);
    select_top_ten(list);
    EXPECT_EQ(render(list), c.want) << c.what;
  }
}

// Heavy ties (counts from a small range, sometimes negative) and list sizes
// on both sides of the cut, in arbitrary starting orders.
TEST(SelectTopTen, MatchesTheFullExchangeSelection) {
  std::mt19937 rng(20241116);
  for (int round = 0; round < 3000; ++round) {
    const int max_size = round % 10 == 0 ? 400 : 30;
    const int size = static_cast<int>(rng() % (max_size + 1));
    const int low = static_cast<int>(rng() % 3) - 2;
    const int high = low + static_cast<int>(rng() % 6);
    std::uniform_int_distribution<int32_t> count(low, high);
    RankedList list;
    for (int i = 0; i < size; ++i) {
      list.push_back({std::string("e").append(std::to_string(i)), count(rng)});
    }
    RankedList want = list;
    reference_top_ten(want);
    select_top_ten(list);
    ASSERT_EQ(entries_of(list), entries_of(want))
        << "round " << round << ", size " << size;
  }
}

}  // namespace
