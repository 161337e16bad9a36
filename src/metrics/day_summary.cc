// The reader walks the file once, front to back, in fixed-size reads, and
// keeps only the virus section and the tally: a day's file section may
// list a million paths. Every line is held to the writer's form, since
// names are written unescaped and a forgiving reader would count a file
// named "clean=99999" as clean objects.
#include "metrics/day_summary.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string_view>

#include "io/regular_file.h"
#include "stats/summary_file.h"
#include "sys/file_descriptor.h"

namespace {

constexpr std::array<std::string_view, 4> kHeaders = {
    "[Top 10 Client]", "[Top 10 Virus]", "[Top 10 File]", "[Summary]"};
constexpr size_t kVirusSection = 1;
constexpr size_t kSummarySection = 3;
constexpr std::array<std::string_view, 8> kResultKeys = {
    "acterror", "clean", "cured",    "deleted",
    "denied",   "error", "excluded", "quarantined"};

// "name=count" as the writer makes it: the count, after the last '=', is
// plain decimal (a leading minus at most) and fits 32 bits.
bool split_entry(std::string_view line, std::string_view& name,
                 int32_t& count) {
  const size_t equals = line.rfind('=');
  if (equals == std::string_view::npos) return false;
  const std::string_view digits = line.substr(equals + 1);
  if (digits.empty() || digits == "-" || digits[0] == '+') return false;
  const char* end = digits.data() + digits.size();
  const auto [stop, status] = std::from_chars(digits.data(), end, count);
  if (status != std::errc() || stop != end) return false;
  name = line.substr(0, equals);
  return true;
}

struct Parser {
  size_t section = 0;  // index into kHeaders of the current section
  size_t lines = 0;
  size_t keys_seen = 0;
  CountTable viruses;
  SummaryTally tally;
  std::string error;

  bool refuse(const char* reason) {
    error = "line " + std::to_string(lines) + ": " + reason;
    return false;
  }

  bool take(std::string_view line) {
    ++lines;
    if (lines == 1) {
      return line == kHeaders[0] || refuse("not the [Top 10 Client] header");
    }
    if (section < kSummarySection && line == kHeaders[section + 1]) {
      ++section;
      return true;
    }
    std::string_view name;
    int32_t count;
    if (!split_entry(line, name, count)) {
      return refuse("neither a header in its place nor name=count");
    }
    if (section == kVirusSection) add_count(viruses, name, count);
    if (section != kSummarySection) return true;
    if (keys_seen == kResultKeys.size() || name != kResultKeys[keys_seen]) {
      return refuse("the Summary section is not the eight result keys");
    }
    ++keys_seen;
    add_count(tally, name, count);
    return true;
  }

  bool finish(bool ended_with_line_feed) {
    if (lines == 0 && ended_with_line_feed) return refuse("empty file");
    if (!ended_with_line_feed) return refuse("cut short: no final line feed");
    if (section != kSummarySection || keys_seen != kResultKeys.size()) {
      return refuse("cut short: the Summary section is incomplete");
    }
    return true;
  }
};

// Feeds each line of `fd` to `parser`; false once it refuses one, a line
// is longer than any the writer makes, or a read fails.
bool parse_lines(const FileDescriptor& fd, Parser& parser) {
  std::string line;
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t got = fd.read(block.data(), block.size());
    if (got < 0) return parser.refuse("read failed");
    if (got == 0) return parser.finish(line.empty());
    std::string_view rest(block.data(), static_cast<size_t>(got));
    while (!rest.empty()) {
      const size_t feed = rest.find('\n');
      line.append(rest.substr(0, feed));
      if (line.size() > LONGEST_SUMMARY_LINE) {
        ++parser.lines;
        return parser.refuse("longer than any line of a summary");
      }
      if (feed == std::string_view::npos) break;
      rest.remove_prefix(feed + 1);
      if (!parser.take(line)) return false;
      line.clear();
    }
  }
}

}  // namespace

bool read_day_summary(const char* path, DaySummary& out, std::string& error) {
  const FileDescriptor fd(open_regular_file(path, O_RDONLY));
  if (!fd.is_open()) {
    error = "cannot be opened as a regular file of root's";
    return false;
  }
  Parser parser;
  if (!parse_lines(fd, parser)) {
    error = parser.error;
    return false;
  }
  out.tally = std::move(parser.tally);
  out.top_viruses.clear();
  ranked_list_from_table(parser.viruses, out.top_viruses);
  select_top_ten(out.top_viruses);
  // The page's eleventh row only says that more tie with the tenth.
  if (out.top_viruses.size() > 10) out.top_viruses.resize(10);
  return true;
}
