// Broken and hostile input, end to end: the real program runs as root over
// logs that other programs write, in directories that others may be able to
// plant files in. Every case checks the exit status, the exact bytes of
// every file in the run's own directory, and that nothing else under the
// output root was created, changed or removed.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"

namespace fs = std::filesystem;
namespace ts = testing_support;
using ts::day_dir;
using ts::make_day_dir;
using ts::read_file;
using ts::write_file;

namespace {

constexpr int kDay = 20240131;
const std::string kDayArg = "20240131";
const std::string kTraffic = std::string(TEST_OUTPUT_ROOT) + "traffic/";

using Args = std::vector<std::string>;
using Files = std::map<std::string, std::string>;

// Relative path to what stands there under `root`: "dir", "file:" and its
// bytes, or "link:" and its target; paths starting with `skip` are left out.
Files snapshot(const std::string& root, const std::string& skip = "") {
  Files tree;
  if (!fs::exists(fs::symlink_status(root))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string name = fs::relative(entry.path(), root).string();
    if (!skip.empty() && name.rfind(skip, 0) == 0) continue;
    tree[name] = entry.is_symlink()
                     ? "link:" + fs::read_symlink(entry.path()).string()
                 : entry.is_directory() ? "dir"
                                        : "file:" + read_file(entry.path());
  }
  return tree;
}

// The files directly inside `dir` (none if it is missing), by name, with
// their bytes; links are shown by their target so a link that became a file
// is told apart.
Files files_in(const std::string& dir) {
  Files files;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(dir, missing)) {
    files[entry.path().filename().string()] =
        entry.is_symlink() ? "link:" + fs::read_symlink(entry.path()).string()
                           : read_file(entry.path());
  }
  return files;
}

// ---------------------------------------------------------------------------
// Expected pages, written out from the formats of the pages themselves.

// `period` as the title shows it: "as on D" or "from D1 to D2".
std::string php_head(const std::string& period = "as on 31-01-2024") {
  return "<table class=tabledata  border=1  cellspacing=1 cellpadding=4 "
         "align=\"center\" style=\"font-size:9pt\" valign=top >\n<tr><td "
         "nowrap colspan='9' align='center'><b>Report Table " +
         period +
         "\n<tr bgcolor='#AACCDD'>\n<th align='left'><input type='checkbox' "
         "id='selall'></th>\n<th align='left' >Date/Time</th>\n<th "
         "align='left' >Client</th>\n<th align='left' >File</th>\n<th "
         "align='left' >Result</th>\n<th align='left' >Virus/Remark</th>\n<th "
         "align='left' >Action</th>\n<th align='left' >Quarantine</th>\n"
         "</tr>\n";
}

// A record of 31-01-2024 as the reports show it: a clean file when
// `quarantine` is empty, else a file infected with EICAR and quarantined.
struct Row {
  std::string time, client, file, quarantine;
};

