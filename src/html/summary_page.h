// The summary page ("summary.htm"): the table of counts by result and
// action, then the top-ten tables of viruses, clients and files.
#ifndef SCANREPORT_HTML_SUMMARY_PAGE_H_
#define SCANREPORT_HTML_SUMMARY_PAGE_H_

#include "log/date.h"
#include "stats/count_table.h"

// Writes `out_dir`/summary.htm (replacing it). `end_date` is 0 (or equal to
// `start_date`) for a single day. Returns 0, or -1 when the file cannot be
// opened or its path does not fit PATH_BUFFER_SIZE.
int write_summary_page(const RankedList& client_list,
                       const RankedList& virus_list,
                       const RankedList& file_list, const SummaryTally& tally,
                       const char* out_dir, DateStamp start_date,
                       DateStamp end_date);

#endif  // SCANREPORT_HTML_SUMMARY_PAGE_H_
