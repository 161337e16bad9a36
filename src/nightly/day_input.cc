// The program reads a log in two steps: a search that passes over every
// line dated before the day, then a walk over the day's records that ends
// at the first line of another date. Its output depends only on the lines
// from where the search stops to where the walk stops, and on whether the
// log ends on the way. So the day's input is exactly that stretch, cut
// out of the joined files with the program's own date rules (line_date
// for the search, ScanRecord for the walk): it holds no more than one day,
// and the drivers read it as they would read the whole log. One thing
// differs on purpose: a line too long for the reader that lies before the
// day is passed over, so that it hides no later day.
//
// The program's reader stops for good at a line longer than its buffer.
// Lines here are read in full, whatever their length, so that the lines of
// the day that lie beyond such a line can be counted: they are what a
// report cut there leaves out.
#include "nightly/day_input.h"

#include <errno.h>

#include <cstring>
#include <memory>

#include "log/period_start.h"
#include "log/scan_record.h"
#include "nightly/log_files.h"
#include "sys/file_descriptor.h"

namespace {

enum class Phase { kSearch, kDay, kCountLeftOut, kDone };

constexpr size_t kFlushAt = size_t{64} * 1024;

struct Gatherer {
  DateStamp day;
  const FileDescriptor* out = nullptr;
  DayInput result;
  Phase phase = Phase::kSearch;
  std::string pending;
  char buffer[LOG_LINE_SIZE];  // a line as the program's reader holds it

  // The head of `line` that the program's reader stores, NUL-terminated.
  char* stored(const LogLine& line) {
    const size_t size =
        line.kept < LOG_LINE_SIZE - 1 ? line.kept : LOG_LINE_SIZE - 1;
    std::memcpy(buffer, line.text, size);
    buffer[size] = '\0';
    return buffer;
  }

  DateStamp record_date(const ScanRecord& record) {
    return record.date ? log_date_to_stamp(record.date->c_str()) : -1;
  }

  // As for_each_record_of_day takes each line: an undated one is passed
  // over, another date ends the day.
  void walk(const char* text) {
    const ScanRecord record(text);
    const DateStamp date = record_date(record);
    if (date == -1) return;
    if (date != day) {
      phase = Phase::kDone;
      return;
    }
    ++result.lines_of_day;
    if (keyword_is(record.result, "INFECTED")) ++result.infected;
  }

  // The program's reader fails at this line and reads nothing after it.
  void begin_cut(const std::string& file, const LogLine& line) {
    result.cut_file = file;
    result.cut_line = line.number;
    phase = Phase::kCountLeftOut;
  }

  void count_left_out(const LogLine& line) {
    const DateStamp date = record_date(ScanRecord(stored(line)));
    if (date == day) ++result.lines_left_out;
    if (date > day) phase = Phase::kDone;
  }

  void search(const std::string& file, const LogLine& line, bool ended) {
    if (line.too_long) {
      // A long line before the day is passed over like any line before
      // it: in the log never rotated it would end the reading for every
      // later day, but it is no part of this one. One of the day or after
      // it ends the search on the failed read, and the walk starts from
      // the line's stored head, which gets a row when it is of the day.
      if (line_date(stored(line)) < day) return;
      keep(line, false);
      walk(stored(line));
      begin_cut(file, line);
      return;
    }
    const DateStamp date = line_date(stored(line));
    if (date < day) return;
    keep(line, ended);
    // A log that ends on this line, or a later date: nothing to report.
    if (!ended || date > day) {
      phase = Phase::kDone;
      return;
    }
    phase = Phase::kDay;
    walk(buffer);  // trimmed by line_date, as the program hands it on
  }

  void walk_line(const std::string& file, const LogLine& line, bool ended) {
    if (line.too_long) {
      keep(line, false);
      begin_cut(file, line);
      count_left_out(line);
      return;
    }
    keep(line, ended);
    walk(stored(line));
  }

  void take(const std::string& file, const LogLine& line, bool ended) {
    switch (phase) {
      case Phase::kSearch:
        return search(file, line, ended);
      case Phase::kDay:
        return walk_line(file, line, ended);
      case Phase::kCountLeftOut:
        return count_left_out(line);
      case Phase::kDone:
        return;
    }
  }

  // The line's bytes as they stand; of a line too long for the reader,
  // enough to make its read fail.
  void keep(const LogLine& line, bool ended) {
    pending.append(line.text, line.kept);
    if (ended) pending.push_back('\n');
    if (pending.size() >= kFlushAt) flush();
  }

  void flush() {
    if (result.error.empty() && !out->write_all(pending)) {
      result.error =
          std::string("cannot write the day's lines: ") + std::strerror(errno);
    }
    pending.clear();
  }
};

}  // namespace

DayInput write_day_input(const std::vector<LogFile>& files, size_t first,
                         size_t last, DateStamp day,
                         const FileDescriptor& out) {
  auto gatherer = std::make_unique<Gatherer>();
  Gatherer& g = *gatherer;
  g.day = day;
  g.out = &out;
  auto line = std::make_unique<LogLine>();
  for (size_t i = first; i < last && g.phase != Phase::kDone; ++i) {
    const LogFile& file = files[i];
    const bool newest = i + 1 == files.size();
    g.result.files_read.push_back(file.name);
    LogFileReader reader;
    std::string error;
    if (!reader.open(file, error)) {
      g.result.error = file.name + ": " + error;
      break;
    }
    while (g.phase != Phase::kDone && reader.next(*line)) {
      g.take(file.name, *line, line->ended || !newest);
    }
    if (!reader.close(error)) {
      g.result.error = file.name + ": " + error;
      break;
    }
  }
  g.flush();
  g.result.cut = g.result.lines_left_out > 0;
  return g.result;
}