std::string base(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string cell(const std::string& text, const std::string& title = "") {
  return "<td align='left'" + (title.empty() ? "" : " title='" + title + "'") +
         ">" + text + "</td>\n";
}

// The cells both reports begin a row with.
std::string row_head(bool shaded, int number, const Row& r) {
  return std::string("<tr bgcolor='") + (shaded ? "#cfe1fd" : "#bbccdd") +
         "'>\n" +
         cell("<input type='checkbox' id='chk_sel_" + std::to_string(number) +
              "'>") +
         cell("31-01-2024/" + r.time) + cell(r.client) +
         cell(base(r.file), r.file);
}

std::string report_rows(const std::vector<Row>& rows) {
  std::string text;
  for (size_t n = 0; n < rows.size(); ++n) {
    const Row& r = rows[n];
    bool infected = !r.quarantine.empty();
    text += row_head(n % 2 == 1, static_cast<int>(n), r) +
            cell(infected ? "INFECTED" : "CLEAN") +
            cell(infected ? "EICAR" : "-") +
            cell(infected ? "QUARANTINED" : "-") +
            (infected ? cell(base(r.quarantine), r.quarantine) : cell("-")) +
            "</tr>\n";
  }
  return text;
}

Files quarantine_files(const std::vector<Row>& rows) {
  std::string text;
  int n = 0;
  for (const Row& r : rows) {
    if (r.quarantine.empty()) continue;
    ++n;
    text += row_head(n % 2 == 0, n, r) + cell("EICAR") +
            cell(base(r.quarantine), r.quarantine) + "</tr>\n";
  }
  return {{"quarantine.htm",
           "<table class=tabledata width='100%' border=1 cellspacing=0 "
           "cellpadding=4 align=center valign=top>\n<tr><td colspan='6' "
           "align='center'><b>Quarantine Report  on 31/01/2024\n<tr "
           "bgcolor='#AACCDD'>\n<th align='left'><input type='checkbox' "
           "id='selall'></th>\n<th align='left'>Date/Time</th>\n<th "
           "align='left'>Client</th>\n<th align='left'>File</th>\n<th "
           "align='left'>Virus</th>\n<th align='left'>Quarantine</th>\n"
           "</tr>\n" +
               text + "</table>\n"}};
}

using Entries = std::vector<std::pair<std::string, int>>;
// Result key to count; std::map walks it in the files' key order.
using Tally = std::map<std::string, int>;

struct Counts {
  // In key order for the summary file, in ranked order for the page.
  Entries clients, viruses, files;
  Tally tally = {{"acterror", 0}, {"clean", 0},      {"cured", 0},
                 {"deleted", 0},  {"denied", 0},     {"error", 0},
                 {"excluded", 0}, {"quarantined", 0}};
};

// Only for rows that name each client, virus and file once, so that key
// order is ranked order too.
Counts counts_of(const std::vector<Row>& rows) {
  Counts c;
  for (const Row& r : rows) {
    c.clients.emplace_back(r.client, 1);
    c.files.emplace_back(r.file, 1);
    if (!r.quarantine.empty()) c.viruses.emplace_back("EICAR", 1);
    ++c.tally[r.quarantine.empty() ? "clean" : "quarantined"];
  }
  for (Entries* e : {&c.clients, &c.viruses, &c.files}) {
    std::sort(e->begin(), e->end());
  }
  return c;
}

std::string entry_lines(const Entries& entries) {
  std::string text;
  for (const auto& [name, count] : entries) {
    text += name + "=" + std::to_string(count) + "\n";
  }
  return text;
}

std::string summary_text(const Counts& c) {
  return "[Top 10 Client]\n" + entry_lines(c.clients) + "[Top 10 Virus]\n" +
         entry_lines(c.viruses) + "[Top 10 File]\n" + entry_lines(c.files) +
         "[Summary]\n" + entry_lines(Entries(c.tally.begin(), c.tally.end()));
}

std::string td(const std::string& attributes, int count) {
  return "<TD" + attributes + ">" + std::to_string(count) + "</TD>\n";
}

std::string top_table(const Entries& entries, const std::string& title) {
  std::string text =
      "<BR>\n<TABLE WIDTH='50%' CLASS='tabledata' BORDER='1' ALIGN='center' "
      "CELLSPACING='2'>\n<TR>\n<TH COLSPAN='3'><A NAME='" +
      title + "'></A>\nTop 10 " + title + "</TH>\n</TR>\n";
  int rank = 1;
  for (const auto& [name, count] : entries) {
    text += "<TR>\n" + td(" WIDTH='5%'", rank++) + "<TD>" + name + "</TD>\n" +
            td(" WIDTH='10%' ALIGN='right'", count) + "</TR>\n";
  }
  return text + "</TABLE>\n";
}

// `title` is the text between the anchor and the end of its cell.
std::string summary_page(const Counts& c, const std::string& title =
                                              " Summary Report on 31-01-2024") {
  Tally t = c.tally;
  int infected = t["quarantined"] + t["deleted"] + t["denied"] + t["acterror"];
  int scanned = infected + t["clean"] + t["cured"];
  return "<TABLE WIDTH='90%' BORDER='1' CLASS='tabledata' ALIGN='center' "
         "CELLSPACING='2'>\n<TR><TH COLSPAN='8'><A NAME='Summary'>" +
         title + "</A></TH></TR>\n<TR>\n<TD COLSPAN='6'>Scanned " +
         std::to_string(scanned) +
         "</TD>\n<TD>Excluded</TD>\n<TD>Errors</TD>\n</TR>\n<TR>\n<TD>Clean"
         "</TD>\n<TD>Cured</TD>\n<TD COLSPAN='4'>Infected " +
         std::to_string(infected) + "</TD>\n" +
         td(" ROWSPAN='3'", t["excluded"]) + td(" ROWSPAN='3'", t["error"]) +
         "</TR>\n<TR>\n" + td(" ROWSPAN='2'", t["clean"]) +
         td(" ROWSPAN='2'", t["cured"]) +
         "<TD>Quarantined</TD>\n<TD>Deleted</TD>\n<TD>Access Denied</TD>\n"
         "<TD>Action Error</TD>\n</TR>\n<TR>\n" +
         td("", t["quarantined"]) + td("", t["deleted"]) + td("", t["denied"]) +
         td("", t["acterror"]) + "</TR>\n</TABLE>\n" +
         top_table(c.viruses, "Virus") + top_table(c.clients, "Client") +
         top_table(c.files, "File") + "<BR>\n";
}

// The scan report's files; `began` says whether the day was found in the
// log, which makes the page include the rows even when there are none.
Files scan_files(const std::vector<Row>& rows, bool began = true) {
  Counts counts = counts_of(rows);
  return {{"report.php", php_head() +
                             (began ? "<?php include(\"" + kTraffic +
                                          "/20240131/report.txt\") ?>"
                                    : "") +
                             "</table>\n"},
          {"report.txt", report_rows(rows)},
          {"summary.txt", summary_text(counts)},
          {"summary.htm", summary_page(counts)}};
}

// Random bytes as mt19937 makes them, which every standard library gives
// alike, so the expectations below hold everywhere.
std::string random_bytes(size_t size, unsigned seed) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(generator() & 0xFF);
  return bytes;
}

