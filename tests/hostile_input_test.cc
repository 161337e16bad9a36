// Broken and hostile input, end to end: the real program runs as root over
// logs that other programs write, in directories that others may be able to
// plant files in. Every case checks the exit status, the exact bytes of
// every file in the run's own directory, and that nothing else under the
// output root was created, changed or removed.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "test_support.h"

namespace fs = std::filesystem;
using testing_support::data_path;
using testing_support::day_dir;
using testing_support::make_day_dir;
using testing_support::read_file;
using testing_support::reset_output_root;
using testing_support::run_scanreport;
using testing_support::RunResult;
using testing_support::temp_file;
using testing_support::write_file;

namespace {

constexpr int kDay = 20240131;
const std::string kDayArg = "20240131";
const std::string kTraffic = std::string(TEST_OUTPUT_ROOT) + "traffic/";

// ---------------------------------------------------------------------------
// The output tree before and after a run.

// Relative path to what stands there: a directory, a file with its bytes, or
// a symbolic link with its target.
using Tree = std::map<std::string, std::string>;

Tree snapshot(const std::string& root) {
  Tree tree;
  if (!fs::exists(fs::symlink_status(root))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string name = fs::relative(entry.path(), root).string();
    if (entry.is_symlink()) {
      tree[name] = "link:" + fs::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      tree[name] = "dir";
    } else {
      tree[name] = "file:" + read_file(entry.path().string());
    }
  }
  return tree;
}

std::set<std::string> changed_paths(const Tree& before, const Tree& after) {
  std::set<std::string> changed;
  for (const auto& [name, what] : before) {
    auto found = after.find(name);
    if (found == after.end() || found->second != what) changed.insert(name);
  }
  for (const auto& [name, what] : after) {
    if (!before.count(name)) changed.insert(name);
  }
  return changed;
}

// The files directly inside `dir`, by name, with their bytes; links are
// shown by their target so a link that became a file is told apart.
std::map<std::string, std::string> files_in(const std::string& dir) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::directory_iterator(dir)) {
    std::string name = entry.path().filename().string();
    files[name] = entry.is_symlink()
                      ? "link:" + fs::read_symlink(entry.path()).string()
                      : read_file(entry.path().string());
  }
  return files;
}

// ---------------------------------------------------------------------------
// Expected pages, written out from the formats of the pages themselves.

// `period` as the title shows it: "as on D" or "from D1 to D2".
std::string php_head(const std::string& period = "as on 31-01-2024") {
  return "<table class=tabledata  border=1  cellspacing=1 cellpadding=4 "
         "align=\"center\" style=\"font-size:9pt\" valign=top >\n"
         "<tr><td nowrap colspan='9' align='center'><b>Report Table " +
         period +
         "\n"
         "<tr bgcolor='#AACCDD'>\n"
         "<th align='left'><input type='checkbox' id='selall'></th>\n"
         "<th align='left' >Date/Time</th>\n"
         "<th align='left' >Client</th>\n"
         "<th align='left' >File</th>\n"
         "<th align='left' >Result</th>\n"
         "<th align='left' >Virus/Remark</th>\n"
         "<th align='left' >Action</th>\n"
         "<th align='left' >Quarantine</th>\n"
         "</tr>\n";
}

std::string php_without_records() { return php_head() + "</table>\n"; }

std::string php_with_records() {
  return php_head() + "<?php include(\"" + kTraffic +
         "/20240131/report.txt\") ?></table>\n";
}

struct Row {
  std::string date_time, client, file, file_base, result, virus_or_remark,
      action, quarantine, quarantine_base;
};

std::string report_row(bool shaded, int number, const Row& r) {
  std::string quarantine_cell =
      r.quarantine.empty() ? "<td align='left'>-</td>\n"
                           : "<td align='left' title='" + r.quarantine + "'>" +
                                 r.quarantine_base + "</td>\n";
  return std::string("<tr bgcolor='") + (shaded ? "#cfe1fd" : "#bbccdd") +
         "'>\n<td align='left'><input type='checkbox' id='chk_sel_" +
         std::to_string(number) + "'></td>\n<td align='left'>" + r.date_time +
         "</td>\n<td align='left'>" + r.client + "</td>\n" +
         "<td align='left' title='" + r.file + "'>" + r.file_base +
         "</td>\n<td align='left'>" + r.result + "</td>\n<td align='left'>" +
         r.virus_or_remark + "</td>\n<td align='left'>" + r.action + "</td>\n" +
         quarantine_cell + "</tr>\n";
}

