// Shared helpers of the tests: files, the test output root, and running the
// real program.
#ifndef SCANREPORT_TESTS_TEST_SUPPORT_H_
#define SCANREPORT_TESTS_TEST_SUPPORT_H_

#include <string>
#include <vector>

namespace testing_support {

// tests/data/<relative>.
std::string data_path(const std::string& relative);

std::string read_file(const std::string& path);
bool file_exists(const std::string& path);
void write_file(const std::string& path, const std::string& bytes);

// Empties the test output root and creates its traffic/ and range/.
void reset_output_root();
// TEST_OUTPUT_ROOT "traffic/<stamp>", created; returned without a slash.
std::string make_day_dir(int stamp);
std::string day_dir(int stamp);
std::string range_dir();  // with its trailing slash

// A file of the given bytes in a fresh temporary directory.
std::string temp_file(const std::string& bytes);

struct RunResult {
  int exit_status;  // -1 when the program did not exit normally
  std::string standard_output;
  std::string standard_error;
};
// Runs the program built against the test root with `args` (argv[1] on).
// With `as_user` set, drops to that uid first (needs root).
RunResult run_scanreport(const std::vector<std::string>& args,
                         int as_user = -1);

}  // namespace testing_support

#endif  // SCANREPORT_TESTS_TEST_SUPPORT_H_
