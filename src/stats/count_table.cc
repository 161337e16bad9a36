// A day can count a million distinct file paths, so nothing here may be
// quadratic: the top-ten selection runs only the first eleven steps of the
// exchange selection whose order (ties included) the pages have always
// shown, since every later step is cut away anyway.
#include "stats/count_table.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <utility>

uint32_t CountTable::hash_of(std::string_view name) {
  const uint64_t hash = std::hash<std::string_view>{}(name);
  return static_cast<uint32_t>(hash ^ (hash >> 32));
}

const RankedEntry* CountTable::find(std::string_view name) const {
  if (slots_.empty()) return nullptr;
  const uint32_t hash = hash_of(name);
  const size_t mask = slots_.size() - 1;
  for (size_t i = hash & mask;; i = (i + 1) & mask) {
    const Slot& slot = slots_[i];
    if (slot.index_plus_one == 0) return nullptr;
    const RankedEntry& found = entries_[slot.index_plus_one - 1];
    if (slot.hash == hash && found.name == name) return &found;
  }
}

template <typename MakeName>
RankedEntry& CountTable::entry(std::string_view name, MakeName make_name) {
  if (2 * (entries_.size() + 1) > slots_.size()) grow();
  const uint32_t hash = hash_of(name);
  const size_t mask = slots_.size() - 1;
  size_t i = hash & mask;
  for (;; i = (i + 1) & mask) {
    const Slot& slot = slots_[i];
    if (slot.index_plus_one == 0) break;
    RankedEntry& found = entries_[slot.index_plus_one - 1];
    if (slot.hash == hash && found.name == name) return found;
  }
  entries_.push_back(RankedEntry{make_name(), 0});
  slots_[i] = Slot{static_cast<uint32_t>(entries_.size()), hash};
  return entries_.back();
}

// Doubles the index; the slots keep their hashes, so no name is read.
void CountTable::grow() {
  std::vector<Slot> old = std::move(slots_);
  slots_.assign(old.empty() ? 16 : old.size() * 2, Slot{});
  const size_t mask = slots_.size() - 1;
  for (const Slot& slot : old) {
    if (slot.index_plus_one == 0) continue;
    size_t i = slot.hash & mask;
    while (slots_[i].index_plus_one != 0) i = (i + 1) & mask;
    slots_[i] = slot;
  }
}

std::vector<RankedEntry> CountTable::take_entries() {
  slots_.clear();
  return std::exchange(entries_, {});
}

namespace {

void add_to(RankedEntry& entry, int32_t n) {
  entry.count = static_cast<int32_t>(static_cast<uint32_t>(entry.count) +
                                     static_cast<uint32_t>(n));
}

}  // namespace

void add_count(CountTable& table, std::string_view name, int32_t n) {
  add_to(table.entry(name, [name] { return std::string(name); }), n);
}

void add_count_owned(CountTable& table, std::string&& name, int32_t n) {
  const std::string_view view = name;
  add_to(table.entry(view, [&name] { return std::move(name); }), n);
}

int32_t lookup_count(const CountTable& table, std::string_view name) {
  const RankedEntry* found = table.find(name);
  return found == nullptr ? -1 : found->count;
}

void init_summary_tally(SummaryTally& tally) {
  static constexpr const char* kResultKeys[] = {
      "acterror", "clean", "cured",    "deleted",
      "denied",   "error", "excluded", "quarantined"};
  for (const char* key : kResultKeys) add_count(tally, key, 0);
}

namespace {

bool name_before(const RankedEntry& a, const RankedEntry& b) {
  return a.name < b.name;
}

}  // namespace

void ranked_list_from_table(CountTable& table, RankedList& list) {
  RankedList entries = table.take_entries();
  std::sort(entries.begin(), entries.end(), name_before);
  if (list.empty()) {
    list = std::move(entries);
  } else {
    std::move(entries.begin(), entries.end(), std::back_inserter(list));
  }
}

std::vector<const RankedEntry*> entries_in_key_order(const CountTable& table) {
  std::vector<const RankedEntry*> entries;
  entries.reserve(table.size());
  for (const RankedEntry& entry : table) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const RankedEntry* a, const RankedEntry* b) {
              return name_before(*a, *b);
            });
  return entries;
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
