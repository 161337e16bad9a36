#include "test_support.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace testing_support {

std::string data_path(const std::string& relative) {
  return std::string(TEST_DATA_DIR) + "/" + relative;
}

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

bool file_exists(const std::string& path) {
  std::error_code ec;
  return fs::symlink_status(path, ec).type() != fs::file_type::not_found;
}

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
  if (!out) throw std::runtime_error("cannot write " + path);
}

void reset_output_root() {
  fs::remove_all(TEST_OUTPUT_ROOT);
  fs::create_directories(std::string(TEST_OUTPUT_ROOT) + "traffic");
  fs::create_directories(std::string(TEST_OUTPUT_ROOT) + "range");
}

std::string day_dir(int stamp) {
  return std::string(TEST_OUTPUT_ROOT) + "traffic/" + std::to_string(stamp);
}

std::string make_day_dir(int stamp) {
  std::string dir = day_dir(stamp);
  fs::create_directories(dir);
  return dir;
}

std::string range_dir() { return std::string(TEST_OUTPUT_ROOT) + "range/"; }

namespace {

// All temporary files of a test process live in one directory, removed
// when the process exits. The name is never destroyed, so the exit handler
// can still read it.
const std::string* temp_root_name = nullptr;

void remove_temp_root() {
  std::error_code ignored;
  fs::remove_all(*temp_root_name, ignored);
}

const std::string& temp_root() {
  if (temp_root_name == nullptr) {
    char dir_template[] = "/tmp/scanreport-test-XXXXXX";
    if (mkdtemp(dir_template) == nullptr) throw std::runtime_error("mkdtemp");
    temp_root_name = new std::string(dir_template);
    std::atexit(remove_temp_root);
  }
  return *temp_root_name;
}

}  // namespace

std::string temp_file(const std::string& bytes) {
  static int serial = 0;
  std::string dir = temp_root() + "/" + std::to_string(++serial);
  fs::create_directory(dir);
  std::string path = dir + "/file";
  write_file(path, bytes);
  return path;
}

RunResult run_scanreport(const std::vector<std::string>& args, int as_user) {
  std::string out_path = temp_file("");
  std::string err_path = temp_file("");
  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork");
  if (pid == 0) {
    int out = open(out_path.c_str(), O_WRONLY | O_TRUNC);
    int err = open(err_path.c_str(), O_WRONLY | O_TRUNC);
    dup2(out, 1);
    dup2(err, 2);
    if (as_user >= 0 && (setgid(as_user) != 0 || setuid(as_user) != 0)) {
      _exit(126);
    }
    std::vector<char*> argv;
    std::string program = SCANREPORT_TESTBIN;
    argv.push_back(program.data());
    std::vector<std::string> copies = args;
    for (std::string& arg : copies) argv.push_back(arg.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  RunResult result;
  result.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.standard_output = read_file(out_path);
  result.standard_error = read_file(err_path);
  fs::remove_all(fs::path(out_path).parent_path());
  fs::remove_all(fs::path(err_path).parent_path());
  return result;
}

}  // namespace testing_support
