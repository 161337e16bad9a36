// Runs every directory under tests/cases as one test of the real program:
// a `case` file of directives, the output tree before and after the runs,
// and the expected standard error (tests/cases/README.md has the format).
// The whole output root is compared with after/, so a case also proves
// that nothing else under it was created, changed or removed. There is
// deliberately no way to write expected files from the program's output.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

constexpr int kNobody = 65534;
constexpr int kSecondsPerRun = 20;

struct Node {
  char type;         // 'd'irectory, 'f'ile, 'l'ink, 'p'ipe, '?' other
  std::string data;  // a file's bytes or a link's target
  int mode = -1;     // compared only when a case set it
  bool operator==(const Node& o) const {
    return type == o.type && data == o.data && mode == o.mode;
  }
};
using Tree = std::map<std::string, Node>;  // relative path to what is there

std::string read_file(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void replace_all(std::string& text, const std::string& from,
                 const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos;
       at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// Reads a tree without following links or opening anything but regular
// files, so a planted pipe is listed, never opened. A live tree records
// modes; in a case's before/ and after/, `.keep` only marks its directory
// and @ROOT@ stands for the output root.
Tree read_tree(const fs::path& top, const std::string& root, bool live) {
  Tree tree;
  if (!fs::exists(fs::symlink_status(top))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    const fs::file_status status = entry.symlink_status();
    if (!live && entry.path().filename() == ".keep") continue;
    Node node{'?', ""};
    if (fs::is_symlink(status)) {
      node = {'l', fs::read_symlink(entry.path()).string()};
    } else if (fs::is_directory(status)) {
      node = {'d', ""};
    } else if (fs::is_regular_file(status)) {
      node = {'f', read_file(entry.path())};
    } else if (fs::is_fifo(status)) {
      node = {'p', ""};
    }
    if (live) {
      node.mode = static_cast<int>(status.permissions()) & 07777;
    } else {
      replace_all(node.data, "@ROOT@", root);
    }
    tree[entry.path().lexically_relative(top).string()] = node;
  }
  return tree;
}

std::string escaped(const std::string& text) {
  std::string out;
  for (unsigned char c : text.substr(0, 300)) {
    if (c >= 0x20 && c < 0x7f) {
      out += static_cast<char>(c);
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x", c);
      out += code;
    }
  }
  return text.size() > 300 ? out + "..." : out;
}

// The first line where `got` differs from `want`, both shown.
std::string first_difference(const std::string& want, const std::string& got) {
  const size_t at =
      std::mismatch(want.begin(), want.end(), got.begin(), got.end()).first -
      want.begin();
  const size_t start = want.rfind('\n', at == 0 ? 0 : at - 1);
  const size_t from = at == 0 || start == want.npos ? 0 : start + 1;
  auto line = [from](const std::string& s) {
    return from >= s.size()
               ? std::string("(end of file)")
               : escaped(s.substr(from, s.find('\n', from) - from));
  };
  return "line " +
         std::to_string(1 +
                        std::count(want.begin(), want.begin() + from, '\n')) +
         "\n  expected: " + line(want) + "\n  actual:   " + line(got);
}

std::string describe(const Node& n) {
  char mode[24] = "";
  if (n.mode >= 0) std::snprintf(mode, sizeof mode, " mode %o", n.mode);
  switch (n.type) {
    case 'd':
      return std::string("a directory") + mode;
    case 'f':
      return std::string("a file") + mode;
    case 'l':
      return "a link to " + n.data;
    case 'p':
      return std::string("a named pipe") + mode;
  }
  return "something that is no file, directory, link or pipe";
}

void expect_same_tree(const Tree& want, const Tree& got, const char* where) {
  std::vector<std::string> paths;
  for (const auto& [path, node] : want) paths.push_back(path);
  for (const auto& [path, node] : got) paths.push_back(path);
  std::sort(paths.begin(), paths.end());
  paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
  for (const std::string& path : paths) {
    auto w = want.find(path), g = got.find(path);
    const std::string at = where + path;
    if (w == want.end()) {
      ADD_FAILURE() << at << ": unexpected " << describe(g->second);
      continue;
    }
    if (g == got.end()) {
      ADD_FAILURE() << at << ": missing " << describe(w->second);
      continue;
    }
    Node found = g->second;
    if (w->second.mode < 0) found.mode = -1;
    if (w->second == found) continue;
    if (found.type == 'f' && w->second.type == 'f' &&
        found.mode == w->second.mode) {
      ADD_FAILURE() << at << " differs at "
                    << first_difference(w->second.data, found.data);
    } else {
      ADD_FAILURE() << at << ": expected " << describe(w->second) << ", found "
                    << describe(found);
    }
  }
}

struct Directives {
  std::vector<Words> runs, setup;
  int status = 0;
  std::string tz = "UTC", today = "20250601";
  bool as_nobody = false;
};

Directives read_directives(const fs::path& file) {
  Directives d;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string verb;
    if (!(words >> verb) || verb[0] == '#') continue;
    Words args;
    if (verb == "write") {  // the text is the rest of the line
      std::string path, text;
      words >> path;
      std::getline(words >> std::ws, text);
      args = {path, text};
    }
    for (std::string word; words >> word;) args.push_back(word);
    if (verb == "run") {
      d.runs.push_back(args);
    } else if (verb == "status") {
      d.status = std::stoi(args.at(0));
    } else if (verb == "tz") {
      d.tz = args.at(0);
    } else if (verb == "today") {
      d.today = args.at(0);
    } else if (verb == "user" && args == Words{"nobody"}) {
      d.as_nobody = true;
    } else {
      args.insert(args.begin(), verb);
      d.setup.push_back(args);
    }
  }
  return d;
}

// A fresh directory that uid 65534 can enter, in the system's temporary
// directory, since the checkout may lie under a mode-0700 home.
std::string make_temp_dir(const char* prefix) {
  std::string name =
      (fs::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
  if (mkdtemp(name.data()) == nullptr) return "";
  chmod(name.c_str(), 0755);
  return name;
}

class EndToEnd : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "the program serves root only";
    dir_ = fs::path(CASES_DIR) / GetParam();
    scratch_ = make_temp_dir("scanreport-scratch");
    work_ = make_temp_dir("scanreport-run");
    ASSERT_FALSE(scratch_.empty() || work_.empty()) << std::strerror(errno);
    fs::remove_all(root_);
    fs::create_directories(root_);
  }

  void TearDown() override {
    for (int fd : held_) close(fd);
    if (!scratch_.empty()) fs::remove_all(scratch_);
    if (!work_.empty()) fs::remove_all(work_);
  }

  std::string expand(std::string text) const {
    replace_all(text, "@CASE@", dir_.string());
    replace_all(text, "@SCRATCH@", scratch_);
    replace_all(text, "@ROOT@", root_);
    return text;
  }

  fs::path place(const std::string& path) const {
    const bool outside =
        path.rfind("@SCRATCH@", 0) == 0 || path.rfind("@CASE@", 0) == 0;
    return outside ? expand(path) : root_ + path;
  }

  void apply(const Words& d);
  int run_program(const Words& args, const Directives& d);

  const std::string root_ = TEST_OUTPUT_ROOT;
  fs::path dir_;
  std::string scratch_, work_;
  std::vector<int> held_;             // read ends of held pipes
  std::map<std::string, int> modes_;  // set under the root by `mode`
};