size_t longest_line(const std::string& bytes) {
  size_t longest = 0, start = 0;
  while (start <= bytes.size()) {
    size_t end = std::min(bytes.find('\n', start), bytes.size());
    longest = std::max(longest, end - start);
    start = end + 1;
  }
  return longest;
}

const std::string kCleanLine =
    "7,,31-01-2024,,08:00:00,,ws01,,admin,,CLEAN,,/srv/a.doc\n";
const Row kCleanRow = {"08:00:00", "ws01[admin]", "/srv/a.doc", ""};

// ---------------------------------------------------------------------------

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the program runs only as root";
    ts::reset_output_root();
    // Neighbours that no run of kDay may touch.
    std::string before = make_day_dir(20240130);
    write_file(before + "/report.php", "<p>30 January</p>\n");
    write_file(before + "/report.txt", "<tr>30</tr>\n");
    write_file(before + "/summary.txt", "[Summary]\nclean=7\n");
    write_file(before + "/summary.htm", "<TABLE></TABLE>\n");
    write_file(make_day_dir(20240201) + "/quarantine.htm", "<table></table>\n");
    write_file(ts::range_dir() + "report.php", "<p>range</p>\n");
    write_file(std::string(TEST_OUTPUT_ROOT) + "index.php", "<?php ?>\n");
  }

  void TearDown() override {
    for (const std::string& path : cleanup_) fs::remove_all(path);
  }

  // A fresh, empty directory of its own, outside the output root.
  std::string scratch_dir() {
    char name[] = "/tmp/scanreport-hostile-XXXXXX";
    if (mkdtemp(name) == nullptr) ADD_FAILURE() << "mkdtemp";
    cleanup_.push_back(name);
    return name;
  }

  std::string log_of(const std::string& bytes) {
    std::string path = ts::temp_file(bytes);
    cleanup_.push_back(fs::path(path).parent_path().string());
    return path;
  }

  // Runs the program and checks its exit status, that it printed nothing
  // but `error`, the files it leaves in `dir`, and that it changed nothing
  // under the output root but what lies inside `own`.
  void check(const Args& args, const std::string& dir, const Files& want,
             int status = 0, const std::string& error = "", int as_user = -1,
             const std::string& own = "traffic/20240131/") {
    Files before = snapshot(TEST_OUTPUT_ROOT, own);
    ts::RunResult result = ts::run_scanreport(args, as_user);
    EXPECT_EQ(snapshot(TEST_OUTPUT_ROOT, own), before) << "outside " << own;
    EXPECT_EQ(result.exit_status, status);
    EXPECT_EQ(result.standard_output, "");
    EXPECT_EQ(result.standard_error, error);
    EXPECT_EQ(files_in(dir), want);
  }

  // A single-day scan report, then the quarantine report, each in a fresh
  // day directory.
  void check_both(const std::string& log, const std::vector<Row>& rows,
                  bool began = true) {
    for (bool quarantine : {false, true}) {
      SCOPED_TRACE(quarantine ? "quarantine report" : "scan report");
      fs::remove_all(day_dir(kDay));
      std::string dir = make_day_dir(kDay);
      check(quarantine ? Args{"Q", log, kDayArg} : Args{log, kDayArg}, dir,
            quarantine ? quarantine_files(rows) : scan_files(rows, began));
    }
  }

 private:
  std::vector<std::string> cleanup_;
};

// ---------------------------------------------------------------------------

