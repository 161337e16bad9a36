// Walking the records of one day, the loop that both day pages share.
#ifndef SCANREPORT_LOG_DAY_RECORDS_H_
#define SCANREPORT_LOG_DAY_RECORDS_H_

#include "log/date.h"
#include "log/line_reader.h"
#include "log/scan_record.h"

// Hands `handle` the ScanRecord of each line of `day`, starting with the
// line in `line` (LOG_LINE_SIZE bytes, NUL-terminated, used as it is) and
// reading on from `log` into the same buffer. A line without a date is
// passed over; the first line of another date, or of a date that is not
// valid, ends the day and stays in `line`, as does what a failed read
// leaves there.
template <typename Handle>
void for_each_record_of_day(LineReader& log, DateStamp day, char* line,
                            Handle&& handle) {
  do {
    ScanRecord record(line);
    if (record.date) {
      if (log_date_to_stamp(record.date->c_str()) != day) return;
      handle(record);
    }
  } while (log.getline(line));
}

#endif  // SCANREPORT_LOG_DAY_RECORDS_H_
