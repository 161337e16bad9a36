// Counting the records of a day into the count tables and the tally.
#ifndef SCANREPORT_STATS_RECORD_COUNTER_H_
#define SCANREPORT_STATS_RECORD_COUNTER_H_

#include "log/scan_record.h"
#include "stats/count_table.h"

// Adds each record given to count() to the caller's tables: its file path,
// its client, its virus when it has one, and its result key to the tally
// ("clean", "cured", "error", "excluded", and for INFECTED the key of its
// action: "deleted", "quarantined", "acterror", "denied"; an INFECTED
// record with any other action adds nothing to the tally).
class RecordCounter {
 public:
  explicit RecordCounter(CountTables tables) : tables_(tables) {}

  // `record` must have a client and a file; its file path may be taken
  // over.
  void count(ScanRecord& record);

 private:
  CountTables tables_;
};

#endif  // SCANREPORT_STATS_RECORD_COUNTER_H_
