// Guess_Guest on a 4 GiB Red Hat installation image.
//
// The image is a small Rock Ridge + Joliet volume with the Red Hat markers,
// extended to 4 GiB as a sparse file: identification must not depend on
// the image's size, and the benchmark reports how much of it is read.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/bench_support.h"
#include "guestprep/guess.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kImageSize = uint64_t{4} << 30;

// Builds the image once per build tree.
std::string redHatImage() {
  fs::path dir = gp::bench::fixtureDir();
  fs::path image = dir / "rhel5-x86_64-4g.iso";
  std::error_code ec;
  if (fs::exists(image, ec) && fs::file_size(image, ec) == kImageSize) {
    return image.string();
  }
  fs::path tree = dir / "rhel5-tree";
  fs::remove_all(tree, ec);
  gp::bench::writeText(tree / ".discinfo",
                       "1170972069.396645\nRed Hat Enterprise Linux Server 5\n"
                       "x86_64\n1,2,3,4,5,6\n");
  gp::bench::writeText(tree / "isolinux/isolinux.cfg",
                       "default linux\nlabel linux\n  kernel vmlinuz\n"
                       "  append initrd=initrd.img\n");
  gp::bench::writeText(tree / "RPM-GPG-KEY-redhat-release", "key\n");
  // A root about as full as a real installation disc's.
  for (int i = 0; i < 40; ++i) {
    gp::bench::writeText(
        tree / ("RELEASE-NOTES-" + std::to_string(i) + ".html"),
        std::string(3000, 'r'));
  }
  gp::bench::masterSparseImage("-R -J -V RHEL5", tree, image, kImageSize);
  return image.string();
}

void BM_GuessGuestRedHat4GiB(benchmark::State &state) {
  static const std::string image = redHatImage();
  GuessInfo info;
  if (Guess_Guest(image.c_str(), 0, &info) != GUESS_FOUND ||
      std::string(info.osName ? info.osName : "") != "rhel5-64") {
    state.SkipWithError("the image was not identified as rhel5-64");
    return;
  }
  gp::bench::ReadCounter reads;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Guess_Guest(image.c_str(), 0, &info));
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["bytes_read_per_call"] =
      benchmark::Counter(static_cast<double>(reads.total()) /
                         static_cast<double>(state.iterations()));
}
BENCHMARK(BM_GuessGuestRedHat4GiB)->Unit(benchmark::kMicrosecond);

}  // namespace
