// File paths are counted in sorted batches instead of one at a time
// between rows: a day can name a million distinct files, and a table that
// large is cold in the cache after each row's writes. Sorted names land
// next to each other in the table. The batch is bounded, so memory does
// not grow with a day's lines.
#include "stats/record_counter.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kFileBatchSize = 1 << 16;

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

RecordCounter::~RecordCounter() { flush(); }

void RecordCounter::count(ScanRecord& record) {
  file_batch_.push_back(std::move(*record.file));
  if (file_batch_.size() == kFileBatchSize) flush();
  add_count(tables_.client_counts, *record.client, 1);
  if (record.virus) add_count(tables_.virus_counts, *record.virus, 1);
  if (const char* key = result_key(record)) add_count(tables_.tally, key, 1);
}

void RecordCounter::flush() {
  std::sort(file_batch_.begin(), file_batch_.end());
  for (std::string& name : file_batch_) {
    add_count_owned(tables_.file_counts, std::move(name), 1);
  }
  file_batch_.clear();
}
