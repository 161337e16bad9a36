// Runs every directory under tests/cases as one test of the real program:
// a `case` file of directives, the output tree before and after the runs,
// and the expected standard error (tests/cases/README.md has the format).
// The whole output root is compared with after/, so a case also proves
// that nothing else under it was created, changed or removed. There is
// deliberately no way to write expected files from the program's output.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;
constexpr int kNobody = 65534, kSecondsPerRun = 20;

struct Node {
  char type;         // 'd'irectory, 'f'ile, 'l'ink, 'p'ipe, '?' other, '-' none
  std::string data;  // a file's bytes or a link's target
  int mode = -1;     // compared only where a case set it
  bool operator==(const Node&) const = default;
};
using Tree = std::map<std::string, Node>;  // relative path to what is there

std::string read_file(const fs::path& path) {
  std::ostringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

std::string replace_all(std::string text, const std::string& from,
                        const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != text.npos;
       at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Reads a tree without following links or opening anything but regular
// files, so a planted pipe is listed, never opened. A live tree records
// modes; in a case's before/ and after/, `.keep` only marks its directory
// and @ROOT@ stands for `root`.
Tree read_tree(const fs::path& top, const std::string& root, bool live) {
  Tree tree;
  if (!fs::exists(fs::symlink_status(top))) return tree;
  for (const auto& entry : fs::recursive_directory_iterator(top)) {
    const fs::file_status s = entry.symlink_status();
    if (!live && entry.path().filename() == ".keep") continue;
    Node node = fs::is_symlink(s) ? Node{'l', fs::read_symlink(entry).string()}
                : fs::is_directory(s)    ? Node{'d', ""}
                : fs::is_regular_file(s) ? Node{'f', read_file(entry)}
                : fs::is_fifo(s)         ? Node{'p', ""}
                                         : Node{'?', ""};
    if (live) node.mode = static_cast<int>(s.permissions()) & 07777;
    if (!live) node.data = replace_all(node.data, "@ROOT@", root);
    tree[entry.path().lexically_relative(top).string()] = node;
  }
  return tree;
}

// Line `n` (from 1) of `text`, with bytes outside printable ASCII as \xNN.
std::string line_of(const std::string& text, size_t n) {
  std::istringstream lines(text);
  std::string line = "(end of file)", shown;
  while (n-- > 0 && std::getline(lines, line)) {
  }
  for (unsigned char c : line.substr(0, 300)) {
    char code[8];
    snprintf(code, sizeof code, c < 0x20 || c > 0x7e ? "\\x%02x" : "%c", c);
    shown += code;
  }
  return n == size_t(-1) ? shown : "(end of file)";
}

std::string describe(const Node& n) {
  const std::map<char, std::string> kinds = {
      {'-', "nothing"},      {'d', "a directory"},
      {'f', "a file"},       {'l', "a link to " + n.data},
      {'p', "a named pipe"}, {'?', "another kind"}};
  std::ostringstream text;
  text << kinds.at(n.type);
  if (n.mode >= 0 && n.type != 'l') text << " of mode " << std::oct << n.mode;
  return text.str();
}

// Reports every path whose node differs; modes count only where `want`
// has one. A differing file shows its first differing line.
void expect_same_tree(const Tree& want, const Tree& got, const char* where) {
  std::map<std::string, std::pair<Node, Node>> both;
  for (const auto& [path, node] : want) both[path] = {node, {'-', ""}};
  for (const auto& [path, node] : got) {
    both.try_emplace(path, Node{'-', ""}, node).first->second.second = node;
  }
  for (auto& [path, pair] : both) {
    auto& [w, g] = pair;
    if (w.mode < 0) g.mode = -1;
    if (w == g) continue;
    if (w.type != 'f' || g.type != 'f' || w.mode != g.mode) {
      ADD_FAILURE() << where << path << ": expected " << describe(w)
                    << ", found " << describe(g);
      continue;
    }
    const auto at = std::mismatch(w.data.begin(), w.data.end(), g.data.begin(),
                                  g.data.end());
    const size_t line = 1 + std::count(w.data.begin(), at.first, '\n');
    ADD_FAILURE() << where << path << " differs at line " << line
                  << "\n  expected: " << line_of(w.data, line)
                  << "\n  actual:   " << line_of(g.data, line);
  }
}

// Makes openat2 fail with ENOSYS in this process and what it then runs, as
// on a kernel before 5.6 or in a sandbox that does not know the call.
bool forbid_openat2() {
  sock_filter code[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  sock_fprog program = {std::size(code), code};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// A fresh directory of mode 0755 in the temporary directory.
std::string make_temp_dir(const char* prefix) {
  std::string name = fs::temp_directory_path() / prefix;
  if (mkdtemp(name.append("-XXXXXX").data()) == nullptr) return "";
  chmod(name.c_str(), 0755);
  return name;
}

class EndToEnd : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override;
  void TearDown() override {
    for (int fd : held_) close(fd);
    if (!scratch_.empty()) fs::remove_all(scratch_);
    if (!work_.empty()) fs::remove_all(work_);
  }
  std::string expand(const std::string& text) const {
    return replace_all(
        replace_all(replace_all(text, "@CASE@", dir_), "@SCRATCH@", scratch_),
        "@ROOT@", root_);
  }
  void set_up(const Words& d);
  void run(const Words& args);

  const std::string root_ = TEST_OUTPUT_ROOT;
  std::string dir_, scratch_, work_;
  std::vector<Words> lines_;  // the directives
  std::map<std::string, std::string> settings_ = {{"status", "0"},
                                                  {"tz", "UTC"},
                                                  {"today", "20250601"},
                                                  {"user", ""},
                                                  {"openat2", ""}};
  std::vector<int> held_;             // read ends of held pipes
  std::map<std::string, int> modes_;  // set under the root by `mode`
};

void EndToEnd::SetUp() {
  if (geteuid() != 0) GTEST_SKIP() << "the program serves root only";
  // The program refuses directories that others may write into, so every
  // mode a case does not set is the same whatever the caller's umask.
  umask(022);
  dir_ = std::string(CASES_DIR) + "/" + GetParam();
  scratch_ = make_temp_dir("scanreport-scratch");
  work_ = make_temp_dir("scanreport-run");
  ASSERT_FALSE(scratch_.empty() || work_.empty()) << strerror(errno);
  fs::remove_all(root_);
  fs::create_directories(root_);
  std::ifstream in(dir_ + "/case");
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    Words d;
    for (std::string word; words >> word;) d.push_back(word);
    if (d.empty() || d[0][0] == '#') continue;
    if (d[0] == "write" && d.size() > 2) {  // the text is the rest
      d.resize(3);
      d[2] = line.substr(line.find(d[2], line.find(d[1]) + d[1].size()));
    }
    if (settings_.count(d[0]) && d.size() > 1) settings_[d[0]] = d[1];
    lines_.push_back(d);
  }
}

void EndToEnd::set_up(const Words& d) {
  auto arg = [&d](size_t i) { return i < d.size() ? d[i] : std::string(); };
  const std::string& verb = d[0];
  const bool path_second = verb == "mode" || verb == "copy" || verb == "owner";
  const std::string at = path_second ? arg(2) : arg(1);
  const fs::path path = at[0] == '@' ? expand(at) : root_ + at;
  if (verb != "mode" && verb != "owner") {
    fs::create_directories(path.parent_path());
  }
  if (verb == "dir") {
    fs::create_directories(path);
  } else if (verb == "link") {
    fs::create_symlink(expand(arg(2)), path);
  } else if (verb == "hardlink") {
    const std::string target =
        arg(2)[0] == '@' ? expand(arg(2)) : root_ + arg(2);
    ASSERT_EQ(link(target.c_str(), path.c_str()), 0) << path;
  } else if (verb == "owner") {
    ASSERT_EQ(lchown(path.c_str(), std::stoi(arg(1)), -1), 0) << path;
  } else if (verb == "fifo" || verb == "held-fifo") {
    ASSERT_EQ(mkfifo(path.c_str(), 0644), 0) << path;
    if (verb == "held-fifo")
      held_.push_back(open(path.c_str(), O_RDONLY | O_NONBLOCK));
  } else if (verb == "mode") {
    ASSERT_EQ(chmod(path.c_str(), std::stoi(arg(1), nullptr, 8)), 0) << path;
    if (at[0] != '@') modes_[at] = std::stoi(arg(1), nullptr, 8);
  } else if (verb == "write") {
    std::ofstream(path) << expand(replace_all(arg(2), "\\n", "\n")) << '\n';
  } else if (verb == "long-line") {
    std::ofstream out(path, std::ios::app);
    const std::string chunk(1 << 20, 'x');
    for (long left = std::stol(arg(2)); left > 0; left -= chunk.size()) {
      out.write(chunk.data(), std::min<long>(left, chunk.size()));
    }
    out << '\n';
  } else if (verb == "copy") {
    fs::copy_file(dir_ + "/" + arg(1), path);
  } else {
    ADD_FAILURE() << "unknown directive: " << verb;
  }
}

// Runs the program once in @SCRATCH@, from a copy named "scanreport" that
// is found on PATH, so argv[0] is that name
// also under SCANREPORT_TEST_WRAPPER (a command such as "valgrind -q" to
// run it under). Its output is appended to files in work_. An alarm set
// before exec ends a run that takes too long.
void EndToEnd::run(const Words& args) {
  const bool as_nobody = settings_["user"] == "nobody";
  if (!fs::exists(work_ + "/scanreport")) {
    fs::copy_file(SCANREPORT_TESTBIN, work_ + "/scanreport");
  }
  // Not for a caller who is not root: a wrapper's launcher may be a shell
  // script, and a shell drops the effective root that its real user lacks.
  const char* wrapper = as_nobody ? nullptr : getenv("SCANREPORT_TEST_WRAPPER");
  std::istringstream words(std::string(wrapper ? wrapper : "") + " scanreport");
  Words texts{std::istream_iterator<std::string>(words), {}};
  std::string shown = "scanreport", path = work_ + ":" + getenv("PATH");
  for (const std::string& arg : args) texts.push_back(expand(arg));
  for (const std::string& arg : args) shown += " " + arg;
  std::vector<char*> argv;
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);

  // A failed step is reported through a pipe that a successful exec
  // closes, so a refused start is never taken for an exit status.
  int report[2];
  ASSERT_EQ(pipe2(report, O_CLOEXEC), 0);
  // The child reopens its standard streams, which writes out whatever the
  // runner had buffered: flushed here, it is written once, by the runner.
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    // A caller who is not root has real IDs other than 0, which is what the
    // program tests. The effective IDs stay root, so the program can be
    // reached and loaded on any machine, even where only root may enter
    // the checkout or the root directory itself.
    // @SCRATCH@ is entered before anything is created, so that a file the
    // child makes by a relative name lands where the case compares the
    // tree, not unseen in the runner's directory (a build tree, or the
    // checkout in the valgrind stage).
    const char* step = "take the real uid 65534";
    if (chdir(scratch_.c_str()) == 0 &&
        freopen((work_ + "/stdout").c_str(), "a", stdout) &&
        freopen((work_ + "/stderr").c_str(), "a", stderr) &&
        (!as_nobody ||
         (setgroups(0, nullptr) == 0 && setresgid(kNobody, 0, 0) == 0 &&
          setresuid(kNobody, 0, 0) == 0)) &&
        (settings_["openat2"] != "missing" ||
         ((step = "forbid openat2") && forbid_openat2())) &&
        (step = "exec") && setenv("TZ", settings_["tz"].c_str(), 1) == 0 &&
        setenv("SCANREPORT_TEST_TODAY", settings_["today"].c_str(), 1) == 0 &&
        setenv("PATH", path.c_str(), 1) == 0) {
      alarm(kSecondsPerRun);
      execvp(argv[0], argv.data());
    }
    dprintf(report[1], "%s: %s", step, strerror(errno));
    _exit(127);
  }
  close(report[1]);
  char why[256] = "";
  why[std::max<ssize_t>(0, read(report[0], why, sizeof why - 1))] = '\0';
  close(report[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (why[0] != '\0') {
    ADD_FAILURE() << "cannot start " << work_ << "/scanreport: " << why;
  } else if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) {
    ADD_FAILURE() << shown << ": did not finish within " << kSecondsPerRun
                  << " s";
  } else if (!WIFEXITED(status)) {
    ADD_FAILURE() << shown << ": killed by signal " << WTERMSIG(status);
  } else {
    EXPECT_EQ(WEXITSTATUS(status), std::stoi(settings_["status"])) << shown;
  }
}

TEST_P(EndToEnd, Case) {
  ASSERT_TRUE(fs::exists("/usr/share/zoneinfo/" + settings_["tz"]))
      << "time zone " << settings_["tz"] << " is not installed";
  ASSERT_TRUE(fs::is_directory(dir_ + "/after")) << "every case has after/";
  for (const auto& [path, node] : read_tree(dir_ + "/before", root_, false)) {
    const fs::path at = root_ + path;
    fs::create_directories(at.parent_path());
    if (node.type == 'd') fs::create_directories(at);
    if (node.type == 'l') fs::create_symlink(node.data, at);
    if (node.type == 'f') std::ofstream(at) << node.data;
  }
  const Tree copied = read_tree(root_, root_, true);
  for (const Words& d : lines_) {
    if (d[0] != "run" && !settings_.count(d[0])) set_up(d);
  }
  const Tree made = read_tree(root_, root_, true);
  const Tree scratch = read_tree(scratch_, root_, true);
  for (const Words& d : lines_) {
    if (d[0] == "run") run(Words(d.begin() + 1, d.end()));
  }

  // What setup made or changed under the root stands unchanged, unless
  // after/ says otherwise.
  Tree want = read_tree(dir_ + "/after", root_, false);
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
  const std::string error =
      replace_all(read_file(dir_ + "/stderr"), "@ROOT@", root_);
  expect_same_tree({{"error", {'f', error}}, {"output", {'f', ""}}},
                   {{"error", {'f', read_file(work_ + "/stderr")}},
                    {"output", {'f', read_file(work_ + "/stdout")}}},
                   "standard ");
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
