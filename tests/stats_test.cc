// The top-ten selection and the summary file's count reader, each held to
// the plain code it stands for: a literal exchange sort and atoi.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <sstream>

#include "stats/count_table.h"
#include "stats/summary_file.h"

namespace {

std::string shown(const RankedList& list) {
  std::string text;
  for (const RankedEntry& e : list)
    text += e.name + "=" + std::to_string(e.count) + " ";
  return text;
}

// The order the pages have always shown: an exchange selection over the
// whole list, highest count first, then the cut to ten, or eleven on a tie.
void exchange_sort_top_ten(RankedList& list) {
  for (size_t p = 0; p < list.size(); ++p) {
    size_t best = p;
    for (size_t q = p + 1; q < list.size(); ++q) {
      if (list[q].count > list[best].count) best = q;
    }
    if (best != p) std::swap(list[p], list[best]);
  }
  if (list.size() > 11) list.resize(11);
  if (list.size() == 11 && list[9].count > list[10].count) list.pop_back();
}

// Heavy ties from small count ranges, sometimes negative or extreme, and
// list sizes on both sides of the cut.
TEST(SelectTopTen, MatchesTheExchangeSort) {
  std::mt19937 random(20241116);
  for (int round = 0; round < 3000; ++round) {
    const int low = round % 50 == 0 ? INT32_MIN : int(random() % 3) - 2;
    std::uniform_int_distribution<int32_t> count(low, low + random() % 6);
    RankedList list;
    for (int i = random() % (round % 10 ? 30 : 400); i > 0; --i) {
      list.push_back({"e" + std::to_string(i), count(random)});
    }
    RankedList want = list;
    exchange_sort_top_ten(want);
    select_top_ten(list);
    ASSERT_EQ(shown(list), shown(want)) << "round " << round;
  }
}

// What a range report reads from `text` as the count of a [Summary] entry.
int32_t count_read(const std::string& text) {
  CountTable clients, viruses, files, tally;
  std::istringstream in("[Summary]\nkey=" + text + "\n");
  merge_summary_text(clients, viruses, files, tally, in);
  return lookup_count(tally, "key");
}

// atoi here is strtol cut to int, which also fixes what a count past 32 or
// 64 bits becomes.
TEST(MergeSummaryText, ReadsCountsAsAtoiDoes) {
  std::istringstream texts(
      "0|-0|+12|  42|\t-8x|\v\f\r7|007|1e5|0x1F||x9|--1|+-1|- 1|+|12=3|"
      "2147483647|-2147483648|2147483648|-2147483649|12345678901|"
      "9223372036854775807|9223372036854775808|-9223372036854775809|"
      "99999999999999999999999999|18446744073709551621");
  for (std::string text; std::getline(texts, text, '|');) {
    EXPECT_EQ(count_read(text), std::atoi(text.c_str())) << '"' << text << '"';
  }
  std::mt19937 random(7);
  const std::string alphabet = " \t+-0123456789x0123456789";
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (int n = random() % 32; n > 0; --n) text += alphabet[random() % 25];
    ASSERT_EQ(count_read(text), std::atoi(text.c_str())) << '"' << text << '"';
  }
}

}  // namespace
