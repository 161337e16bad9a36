// Writes a synthetic scan log for the whole-program benchmarks: days in
// date order, a fixed number of lines per day (the last day's count given
// apart, so that a big log can end with a small day), clients, viruses and
// files drawn from pools of chosen sizes, and a result mix with a few
// percent of infections. The same seed gives the same bytes.
//
// Each day draws from its own generator, seeded from the seed and the
// date, so two logs that differ only in their earlier days (or in how many
// lines those have) end with byte-identical last days.
//
// Within a day, file paths follow a permutation of the file pool, so a day
// of N lines with a pool of N files names N distinct paths.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>

namespace {

struct Options {
  long days = 1;
  long lines = 20000;
  long last_day_lines = -1;  // -1: as many as the other days
  long clients = 500;
  long viruses = 200;
  long files = 100000;
  double infected_percent = 3.0;
  long start = 20230101;
  uint64_t seed = 1;
  const char* output = nullptr;  // null: standard output
};

void usage() {
  std::fprintf(stderr,
               "usage: gen_scanlog [--days N] [--lines N] [--last-day-lines "
               "N]\n"
               "                   [--clients N] [--viruses N] [--files N]\n"
               "                   [--infected-percent P] [--start "
               "yyyymmdd]\n"
               "                   [--seed N] [--output FILE]\n");
}

bool parse_options(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    const char* name = argv[i];
    if (i + 1 >= argc) return false;
    const char* value = argv[++i];
    long number = std::strtol(value, nullptr, 10);
    if (std::strcmp(name, "--days") == 0) {
      o.days = number;
    } else if (std::strcmp(name, "--lines") == 0) {
      o.lines = number;
    } else if (std::strcmp(name, "--last-day-lines") == 0) {
      o.last_day_lines = number;
    } else if (std::strcmp(name, "--clients") == 0) {
      o.clients = number;
    } else if (std::strcmp(name, "--viruses") == 0) {
      o.viruses = number;
    } else if (std::strcmp(name, "--files") == 0) {
      o.files = number;
    } else if (std::strcmp(name, "--infected-percent") == 0) {
      o.infected_percent = std::strtod(value, nullptr);
    } else if (std::strcmp(name, "--start") == 0) {
      o.start = number;
    } else if (std::strcmp(name, "--seed") == 0) {
      o.seed = std::strtoull(value, nullptr, 10);
    } else if (std::strcmp(name, "--output") == 0) {
      o.output = value;
    } else {
      return false;
    }
  }
  return o.days > 0 && o.lines >= 0 && o.clients > 0 && o.viruses > 0 &&
         o.files > 0 && o.infected_percent >= 0 && o.infected_percent <= 100;
}

uint64_t mix(uint64_t x) {
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t next() { return mix(state_++); }
  double uniform() { return (next() >> 11) * (1.0 / 9007199254740992.0); }
  // Skewed towards small indices, so that top-ten lists have clear leaders.
  long skewed(long n) {
    double u = uniform();
    return static_cast<long>(u * u * u * static_cast<double>(n));
  }

 private:
  uint64_t state_;
};

struct Date {
  int day, month, year;
};

int month_length(int month, int year) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : kDays[month - 1];
}

void next_day(Date& d) {
  if (++d.day > month_length(d.month, d.year)) {
    d.day = 1;
    if (++d.month > 12) {
      d.month = 1;
      ++d.year;
    }
  }
}

// Output through one large buffer: the generator must not be what limits
// how fast a benchmark log can be made.
class Writer {
 public:
  explicit Writer(FILE* out) : out_(out) {}
  ~Writer() { flush(); }
  void put(const char* text, size_t n) {
    if (used_ + n > sizeof buffer_) flush();
    std::memcpy(buffer_ + used_, text, n);
    used_ += n;
  }
  void flush() {
    if (used_ > 0) std::fwrite(buffer_, 1, used_, out_);
    used_ = 0;
  }

 private:
  FILE* out_;
  size_t used_ = 0;
  char buffer_[1 << 20];
};

const char* const kExtensions[] = {"pdf", "docx", "xlsx", "exe", "zip",
                                   "jpg", "dll",  "txt",  "msi", "js"};
const char* const kVirusFamilies[] = {"Trojan.Agent",   "Worm.Autorun",
                                      "Adware.Popper",  "Ransom.Locker",
                                      "Backdoor.Shell", "Exploit.Pdf"};

