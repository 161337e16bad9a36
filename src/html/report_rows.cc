// One record at a time: a day's memory is its count tables, never its
// lines. The row colour alternates for the life of the process; a run makes
// one report, so every report starts with the same colour.
#include "html/report_rows.h"

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "html/cells.h"
#include "log/day_records.h"
#include "log/scan_record.h"
#include "stats/record_counter.h"

namespace {

bool row_shade = false;

// Whether the record carries every field its result shows.
bool has_fields_for_row(const ScanRecord& r) {
  if (!r.time || !r.client || !r.result || !r.file) return false;
  if (keyword_is(r.result, "INFECTED")) {
    if (!r.virus || !r.action) return false;
    if (keyword_is(r.action, "QUARANTINED") && !r.quarantine) return false;
  }
  if (keyword_is(r.result, "CURED") && !r.virus) return false;
  if ((keyword_is(r.result, "ERROR") || keyword_is(r.result, "EXCLUDED")) &&
      !r.remark) {
    return false;
  }
  return true;
}

void write_row(OutputFile& out, const ScanRecord& r, int32_t row_number) {
  write_row_opening(out, row_shade, row_number);
  write_date_time_cell(out, *r.date, *r.time);
  write_text_cell(out, *r.client);
  write_path_cell(out, *r.file);
  write_text_cell(out, *r.result);
  write_text_cell(out, r.virus    ? std::string_view(*r.virus)
                       : r.remark ? std::string_view(*r.remark)
                                  : "-");
  write_text_cell(out, r.action ? std::string_view(*r.action) : "-");
  if (r.quarantine) {
    write_path_cell(out, *r.quarantine);
  } else {
    write_text_cell(out, "-");
  }
  write_line(out, "</tr>");
}

}  // namespace

int write_report_rows(CountTable& client_counts, CountTable& virus_counts,
                      CountTable& file_counts, SummaryTally& tally,
                      LineReader& log, OutputFile& rows_out, DateStamp day,
                      char* pending_line) {
  int32_t row_number = 0;
  RecordCounter counter({client_counts, virus_counts, file_counts, tally});
  auto line = std::make_unique<char[]>(LOG_LINE_SIZE);
  std::memcpy(line.get(), pending_line, LOG_LINE_SIZE);
  line[LOG_LINE_SIZE - 1] = '\0';
  for_each_record_of_day(log, day, line.get(), [&](ScanRecord& record) {
    if (!has_fields_for_row(record)) return;
    write_row(rows_out, record, row_number++);
    counter.count(record);
  });
  std::memcpy(pending_line, line.get(), LOG_LINE_SIZE);
  return 0;
}
