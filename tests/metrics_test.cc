// The metrics writer against hand-written summaries and hand-written
// expected files: what a day's summary.txt gives, which summaries are
// refused (and then leave the last good file as it was), and how hostile
// names become label values.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "io/output_paths.h"
#include "metrics/label_value.h"
#include "metrics/metrics_file.h"

namespace {

namespace fs = std::filesystem;

const std::string kZeroKeys =
    "acterror=0\nclean=0\ncured=0\ndeleted=0\ndenied=0\nerror=0\n"
    "excluded=0\nquarantined=0\n";

const std::string kDayKeys =
    "acterror=1\nclean=40\ncured=2\ndeleted=3\ndenied=0\nerror=5\n"
    "excluded=6\nquarantined=7\n";

const std::string kDayObjects =
    "# HELP scanreport_day_objects Objects of the newest reported day by "
    "result key, as its summary.txt counts them.\n"
    "# TYPE scanreport_day_objects gauge\n"
    "scanreport_day_objects{key=\"acterror\"} 1\n"
    "scanreport_day_objects{key=\"clean\"} 40\n"
    "scanreport_day_objects{key=\"cured\"} 2\n"
    "scanreport_day_objects{key=\"deleted\"} 3\n"
    "scanreport_day_objects{key=\"denied\"} 0\n"
    "scanreport_day_objects{key=\"error\"} 5\n"
    "scanreport_day_objects{key=\"excluded\"} 6\n"
    "scanreport_day_objects{key=\"quarantined\"} 7\n";

const std::string kVirusFamily =
    "# HELP scanreport_day_virus_objects Infected objects of the newest "
    "reported day by virus: the day's top ten as its summary page ranks "
    "them.\n"
    "# TYPE scanreport_day_virus_objects gauge\n";

// The families after the viruses, for 20240307 in UTC, no line left out
// and a last success at 1709800000.
const std::string kDayTail =
    "# HELP scanreport_day_timestamp_seconds Start of the newest reported "
    "day, local time.\n"
    "# TYPE scanreport_day_timestamp_seconds gauge\n"
    "scanreport_day_timestamp_seconds 1709769600\n"
    "# HELP scanreport_day_lines_left_out Lines of the newest reported day "
    "that its report left out: the reading stopped at a line longer than "
    "the reader's limit.\n"
    "# TYPE scanreport_day_lines_left_out gauge\n"
    "scanreport_day_lines_left_out 0\n"
    "# HELP scanreport_last_success_timestamp_seconds End of the last "
    "nightly run that wrote every day it was asked for.\n"
    "# TYPE scanreport_last_success_timestamp_seconds gauge\n"
    "scanreport_last_success_timestamp_seconds 1709800000\n";

const std::string kOldFile = "# the last good file\n";

struct Case {
  const char* name;
  std::optional<std::string> summary;   // none: no summary.txt at all
  std::optional<std::string> expected;  // none: refused, old file stays
};

const Case kCases[] = {
    {"ranked_viruses_and_counts",
     "[Top 10 Client]\nws01[10.0.0.1]=4\n[Top 10 Virus]\nAdware=2\n"
     "EICAR-Test=9\nW97M=2\n[Top 10 File]\n/srv/a.doc=4\n[Summary]\n" +
         kDayKeys,
     kDayObjects + kVirusFamily +
         "scanreport_day_virus_objects{virus=\"EICAR-Test\"} 9\n"
         "scanreport_day_virus_objects{virus=\"Adware\"} 2\n"
         "scanreport_day_virus_objects{virus=\"W97M\"} 2\n" +
         kDayTail},
    // Names are written unescaped: files named "[S", "quarantined=-1000"
    // and "clean=99999", a client named like the last header, a virus
    // named like a key line. Only the final section counts, and a name
    // holding '=' keeps it.
    {"names_that_look_like_headers_and_keys",
     "[Top 10 Client]\n[Summary]=1\n[Top 10 Virus]\nclean=99999=3\n"
     "[Top 10 File]\n[S=1\nclean=99999=1\nquarantined=-1000=1\n[Summary]\n" +
         kDayKeys,
     kDayObjects + kVirusFamily +
         "scanreport_day_virus_objects{virus=\"clean=99999\"} 3\n" + kDayTail},
    // Eleven viruses, the tenth and eleventh tied: the page's ten rows, in
    // the exchange selection's order.
    {"top_ten_of_eleven_with_a_tie",
     "[Top 10 Client]\n[Top 10 Virus]\nA=5\nB=9\nC=1\nD=8\nE=7\nF=6\nG=4\n"
     "H=3\nI=2\nJ=10\nK=1\n[Top 10 File]\n[Summary]\n" +
         kDayKeys,
     kDayObjects + kVirusFamily +
         "scanreport_day_virus_objects{virus=\"J\"} 10\n" +
         "scanreport_day_virus_objects{virus=\"B\"} 9\n" +
         "scanreport_day_virus_objects{virus=\"D\"} 8\n" +
         "scanreport_day_virus_objects{virus=\"E\"} 7\n" +
         "scanreport_day_virus_objects{virus=\"F\"} 6\n" +
         "scanreport_day_virus_objects{virus=\"A\"} 5\n" +
         "scanreport_day_virus_objects{virus=\"G\"} 4\n" +
         "scanreport_day_virus_objects{virus=\"H\"} 3\n" +
         "scanreport_day_virus_objects{virus=\"I\"} 2\n" +
         "scanreport_day_virus_objects{virus=\"C\"} 1\n" + kDayTail},
    // Quote, backslash, a byte that is not UTF-8, a right-to-left
    // override, a carriage return (a log line can hold one; a line feed
    // never reaches a name), and a name that spells an escape itself.
    {"hostile_virus_names",
     "[Top 10 Client]\n[Top 10 Virus]\nQ\"} 9=6\nB\\ad=5\nbad\xff=4\n"
     "rtl\xe2\x80\xaegpj.exe=3\ncr\r=2\n\\xFF=1\n[Top 10 File]\n[Summary]\n" +
         kDayKeys,
     kDayObjects + kVirusFamily +
         "scanreport_day_virus_objects{virus=\"Q\\\"} 9\"} 6\n" +
         "scanreport_day_virus_objects{virus=\"B\\\\x5Cad\"} 5\n" +
         "scanreport_day_virus_objects{virus=\"bad\\\\xFF\"} 4\n" +
         "scanreport_day_virus_objects{virus=\"rtl\\\\xE2\\\\x80\\\\xAEgpj."
         "exe\"} 3\n" +
         "scanreport_day_virus_objects{virus=\"cr\\\\x0D\"} 2\n" +
         "scanreport_day_virus_objects{virus=\"\\\\x5CxFF\"} 1\n" + kDayTail},
    {"empty_day",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" + kZeroKeys,
     std::string(
         "# HELP scanreport_day_objects Objects of the newest reported day by "
         "result key, as its summary.txt counts them.\n"
         "# TYPE scanreport_day_objects gauge\n"
         "scanreport_day_objects{key=\"acterror\"} 0\n"
         "scanreport_day_objects{key=\"clean\"} 0\n"
         "scanreport_day_objects{key=\"cured\"} 0\n"
         "scanreport_day_objects{key=\"deleted\"} 0\n"
         "scanreport_day_objects{key=\"denied\"} 0\n"
         "scanreport_day_objects{key=\"error\"} 0\n"
         "scanreport_day_objects{key=\"excluded\"} 0\n"
         "scanreport_day_objects{key=\"quarantined\"} 0\n") +
         kDayTail},
    {"missing_summary", std::nullopt, std::nullopt},
    {"empty_summary", "", std::nullopt},
    {"cut_before_the_summary_section",
     "[Top 10 Client]\n[Top 10 Virus]\nEICAR=1\n[Top 10 File]\n", std::nullopt},
    {"cut_inside_the_summary_section",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\nacterror=0\n"
     "clean=4\ncured=0\n",
     std::nullopt},
    {"cut_in_the_last_line",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" +
         kZeroKeys.substr(0, kZeroKeys.size() - 1),
     std::nullopt},
    {"a_ninth_key",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" + kZeroKeys +
         "clean=99999\n",
     std::nullopt},
    {"keys_out_of_order",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\nclean=0\n"
     "acterror=0\ncured=0\ndeleted=0\ndenied=0\nerror=0\nexcluded=0\n"
     "quarantined=0\n",
     std::nullopt},
    {"count_that_is_not_decimal",
     "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" +
         kZeroKeys.substr(0, kZeroKeys.size() - 2) + "x\n",
     std::nullopt},
    {"count_beyond_32_bits",
     "[Top 10 Client]\n[Top 10 Virus]\nEICAR=4294967296\n[Top 10 File]\n"
     "[Summary]\n" +
         kZeroKeys,
     std::nullopt},
    {"headers_out_of_order",
     "[Top 10 Virus]\n[Top 10 Client]\n[Top 10 File]\n[Summary]\n" + kZeroKeys,
     std::nullopt},
    {"line_longer_than_any_summary_line",
     "[Top 10 Client]\n" + std::string(5000, 'a') +
         "=1\n[Top 10 Virus]\n"
         "[Top 10 File]\n[Summary]\n" +
         kZeroKeys,
     std::nullopt},
};

class MetricsFile : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "UTC", 1);
    tzset();
    umask(022);
    fs::remove_all(OUTPUT_ROOT);
    fs::create_directories(std::string(TRAFFIC_DIR) + "20240307");
    metrics_dir_ = fs::temp_directory_path() /
                   ("scanreport-metrics-test-" + std::to_string(getpid()));
    fs::remove_all(metrics_dir_);
    fs::create_directory(metrics_dir_);
    std::ofstream(metrics_dir_ / "scanreport.prom") << kOldFile;
  }
  void TearDown() override {
    fs::remove_all(metrics_dir_);
    fs::remove_all(OUTPUT_ROOT);
  }
  void plant_summary(const std::string& text) {
    std::ofstream(summary_path(), std::ios::binary) << text;
  }
  std::string summary_path() const {
    return std::string(TRAFFIC_DIR) + "20240307/summary.txt";
  }
  int write(const NightlyOutcome& outcome) {
    std::string error;
    return write_metrics_file(metrics_dir_, TRAFFIC_DIR, outcome, &error);
  }
  std::string metrics_text() const {
    std::ifstream in(metrics_dir_ / "scanreport.prom", std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  // Nothing but the metrics file: no temporary is left behind.
  void expect_only_the_metrics_file() const {
    for (const auto& entry : fs::directory_iterator(metrics_dir_)) {
      EXPECT_EQ(entry.path().filename(), "scanreport.prom");
    }
  }
  fs::path metrics_dir_;
  const NightlyOutcome outcome_{"20240307", 1709800000, 0};
};

TEST_F(MetricsFile, SummariesAsCases) {
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    fs::remove(summary_path());
    std::ofstream(metrics_dir_ / "scanreport.prom") << kOldFile;
    if (c.summary) plant_summary(*c.summary);
    EXPECT_EQ(write(outcome_), c.expected ? 0 : -1);
    EXPECT_EQ(metrics_text(), c.expected.value_or(kOldFile));
    expect_only_the_metrics_file();
  }
}

