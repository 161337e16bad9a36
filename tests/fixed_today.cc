// The test build of the program takes today's date from the environment,
// so that a case clamps future dates to the same day whenever it runs. It
// is linked into that build alone, with -Wl,--wrap=time; the installed
// program has no such hook.
#include <cstdlib>
#include <ctime>

extern "C" time_t __real_time(time_t* out);

// With SCANREPORT_TEST_TODAY=yyyymmdd, now is noon of that local day.
extern "C" time_t __wrap_time(time_t* out) {
  const char* today = std::getenv("SCANREPORT_TEST_TODAY");
  if (today == nullptr) return __real_time(out);
  const int stamp = std::atoi(today);
  std::tm noon{};
  noon.tm_year = stamp / 10000 - 1900;
  noon.tm_mon = stamp / 100 % 100 - 1;
  noon.tm_mday = stamp % 100;
  noon.tm_hour = 12;
  noon.tm_isdst = -1;
  const time_t now = std::mktime(&noon);
  return out == nullptr ? now : (*out = now);
}
