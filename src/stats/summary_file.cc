// The summary file is read back by every later range report, so the reader
// accepts whatever bytes it finds (a hand-edited or truncated file must
// never stop a report) and the writer keeps to the one simple format.
#include "stats/summary_file.h"

#include <cstddef>
#include <string>
#include <string_view>

#include "io/output_file.h"
#include "io/output_paths.h"

namespace {

void write_header(OutputFile& out, const char* title) {
  out << '[' << title << ']';
  out.end_line();
}

void write_entry(OutputFile& out, std::string_view name, int32_t n) {
  out << name << '=' << n;
  out.end_line();
}

// One section: "[title]" and a "name=count" line per entry.
void write_ranked_section(OutputFile& out, const RankedList& list,
                          const char* title) {
  write_header(out, title);
  for (const RankedEntry& entry : list) {
    write_entry(out, entry.name, entry.count);
  }
}

void write_tally_section(OutputFile& out, const CountTable& table,
                         const char* title) {
  write_header(out, title);
  for (const auto* entry : entries_in_key_order(table)) {
    write_entry(out, entry->name, entry->count);
  }
}

}  // namespace

int write_summary_text(const RankedList& client_list,
                       const RankedList& virus_list,
                       const RankedList& file_list, const SummaryTally& tally,
                       const char* out_dir) {
  char path[PATH_BUFFER_SIZE];
  if (!run_file_path(out_dir, "summary.txt", path)) return -1;
  OutputFile out;
  if (!out.open(path)) return -1;
  write_ranked_section(out, client_list, "Top 10 Client");
  write_ranked_section(out, virus_list, "Top 10 Virus");
  write_ranked_section(out, file_list, "Top 10 File");
  write_tally_section(out, tally, "Summary");
  out.close();
  return 0;
}

namespace {

// atoi as glibc implements it: (int)strtol, so leading white space, a sign,
// digits up to the first other byte; out-of-range values saturate to the
// long range before being cut to int.
int32_t atoi_value(std::string_view text) {
  size_t i = 0;
  while (i < text.size() &&
         (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) {
    ++i;
  }
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // Magnitudes beyond the long range only need to be known as too large.
  constexpr unsigned long long kLongMax = 9223372036854775807ULL;
  unsigned long long magnitude = 0;
  bool too_large = false;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    if (magnitude > kLongMax / 10 + 1) {
      too_large = true;
    } else {
      magnitude = magnitude * 10 + static_cast<unsigned>(text[i] - '0');
    }
  }
  unsigned long long bits;  // the long value, two's complement
  if (negative) {
    bits =
        too_large || magnitude > kLongMax + 1 ? kLongMax + 1 : 0ULL - magnitude;
  } else {
    bits = too_large || magnitude > kLongMax ? kLongMax : magnitude;
  }
  return static_cast<int32_t>(static_cast<uint32_t>(bits));
}

// The table a section header selects, tested letter by letter; a header
// that matches nothing keeps the current table.
CountTable* table_for_header(std::string_view line, CountTable* current,
                             const CountTables& tables) {
  // "[Top 10 Client]" and its kin differ first at their ninth character.
  char ninth = line.size() > 8 ? line[8] : '\0';
  if (ninth == 'C') current = &tables.client_counts;
  if (ninth == 'V') current = &tables.virus_counts;
  if (ninth == 'F') current = &tables.file_counts;
  if (line.size() > 1 && line[1] == 'S') current = &tables.tally;
  return current;
}

// "name=value": the name up to the first '=', the value as atoi reads
// what follows it. A line without '=' is its own name and value.
void add_entry_line(CountTable& table, std::string_view line) {
  size_t equals = line.find('=');
  std::string_view name = line.substr(0, equals);
  std::string_view value =
      equals == std::string_view::npos ? line : line.substr(equals + 1);
  add_count(table, name, atoi_value(value));
}

// Reading on past LONGEST_SUMMARY_LINE would let a planted file of one
// endless line (a sparse file, say) take all memory and time.
constexpr std::streamsize kLongestSummaryLine = LONGEST_SUMMARY_LINE;

// Reads the next line into `buffer` (kLongestSummaryLine + 1 bytes) as
// std::getline would, line feed consumed and not kept, and sets `line` to
// it. False when nothing was read or the line is too long.
bool read_summary_line(std::istream& in, char* buffer, std::string_view& line) {
  in.getline(buffer, kLongestSummaryLine + 1);
  if (in.fail()) return false;
  std::streamsize length = in.gcount();
  if (!in.eof()) --length;  // the line feed
  line = std::string_view(buffer, static_cast<size_t>(length));
  return true;
}

}  // namespace

int merge_summary_text(CountTable& client_table, CountTable& virus_table,
                       CountTable& file_table, SummaryTally& tally,
                       std::istream& in) {
  const CountTables tables{client_table, virus_table, file_table, tally};
  CountTable* current = nullptr;
  char buffer[kLongestSummaryLine + 1];
  for (;;) {
    std::string_view line;
    if (!read_summary_line(in, buffer, line)) return 0;
    if (!line.empty()) {
      if (line[0] == '[') {
        current = table_for_header(line, current, tables);
      } else if (current != nullptr) {
        add_entry_line(*current, line);
      }
    }
    if (in.eof()) return 0;
  }
}