TEST_F(MetricsFile, SummaryReachedThroughALinkIsRefused) {
  const fs::path real = metrics_dir_ / "real-summary.txt";
  std::ofstream(real) << "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n"
                         "[Summary]\n" +
                             kZeroKeys;
  fs::create_symlink(real, summary_path());
  EXPECT_EQ(write(outcome_), -1);
  EXPECT_EQ(metrics_text(), kOldFile);
  fs::remove(real);
}

TEST_F(MetricsFile, DayThatIsNotRealIsRefused) {
  plant_summary("[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" +
                kZeroKeys);
  for (const char* day : {"20240230", "2024037", "../20240307", ""}) {
    EXPECT_EQ(write({day, std::nullopt, 0}), -1) << day;
  }
  EXPECT_EQ(metrics_text(), kOldFile);
}

// A temporary left by a killed run is removed, and one planted as a link
// is replaced, not followed.
TEST_F(MetricsFile, LeftoverOrPlantedTemporaryIsReplaced) {
  plant_summary("[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" +
                kDayKeys);
  const fs::path victim = metrics_dir_ / "victim";
  std::ofstream(victim) << "victim\n";
  fs::create_symlink(victim, metrics_dir_ / ".scanreport.prom.tmp");
  ASSERT_EQ(write(outcome_), 0);
  EXPECT_EQ(metrics_text(), kDayObjects + kDayTail);
  std::ifstream in(victim);
  std::string victim_text;
  std::getline(in, victim_text);
  EXPECT_EQ(victim_text, "victim");
  fs::remove(victim);
  expect_only_the_metrics_file();
}

