// The summary page as whole files, compared with pages written out by hand.
#include "html/summary_page.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "test_support.h"

namespace {

using testing_support::data_path;
using testing_support::day_dir;
using testing_support::file_exists;
using testing_support::make_day_dir;
using testing_support::range_dir;
using testing_support::read_file;
using testing_support::reset_output_root;
using testing_support::write_file;

constexpr DateStamp kDay = 20240131;

SummaryTally tally_of(int32_t clean, int32_t cured, int32_t quarantined,
                      int32_t deleted, int32_t denied, int32_t acterror,
                      int32_t excluded, int32_t error) {
  return {{"acterror", acterror}, {"clean", clean},
          {"cured", cured},       {"deleted", deleted},
          {"denied", denied},     {"error", error},
          {"excluded", excluded}, {"quarantined", quarantined}};
}

// `counts` in order, named by `name_of(rank)`.
template <typename NameOf>
RankedList list_of(std::initializer_list<int32_t> counts, NameOf name_of) {
  RankedList list;
  int rank = 1;
  for (int32_t count : counts) list.push_back({name_of(rank++), count});
  return list;
}

std::string numbered(const char* format, int rank) {
  char name[32];
  std::snprintf(name, sizeof name, format, rank);
  return name;
}

struct Page {
  RankedList clients, viruses, files;
  SummaryTally tally;
};

// Writes the page into `dir` over an older, longer page and returns it.
std::string written(const Page& p, const std::string& dir, DateStamp start,
                    DateStamp end) {
  const std::string path = dir + "/summary.htm";
  write_file(path, std::string(20000, 'o'));
  EXPECT_EQ(write_summary_page(p.clients, p.viruses, p.files, p.tally,
                               dir.c_str(), start, end),
            0);
  return read_file(path);
}

std::string expected(const char* name) {
  return read_file(data_path(std::string("summary_page/") + name));
}

TEST(SummaryPage, WorkedExample) {
  reset_output_root();
  Page p;
  p.tally = tally_of(5, 1, 2, 1, 0, 0, 3, 4);
  p.viruses = {{"EICAR", 2}, {"W32.Worm", 1}};
  p.clients = {{"PC01[alice]", 7}, {"PC02[bob]", 5}, {"PC03[carol]", 3}};
  p.files = {{"/srv/a&b/<x>.txt", 3}};
  EXPECT_EQ(written(p, make_day_dir(kDay), kDay, 0), expected("worked.htm"));
}

TEST(SummaryPage, NothingFoundSingleDay) {
  reset_output_root();
  Page p;
  init_summary_tally(p.tally);
  const std::string dir = make_day_dir(kDay);
  EXPECT_EQ(written(p, dir, kDay, 0), expected("empty.htm"));
  // An end equal to the start is a single day too.
  EXPECT_EQ(written(p, dir, kDay, kDay), expected("empty.htm"));
}

TEST(SummaryPage, RangeWithFullTopTables) {
  reset_output_root();
  Page p;
  p.tally = tally_of(100, 20, 7, 6, 5, 4, 11, 12);
  p.viruses = list_of({50, 40, 30, 20, 10, 9, 8, 7, 6, 5},
                      [](int r) { return numbered("Virus.%02d", r); });
  p.clients = list_of({11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 2},
                      [](int r) { return numbered("PC%02d[user]", r); });
  // Twelve entries, which the top-ten cut never leaves: the twelfth is
  // not shown and the few-more row carries the eleventh count.
  p.files =
      list_of({30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19}, [](int r) {
        return r == 1 ? std::string("/srv/a&b/<x>.txt")
                      : numbered("/files/f%02d", r);
      });
  // The range directory ends in a slash: the path holds "//".
  EXPECT_EQ(written(p, range_dir(), 20240101, kDay), expected("range.htm"));
}

TEST(SummaryPage, MissingTallyKeysShowMinusOne) {
  reset_output_root();
  Page p;
  p.tally = {{"clean", 4}, {"error", 1}, {"quarantined", 2}};
  EXPECT_EQ(written(p, make_day_dir(20240229), 20240229, 0),
            expected("missing_key.htm"));
}

TEST(SummaryPage, DirectoryMissing) {
  reset_output_root();
  Page p;
  init_summary_tally(p.tally);
  EXPECT_EQ(write_summary_page(p.clients, p.viruses, p.files, p.tally,
                               day_dir(kDay).c_str(), kDay, 0),
            -1);
  EXPECT_FALSE(file_exists(day_dir(kDay)));
}

}  // namespace
