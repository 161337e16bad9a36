// Every line before the period is looked at only for its date, so this is
// the loop that decides how fast a report for a recent day can be made.
//
// Lines of the usual shape are judged where they lie in the reader's
// block, a whole block at a time, without being copied again; their line
// feeds are found 64 bytes at a time, with AVX2 where the processor has it
// (the one choice made per run).
//
// Most of a pass is the copy of the log out of the page cache, which one
// core cannot hurry; a big log's second half is searched at once by a
// child process with a reader of its own, so the two copies run side by
// side. The halves need no other exchange: the second is started at a
// line start, which it is for the plain search too whenever that search
// gets there, and its result counts only then. Any other line,
// and the line at the period start, is read with getline and cut by
// line_date, so that the line handed on and the reader's state are
// exactly those of a plain getline loop.
#include "log/period_start.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#if defined(__x86_64__)
#include <immintrin.h>
// A build can leave the AVX2 pass out, so that the tests run the baseline
// pass on a machine that has AVX2.
#if !defined(SCANREPORT_BASELINE_PASS_ONLY)
#define SCANREPORT_AVX2_PASS 1
#endif
#endif

#include "log/scan_record.h"

namespace {

constexpr int kDateFieldSize = 64;
constexpr size_t kLogDateLength = 10;
constexpr size_t kMaxLineLength = LOG_LINE_SIZE - 1;

bool is_date_char(char c) { return (c >= '0' && c <= '9') || c == '-'; }

// Consecutive lines nearly always carry the same date text behind a first
// field of the same length, so the last usual line is remembered as it
// stands: the fourteen bytes from its first ",," (the separator, the date
// text, the separator behind it), where that ",," began, and the stamp of
// the date. Before the first date the text is ten NUL bytes with the stamp
// 0, which is right for a field of NUL bytes too: the line's text ends
// before it.
constexpr size_t kPatternBytes = kLogDateLength + 4;
constexpr size_t kLongestRememberedField = 16;

struct DateMemo {
  char pattern[16] = {',', ','};  // two bytes beyond the fourteen stay 0
  size_t separator_at = kLongestRememberedField + 1;  // none yet
  DateStamp stamp = 0;
};

#if defined(__x86_64__)
// What one look at the 16 bytes at `line` tells of its first ",," (first
// fields are short, so the look nearly always settles it): `separator` is
// the pair when one starts in those bytes with no NUL byte before it, null
// when a NUL byte comes first. Unsettled, a pair may still begin at the
// 16th byte.
struct SixteenByteLook {
  const char* separator;
  bool settled;
};

inline SixteenByteLook look_at_sixteen_bytes(const char* line) {
  __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line));
  unsigned commas = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(','))));
  unsigned nuls = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
  unsigned pairs = commas & (commas >> 1);
  if (pairs == 0) return {nullptr, nuls != 0};
  unsigned at = static_cast<unsigned>(__builtin_ctz(pairs));
  bool nul_first = (nuls & ((1u << at) - 1)) != 0;
  return {nul_first ? nullptr : line + at, true};
}
#endif

// The first ",," in [line, end), or null when there is none or a NUL byte
// comes before it.
const char* first_separator(const char* line, const char* end) {
  const char* p = line;
#if defined(__x86_64__)
  if (end - line >= 16) {
    SixteenByteLook look = look_at_sixteen_bytes(line);
    if (look.settled) return look.separator;
    p = line + 15;
  }
#endif
  for (; end - p >= 2; ++p) {
    if (p[0] == ',' && p[1] == ',') return p;
    if (p[0] == '\0') return nullptr;
  }
  return nullptr;
}

// The date of the line [line, end) when it has the usual shape: a first
// field without NUL bytes, ",,", ten digits and hyphens, ",,". For such a
// line trim_blanks and next_field find exactly those ten characters as
// its date field: leading blanks hold no separator, so skipping them
// finds the same first ",,"; trailing blanks cannot reach the separator
// behind the date; and no NUL byte ends the text before it. False for any
// other line, which is then read the long way. Remembers the line.
[[gnu::noinline]] bool usual_line_date(const char* line, const char* end,
                                       DateMemo& memo, DateStamp* stamp) {
  const char* p = first_separator(line, end);
  if (p == nullptr || static_cast<size_t>(end - p) < kPatternBytes ||
      p[kPatternBytes - 2] != ',' || p[kPatternBytes - 1] != ',') {
    return false;
  }
  const char* field = p + 2;
  if (std::memcmp(memo.pattern + 2, field, kLogDateLength) != 0) {
    if (!std::all_of(field, field + kLogDateLength, is_date_char)) {
      return false;
    }
    char text[kLogDateLength + 1] = {};
    std::memcpy(text, field, kLogDateLength);
    std::memcpy(memo.pattern + 2, field, kLogDateLength);
    memo.pattern[kPatternBytes - 2] = memo.pattern[kPatternBytes - 1] = ',';
    memo.stamp = log_date_to_stamp(text);
  }
  memo.separator_at = static_cast<size_t>(p - line);
  *stamp = memo.stamp;
  return true;
}

