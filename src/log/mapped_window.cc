// The SIGBUS handler is one for the whole process, so the windows it may
// repair live in a small fixed table that it reads without locks: each
// guard holds the address range of one reader's current mapping. A fault
// inside a guarded range can only be a page past the file's new end, and
// the handler maps zero-filled pages over the rest of that window, so the
// faulting read goes on and sees zero bytes. The reader learns of it from
// the guard and ends the log where the file now ends. Every other fault is
// passed on untouched.
#include "log/mapped_window.h"

#include <errno.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <mutex>

namespace {

constexpr int kGuardCount = 4;

struct Guard {
  std::atomic<bool> taken{false};
  std::atomic<uintptr_t> begin{0};  // the mapping, whole pages
  std::atomic<uintptr_t> end{0};
  std::atomic<bool> cut{false};
};

// The handler reads the table; it must never wait on a lock to do so.
static_assert(std::atomic<uintptr_t>::is_always_lock_free);
Guard guards[kGuardCount];
struct sigaction replaced_action;
uintptr_t page_size = 4096;  // read from the system before any fault

void pass_fault_on(int signo, siginfo_t* info, void* context) {
  if (replaced_action.sa_flags & SA_SIGINFO) {
    replaced_action.sa_sigaction(signo, info, context);
  } else if (replaced_action.sa_handler != SIG_DFL &&
             replaced_action.sa_handler != SIG_IGN) {
    replaced_action.sa_handler(signo);
  } else {
    // The faulting access repeats on return and ends the process as it
    // would have without this handler.
    struct sigaction fallback = {};
    fallback.sa_handler = SIG_DFL;
    sigaction(SIGBUS, &fallback, nullptr);
  }
}

void on_sigbus(int signo, siginfo_t* info, void* context) {
  const auto address = reinterpret_cast<uintptr_t>(info->si_addr);
  if (info->si_code == BUS_ADRERR) {
    for (Guard& guard : guards) {
      const uintptr_t begin = guard.begin.load();
      const uintptr_t end = guard.end.load();
      if (address < begin || address >= end) continue;
      const uintptr_t from = address & ~(page_size - 1);
      const int saved_errno = errno;  // the interrupted code may be using it
      void* zeros = mmap(reinterpret_cast<void*>(from), end - from, PROT_READ,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
      errno = saved_errno;
      if (zeros == MAP_FAILED) break;
      guard.cut.store(true);
      return;
    }
  }
  pass_fault_on(signo, info, context);
}

void install_handler() {
  page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  struct sigaction action = {};
  action.sa_sigaction = on_sigbus;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGBUS, &action, &replaced_action);
}

}  // namespace

bool take_window_guard(MappedWindow* window) {
  static std::once_flag installed;
  std::call_once(installed, install_handler);
  for (int i = 0; i < kGuardCount; ++i) {
    bool free = false;
    if (guards[i].taken.compare_exchange_strong(free, true)) {
      window->guard = i;
      return true;
    }
  }
  return false;
}

void release_window_guard(MappedWindow* window) {
  if (window->guard < 0) return;
  unmap_window(window);
  guards[window->guard].taken.store(false);
  window->guard = -1;
}

bool map_window(int fd, off_t offset, size_t size, MappedWindow* window) {
  unmap_window(window);
  const off_t start = offset & ~static_cast<off_t>(page_size - 1);
  const size_t skip = static_cast<size_t>(offset - start);
  void* mapping = mmap(nullptr, skip + size, PROT_READ,
                       MAP_PRIVATE | MAP_POPULATE, fd, start);
  if (mapping == MAP_FAILED) return false;
  window->mapping = static_cast<char*>(mapping);
  window->mapping_size = skip + size;
  window->data = window->mapping + skip;
  Guard& guard = guards[window->guard];
  const auto begin = reinterpret_cast<uintptr_t>(mapping);
  guard.cut.store(false);
  guard.begin.store(begin);
  guard.end.store(begin + ((skip + size + page_size - 1) & ~(page_size - 1)));
  return true;
}

void unmap_window(MappedWindow* window) {
  if (window->mapping == nullptr) return;
  Guard& guard = guards[window->guard];
  guard.begin.store(0);
  guard.end.store(0);
  munmap(window->mapping, window->mapping_size);
  window->mapping = nullptr;
  window->mapping_size = 0;
  window->data = nullptr;
}

bool take_window_cut(MappedWindow* window) {
  return window->guard >= 0 && guards[window->guard].cut.exchange(false);
}
