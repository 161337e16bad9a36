// A day can count a million distinct file paths, so nothing here may be
// quadratic: the top-ten selection runs only the first eleven steps of the
// exchange selection whose order (ties included) the pages have always
// shown, since every later step is cut away anyway.
#include "stats/count_table.h"

#include <utility>

void add_count(CountTable& table, std::string_view name, int32_t n) {
  auto it = table.lower_bound(name);
  if (it != table.end() && it->first == name) {
    it->second = static_cast<int32_t>(static_cast<uint32_t>(it->second) +
                                      static_cast<uint32_t>(n));
  } else {
    table.emplace_hint(it, std::string(name), n);
  }
}

int32_t lookup_count(const CountTable& table, std::string_view name) {
  auto it = table.find(name);
  return it == table.end() ? -1 : it->second;
}

void init_summary_tally(SummaryTally& tally) {
  static constexpr const char* kResultKeys[] = {
      "acterror", "clean",  "cured",    "deleted",
      "denied",   "error", "excluded", "quarantined"};
  for (const char* key : kResultKeys) tally.try_emplace(key, 0);
}

void ranked_list_from_table(CountTable& table, RankedList& list) {
  list.reserve(list.size() + table.size());
  // Moving names out node by node keeps the peak memory near one copy of
  // them, even for a day with a million distinct files.
  while (!table.empty()) {
    auto node = table.extract(table.begin());
    list.push_back(RankedEntry{std::move(node.key()), node.mapped()});
  }
}

namespace {
constexpr size_t kShownEntries = 10;
constexpr size_t kKeptOnTie = 11;
}  // namespace

void select_top_ten(RankedList& list) {
  const size_t steps = std::min(list.size(), kKeptOnTie);
  for (size_t p = 0; p < steps; ++p) {
    size_t best = p;
    for (size_t q = p + 1; q < list.size(); ++q) {
      if (list[q].count > list[best].count) best = q;
    }
    if (best != p) std::swap(list[p], list[best]);
  }
  if (list.size() > kKeptOnTie) list.resize(kKeptOnTie);
  if (list.size() == kKeptOnTie &&
      list[kShownEntries - 1].count > list[kShownEntries].count) {
    list.resize(kShownEntries);
  }
}