void EndToEnd::apply(const Words& d) {
  auto arg = [&d](size_t i) { return i < d.size() ? d[i] : std::string(); };
  const std::string& verb = d[0];
  const std::string target = verb == "mode" || verb == "copy" ? arg(2) : arg(1);
  const fs::path path = place(target);
  if (verb != "mode") fs::create_directories(path.parent_path());
  if (verb == "dir") {
    fs::create_directories(path);
  } else if (verb == "link") {
    fs::create_symlink(expand(arg(2)), path);
  } else if (verb == "fifo" || verb == "held-fifo") {
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0) << path;
    if (verb == "held-fifo") {
      held_.push_back(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    }
  } else if (verb == "mode") {
    const int mode = std::stoi(arg(1), nullptr, 8);
    ASSERT_EQ(chmod(path.c_str(), mode), 0) << path;
    if (target[0] != '@') modes_[target] = mode;
  } else if (verb == "write") {
    std::string text = arg(2);
    replace_all(text, "\\n", "\n");
    std::ofstream(path, std::ios::binary) << expand(text) << '\n';
  } else if (verb == "long-line") {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    const std::string chunk(1 << 20, 'x');
    for (long left = std::stol(arg(2)); left > 0; left -= chunk.size()) {
      out.write(chunk.data(), std::min<long>(left, chunk.size()));
    }
    out << '\n';
  } else if (verb == "copy") {
    fs::copy_file(dir_ / arg(1), path);
  } else {
    ADD_FAILURE() << "unknown directive: " << verb;
  }
}