TEST_F(HostileInputTest, LogsWithoutRecordsOfTheDay) {
  std::string binary = random_bytes(64 * 1024, 20240131);
  // Every line fits the buffer, so the whole log is read to its end.
  ASSERT_LT(longest_line(binary), 2047u);
  // Somewhere in these bytes a line runs past the buffer. The failed read
  // ends the scan short of the log's end, so the day is taken to have
  // begun; the 2047 characters read hold no date of the day, and the day
  // ends with them, without a row.
  std::string too_long = random_bytes(256 * 1024, 20240131);
  ASSERT_GT(longest_line(too_long), 2047u);
  struct Case {
    const char* name;
    std::string log;
    bool began;
  };
  for (const Case& c : std::vector<Case>{
           {"random binary", log_of(binary), false},
           {"random line too long", log_of(too_long), true},
           {"only empty lines", log_of(std::string(100000, '\n')), false},
           // Root may open a directory for reading; reading it ends at once.
           {"directory", scratch_dir(), false}}) {
    SCOPED_TRACE(c.name);
    check_both(c.log, {}, c.began);
  }
}

TEST_F(HostileInputTest, DamagedLinesAreReadAsTheyStand) {
  // One line far longer than the 2048-byte buffer: the read fails after
  // 2047 characters, which are handled as the day's only line.
  const std::string head =
      "7,,31-01-2024,,10:00:00,,ws01,,admin,,INFECTED,,QUARANTINED,,EICAR,,"
      "/srv/a.exe,,/q/";
  const size_t total = 50u * 1024 * 1024;
  std::string huge =
      log_of(head + std::string(total - head.size(), 'A') + "\n");
  ASSERT_EQ(fs::file_size(huge), total + 1);
  // The random bytes begin with neither a line feed, a NUL nor a
  // separator, so their first line has a date field, and one that is no
  // date of the day: the day ends there.
  std::string bytes = random_bytes(64 * 1024, 7);
  ASSERT_EQ(std::string(",\n\0", 3).find(bytes[0]), std::string::npos);

  struct Case {
    const char* name;
    std::string log;
    std::vector<Row> rows;
  };
  for (const Case& c : std::vector<Case>{
           {"fifty megabyte line",
            huge,
            {{"10:00:00", "ws01[admin]", "/srv/a.exe",
              "/q/" + std::string(2047 - head.size(), 'A')}}},
           {"random bytes after a line",
            log_of(kCleanLine + bytes),
            {kCleanRow}},
           // Line 1 loses its file name after the NUL, line 2 is empty text
           // and is skipped, line 3 loses its quarantine name, and line 4's
           // date is cut to "31-01", which ends the day before line 5.
           {"NUL bytes",
            ts::data_path("hostile/nul_bytes.log"),
            {{"10:00:00", "ws01[admin]", "/srv/a", ""},
             {"10:00:02", "ws02[guest]", "/srv/b.exe", "/q/b"}}},
           // The CR belongs to each line's last field. Line 3 ends with its
           // date, so its date is eleven characters, invalid, and ends the
           // day.
           {"carriage returns",
            ts::data_path("hostile/crlf.log"),
            {{"09:00:00", "ws01[admin]", "/srv/a.doc\r", ""},
             {"09:00:01", "ws02[guest]", "/srv/b.exe", "/q/b.exe\r"}}}}) {
    SCOPED_TRACE(c.name);
    check_both(c.log, c.rows);
  }
}

TEST_F(HostileInputTest, RefusedLogWritesNothing) {
  std::string unreadable = log_of(kCleanLine);
  ASSERT_EQ(chmod(unreadable.c_str(), 0), 0);
  std::string missing = scratch_dir() + "/no-such.log";
  std::string dir = make_day_dir(kDay);
  struct Case {
    std::string log;
    int as_user;
    std::string error;
  };
  for (const Case& c : std::vector<Case>{
           {unreadable, 65534, "Requires root permission\n"},
           {missing, -1,
            "Report file (" + missing + ") missing or permission denied\n"}}) {
    check({c.log, kDayArg}, dir, {}, 1, c.error, c.as_user);
    check({"Q", c.log, kDayArg}, dir, {}, 1, c.error, c.as_user);
  }
}

TEST_F(HostileInputTest, LogWithoutPermissionsIsStillReadByRoot) {
  std::string log = log_of(kCleanLine);
  ASSERT_EQ(chmod(log.c_str(), 0), 0);
  check({log, kDayArg}, make_day_dir(kDay), scan_files({kCleanRow}));
}

TEST_F(HostileInputTest, MissingDayDirectoryWritesNothing) {
  std::string log = log_of(kCleanLine);
  check({log, kDayArg}, day_dir(kDay), {});
  check({"Q", log, kDayArg}, day_dir(kDay), {});
  EXPECT_FALSE(fs::exists(fs::symlink_status(day_dir(kDay))));
}

