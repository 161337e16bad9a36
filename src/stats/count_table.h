// Count tables and top-ten lists.
#ifndef SCANREPORT_STATS_COUNT_TABLE_H_
#define SCANREPORT_STATS_COUNT_TABLE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// Name to count, walked in byte-wise key order (upper case before lower
// case, a prefix before its extensions). std::less<> lets look-ups by
// string_view avoid building a std::string per counted line.
using CountTable = std::map<std::string, int32_t, std::less<>>;

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

struct RankedEntry {
  std::string name;
  int32_t count;
};
using RankedList = std::vector<RankedEntry>;

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

// Orders `list` by count, highest first, exactly as an exchange selection
// does (at each position the earliest entry with the greatest remaining
// count is swapped in, so ties are not kept stable), then cuts it to 10
// entries, or 11 when the 10th and 11th counts are equal. Only the first 11
// positions are computed, so this is linear in the size of the list.
void select_top_ten(RankedList& list);

#endif  // SCANREPORT_STATS_COUNT_TABLE_H_
