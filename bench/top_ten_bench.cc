// The top-ten selection on a day with a million distinct names, against a
// full std::sort of the same list by count. Every run starts from a fresh
// copy of the list in key order, made outside the timed region, and ends
// with the list freed inside it: a run frees every name once, whether the
// cut does it or the end of the run, so both arms pay for it alike.
//
// Argument 0: file paths, whose names live on the heap, so the cut also
// frees about a million names. Argument 1: short names kept inside the
// strings themselves, which leaves only the ordering to measure.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <random>

#include "stats/count_table.h"

namespace {

constexpr int kEntries = 1000000;

// Most names are seen once or twice and one in a thousand hundreds of
// times, so counts tie heavily, as in real logs.
RankedList make_list(bool short_names) {
  std::mt19937 rng(4242);
  std::geometric_distribution<int32_t> small(0.6);
  std::uniform_int_distribution<int32_t> large(50, 5000);
  CountTable table;
  char name[96];
  for (int i = 0; i < kEntries; ++i) {
    unsigned dept = rng() % 40, user = rng() % 3000;
    if (short_names) {
      std::snprintf(name, sizeof name, "Trojan.%07d", i);
    } else {
      std::snprintf(name, sizeof name,
                    "/srv/share/dept%02u/user%04u/doc%07d.%s", dept, user, i,
                    i % 3 == 0 ? "docx" : "exe");
    }
    int32_t count = rng() % 1000 == 0 ? large(rng) : 1 + small(rng);
    add_count(table, name, count);
  }
  RankedList list;
  ranked_list_from_table(table, list);
  return list;
}

const RankedList& base_list(int64_t kind) {
  static const RankedList paths = make_list(false);
  static const RankedList short_names = make_list(true);
  return kind == 0 ? paths : short_names;
}

void sort_by_count(RankedList& list) {
  std::sort(list.begin(), list.end(),
            [](const RankedEntry& a, const RankedEntry& b) {
              return a.count > b.count;
            });
}

// The cut to ten or eleven, as select_top_ten ends.
void cut(RankedList& list) {
  if (list.size() > 11) list.resize(11);
  if (list.size() == 11 && list[9].count > list[10].count) list.resize(10);
}

// Times `work` on a fresh copy of the list and the freeing of the list;
// only the copy is not timed.
template <typename Work>
void run_on_copies(benchmark::State& state, Work work) {
  const RankedList& base = base_list(state.range(0));
  state.SetLabel(state.range(0) == 0 ? "file paths" : "short names");
  for (auto _ : state) {
    state.PauseTiming();
    RankedList list = base;
    state.ResumeTiming();
    work(list);
    benchmark::DoNotOptimize(list.data());
    list = RankedList();
  }
  state.SetItemsProcessed(state.iterations() * base.size());
}

void BM_SelectTopTen(benchmark::State& state) {
  run_on_copies(state, [](RankedList& list) { select_top_ten(list); });
}

// Orders the whole list; its names are freed with the list.
void BM_StdSort(benchmark::State& state) {
  run_on_copies(state, [](RankedList& list) { sort_by_count(list); });
}

// The same result as select_top_ten (up to the order of ties) by sorting.
void BM_StdSortThenCut(benchmark::State& state) {
  run_on_copies(state, [](RankedList& list) {
    sort_by_count(list);
    cut(list);
  });
}

BENCHMARK(BM_SelectTopTen)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSort)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StdSortThenCut)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
