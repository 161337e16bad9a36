// Where reports are written, and how their paths are formed. The root is
// fixed when the tool is built; every path of a run is formed here, in a
// fixed buffer, by one bounded helper.
#ifndef SCANREPORT_IO_OUTPUT_PATHS_H_
#define SCANREPORT_IO_OUTPUT_PATHS_H_

#include <cstdint>

// All three end in a slash. Every file of a run lies beneath OUTPUT_ROOT,
// in TRAFFIC_DIR or RANGE_DIR. A day's directory is TRAFFIC_DIR followed
// directly by the day's yyyymmdd number; range reports go into RANGE_DIR
// itself.
extern const char OUTPUT_ROOT[];
extern const char TRAFFIC_DIR[];
extern const char RANGE_DIR[];

// Paths are formed in buffers of this size.
inline constexpr int PATH_BUFFER_SIZE = 1024;

// Each function below writes one path into `out` (PATH_BUFFER_SIZE bytes)
// and returns true. A path too long for the buffer is left as the empty
// text, which names no file, so that opening it fails; the function then
// returns false. A cut-off path would name some other file, possibly in a
// parent directory.

// The directory of a single-day run: TRAFFIC_DIR and the day's number, with
// no slash at its end ("%s%d").
bool day_dir_path(int32_t day, char* out);

// The file `name` of a run whose directory is `dir`: "%s/%s". RANGE_DIR
// ends in a slash already, so a range run's files carry two in a row.
bool run_file_path(const char* dir, const char* name, char* out);

// A day's quarantine page: "%s/%d/quarantine.htm" of TRAFFIC_DIR and the
// day, two slashes in a row before the day, as the page has always been
// named.
bool quarantine_page_path(int32_t day, char* out);

// A day's summary file as a range run reads it back: TRAFFIC_DIR, the day's
// number and "/summary.txt".
bool day_summary_path(int32_t day, char* out);

#endif  // SCANREPORT_IO_OUTPUT_PATHS_H_