// Local midnight, no success yet, lines left out.
TEST_F(MetricsFile, DayStartInLocalTimeAndOutcome) {
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  plant_summary("[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\n" +
                kDayKeys);
  ASSERT_EQ(write({"20240307", std::nullopt, 1234}), 0);
  const std::string text = metrics_text();
  EXPECT_NE(text.find("\nscanreport_day_timestamp_seconds 1709737200\n"),
            std::string::npos);
  EXPECT_NE(text.find("\nscanreport_day_lines_left_out 1234\n"),
            std::string::npos);
  EXPECT_EQ(text.find("last_success"), std::string::npos);
}

TEST(LabelValue, ExpositionEscapes) {
  std::string out;
  append_escaped_label_value(out, "a\\b\"c\nd");
  EXPECT_EQ(out, "a\\\\b\\\"c\\nd");
}

TEST(LabelValue, ShownForms) {
  const std::pair<std::string, std::string> kShown[] = {
      {"EICAR-Test", "EICAR-Test"},
      {"tab\there", "tab\there"},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x90\x9b",
       "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x90\x9b"},
      {"lf\n", "lf\\x0A"},
      {std::string("nul\0", 4), "nul\\x00"},
      {"del\x7f", "del\\x7F"},
      {"overlong\xc0\xaf", "overlong\\xC0\\xAF"},
      {"surrogate\xed\xa0\x80", "surrogate\\xED\\xA0\\x80"},
      {"cut\xe2\x82", "cut\\xE2\\x82"},
      {"isolate\xe2\x81\xa6", "isolate\\xE2\\x81\\xA6"},
      {"back\\slash", "back\\x5Cslash"},
  };
  for (const auto& [name, shown] : kShown) {
    EXPECT_EQ(shown_label_value(name), shown);
  }
}

