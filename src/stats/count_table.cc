// A day can count a million distinct file paths, so nothing here may be
// quadratic: the top-ten selection runs only the first eleven steps of the
// exchange selection whose order (ties included) the pages have always
// shown, since every later step is cut away anyway.
#include "stats/count_table.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

// Adds `n` to the entry of `name`, inserting make_name() when it is new.
template <typename MakeName>
void add_to_entry(CountTable& table, std::string_view name, int32_t n,
                  MakeName make_name) {
  auto it = table.lower_bound(name);
  if (it != table.end() && it->first == name) {
    it->second = static_cast<int32_t>(static_cast<uint32_t>(it->second) +
                                      static_cast<uint32_t>(n));
  } else {
    table.emplace_hint(it, make_name(), n);
  }
}

}  // namespace

void add_count(CountTable& table, std::string_view name, int32_t n) {
  add_to_entry(table, name, n, [name] { return std::string(name); });
}

void add_count_owned(CountTable& table, std::string&& name, int32_t n) {
  add_to_entry(table, name, n, [&name] { return std::move(name); });
}

int32_t lookup_count(const CountTable& table, std::string_view name) {
  auto it = table.find(name);
  return it == table.end() ? -1 : it->second;
}

void init_summary_tally(SummaryTally& tally) {
  static constexpr const char* kResultKeys[] = {
      "acterror", "clean", "cured",    "deleted",
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

// The first eleven steps of the exchange selection; later steps only touch
// positions that the cut removes. The passes read a copy of the counts, a
// tenth of the bytes of the entries, which stays in cache between passes.
void order_first_eleven(RankedList& list) {
  std::vector<int32_t> counts(list.size());
  for (size_t i = 0; i < list.size(); ++i) counts[i] = list[i].count;
  const size_t steps = std::min(list.size(), kKeptOnTie);
  for (size_t p = 0; p < steps; ++p) {
    // The earliest position holding the greatest remaining count.
    int32_t top = counts[p];
    for (size_t q = p + 1; q < counts.size(); ++q) {
      top = std::max(top, counts[q]);
    }
    auto from = counts.begin() + static_cast<ptrdiff_t>(p);
    size_t best = static_cast<size_t>(std::find(from, counts.end(), top) -
                                      counts.begin());
    if (best != p) {
      std::swap(counts[p], counts[best]);
      std::swap(list[p], list[best]);
    }
  }
}

}  // namespace

void select_top_ten(RankedList& list) {
  // The counts' copy is freed before the cut frees up to a million names:
  // freeing a large block right after many small ones makes the allocator
  // merge all the small ones there and then, which costs more than the
  // selection itself.
  order_first_eleven(list);
  if (list.size() > kKeptOnTie) list.resize(kKeptOnTie);
  if (list.size() == kKeptOnTie &&
      list[kShownEntries - 1].count > list[kShownEntries].count) {
    list.resize(kShownEntries);
  }
}