std::string quarantine_page(const std::string& rows) {
  return "<table class=tabledata width='100%' border=1 cellspacing=0 "
         "cellpadding=4 align=center valign=top>\n"
         "<tr><td colspan='6' align='center'><b>Quarantine Report  on "
         "31/01/2024\n"
         "<tr bgcolor='#AACCDD'>\n"
         "<th align='left'><input type='checkbox' id='selall'></th>\n"
         "<th align='left'>Date/Time</th>\n"
         "<th align='left'>Client</th>\n"
         "<th align='left'>File</th>\n"
         "<th align='left'>Virus</th>\n"
         "<th align='left'>Quarantine</th>\n"
         "</tr>\n" +
         rows + "</table>\n";
}

std::string quarantine_row(bool shaded, int number, const Row& r) {
  return std::string("<tr bgcolor='") + (shaded ? "#cfe1fd" : "#bbccdd") +
         "'>\n<td align='left'><input type='checkbox' id='chk_sel_" +
         std::to_string(number) + "'></td>\n<td align='left'>" + r.date_time +
         "</td>\n<td align='left'>" + r.client + "</td>\n" +
         "<td align='left' title='" + r.file + "'>" + r.file_base +
         "</td>\n<td align='left'>" + r.virus_or_remark + "</td>\n" +
         "<td align='left' title='" + r.quarantine + "'>" + r.quarantine_base +
         "</td>\n</tr>\n";
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

std::string top_table(const Entries& entries, const std::string& title,
                      const std::string& anchor) {
  std::string text =
      "<TABLE WIDTH='50%' CLASS='tabledata' BORDER='1' ALIGN='center' "
      "CELLSPACING='2'>\n<TR>\n<TH COLSPAN='3'><A NAME='" +
      anchor + "'></A>\n" + title + "</TH>\n</TR>\n";
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
  std::string table =
      "<TABLE WIDTH='90%' BORDER='1' CLASS='tabledata' ALIGN='center' "
      "CELLSPACING='2'>\n"
      "<TR><TH COLSPAN='8'><A NAME='Summary'>" +
      title +
      "</A></TH></TR>\n"
      "<TR>\n"
      "<TD COLSPAN='6'>Scanned " +
      std::to_string(scanned) +
      "</TD>\n"
      "<TD>Excluded</TD>\n"
      "<TD>Errors</TD>\n"
      "</TR>\n"
      "<TR>\n"
      "<TD>Clean</TD>\n"
      "<TD>Cured</TD>\n"
      "<TD COLSPAN='4'>Infected " +
      std::to_string(infected) + "</TD>\n" + td(" ROWSPAN='3'", t["excluded"]) +
      td(" ROWSPAN='3'", t["error"]) + "</TR>\n<TR>\n" +
      td(" ROWSPAN='2'", t["clean"]) + td(" ROWSPAN='2'", t["cured"]) +
      "<TD>Quarantined</TD>\n"
      "<TD>Deleted</TD>\n"
      "<TD>Access Denied</TD>\n"
      "<TD>Action Error</TD>\n"
      "</TR>\n"
      "<TR>\n" +
      td("", t["quarantined"]) + td("", t["deleted"]) + td("", t["denied"]) +
      td("", t["acterror"]) + "</TR>\n</TABLE>\n";
  return table + "<BR>\n" + top_table(c.viruses, "Top 10 Virus", "Virus") +
         "<BR>\n" + top_table(c.clients, "Top 10 Client", "Client") + "<BR>\n" +
         top_table(c.files, "Top 10 File", "File") + "<BR>\n";
}

using Files = std::map<std::string, std::string>;

Files scan_files_without_records() {
  return {{"report.php", php_without_records()},
          {"report.txt", ""},
          {"summary.txt", summary_text({})},
          {"summary.htm", summary_page({})}};
}

Files scan_files(const std::string& rows, const Counts& counts) {
  return {{"report.php", php_with_records()},
          {"report.txt", rows},
          {"summary.txt", summary_text(counts)},
          {"summary.htm", summary_page(counts)}};
}

// ---------------------------------------------------------------------------

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the program runs only as root";
    reset_output_root();
    // Neighbours that no run of kDay may touch.
    std::string before = make_day_dir(20240130);
    write_file(before + "/report.php", "<p>30 January</p>\n");
    write_file(before + "/report.txt", "<tr>30</tr>\n");
    write_file(before + "/summary.txt", "[Summary]\nclean=7\n");
    write_file(before + "/summary.htm", "<TABLE></TABLE>\n");
    std::string after = make_day_dir(20240201);
    write_file(after + "/quarantine.htm", "<table></table>\n");
    write_file(testing_support::range_dir() + "report.php", "<p>range</p>\n");
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
    std::string path = temp_file(bytes);
    cleanup_.push_back(fs::path(path).parent_path().string());
    return path;
  }

  // Runs the program and checks that it changed nothing under the output
  // root outside `own_dir` (the directory itself included).
  RunResult run(const std::vector<std::string>& args, int as_user = -1,
                const std::string& own_dir = "traffic/20240131/") {
    Tree before = snapshot(TEST_OUTPUT_ROOT);
    RunResult result = run_scanreport(args, as_user);
    Tree after = snapshot(TEST_OUTPUT_ROOT);
    for (const std::string& path : changed_paths(before, after)) {
      EXPECT_EQ(path.rfind(own_dir, 0), 0u)
          << "changed outside " << own_dir << ": " << path;
    }
    return result;
  }

  void expect_quiet_success(const RunResult& result) {
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.standard_output, "");
    EXPECT_EQ(result.standard_error, "");
  }

  // A single-day scan report, then the quarantine report, each in a fresh
  // day directory, with the files each must leave there.
  void expect_both_reports(const std::string& log, const Files& scan,
                           const Files& quarantine) {
    fs::remove_all(day_dir(kDay));
    make_day_dir(kDay);
    expect_quiet_success(run({log, kDayArg}));
    EXPECT_EQ(files_in(day_dir(kDay)), scan) << "scan report";

    fs::remove_all(day_dir(kDay));
    make_day_dir(kDay);
    expect_quiet_success(run({"Q", log, kDayArg}));
    EXPECT_EQ(files_in(day_dir(kDay)), quarantine) << "quarantine report";
  }

 private:
  std::vector<std::string> cleanup_;
};