// A link planted in place of one report file is not followed: that file is
// not written, the file it points at is left as it was (or not created),
// and the run goes on as it does for any file it cannot open.
TEST_F(HostileInputTest, LinkInPlaceOfAReportFileIsNotFollowed) {
  const std::vector<Row> rows = {
      kCleanRow, {"08:00:01", "ws02[guest]", "/srv/b.exe", "/q/b.exe"}};
  const std::string log = log_of(
      kCleanLine +
      "7,,31-01-2024,,08:00:01,,ws02,,guest,,INFECTED,,QUARANTINED,,EICAR,,"
      "/srv/b.exe,,/q/b.exe\n");
  for (std::string name : {"report.php", "report.txt", "summary.txt",
                           "summary.htm", "quarantine.htm"}) {
    // Links to a file not there are tried where they are most tempting.
    for (bool dangling : {false, true}) {
      if (dangling && name != "report.txt" && name != "quarantine.htm") break;
      SCOPED_TRACE(name + (dangling ? " (dangling)" : ""));
      std::string elsewhere = scratch_dir();
      std::string target = elsewhere + "/victim";
      if (!dangling) write_file(target, "precious\n");
      fs::remove_all(day_dir(kDay));
      std::string dir = make_day_dir(kDay);
      fs::create_symlink(target, dir + "/" + name);

      // report.php is opened first; report.txt is opened (and emptied)
      // before the run gives up. The others leave the rest written.
      bool quarantine = name == "quarantine.htm";
      Files want = quarantine             ? Files{}
                   : name == "report.php" ? Files{{"report.txt", ""}}
                                          : scan_files(rows);
      want[name] = "link:" + target;
      check(quarantine ? Args{"Q", log, kDayArg} : Args{log, kDayArg}, dir,
            want);
      Files left = {{"victim", "file:precious\n"}};
      EXPECT_EQ(snapshot(elsewhere), dangling ? Files{} : left);
    }
  }
}

TEST_F(HostileInputTest, DayDirectoryMayItselfBeALink) {
  // Only the last component of an output path is refused as a link.
  std::string elsewhere = scratch_dir();
  fs::create_directory_symlink(elsewhere, day_dir(kDay));
  check({log_of(kCleanLine), kDayArg}, elsewhere, scan_files({kCleanRow}));
  EXPECT_TRUE(fs::is_symlink(day_dir(kDay)));
}

TEST_F(HostileInputTest, RangeSumsMalformedDaySummaries) {
  // Day files that were edited by hand or cut short: stray entries before
  // any header, an "=" inside a name, unknown headers and keys, negative
  // and wrapping counts, CRLF line ends and a missing last line feed.
  write_file(make_day_dir(20240130) + "/summary.txt",
             read_file(ts::data_path("hostile/summary.txt")));
  write_file(make_day_dir(kDay) + "/summary.txt",
             read_file(ts::data_path("hostile/summary_crlf.txt")));
  Counts in_file;  // key order
  in_file.clients = {{"ws01", 1}, {"ws01[admin]", 3}, {"ws02[guest]", -2}};
  in_file.viruses = {{"EICAR", -2147483647 - 1}};
  in_file.files = {
      {"", 5}, {"  +17trailing", 17}, {"/srv/a", 0}, {"noequals42", 0}};
  in_file.tally["clean"] = 6;
  in_file.tally["quarantined"] = 1;
  in_file.tally["foo"] = 4;
  in_file.tally["bar"] = -7;
  Counts ranked = in_file;
  ranked.clients = {{"ws01[admin]", 3}, {"ws01", 1}, {"ws02[guest]", -2}};
  ranked.files = {
      {"  +17trailing", 17}, {"", 5}, {"/srv/a", 0}, {"noequals42", 0}};

  std::string includes;
  for (const char* day : {"20240130", "20240131", "20240201"}) {
    includes += "<?php include(\"" + kTraffic + day + "/report.txt\") ?>\n";
  }
  Files want = {
      {"report.php",
       php_head("from 30-01-2024 to 01-02-2024") + includes + "</table>\n"},
      {"report.txt", ""},
      {"summary.txt", summary_text(in_file)},
      {"summary.htm",
       summary_page(ranked,
                    " Summary Report       from  30-01-2024   to  01-02-2024")},
  };
  check({log_of(kCleanLine), "20240130", "20240201"}, ts::range_dir(), want, 0,
        "", -1, "range/");
}

}  // namespace
