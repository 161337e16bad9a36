// A summary file of any bytes merged into the range tables, then ranked and
// cut as a range report does. Merging the same file twice must double every
// count (modulo 32 bits), since the reader only ever adds.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "stats/count_table.h"
#include "stats/summary_file.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

struct Tables {
  CountTable clients, viruses, files;
  SummaryTally tally;
};

void merge(Tables& t, const std::string& bytes) {
  std::istringstream in(bytes);
  check(merge_summary_text(t.clients, t.viruses, t.files, t.tally, in) == 0);
}

void check_doubled(const CountTable& once, const CountTable& twice) {
  check(once.size() == twice.size());
  for (const auto& [name, count] : once) {
    const RankedEntry* found = twice.find(name);
    check(found != nullptr);
    check(static_cast<uint32_t>(found->count) ==
          static_cast<uint32_t>(count) * 2u);
  }
}

void check_ranked(CountTable& table) {
  size_t names = table.size();
  RankedList list;
  ranked_list_from_table(table, list);
  check(table.empty() && list.size() == names);
  select_top_ten(list);
  check(list.size() <= 11 && (names < 11 || list.size() >= 10));
  for (size_t i = 1; i < list.size(); ++i) {
    check(list[i - 1].count >= list[i].count);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  Tables once;
  init_summary_tally(once.tally);
  merge(once, bytes);
  Tables twice;
  merge(twice, bytes);
  merge(twice, bytes);
  check_doubled(once.clients, twice.clients);
  check_doubled(once.viruses, twice.viruses);
  check_doubled(once.files, twice.files);
  check(once.tally.size() >= 8);
  check_ranked(once.clients);
  check_ranked(once.viruses);
  check_ranked(once.files);
  return 0;
}
