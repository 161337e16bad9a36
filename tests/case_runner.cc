// Runs every directory under tests/cases as one test of the real program:
// a `case` file of directives, the output tree before and after the runs,
// and the expected standard error (tests/cases/README.md has the format).
// The whole output root is compared with after/, so a case also proves
// that nothing else under it was created, changed or removed. There is
// deliberately no way to write expected files from the program's output.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
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
  int mode = -1;     // compared only where a case set it
  bool operator==(const Node&) const = default;
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
    if (live) node.mode = static_cast<int>(status.permissions()) & 07777;
    if (!live) replace_all(node.data, "@ROOT@", root);
    tree[entry.path().lexically_relative(top).string()] = node;
  }
  return tree;
}

// Line `number` (from 1) of `text`, bytes outside printable ASCII as \xNN.
std::string line_of(const std::string& text, size_t number) {
  size_t from = 0;
  for (; number > 1 && from < text.size(); --number) {
    from = std::min(text.find('\n', from), text.size()) + 1;
  }
  if (from >= text.size()) return "(end of file)";
  std::string shown;
  for (unsigned char c : text.substr(from, text.find('\n', from) - from)) {
    char code[8];
    std::snprintf(code, sizeof code, c < 0x20 || c > 0x7e ? "\\x%02x" : "%c",
                  c);
    shown += code;
  }
  return shown.size() > 400 ? shown.substr(0, 400) + "..." : shown;
}

std::string first_difference(const std::string& want, const std::string& got) {
  const auto at =
      std::mismatch(want.begin(), want.end(), got.begin(), got.end()).first;
  const size_t line = 1 + std::count(want.begin(), at, '\n');
  return "line " + std::to_string(line) +
         "\n  expected: " + line_of(want, line) +
         "\n  actual:   " + line_of(got, line);
}

std::string describe(const Node& n) {
  if (n.type == 'l') return "a link to " + n.data;
  const char* kinds = "-nothing\0da directory\0fa file\0pa named pipe\0";
  std::string kind = "?something else";
  for (const char* k = kinds; *k; k += std::strlen(k) + 1) {
    if (*k == n.type) kind = k;
  }
  std::ostringstream text;
  text << kind.substr(1);
  if (n.mode >= 0) text << " of mode " << std::oct << n.mode;
  return text.str();
}

// Reports every path whose node differs; modes count only where `want`
// has one.
void expect_same_tree(const Tree& want, const Tree& got,
                      const std::string& where) {
  std::map<std::string, std::pair<Node, Node>> both;
  for (const auto& [path, node] : want) both[path] = {node, {'-', ""}};
  for (const auto& [path, node] : got) {
    both.try_emplace(path, Node{'-', ""}, node).first->second.second = node;
  }
  for (auto& [path, pair] : both) {
    auto& [w, g] = pair;
    if (w.mode < 0) g.mode = -1;
    if (w == g) continue;
    if (w.type == 'f' && g.type == 'f' && w.mode == g.mode) {
      ADD_FAILURE() << where << path << " differs at "
                    << first_difference(w.data, g.data);
    } else {
      ADD_FAILURE() << where << path << ": expected " << describe(w)
                    << ", found " << describe(g);
    }
  }
}

// The directives of a case, one per line, each split at blanks; `write`
// keeps the rest of its line whole as the text.
std::vector<Words> read_directives(const fs::path& file) {
  std::vector<Words> lines;
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    Words args;
    for (std::string word; args.size() < 2 && words >> word;) {
      args.push_back(word);
    }
    if (args.empty() || args[0][0] == '#') continue;
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (args[0] == "write") {
      args.push_back(rest);
    } else {
      for (std::istringstream more(rest); more >> rest;) args.push_back(rest);
    }
    lines.push_back(args);
  }
  return lines;
}

// The value of the last `verb` line, or `fallback`.
std::string setting(const std::vector<Words>& lines, const std::string& verb,
                    const std::string& fallback) {
  std::string value = fallback;
  for (const Words& line : lines) {
    if (line[0] == verb && line.size() > 1) value = line[1];
  }
  return value;
}

// A fresh directory that uid 65534 can enter, in the temporary directory,
// since the checkout may lie under a mode-0700 home.
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

  void set_up(const Words& d);
  void run_program(const Words& args, bool as_nobody, const std::string& tz,
                   const std::string& today, int want_status);

  const std::string root_ = TEST_OUTPUT_ROOT;
  fs::path dir_;
  std::string scratch_, work_;
  std::vector<int> held_;             // read ends of held pipes
  std::map<std::string, int> modes_;  // set under the root by `mode`
};