Files quarantine_files(const std::string& rows) {
  return {{"quarantine.htm", quarantine_page(rows)}};
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
    size_t end = bytes.find('\n', start);
    if (end == std::string::npos) end = bytes.size();
    longest = std::max(longest, end - start);
    start = end + 1;
  }
  return longest;
}

const char kCleanLine[] =
    "7,,31-01-2024,,08:00:00,,ws01,,admin,,CLEAN,,/srv/a.doc";

const Row kCleanRow = {"31-01-2024/08:00:00",
                       "ws01[admin]",
                       "/srv/a.doc",
                       "a.doc",
                       "CLEAN",
                       "-",
                       "-",
                       "",
                       ""};

Counts clean_counts() {
  Counts c;
  c.clients = {{"ws01[admin]", 1}};
  c.files = {{"/srv/a.doc", 1}};
  c.tally["clean"] = 1;
  return c;
}

// ---------------------------------------------------------------------------

TEST_F(HostileInputTest, RandomBinaryLogHasNoRecords) {
  std::string bytes = random_bytes(64 * 1024, 20240131);
  // Every line fits the buffer, so the whole log is read to its end.
  ASSERT_LT(longest_line(bytes), 2047u);
  expect_both_reports(log_of(bytes), scan_files_without_records(),
                      quarantine_files(""));
}

