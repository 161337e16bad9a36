// Checks of the command line that do not touch the system, kept apart from
// main() so that tests can pin the caller and the current date.
#ifndef SCANREPORT_CLI_COMMAND_LINE_H_
#define SCANREPORT_CLI_COMMAND_LINE_H_

#include <string>

#include "log/date.h"

struct DateRange {
  DateStamp start_date;
  DateStamp end_date;  // 0 for a single day
};

// Clamps both dates to `today`, then orders them: equal dates become the
// single day `start_date`, a later start is exchanged with a non-zero end.
DateRange normalize_dates(DateStamp start_date, DateStamp end_date,
                          DateStamp today);

// True when the first argument selects the quarantine report: its first
// byte is an upper-case Q.
bool is_quarantine_selector(const char* first_argument);

std::string usage_message(const char* program_name);
std::string missing_log_message(const char* log_path);
std::string invalid_date_message(const char* date_argument);
inline constexpr const char* ROOT_REQUIRED_MESSAGE =
    "Requires root permission\n";

#endif  // SCANREPORT_CLI_COMMAND_LINE_H_
