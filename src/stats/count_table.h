// Count tables and top-ten lists.
#ifndef SCANREPORT_STATS_COUNT_TABLE_H_
#define SCANREPORT_STATS_COUNT_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct RankedEntry {
  std::string name;
  int32_t count;
};
using RankedList = std::vector<RankedEntry>;

// Name to count, in no order: a day may count a million distinct names,
// and only the lists made from a table (ranked_list_from_table) and the
// written tally (entries_in_key_order) need the byte-wise key order (upper
// case before lower case, a prefix before its extensions), once. The
// entries lie side by side in the order they came, and an open-addressing
// index of their hashes finds them, so a look-up by a string_view builds
// no string and touches one slot and, on a match, one entry.
class CountTable {
 public:
  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  // The entries in the order they were first added.
  auto begin() const { return entries_.cbegin(); }
  auto end() const { return entries_.cend(); }

  // The entry of `name`, or null.
  const RankedEntry* find(std::string_view name) const;
  // The entry of `name`, added with the count 0 (and the name made by
  // make_name) when absent.
  template <typename MakeName>
  RankedEntry& entry(std::string_view name, MakeName make_name);

  // Hands the entries over, leaving the table empty.
  std::vector<RankedEntry> take_entries();

 private:
  struct Slot {
    uint32_t index_plus_one = 0;  // 0: empty
    uint32_t hash = 0;
  };
  static uint32_t hash_of(std::string_view name);
  void grow();

  std::vector<RankedEntry> entries_;
  std::vector<Slot> slots_;  // a power of two, at most half full
};

// A CountTable holding the eight result keys "acterror", "clean", "cured",
// "deleted", "denied", "error", "excluded", "quarantined" once initialised.
using SummaryTally = CountTable;

// The four tables that a report's records are counted into, as the report
// holds them.
struct CountTables {
  CountTable& client_counts;
  CountTable& virus_counts;
  CountTable& file_counts;
  SummaryTally& tally;
};

// Adds `n` to the count of `name`, inserting it with `n` when absent.
// Counts wrap around at 32 bits rather than overflow.
void add_count(CountTable& table, std::string_view name, int32_t n);

// The same, taking `name` over when it becomes a new entry, which spares
// copying it.
void add_count_owned(CountTable& table, std::string&& name, int32_t n);

// The count of `name`, or -1 when the table does not hold it.
int32_t lookup_count(const CountTable& table, std::string_view name);

// Inserts the eight result keys with count 0; keys present keep their count.
void init_summary_tally(SummaryTally& tally);

// Appends one entry per table entry, in key order, behind what `list`
// already holds, then leaves `table` empty.
void ranked_list_from_table(CountTable& table, RankedList& list);

// The entries of `table` in byte-wise key order.
std::vector<const RankedEntry*> entries_in_key_order(const CountTable& table);

// Orders `list` by count, highest first, exactly as an exchange selection
// does (at each position the earliest entry with the greatest remaining
// count is swapped in, so ties are not kept stable), then cuts it to 10
// entries, or 11 when the 10th and 11th counts are equal. Only the first 11
// positions are computed, so this is linear in the size of the list.
void select_top_ten(RankedList& list);

#endif  // SCANREPORT_STATS_COUNT_TABLE_H_
