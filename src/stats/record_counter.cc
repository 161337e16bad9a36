// Counting is a look-up by the record's own text: a name is copied only
// the first time it is seen, and a new file path, the one field that is
// nearly always new on a day of distinct files, is moved in instead.
#include "stats/record_counter.h"

#include <utility>

namespace {

// The tally key of a record, or null for an INFECTED record whose action is
// none of the four known ones, and for an unknown result.
const char* result_key(const ScanRecord& r) {
  if (keyword_is(r.result, "CLEAN")) return "clean";
  if (keyword_is(r.result, "CURED")) return "cured";
  if (keyword_is(r.result, "INFECTED")) {
    if (keyword_is(r.action, "DELETED")) return "deleted";
    if (keyword_is(r.action, "QUARANTINED")) return "quarantined";
    if (keyword_is(r.action, "ACTION ERROR")) return "acterror";
    if (keyword_is(r.action, "ACCESS DENIED")) return "denied";
    return nullptr;
  }
  if (keyword_is(r.result, "ERROR")) return "error";
  if (keyword_is(r.result, "EXCLUDED")) return "excluded";
  return nullptr;
}

}  // namespace

void RecordCounter::count(ScanRecord& record) {
  add_count_owned(tables_.file_counts, std::move(*record.file), 1);
  add_count(tables_.client_counts, *record.client, 1);
  if (record.virus) add_count(tables_.virus_counts, *record.virus, 1);
  if (const char* key = result_key(record)) add_count(tables_.tally, key, 1);
}