TEST_F(HostileInputTest, RandomLineTooLongEndsTheScanAsThoughTheDayBegan) {
  // Somewhere in these bytes a line runs past the buffer. The failed read
  // ends the scan short of the log's end, so the day is taken to have
  // begun; the 2047 characters read hold no date of the day, and the day
  // ends with them, without a row.
  std::string bytes = random_bytes(256 * 1024, 20240131);
  ASSERT_GT(longest_line(bytes), 2047u);
  Files scan = scan_files_without_records();
  scan["report.php"] = php_with_records();
  expect_both_reports(log_of(bytes), scan, quarantine_files(""));
}

TEST_F(HostileInputTest, RandomBytesAfterTheFirstLineEndTheDay) {
  // The random bytes begin with neither a line feed, a NUL nor a
  // separator, so their first line has a date field, and one that is no
  // date of the day: the day ends there.
  std::string bytes = random_bytes(64 * 1024, 7);
  ASSERT_EQ(std::string(",\n\0", 3).find(bytes[0]), std::string::npos);
  std::string log = log_of(std::string(kCleanLine) + "\n" + bytes);
  expect_both_reports(
      log, scan_files(report_row(false, 0, kCleanRow), clean_counts()),
      quarantine_files(""));
}

TEST_F(HostileInputTest, FiftyMegabyteLineIsCutToTheLineBuffer) {
  // One line far longer than the 2048-byte buffer: the read fails after
  // 2047 characters, which are handled as the day's only line.
  const std::string head =
      "7,,31-01-2024,,10:00:00,,ws01,,admin,,INFECTED,,QUARANTINED,,EICAR,,"
      "/srv/a.exe,,/q/";
  const size_t total = 50u * 1024 * 1024;
  std::string path = log_of("");
  {
    std::ofstream out(path, std::ios::binary);
    out << head;
    std::string block(1024 * 1024, 'A');
    for (size_t written = head.size(); written < total;) {
      size_t n = std::min(block.size(), total - written);
      out.write(block.data(), static_cast<std::streamsize>(n));
      written += n;
    }
    out << '\n';
  }
  ASSERT_EQ(fs::file_size(path), total + 1);

  const std::string kept(2047 - head.size(), 'A');
  Row row = {"31-01-2024/10:00:00",
             "ws01[admin]",
             "/srv/a.exe",
             "a.exe",
             "INFECTED",
             "EICAR",
             "QUARANTINED",
             "/q/" + kept,
             kept};
  Counts counts;
  counts.clients = {{"ws01[admin]", 1}};
  counts.viruses = {{"EICAR", 1}};
  counts.files = {{"/srv/a.exe", 1}};
  counts.tally["quarantined"] = 1;
  expect_both_reports(path, scan_files(report_row(false, 0, row), counts),
                      quarantine_files(quarantine_row(false, 1, row)));
}

TEST_F(HostileInputTest, OnlyEmptyLinesHaveNoRecords) {
  expect_both_reports(log_of(std::string(100000, '\n')),
                      scan_files_without_records(), quarantine_files(""));
}

TEST_F(HostileInputTest, NulByteEndsTheTextOfItsLine) {
  // Line 1 loses its file name after the NUL, line 2 is empty text and is
  // skipped, line 3 loses its quarantine name, and line 4's date is cut to
  // "31-01", which ends the day before line 5.
  Row clean = {"31-01-2024/10:00:00",
               "ws01[admin]",
               "/srv/a",
               "a",
               "CLEAN",
               "-",
               "-",
               "",
               ""};
  Row infected = {"31-01-2024/10:00:02",
                  "ws02[guest]",
                  "/srv/b.exe",
                  "b.exe",
                  "INFECTED",
                  "EICAR",
                  "QUARANTINED",
                  "/q/b",
                  "b"};
  Counts counts;
  counts.clients = {{"ws01[admin]", 1}, {"ws02[guest]", 1}};
  counts.viruses = {{"EICAR", 1}};
  counts.files = {{"/srv/a", 1}, {"/srv/b.exe", 1}};
  counts.tally["clean"] = 1;
  counts.tally["quarantined"] = 1;
  expect_both_reports(
      data_path("hostile/nul_bytes.log"),
      scan_files(report_row(false, 0, clean) + report_row(true, 1, infected),
                 counts),
      quarantine_files(quarantine_row(false, 1, infected)));
}

