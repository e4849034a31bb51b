// Guess_Guest on every crafted image of the tests: self-continuing Rock
// Ridge areas behind 100 and 1000 records, a root of 100,000 entries and a
// child link to nowhere. Each must be identified (found, not found or
// unreadable) in well under 100 ms.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/bench_support.h"
#include "guestprep/guess.h"
#include "support/hostile_iso.h"

namespace {

std::string hostileImage(const char *name, const gp::test::HostileIso &shape) {
  std::filesystem::create_directories(gp::bench::fixtureDir());
  std::string path = (gp::bench::fixtureDir() / name).string();
  if (!gp::test::writeHostileIso(path, shape)) {
    std::fprintf(stderr, "cannot write %s\n", path.c_str());
    std::exit(1);
  }
  return path;
}

void identify(benchmark::State &state, const std::string &image) {
  GuessInfo info;
  gp::bench::ReadCounter reads;
  int result = 0;
  for (auto _ : state) {
    result = Guess_Guest(image.c_str(), 0, &info);
  }
  state.counters["result"] = result;
  state.counters["bytes_read_per_call"] =
      benchmark::Counter(static_cast<double>(reads.total()) /
                         static_cast<double>(state.iterations()));
}

void BM_Looping100(benchmark::State &state) {
  static const std::string image =
      hostileImage("looping-100.iso", {100, 65536});
  identify(state, image);
}
void BM_Looping1000(benchmark::State &state) {
  static const std::string image =
      hostileImage("looping-1000.iso", {1000, 65536});
  identify(state, image);
}
void BM_Entries100000(benchmark::State &state) {
  static const std::string image =
      hostileImage("entries-100000.iso", {100000, 0});
  identify(state, image);
}
void BM_BadChildLink(benchmark::State &state) {
  static const std::string image =
      hostileImage("bad-child-link.iso", {3, 0, true, 1});
  identify(state, image);
}
BENCHMARK(BM_Looping100)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Looping1000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Entries100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BadChildLink)->Unit(benchmark::kMillisecond);

}  // namespace
