#include "cli/command_line.h"

DateRange normalize_dates(DateStamp start_date, DateStamp end_date,
                          DateStamp today) {
  if (start_date > today) start_date = today;
  if (end_date > today) end_date = today;
  if (start_date == end_date) {
    end_date = 0;
  } else if (start_date > end_date && end_date != 0) {
    DateStamp later = start_date;
    start_date = end_date;
    end_date = later;
  }
  return DateRange{start_date, end_date};
}

bool is_quarantine_selector(const char* first_argument) {
  return first_argument[0] == 'Q';
}

std::string usage_message(const char* program_name) {
  return std::string("Usage: ") + program_name +
         " <rpt_file> <report_date1> [report_date2]\n"
         "Date format must be yyyymmdd\n";
}

std::string missing_log_message(const char* log_path) {
  return std::string("Report file (") + log_path +
         ") missing or permission denied\n";
}

std::string invalid_date_message(const char* date_argument) {
  return std::string("Invalid date stamp ") + date_argument + "\n";
}
