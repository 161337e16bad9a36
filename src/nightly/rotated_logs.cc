// Names are read strictly, so that a file that merely resembles a rotated
// log (an editor's backup, a half-written temporary) is never taken for
// part of the log. Which files hold a day is decided from first lines
// alone: the log is in date order, so each file ends where the next one
// begins, and no file needs reading to its end.
#include "nightly/rotated_logs.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

struct Suffix {
  std::string_view text;
  Compression compression;
};
constexpr std::array<Suffix, 4> kSuffixes{{{".gz", Compression::kGzip},
                                           {".xz", Compression::kXz},
                                           {".zst", Compression::kZstd},
                                           {".bz2", Compression::kBzip2}}};

bool all_digits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return c >= '0' && c <= '9';
  });
}

int64_t number_of(std::string_view digits) {
  int64_t value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  return value;
}

// YYYYMMDD or YYYYMMDDHH, a real date and hour; the age key, or nullopt.
std::optional<int64_t> dated_key(std::string_view digits) {
  if (!all_digits(digits) || (digits.size() != 8 && digits.size() != 10)) {
    return std::nullopt;
  }
  const std::string day(digits.substr(0, 8));
  if (parse_date_arg(day.c_str()) == 0) return std::nullopt;
  const int64_t hour = digits.size() == 10 ? number_of(digits.substr(8)) : 0;
  if (hour > 23) return std::nullopt;
  return number_of(day) * 100 + hour;
}

bool older_in_scheme(const LogFile& a, const LogFile& b) {
  return a.rotated.age_key < b.rotated.age_key;
}

}  // namespace

std::optional<RotatedName> parse_rotated_name(std::string_view live,
                                              std::string_view name) {
  if (name.size() <= live.size() + 1 || !name.starts_with(live)) {
    return std::nullopt;
  }
  std::string_view rest = name.substr(live.size());
  RotatedName rotated;
  for (const Suffix& suffix : kSuffixes) {
    if (rest.ends_with(suffix.text)) {
      rest.remove_suffix(suffix.text.size());
      rotated.compression = suffix.compression;
      break;
    }
  }
  if (rest.size() < 2) return std::nullopt;
  const std::string_view digits = rest.substr(1);
  if (rest[0] == '.') {
    // A number as logrotate writes it: no sign, no leading zero, and few
    // enough digits to be a count of files.
    if (!all_digits(digits) || digits[0] == '0' || digits.size() > 9) {
      return std::nullopt;
    }
    rotated.age_key = -number_of(digits);
    return rotated;
  }
  if (rest[0] != '-') return std::nullopt;
  const std::optional<int64_t> key = dated_key(digits);
  if (!key) return std::nullopt;
  rotated.dated = true;
  rotated.age_key = *key;
  return rotated;
}

void order_oldest_first(std::vector<LogFile>& files) {
  std::vector<LogFile> numbered, dated, live;
  for (LogFile& file : files) {
    auto& group = file.live ? live : file.rotated.dated ? dated : numbered;
    group.push_back(std::move(file));
  }
  for (auto* group : {&numbered, &dated}) {
    // Uncompressed first among equal keys, so that the duplicate that a
    // compression under way leaves is the one dropped.
    std::stable_sort(group->begin(), group->end(),
                     [](const LogFile& a, const LogFile& b) {
                       if (a.rotated.age_key != b.rotated.age_key) {
                         return older_in_scheme(a, b);
                       }
                       return a.rotated.compression < b.rotated.compression;
                     });
    auto duplicate = std::unique(
        group->begin(), group->end(), [](const LogFile& a, const LogFile& b) {
          return a.rotated.age_key == b.rotated.age_key;
        });
    group->erase(duplicate, group->end());
  }
  files.clear();
  std::merge(std::make_move_iterator(numbered.begin()),
             std::make_move_iterator(numbered.end()),
             std::make_move_iterator(dated.begin()),
             std::make_move_iterator(dated.end()), std::back_inserter(files),
             [](const LogFile& a, const LogFile& b) {
               return a.mtime_ns < b.mtime_ns;
             });
  for (LogFile& file : live) files.push_back(std::move(file));
}

DayFiles choose_day_files(const std::vector<LogFile>& files, DateStamp day) {
  // A file can hold the day when it does not start after it (a file
  // without a date starts where the last dated one before it did) and the
  // next dated file does not start before it.
  const size_t n = files.size();
  std::vector<DateStamp> next_first(n + 1, 0);
  for (size_t i = n; i-- > 0;) {
    next_first[i] =
        files[i].first_date != 0 ? files[i].first_date : next_first[i + 1];
  }
  DayFiles chosen{n, n, false, 0};
  DateStamp starts = 0;
  for (size_t i = 0; i < n; ++i) {
    if (files[i].first_date != 0) starts = files[i].first_date;
    const DateStamp ends_before = next_first[i + 1];
    const bool can_hold = (starts == 0 || starts <= day) &&
                          (ends_before == 0 || ends_before >= day);
    if (!can_hold) continue;
    if (chosen.first == n) chosen.first = i;
    chosen.last = i + 1;
  }
  if (chosen.first == n) chosen.first = chosen.last = 0;
  const DateStamp oldest = next_first[0];
  if (oldest != 0 && day < oldest) {
    chosen.gone = std::none_of(
        files.begin() + static_cast<std::ptrdiff_t>(chosen.first),
        files.begin() + static_cast<std::ptrdiff_t>(chosen.last),
        [](const LogFile& file) { return !file.unreadable.empty(); });
    chosen.oldest_date = oldest;
  }
  return chosen;
}
