// Report files: truncation, a line visible once ended, and no writing
// through a symbolic link planted where a report belongs.
#include "io/output_file.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "test_support.h"

namespace {

namespace fs = std::filesystem;
using testing_support::file_exists;
using testing_support::read_file;
using testing_support::write_file;

struct TempDir {
  TempDir() {
    char dir_template[] = "/tmp/scanreport-output-XXXXXX";
    if (mkdtemp(dir_template) == nullptr) throw std::runtime_error("mkdtemp");
    path = dir_template;
  }
  ~TempDir() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  std::string path;
};

TEST(OutputFile, CreatesOrTruncates) {
  TempDir dir;
  const std::string path = dir.path + "/page.htm";
  for (const std::string before : {"", "an older and much longer page\n"}) {
    if (!before.empty()) write_file(path, before);
    OutputFile out;
    ASSERT_TRUE(out.open(path.c_str()));
    out << "<BR>" << ' ' << int32_t{-1} << ' ' << int32_t{INT32_MIN};
    out.end_line();
    out.close();
    EXPECT_EQ(read_file(path), "<BR> -1 -2147483648\n");
  }
}

TEST(OutputFile, EndedLineIsVisibleBeforeClose) {
  TempDir dir;
  const std::string path = dir.path + "/page.htm";
  OutputFile out;
  ASSERT_TRUE(out.open(path.c_str()));
  out << "first";
  out.end_line();
  EXPECT_EQ(read_file(path), "first\n");
  out << "second";
  out.end_line();
  EXPECT_EQ(read_file(path), "first\nsecond\n");
}

TEST(OutputFile, RefusesALinkAsLastComponent) {
  TempDir dir;
  const std::string target = dir.path + "/target";
  const std::string link = dir.path + "/page.htm";
  write_file(target, "precious\n");
  fs::create_symlink(target, link);
  OutputFile out;
  EXPECT_FALSE(out.open(link.c_str()));
  EXPECT_FALSE(out.is_open());
  out << "overwritten";
  out.end_line();
  out.close();
  EXPECT_EQ(read_file(target), "precious\n");
  EXPECT_TRUE(fs::is_symlink(link));

  // A dangling link does not create its target either.
  const std::string missing = dir.path + "/missing";
  const std::string dangling = dir.path + "/dangling.htm";
  fs::create_symlink(missing, dangling);
  EXPECT_FALSE(out.open(dangling.c_str()));
  EXPECT_FALSE(file_exists(missing));
}

TEST(OutputFile, RefusesANamedPipeWithoutHanging) {
  TempDir dir;
  const std::string fifo = dir.path + "/report.txt";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  OutputFile out;
  EXPECT_FALSE(out.open(fifo.c_str()));  // no reader: would block forever
}

TEST(OutputFile, FollowsDirectoryLinksAlongThePath) {
  TempDir dir;
  fs::create_directory(dir.path + "/real");
  fs::create_directory_symlink(dir.path + "/real", dir.path + "/day");
  OutputFile out;
  ASSERT_TRUE(out.open((dir.path + "/day/page.htm").c_str()));
  out << "row";
  out.end_line();
  out.close();
  EXPECT_EQ(read_file(dir.path + "/real/page.htm"), "row\n");
}

TEST(OutputFile, WritesWithoutAnOpenFileAreDropped) {
  TempDir dir;
  const std::string first = dir.path + "/first.htm";
  const std::string second = dir.path + "/second.htm";
  OutputFile out;
  EXPECT_FALSE(out.open((dir.path + "/no-such-dir/page.htm").c_str()));
  out << "lost before" << int32_t{1};
  out.end_line();

  ASSERT_TRUE(out.open(first.c_str()));
  out << "kept";
  out.end_line();
  out << "unended";
  // Opening another file flushes and closes the first.
  ASSERT_TRUE(out.open(second.c_str()));
  out << "second";
  out.end_line();
  out.close();
  out << "lost after";
  out.end_line();
  out.close();
  EXPECT_EQ(read_file(first), "kept\nunended");
  EXPECT_EQ(read_file(second), "second\n");
}

}  // namespace