int file_path(char* out, size_t size, long index) {
  return std::snprintf(out, size, "/srv/share/dept%02ld/user%04ld/%s/f%07ld.%s",
                       index % 37, index / 37 % 5000,
                       index % 3 == 0 ? "docs" : "work", index,
                       kExtensions[index % 10]);
}

int virus_name(char* out, size_t size, long index) {
  return std::snprintf(out, size, "%s.%05ld", kVirusFamilies[index % 6], index);
}

// A multiplier that makes x -> x * m mod n a permutation of 0..n-1.
long coprime_multiplier(long n) {
  long m = 7919 % n == 0 ? 1 : 7919;
  while (n > 1 && std::gcd(m, n) != 1) ++m;
  return m;
}

void write_line(Writer& w, const Options& o, Random& r, const Date& d,
                long line, long day_lines, long file_index) {
  char text[1024];
  int n = 0;
  long seconds = day_lines > 0 ? line * 86400L / day_lines : 0;
  long client = r.skewed(o.clients);
  n += std::snprintf(text + n, sizeof text - n,
                     "J%06" PRIu64 ",,%02d-%02d-%04d,,%02ld:%02ld:%02ld,,",
                     r.next() % 1000000, d.day, d.month, d.year, seconds / 3600,
                     seconds / 60 % 60, seconds % 60);
  n += std::snprintf(text + n, sizeof text - n, "ws%04ld,,10.%ld.%ld.%ld,,",
                     client, client / 65536 % 256, client / 256 % 256,
                     client % 256);
  char path[256];
  file_path(path, sizeof path, file_index);
  char virus[64];
  virus_name(virus, sizeof virus, r.skewed(o.viruses));
  double roll = r.uniform() * 100.0;
  if (roll < o.infected_percent) {
    static const char* const kActions[] = {"QUARANTINED", "QUARANTINED",
                                           "DELETED", "ACTION ERROR",
                                           "ACCESS DENIED"};
    const char* action = kActions[r.next() % 5];
    n += std::snprintf(text + n, sizeof text - n, "INFECTED,,%s,,%s,,%s",
                       action, virus, path);
    if (std::strcmp(action, "QUARANTINED") == 0) {
      n += std::snprintf(text + n, sizeof text - n,
                         ",,/var/quarantine/%016" PRIx64 ".qar", r.next());
    }
  } else if (roll < o.infected_percent + 1.0) {
    n += std::snprintf(text + n, sizeof text - n, "CURED,,%s,,%s", virus, path);
  } else if (roll < o.infected_percent + 2.5) {
    n += std::snprintf(text + n, sizeof text - n,
                       "ERROR,,Read error: file locked,,%s", path);
  } else if (roll < o.infected_percent + 3.5) {
    n += std::snprintf(text + n, sizeof text - n,
                       "EXCLUDED,,Excluded by mask,,%s", path);
  } else {
    n += std::snprintf(text + n, sizeof text - n, "CLEAN,,%s", path);
  }
  text[n++] = '\n';
  w.put(text, static_cast<size_t>(n));
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!parse_options(argc, argv, o)) {
    usage();
    return 2;
  }
  FILE* out = o.output ? std::fopen(o.output, "wb") : stdout;
  if (out == nullptr) {
    std::perror(o.output);
    return 1;
  }
  Date d{static_cast<int>(o.start % 100), static_cast<int>(o.start / 100 % 100),
         static_cast<int>(o.start / 10000)};
  const long multiplier = coprime_multiplier(o.files);
  {
    Writer w(out);
    for (long day = 0; day < o.days; ++day, next_day(d)) {
      long stamp = d.year * 10000L + d.month * 100L + d.day;
      Random r(mix(o.seed ^ mix(static_cast<uint64_t>(stamp))));
      long day_lines = day == o.days - 1 && o.last_day_lines >= 0
                           ? o.last_day_lines
                           : o.lines;
      long offset =
          static_cast<long>(r.next() % static_cast<uint64_t>(o.files));
      for (long i = 0; i < day_lines; ++i) {
        long slot = (offset + i) % o.files;
        long file_index = static_cast<long>(
            static_cast<unsigned long long>(slot) * multiplier % o.files);
        write_line(w, o, r, d, i, day_lines, file_index);
      }
    }
  }
  if (std::fflush(out) != 0 || (o.output && std::fclose(out) != 0)) {
    std::perror(o.output ? o.output : "stdout");
    return 1;
  }
  return 0;
}
