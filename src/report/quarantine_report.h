// The day's quarantine report ("quarantine.htm").
#ifndef SCANREPORT_REPORT_QUARANTINE_REPORT_H_
#define SCANREPORT_REPORT_QUARANTINE_REPORT_H_

#include "log/date.h"

// Lists the records of `report_date` that were found infected and
// quarantined into TRAFFIC_DIR/<day>/quarantine.htm. Returns 0 when the page
// was written (with or without rows), -1 when the log cannot be opened (the
// page is left untouched) or the page cannot be opened (for example because
// the day directory is missing).
int run_quarantine_report(const char* log_path, DateStamp report_date);

#endif  // SCANREPORT_REPORT_QUARANTINE_REPORT_H_