// The remembered line prepared for the comparison with each line: its
// fourteen bytes, where to look for them, the bits of the bytes before
// that place, and its stamp.
struct Shape {
#if defined(__x86_64__)
  __m128i pattern;
#else
  char pattern[kPatternBytes];
#endif
  size_t at;
  unsigned before_mask;
  DateStamp stamp;
};

Shape shape_of(const DateMemo& memo) {
  Shape shape;
#if defined(__x86_64__)
  shape.pattern =
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(memo.pattern));
#else
  std::memcpy(shape.pattern, memo.pattern, kPatternBytes);
#endif
  shape.at = std::min(memo.separator_at, kLongestRememberedField);
  shape.before_mask = (1u << shape.at) - 1;
  shape.stamp = memo.stamp;
  return shape;
}

// Whether the line at `line` has no comma and no NUL byte before
// `shape.at` and the remembered fourteen bytes there. Its first ",," is
// then there, and its date field is the remembered text (or, before the
// first date, its text ends right after that ",,"), so it has the
// remembered stamp, wherever the remembered line had its ",,". Reads 32
// bytes.
inline bool has_shape(const char* line, const Shape& shape) {
#if defined(__x86_64__)
  const __m128i head = _mm_loadu_si128(reinterpret_cast<const __m128i*>(line));
  const unsigned stops = static_cast<unsigned>(_mm_movemask_epi8(
      _mm_or_si128(_mm_cmpeq_epi8(head, _mm_set1_epi8(',')),
                   _mm_cmpeq_epi8(head, _mm_setzero_si128()))));
  const __m128i there =
      _mm_loadu_si128(reinterpret_cast<const __m128i*>(line + shape.at));
  const unsigned same = static_cast<unsigned>(
      _mm_movemask_epi8(_mm_cmpeq_epi8(there, shape.pattern)));
  constexpr unsigned kPatternMask = (1u << kPatternBytes) - 1;
  return (stops & shape.before_mask) == 0 &&
         (same & kPatternMask) == kPatternMask;
#else
  for (size_t i = 0; i < shape.at; ++i) {
    if (line[i] == ',' || line[i] == '\0') return false;
  }
  return std::memcmp(line + shape.at, shape.pattern, kPatternBytes) == 0;
#endif
}

// The line-feed bits of the `n` (at most 64) bytes at `p`.
uint64_t tail_line_feeds(const char* p, size_t n) {
  uint64_t mask = 0;
  for (size_t i = 0; i < n; ++i) {
    mask |= static_cast<uint64_t>(p[i] == '\n') << i;
  }
  return mask;
}

// The line-feed bits of 64 bytes, found with the widest compare that every
// x86-64 processor has.
struct BaselineLineFeeds {
  uint64_t operator()(const char* p) const {
#if defined(__x86_64__)
    const __m128i line_feed = _mm_set1_epi8('\n');
    const __m128i* v = reinterpret_cast<const __m128i*>(p);
    auto bits = [&](int i) {
      return static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(
          _mm_cmpeq_epi8(_mm_loadu_si128(v + i), line_feed))));
    };
    return bits(0) | bits(1) << 16 | bits(2) << 32 | bits(3) << 48;
#else
    return tail_line_feeds(p, 64);
#endif
  }
};

#if defined(SCANREPORT_AVX2_PASS)
// The same with half the instructions, where the processor has AVX2: the
// compare is most of the work of the pass once the block is in the cache.
struct Avx2LineFeeds {
  [[gnu::target("avx2")]] uint64_t operator()(const char* p) const {
    const __m256i line_feed = _mm256_set1_epi8('\n');
    const __m256i* v = reinterpret_cast<const __m256i*>(p);
    const auto low = static_cast<uint32_t>(_mm256_movemask_epi8(
        _mm256_cmpeq_epi8(_mm256_loadu_si256(v), line_feed)));
    const auto high = static_cast<uint32_t>(_mm256_movemask_epi8(
        _mm256_cmpeq_epi8(_mm256_loadu_si256(v + 1), line_feed)));
    return low | static_cast<uint64_t>(high) << 32;
  }
};
#endif

