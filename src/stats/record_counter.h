// Counting the records of a day into the count tables and the tally.
#ifndef SCANREPORT_STATS_RECORD_COUNTER_H_
#define SCANREPORT_STATS_RECORD_COUNTER_H_

#include <string>
#include <vector>

#include "log/scan_record.h"
#include "stats/count_table.h"

// Adds each record given to count() to the caller's tables: its file path,
// its client, its virus when it has one, and its result key to the tally
// ("clean", "cured", "error", "excluded", and for INFECTED the key of its
// action: "deleted", "quarantined", "acterror", "denied"; an INFECTED
// record with any other action adds nothing to the tally).
//
// File paths are counted in batches: the file table is complete only after
// flush(), which the destructor also does. The other tables are complete
// at once.
class RecordCounter {
 public:
  explicit RecordCounter(CountTables tables) : tables_(tables) {}
  ~RecordCounter();
  RecordCounter(const RecordCounter&) = delete;
  RecordCounter& operator=(const RecordCounter&) = delete;

  // `record` must have a client and a file; its file path is taken over.
  void count(ScanRecord& record);
  void flush();

 private:
  CountTables tables_;
  std::vector<std::string> file_batch_;
};

#endif  // SCANREPORT_STATS_RECORD_COUNTER_H_