// Runs the program once with argv[0] "scanreport"; returns its exit status,
// or -1 after a failure it has reported.
int EndToEnd::run_program(const Words& args, const Directives& d) {
  std::string program = SCANREPORT_TESTBIN, shown = "scanreport";
  if (d.as_nobody) {
    program = work_ + "/scanreport";
    if (!fs::exists(program)) fs::copy_file(SCANREPORT_TESTBIN, program);
  }
  Words texts = {"scanreport"};
  for (const std::string& arg : args) texts.push_back(expand(arg));
  std::vector<char*> argv;
  for (std::string& text : texts) argv.push_back(text.data());
  for (size_t i = 1; i < texts.size(); ++i) shown += " " + texts[i];
  argv.push_back(nullptr);
  const std::string out = work_ + "/stdout", err = work_ + "/stderr";

  // The child reports a failed step through a pipe that a successful exec
  // closes, so that a refused start is never mistaken for an exit status.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return -1;
  const pid_t pid = fork();
  if (pid == 0) {
    const char* step = "open standard output and error";
    const int out_fd = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (out_fd >= 0 && err_fd >= 0 && dup2(out_fd, 1) >= 0 &&
        dup2(err_fd, 2) >= 0 && (step = "enter @SCRATCH@") &&
        chdir(scratch_.c_str()) == 0 && (step = "become uid 65534") &&
        (!d.as_nobody || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                          setuid(kNobody) == 0)) &&
        (step = "exec") && setenv("TZ", d.tz.c_str(), 1) == 0 &&
        setenv("SCANREPORT_TEST_TODAY", d.today.c_str(), 1) == 0) {
      execv(program.c_str(), argv.data());
    }
    dprintf(report[1], "%s: %s", step, std::strerror(errno));
    _exit(127);
  }
  close(report[1]);
  std::string why;
  char buf[256];
  for (ssize_t n; (n = read(report[0], buf, sizeof buf)) > 0;)
    why.append(buf, n);
  close(report[0]);

  int status = 0;
  bool ended = false;
  for (int tick = 0; tick < kSecondsPerRun * 500 && !ended; ++tick) {
    ended = waitpid(pid, &status, WNOHANG) == pid;
    if (!ended) usleep(2000);
  }
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    ADD_FAILURE() << shown << ": did not finish within " << kSecondsPerRun
                  << " s";
    return -1;
  }
  if (!why.empty()) {
    ADD_FAILURE() << "cannot start " << program
                  << (d.as_nobody ? " as uid 65534" : "") << ": " << why
                  << (d.as_nobody ? " (TMPDIR must be a directory it can enter)"
                                  : "");
    return -1;
  }
  if (!WIFEXITED(status)) {
    ADD_FAILURE() << shown << ": killed by signal " << WTERMSIG(status);
    return -1;
  }
  return WEXITSTATUS(status);
}

TEST_P(EndToEnd, Case) {
  const Directives d = read_directives(dir_ / "case");
  ASSERT_TRUE(fs::exists("/usr/share/zoneinfo/" + d.tz))
      << "time zone " << d.tz << " is not installed";
  ASSERT_TRUE(fs::is_directory(dir_ / "after")) << "every case has after/";
  for (const auto& [path, node] : read_tree(dir_ / "before", root_, false)) {
    const fs::path at = root_ + path;
    fs::create_directories(at.parent_path());
    if (node.type == 'd') {
      fs::create_directories(at);
    } else if (node.type == 'l') {
      fs::create_symlink(node.data, at);
    } else {
      std::ofstream(at, std::ios::binary) << node.data;
    }
  }
  const Tree copied = read_tree(root_, root_, true);
  for (const Words& directive : d.setup) apply(directive);
  const Tree set_up = read_tree(root_, root_, true);
  const Tree scratch = read_tree(scratch_, root_, true);

  for (const Words& args : d.runs) {
    const int status = run_program(args, d);
    std::string shown = "scanreport";
    for (const std::string& arg : args) shown += " " + arg;
    if (status >= 0) {
      EXPECT_EQ(status, d.status) << shown;
    }
  }

  // What setup made under the root stands unchanged unless after/ says
  // otherwise.
  Tree want = read_tree(dir_ / "after", root_, false);
  for (const auto& [path, node] : set_up) {
    auto was = copied.find(path);
    if (!want.count(path) && (was == copied.end() || !(was->second == node))) {
      want[path] = {node.type, node.data};
    }
  }
  for (const auto& [path, mode] : modes_) {
    if (want.count(path)) want[path].mode = mode;
  }
  expect_same_tree(want, read_tree(root_, root_, true), "@ROOT@");
  expect_same_tree(scratch, read_tree(scratch_, root_, true), "@SCRATCH@/");

  std::string error =
      fs::exists(dir_ / "stderr") ? read_file(dir_ / "stderr") : "";
  replace_all(error, "@ROOT@", root_);
  const std::string got = read_file(work_ + "/stderr");
  if (got != error) {
    ADD_FAILURE() << "standard error differs at "
                  << first_difference(error, got);
  }
  EXPECT_EQ(read_file(work_ + "/stdout"), "") << "standard output";
}

std::vector<std::string> case_names() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(CASES_DIR)) {
    if (entry.is_directory()) names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

INSTANTIATE_TEST_SUITE_P(, EndToEnd, testing::ValuesIn(case_names()),
                         [](const auto& info) { return info.param; });

}  // namespace
