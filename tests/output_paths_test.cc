// The output layout, and the one rule for a path that does not fit its
// buffer: it becomes the empty text, which no open accepts, never a
// shorter path naming some other file.
#include "io/output_paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

const std::string kTraffic = TRAFFIC_DIR;
const std::string kRange = RANGE_DIR;

TEST(OutputPaths, Layout) {
  char dir[PATH_BUFFER_SIZE];
  ASSERT_TRUE(day_dir_path(20240131, dir));
  EXPECT_EQ(dir, kTraffic + "20240131");
  char path[PATH_BUFFER_SIZE];
  ASSERT_TRUE(run_file_path(dir, "report.php", path));
  EXPECT_EQ(path, kTraffic + "20240131/report.php");
  ASSERT_TRUE(run_file_path(RANGE_DIR, "summary.htm", path));
  EXPECT_EQ(path, kRange + "/summary.htm");
  ASSERT_TRUE(quarantine_page_path(20240131, path));
  EXPECT_EQ(path, kTraffic + "/20240131/quarantine.htm");
  ASSERT_TRUE(day_summary_path(20240229, path));
  EXPECT_EQ(path, kTraffic + "20240229/summary.txt");
}

TEST(OutputPaths, TooLongIsEmpty) {
  // "/summary.txt" is 12 characters; the buffer keeps one for the NUL.
  const size_t longest_dir = PATH_BUFFER_SIZE - 1 - 12;
  for (size_t length : {longest_dir - 1, longest_dir, longest_dir + 1,
                        size_t{PATH_BUFFER_SIZE} * 3}) {
    const std::string dir(length, 'd');
    char path[PATH_BUFFER_SIZE];
    std::fill(path, path + PATH_BUFFER_SIZE, 'x');
    const bool fits = run_file_path(dir.c_str(), "summary.txt", path);
    EXPECT_EQ(fits, length <= longest_dir) << length;
    EXPECT_EQ(path, fits ? dir + "/summary.txt" : "") << length;
  }
}

}  // namespace