// The hardware fetches ahead only within a page, so bytes that have left
// the cache would be waited for at every page boundary; asking for the
// bytes a page ahead keeps the memory busy while the lines are judged.
constexpr ptrdiff_t kFetchAhead = 4096;

// Passes over the lines at the front of `lines` (whole lines) that have
// the usual shape and are dated before `first_day`, setting *last_date to
// the date of each. Returns how many bytes they take: the search stops in
// front of the first other line.
template <typename LineFeeds>
[[gnu::always_inline]] inline size_t pass_usual_lines_with(
    LineFeeds line_feed_word, std::string_view lines, DateStamp first_day,
    DateMemo& memo, DateStamp* last_date) {
  const char* const begin = lines.data();
  const char* const end = begin + lines.size();
  const char* line = begin;
  // Kept in locals, which nothing else can alias, for the inner loop.
  DateMemo local_memo = memo;
  DateStamp last = *last_date;
  Shape shape = shape_of(local_memo);
  for (const char* chunk = begin; chunk < end; chunk += 64) {
    __builtin_prefetch(chunk + std::min(kFetchAhead, end - chunk));
    uint64_t mask =
        end - chunk >= 64
            ? line_feed_word(chunk)
            : tail_line_feeds(chunk, static_cast<size_t>(end - chunk));
    for (; mask != 0; mask &= mask - 1) {
      const char* line_end = chunk + __builtin_ctzll(mask);
      if (static_cast<size_t>(line_end - line) > kMaxLineLength) goto stop;
      // The remembered stamp is before first_day: the search has ended at
      // any later one.
      if (end - line >= 32 && has_shape(line, shape)) {
        last = shape.stamp;
      } else {
        DateStamp stamp;
        if (!usual_line_date(line, line_end, local_memo, &stamp) ||
            stamp >= first_day) {
          goto stop;
        }
        last = stamp;
        shape = shape_of(local_memo);
      }
      line = line_end + 1;
    }
  }
stop:
  memo = local_memo;
  *last_date = last;
  return static_cast<size_t>(line - begin);
}

using PassFunction = size_t (*)(std::string_view, DateStamp, DateMemo&,
                                DateStamp*);

size_t pass_usual_lines_baseline(std::string_view lines, DateStamp first_day,
                                 DateMemo& memo, DateStamp* last_date) {
  return pass_usual_lines_with(BaselineLineFeeds{}, lines, first_day, memo,
                               last_date);
}

#if defined(SCANREPORT_AVX2_PASS)
[[gnu::target("avx2")]] size_t pass_usual_lines_avx2(std::string_view lines,
                                                     DateStamp first_day,
                                                     DateMemo& memo,
                                                     DateStamp* last_date) {
  return pass_usual_lines_with(Avx2LineFeeds{}, lines, first_day, memo,
                               last_date);
}
#endif

// Chosen once per run: both find the same lines.
PassFunction choose_pass() {
#if defined(SCANREPORT_AVX2_PASS)
  if (__builtin_cpu_supports("avx2")) return pass_usual_lines_avx2;
#endif
  return pass_usual_lines_baseline;
}

}  // namespace

DateStamp line_date(char* line) {
  const char* text = trim_blanks(line);
  int length = 0;
  const char* date_field = next_field(text, &length);
  next_field(date_field, &length);
  char date[kDateFieldSize] = {};
  std::memcpy(date, date_field, std::min(length, kDateFieldSize - 1));
  return log_date_to_stamp(date);
}

