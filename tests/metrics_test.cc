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

const std::string kEmptyDay =
    "[Top 10 Client]\n[Top 10 Virus]\n[Top 10 File]\n[Summary]\nacterror=0\n"
    "clean=0\ncured=0\ndeleted=0\ndenied=0\nerror=0\nexcluded=0\n"
    "quarantined=0\n";

const std::string kOldFile = "# the last good file\n";

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

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
    return read_file(metrics_dir_ / "scanreport.prom");
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

// The cases under metrics_cases/ (see its README.md).
TEST_F(MetricsFile, SummariesAsCases) {
  for (const auto& dir : fs::directory_iterator(METRICS_CASES_DIR)) {
    if (!dir.is_directory()) continue;
    SCOPED_TRACE(dir.path().filename().string());
    fs::remove(summary_path());
    std::ofstream(metrics_dir_ / "scanreport.prom") << kOldFile;
    if (fs::exists(dir.path() / "summary.txt")) {
      fs::copy_file(dir.path() / "summary.txt", summary_path());
    }
    const bool accepted = fs::exists(dir.path() / "expected.prom");
    EXPECT_EQ(write(outcome_), accepted ? 0 : -1);
    EXPECT_EQ(metrics_text(),
              accepted ? read_file(dir.path() / "expected.prom") : kOldFile);
    expect_only_the_metrics_file();
  }
}

TEST_F(MetricsFile, SummaryReachedThroughALinkIsRefused) {
  const fs::path real = metrics_dir_ / "real-summary.txt";
  std::ofstream(real) << kEmptyDay;
  fs::create_symlink(real, summary_path());
  EXPECT_EQ(write(outcome_), -1);
  EXPECT_EQ(metrics_text(), kOldFile);
  fs::remove(real);
}

TEST_F(MetricsFile, DayThatIsNotRealIsRefused) {
  plant_summary(kEmptyDay);
  for (const char* day : {"20240230", "2024037", "../20240307", ""}) {
    EXPECT_EQ(write({day, std::nullopt, 0}), -1) << day;
  }
  EXPECT_EQ(metrics_text(), kOldFile);
}

// A temporary left by a killed run is removed, and one planted as a link
// is replaced, not followed.
TEST_F(MetricsFile, LeftoverOrPlantedTemporaryIsReplaced) {
  plant_summary(kEmptyDay);
  const fs::path victim = metrics_dir_ / "victim";
  std::ofstream(victim) << "victim\n";
  fs::create_symlink(victim, metrics_dir_ / ".scanreport.prom.tmp");
  ASSERT_EQ(write(outcome_), 0);
  EXPECT_EQ(metrics_text(),
            read_file(METRICS_CASES_DIR "/empty_day/expected.prom"));
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
  plant_summary(kEmptyDay);
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