TEST_F(HostileInputTest, CarriageReturnStaysInTheLastField) {
  // The CR belongs to each line's last field. Line 3 ends with its date,
  // so its date is eleven characters, invalid, and ends the day.
  Row clean = {"31-01-2024/09:00:00",
               "ws01[admin]",
               "/srv/a.doc\r",
               "a.doc\r",
               "CLEAN",
               "-",
               "-",
               "",
               ""};
  Row infected = {"31-01-2024/09:00:01",
                  "ws02[guest]",
                  "/srv/b.exe",
                  "b.exe",
                  "INFECTED",
                  "EICAR",
                  "QUARANTINED",
                  "/q/b.exe\r",
                  "b.exe\r"};
  Counts counts;
  counts.clients = {{"ws01[admin]", 1}, {"ws02[guest]", 1}};
  counts.viruses = {{"EICAR", 1}};
  counts.files = {{"/srv/a.doc\r", 1}, {"/srv/b.exe", 1}};
  counts.tally["clean"] = 1;
  counts.tally["quarantined"] = 1;
  expect_both_reports(
      data_path("hostile/crlf.log"),
      scan_files(report_row(false, 0, clean) + report_row(true, 1, infected),
                 counts),
      quarantine_files(quarantine_row(false, 1, infected)));
}

TEST_F(HostileInputTest, DirectoryAsLogReadsAsAnEmptyLog) {
  // Root may open a directory for reading; reading it ends at once.
  expect_both_reports(scratch_dir(), scan_files_without_records(),
                      quarantine_files(""));
}

TEST_F(HostileInputTest, UnreadableLogAsAnotherUserIsRefused) {
  std::string log = log_of(std::string(kCleanLine) + "\n");
  ASSERT_EQ(chmod(log.c_str(), 0), 0);
  make_day_dir(kDay);
  for (const auto& args : std::vector<std::vector<std::string>>{
           {log, kDayArg}, {"Q", log, kDayArg}}) {
    RunResult result = run(args, 65534);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_output, "");
    EXPECT_EQ(result.standard_error, "Requires root permission\n");
    EXPECT_TRUE(files_in(day_dir(kDay)).empty());
  }
}

TEST_F(HostileInputTest, LogWithoutPermissionsIsStillReadByRoot) {
  std::string log = log_of(std::string(kCleanLine) + "\n");
  ASSERT_EQ(chmod(log.c_str(), 0), 0);
  make_day_dir(kDay);
  expect_quiet_success(run({log, kDayArg}));
  EXPECT_EQ(files_in(day_dir(kDay)),
            scan_files(report_row(false, 0, kCleanRow), clean_counts()));
}

TEST_F(HostileInputTest, MissingLogIsRefusedBeforeAnythingIsWritten) {
  std::string log = scratch_dir() + "/no-such.log";
  make_day_dir(kDay);
  for (const auto& args : std::vector<std::vector<std::string>>{
           {log, kDayArg}, {"Q", log, kDayArg}}) {
    RunResult result = run(args);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_output, "");
    EXPECT_EQ(result.standard_error,
              "Report file (" + log + ") missing or permission denied\n");
    EXPECT_TRUE(files_in(day_dir(kDay)).empty());
  }
}

TEST_F(HostileInputTest, MissingDayDirectoryWritesNothing) {
  std::string log = log_of(std::string(kCleanLine) + "\n");
  expect_quiet_success(run({log, kDayArg}));
  expect_quiet_success(run({"Q", log, kDayArg}));
  EXPECT_FALSE(fs::exists(fs::symlink_status(day_dir(kDay))));
}