namespace {

const PassFunction pass_usual_lines = choose_pass();

// The date of no line: the search read none.
constexpr DateStamp kNoLineRead = -1;

// Where a search stopped: the offset at which the line it stopped at
// (or the end it found) began, and the date of the line before.
struct SearchStop {
  off_t offset;
  DateStamp date_before;
};

// The search from where `log` stands, `date` being the date of the line
// before (kNoLineRead: no line of this search yet). Records in `*stop`,
// when given, where it stopped.
DateStamp search_lines(LineReader& log, DateStamp first_day, char* line,
                       DateStamp date, SearchStop* stop = nullptr) {
  DateMemo memo;
  for (;;) {
    log.consume(pass_usual_lines(log.buffered_lines(), first_day, memo, &date));
    if (stop != nullptr) *stop = {log.read_offset(), date};
    if (!log.getline(line)) return date;
    date = line_date(line);
    if (date >= first_day) return date;
  }
}

// Less than this many blocks left, a second process costs more than the
// half of the search that it takes over. More than two, so that the middle
// lies beyond the block in hand, which end_at cannot shorten.
constexpr off_t kBlocksWorthASecondProcess = 16;
// Most searches end within their first blocks (a day's own input, a
// recent day of a short log), and those need no second process.
constexpr off_t kBlocksBeforeASecondProcess = 4;

int usable_cores() {
  cpu_set_t cores;
  return sched_getaffinity(0, sizeof cores, &cores) == 0 ? CPU_COUNT(&cores)
                                                         : 1;
}

// The first line start `distance` bytes on from where `log` stands, if
// the log is a regular file with enough left for a second process and
// there is a second core to run it on; -1 otherwise.
off_t line_start_past(const LineReader& log, off_t distance) {
  const off_t from = log.read_offset();
  if (from < 0 || log.eof() || log.failed() ||
      log.file_size() - from <
          kBlocksWorthASecondProcess * static_cast<off_t>(log.block_size()) ||
      usable_cores() < 2) {
    return -1;
  }
  return log.line_start_from(from + distance);
}

// The search up to `end`, a line start, as if the log ended there. True
// when it got there: `log` then reads on from `end` as if it had not
// stopped, and *date is the date of the line before.
bool search_up_to(LineReader& log, off_t end, DateStamp first_day, char* line,
                  DateStamp* date) {
  log.end_at(end);
  *date = search_lines(log, first_day, line, *date);
  const bool reached = log.ended_at_end_at();
  log.end_at(-1);
  return reached;
}

// In the child: searches from `half` on with a reader of its own and
// writes where it stopped into `out`. Ends the process without running
// anything of the parent's (no buffered output of the parent is written).
[[noreturn]] void search_second_half(const LineReader& log, off_t half,
                                     DateStamp first_day, int out) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  SearchStop stop = {-1, kNoLineRead};
  LineReader second;
  if (second.open_part(log, half)) {
    auto line = std::make_unique<char[]>(LOG_LINE_SIZE);
    search_lines(second, first_day, line.get(), kNoLineRead, &stop);
  }
  const bool written = FileDescriptor(out).write_all(&stop, sizeof stop);
  _exit(written ? 0 : 1);
}

// Where the child's search stopped; false when it did not say (it failed,
// or was ended). Reaps the child either way.
bool second_half_stop(pid_t child, const FileDescriptor& from_child,
                      SearchStop* stop) {
  ssize_t n = from_child.read(stop, sizeof *stop);
  int status = 0;
  retry_interrupted([&] { return waitpid(child, &status, 0); });
  return n == static_cast<ssize_t>(sizeof *stop) && stop->offset >= 0;
}

// The search with its second half, from `half` on, run by a child process
// at the same time: a process, not a thread, so that the C library keeps
// its one-thread ways (a thread, once started, makes every allocation of
// the run lock, which costs a day of a million names 8 %). If the search
// of the first half reaches `half`, every line before was passed over and
// `half` starts a line, so the child's search is the rest of the plain
// search: the search goes on from the line the child stopped at, which it
// reads again. Otherwise the child is ended.
DateStamp search_in_halves(LineReader& log, off_t half, DateStamp first_day,
                           char* line, DateStamp date) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return search_lines(log, first_day, line, date);
  }
  FileDescriptor from_child(ends[0]);
  FileDescriptor to_parent(ends[1]);
  const pid_t child = fork();
  if (child == 0) search_second_half(log, half, first_day, to_parent.release());
  to_parent.reset();
  if (child < 0) return search_lines(log, first_day, line, date);
  const bool reached_half = search_up_to(log, half, first_day, line, &date);
  if (!reached_half) kill(child, SIGKILL);
  SearchStop stop;
  const bool child_stopped = second_half_stop(child, from_child, &stop);
  if (!reached_half) return date;
  if (child_stopped) {
    log.read_from(stop.offset);
    if (stop.date_before != kNoLineRead) date = stop.date_before;
  }
  return search_lines(log, first_day, line, date);
}

}  // namespace

DateStamp find_period_start(LineReader& log, DateStamp first_day, char* line) {
  DateStamp date = 0;
  const off_t first_blocks_end = line_start_past(
      log, kBlocksBeforeASecondProcess * static_cast<off_t>(log.block_size()));
  if (first_blocks_end < 0) return search_lines(log, first_day, line, date);
  if (!search_up_to(log, first_blocks_end, first_day, line, &date)) {
    return date;
  }
  // The second process takes over past the middle of what is left.
  const off_t half =
      line_start_past(log, (log.file_size() - log.read_offset()) / 2);
  return half < 0 ? search_lines(log, first_day, line, date)
                  : search_in_halves(log, half, first_day, line, date);
}

bool period_has_records(const LineReader& log, DateStamp start_line_date,
                        DateStamp last_day) {
  return !log.eof() && start_line_date <= last_day;
}
