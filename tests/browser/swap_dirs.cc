// Swaps two names with renameat2(RENAME_EXCHANGE) as fast as it can for a
// number of seconds: the race the console must win, a day directory and a
// link out of the root trading places while pages are requested.
//   swap_dirs A B SECONDS
#include <fcntl.h>
#include <stdio.h>

#include <chrono>
#include <cstdlib>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto end = std::chrono::steady_clock::now() +
                   std::chrono::milliseconds(std::atoi(argv[3]) * 1000);
  long swaps = 0;
  while (std::chrono::steady_clock::now() < end) {
    if (renameat2(AT_FDCWD, argv[1], AT_FDCWD, argv[2], RENAME_EXCHANGE) != 0) {
      perror("renameat2");
      return 1;
    }
    ++swaps;
  }
  // An even count leaves the names as they were.
  if (swaps % 2 != 0)
    renameat2(AT_FDCWD, argv[1], AT_FDCWD, argv[2], RENAME_EXCHANGE);
  std::printf("%ld swaps\n", swaps + swaps % 2);
  return 0;
}