// A link planted in place of one report file is not followed: that file is
// not written, the file it points at is left as it was (or not created),
// and the run goes on as it does for any file it cannot open.
TEST_F(HostileInputTest, LinkInPlaceOfAReportFileIsNotFollowed) {
  const std::string infected_line =
      "7,,31-01-2024,,08:00:01,,ws02,,guest,,INFECTED,,QUARANTINED,,EICAR,,"
      "/srv/b.exe,,/q/b.exe";
  const Row infected = {"31-01-2024/08:00:01",
                        "ws02[guest]",
                        "/srv/b.exe",
                        "b.exe",
                        "INFECTED",
                        "EICAR",
                        "QUARANTINED",
                        "/q/b.exe",
                        "b.exe"};
  const std::string log =
      log_of(std::string(kCleanLine) + "\n" + infected_line + "\n");
  Counts counts;
  counts.clients = {{"ws01[admin]", 1}, {"ws02[guest]", 1}};
  counts.viruses = {{"EICAR", 1}};
  counts.files = {{"/srv/a.doc", 1}, {"/srv/b.exe", 1}};
  counts.tally["clean"] = 1;
  counts.tally["quarantined"] = 1;
  const Files scan = scan_files(
      report_row(false, 0, kCleanRow) + report_row(true, 1, infected), counts);

  struct Case {
    std::string link_name;
    bool quarantine;
    Files other_files;   // what the run leaves beside the link
    bool also_dangling;  // try a link to a file not there as well
  };
  const std::vector<Case> cases = {
      // report.php is opened first; report.txt is opened (and emptied)
      // before the run gives up.
      {"report.php", false, {{"report.txt", ""}}, false},
      {"report.txt",
       false,
       {{"report.php", scan.at("report.php")},
        {"summary.txt", scan.at("summary.txt")},
        {"summary.htm", scan.at("summary.htm")}},
       true},
      {"summary.txt",
       false,
       {{"report.php", scan.at("report.php")},
        {"report.txt", scan.at("report.txt")},
        {"summary.htm", scan.at("summary.htm")}},
       false},
      {"summary.htm",
       false,
       {{"report.php", scan.at("report.php")},
        {"report.txt", scan.at("report.txt")},
        {"summary.txt", scan.at("summary.txt")}},
       false},
      {"quarantine.htm", true, {}, true},
  };
  for (const Case& c : cases) {
    for (bool dangling : {false, true}) {
      if (dangling && !c.also_dangling) continue;
      SCOPED_TRACE(c.link_name + (dangling ? " (dangling)" : ""));
      std::string elsewhere = scratch_dir();
      std::string target = elsewhere + "/victim";
      if (!dangling) write_file(target, "precious\n");
      fs::remove_all(day_dir(kDay));
      std::string dir = make_day_dir(kDay);
      fs::create_symlink(target, dir + "/" + c.link_name);

      std::vector<std::string> args = {log, kDayArg};
      if (c.quarantine) args.insert(args.begin(), "Q");
      expect_quiet_success(run(args));

      Files want = c.other_files;
      want[c.link_name] = "link:" + target;
      EXPECT_EQ(files_in(dir), want);
      if (dangling) {
        EXPECT_FALSE(fs::exists(fs::symlink_status(target)));
      } else {
        EXPECT_EQ(read_file(target), "precious\n");
      }
      EXPECT_EQ(snapshot(elsewhere).size(), dangling ? 0u : 1u);
    }
  }
}

TEST_F(HostileInputTest, DayDirectoryMayItselfBeALink) {
  // Only the last component of an output path is refused as a link.
  std::string elsewhere = scratch_dir();
  fs::create_directory_symlink(elsewhere, day_dir(kDay));
  std::string log = log_of(std::string(kCleanLine) + "\n");
  expect_quiet_success(run({log, kDayArg}));
  EXPECT_EQ(files_in(elsewhere),
            scan_files(report_row(false, 0, kCleanRow), clean_counts()));
  EXPECT_TRUE(fs::is_symlink(day_dir(kDay)));
}

}  // namespace

TEST_F(HostileInputTest, RangeSumsMalformedDaySummaries) {
  // Day files that were edited by hand or cut short: stray entries before
  // any header, an "=" inside a name, unknown headers and keys, negative
  // and wrapping counts, CRLF line ends and a missing last line feed.
  write_file(make_day_dir(20240130) + "/summary.txt",
             read_file(data_path("hostile/summary.txt")));
  write_file(make_day_dir(kDay) + "/summary.txt",
             read_file(data_path("hostile/summary_crlf.txt")));
  std::string log = log_of(std::string(kCleanLine) + "\n");
  expect_quiet_success(run({log, "20240130", "20240201"}, -1, "range/"));

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
  EXPECT_EQ(files_in(testing_support::range_dir()), want);
}