void EndToEnd::set_up(const Words& d) {
  auto arg = [&d](size_t i) { return i < d.size() ? d[i] : std::string(); };
  const std::string& verb = d[0];
  const std::string at = verb == "mode" || verb == "copy" ? arg(2) : arg(1);
  const fs::path path = at[0] == '@' ? expand(at) : root_ + at;
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
    ASSERT_EQ(chmod(path.c_str(), std::stoi(arg(1), nullptr, 8)), 0) << path;
    if (at[0] != '@') modes_[at] = std::stoi(arg(1), nullptr, 8);
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

// Runs the program once with argv[0] "scanreport", its output appended to
// files in `work_`, and checks how it ended.
void EndToEnd::run_program(const Words& args, bool as_nobody,
                           const std::string& tz, const std::string& today,
                           int want_status) {
  std::string program = SCANREPORT_TESTBIN;
  if (as_nobody) {  // a copy that uid 65534 can reach
    program = work_ + "/scanreport";
    if (!fs::exists(program)) fs::copy_file(SCANREPORT_TESTBIN, program);
  }
  Words texts = {"scanreport"};
  for (const std::string& arg : args) texts.push_back(expand(arg));
  std::vector<char*> argv;
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);
  const std::string out = work_ + "/stdout", err = work_ + "/stderr";

  // The child reports a failed step through a pipe that a successful exec
  // closes, so that a refused start is never taken for an exit status.
  int report[2];
  ASSERT_EQ(pipe2(report, O_CLOEXEC), 0);
  const pid_t pid = fork();
  if (pid == 0) {
    const char* step = "open its output";
    const int out_fd = open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    const int err_fd = open(err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (out_fd >= 0 && err_fd >= 0 && dup2(out_fd, 1) >= 0 &&
        dup2(err_fd, 2) >= 0 && (step = "enter @SCRATCH@") &&
        chdir(scratch_.c_str()) == 0 && (step = "become uid 65534") &&
        (!as_nobody || (setgroups(0, nullptr) == 0 && setgid(kNobody) == 0 &&
                        setuid(kNobody) == 0)) &&
        (step = "exec") && setenv("TZ", tz.c_str(), 1) == 0 &&
        setenv("SCANREPORT_TEST_TODAY", today.c_str(), 1) == 0) {
      execv(program.c_str(), argv.data());
    }
    dprintf(report[1], "%s: %s", step, std::strerror(errno));
    _exit(127);
  }
  close(report[1]);
  std::string why;
  char buf[256];
  for (ssize_t n; (n = read(report[0], buf, sizeof buf)) > 0;) {
    why.append(buf, n);
  }
  close(report[0]);

  int status = 0;
  bool ended = false;
  for (int tick = 0; tick < kSecondsPerRun * 500 && !ended; ++tick) {
    ended = waitpid(pid, &status, WNOHANG) == pid || (usleep(2000), false);
  }
  if (!ended) {
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
  }
  std::string shown = "scanreport";
  for (const std::string& arg : args) shown += " " + arg;
  if (!why.empty()) {
    ADD_FAILURE() << "cannot start " << program
                  << (as_nobody ? " as uid 65534" : "") << ": " << why
                  << (as_nobody ? " (TMPDIR must be a directory it can enter)"
                                : "");
  } else if (!ended) {
    ADD_FAILURE() << shown << ": did not finish within " << kSecondsPerRun
                  << " s";
  } else if (!WIFEXITED(status)) {
    ADD_FAILURE() << shown << ": killed by signal " << WTERMSIG(status);
  } else {
    EXPECT_EQ(WEXITSTATUS(status), want_status) << shown;
  }
}

TEST_P(EndToEnd, Case) {
  const std::vector<Words> lines = read_directives(dir_ / "case");
  const std::string tz = setting(lines, "tz", "UTC");
  ASSERT_TRUE(fs::exists("/usr/share/zoneinfo/" + tz))
      << "time zone " << tz << " is not installed";
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
  const Words settings = {"run", "status", "tz", "today", "user"};
  for (const Words& line : lines) {
    if (std::find(settings.begin(), settings.end(), line[0]) ==
        settings.end()) {
      set_up(line);
    }
  }
  const Tree made = read_tree(root_, root_, true);
  const Tree scratch = read_tree(scratch_, root_, true);

  const int status = std::stoi(setting(lines, "status", "0"));
  const bool as_nobody = setting(lines, "user", "root") == "nobody";
  for (const Words& line : lines) {
    if (line[0] != "run") continue;
    const Words args(line.begin() + 1, line.end());
    run_program(args, as_nobody, tz, setting(lines, "today", "20250601"),
                status);
  }

  // What setup made or changed under the root stands unchanged, unless
  // after/ says otherwise.
  Tree want = read_tree(dir_ / "after", root_, false);
  for (const auto& [path, node] : made) {
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

  std::string error = read_file(dir_ / "stderr");
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