// Long names are bounded, cut at a character boundary, and names that
// share a long beginning stay apart.
TEST(LabelValue, LongNamesBoundedAndApart) {
  const std::string common(1990, 'v');
  const std::string a = shown_label_value(common + "aaaaaaaaaa");
  const std::string b = shown_label_value(common + "bbbbbbbbbb");
  EXPECT_LE(a.size(), LONGEST_LABEL_VALUE);
  EXPECT_NE(a, b);
  EXPECT_EQ(a.substr(0, 188), common.substr(0, 188));
  EXPECT_EQ(a.substr(188, 4), "...#");
  std::string accents;
  for (int i = 0; i < 1000; ++i) accents += "\xc3\xa9";
  const std::string shown = shown_label_value(accents);
  EXPECT_EQ(shown.substr(0, 188), accents.substr(0, 188));
  EXPECT_EQ(shown.substr(188, 4), "...#");
  std::string hostile;
  for (int i = 0; i < 600; ++i) hostile += "\xff";
  EXPECT_LE(shown_label_value(hostile).size(), LONGEST_LABEL_VALUE);
  EXPECT_EQ(shown_label_value(hostile).substr(184, 8), "\\xFF...#");
  EXPECT_EQ(shown_label_value(std::string(200, 'x')), std::string(200, 'x'));
}

}  // namespace
