// One record at a time: a day's memory is its count tables, never its
// lines. The row colour alternates for the life of the process; a run makes
// one report, so every report starts with the same colour.
#include "html/report_rows.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "log/scan_record.h"

// Last, so that its POSIX basename is not redeclared by <cstring>.
#include <libgen.h>

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

// The result key a record counts under, or null for an INFECTED record
// whose action is none of the four known ones.
const char* tally_key(const ScanRecord& r) {
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

void cell(OutputFile& out, const std::string& text) {
  out << "<td align='left'>" << text << "</td>";
  out.end_line();
}

void write_row(OutputFile& out, const ScanRecord& r, int32_t row_number) {
  out << "<tr bgcolor='" << (row_shade ? "#cfe1fd" : "#bbccdd") << "'>";
  out.end_line();
  row_shade = !row_shade;
  out << "<td align='left'><input type='checkbox' id='chk_sel_" << row_number
      << "'></td>";
  out.end_line();
  cell(out, *r.date + "/" + *r.time);
  cell(out, *r.client);
  write_path_cell(out, *r.file);
  cell(out, *r.result);
  cell(out, r.virus ? *r.virus : r.remark ? *r.remark : "-");
  cell(out, r.action ? *r.action : "-");
  if (r.quarantine) {
    write_path_cell(out, *r.quarantine);
  } else {
    cell(out, "-");
  }
  out << "</tr>";
  out.end_line();
}

// File paths are counted in sorted batches instead of one at a time
// between rows: a day can name a million distinct files, and a table that
// large is cold in the cache after each row's writes. Sorted names land
// next to each other in the table. The batch is bounded, so memory does
// not grow with a day's lines; the counts are complete once the day ends.
class FileCounter {
 public:
  explicit FileCounter(CountTable& table) : table_(table) {}
  ~FileCounter() { flush(); }
  FileCounter(const FileCounter&) = delete;
  FileCounter& operator=(const FileCounter&) = delete;

  void add(std::string&& name) {
    batch_.push_back(std::move(name));
    if (batch_.size() == kBatchSize) flush();
  }
  void flush() {
    std::sort(batch_.begin(), batch_.end());
    for (std::string& name : batch_) {
      add_count_owned(table_, std::move(name), 1);
    }
    batch_.clear();
  }

 private:
  static constexpr size_t kBatchSize = 1 << 16;
  CountTable& table_;
  std::vector<std::string> batch_;
};

// Counts the record; its file path is taken over, the record ends here.
void count_record(ScanRecord& r, CountTable& client_counts,
                  CountTable& virus_counts, FileCounter& files,
                  SummaryTally& tally) {
  files.add(std::move(*r.file));
  add_count(client_counts, *r.client, 1);
  if (r.virus) add_count(virus_counts, *r.virus, 1);
  if (const char* key = tally_key(r)) add_count(tally, key, 1);
}

}  // namespace

void write_path_cell(OutputFile& out, const std::string& path) {
  out << "<td align='left' title='" << path << "'>" << path_basename(path)
      << "</td>";
  out.end_line();
}

std::string path_basename(const std::string& path) {
  std::string copy = path;  // basename may write into what it is given
  return basename(copy.data());
}

int write_report_rows(CountTable& client_counts, CountTable& virus_counts,
                      CountTable& file_counts, SummaryTally& tally,
                      LineReader& log, OutputFile& rows_out, DateStamp day,
                      char* pending_line) {
  int32_t row_number = 0;
  FileCounter files(file_counts);
  auto line = std::make_unique<char[]>(LOG_LINE_SIZE);
  std::memcpy(line.get(), pending_line, LOG_LINE_SIZE);
  line[LOG_LINE_SIZE - 1] = '\0';
  for (;;) {
    ScanRecord record(line.get());
    if (record.date) {
      if (log_date_to_stamp(record.date->c_str()) != day) break;
      if (has_fields_for_row(record)) {
        write_row(rows_out, record, row_number++);
        count_record(record, client_counts, virus_counts, files, tally);
      }
    }
    if (!log.getline(line.get())) break;
  }
  std::memcpy(pending_line, line.get(), LOG_LINE_SIZE);
  return 0;
}
