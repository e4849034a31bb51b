// Guess_Guest on a 4 GiB UDF bridge image of a Windows 7 medium. The image
// is mastered once into the build tree (its 4 GiB install image is sparse
// on the host). Reports the time per call and the bytes read per call.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/bench_support.h"
#include "guestprep/guess.h"

namespace {

namespace fs = std::filesystem;

std::string image() {
  static std::string path;
  if (!path.empty()) {
    return path;
  }
  fs::path dir = gp::bench::fixtureDir();
  path = (dir / "windows7-4g-udf.iso").string();
  if (fs::exists(path)) {
    return path;
  }
  fs::path tree = dir / "windows7-tree";
  fs::remove_all(tree);
  fs::path sources = tree / "sources";
  gp::bench::writeText(sources / "product.ini", "[Product]\r\nType=Client\r\n");
  gp::bench::writeText(
      sources / "idwbinfo.txt",
      "[BUILDINFO]\r\nBuildArch=amd64\r\nBuildBranch=win7_rtm\r\n"
      "BuildType=fre\r\n");
  gp::bench::writeText(sources / "lang.ini",
                       "[Available UI Languages]\r\nen-US = 3\r\n\r\n"
                       "[Fallback Languages]\r\nen-US = en-us\r\n");
  for (const char *edition :
       {"HOMEBASIC", "HOMEPREMIUM", "PROFESSIONAL", "ULTIMATE", "STARTER"}) {
    gp::bench::writeText(
        sources / (std::string("install_Windows 7 ") + edition + ".clg"),
        std::string(4096, 'c'));
  }
  // A realistic directory: a few hundred setup files beside the markers.
  for (int i = 0; i < 300; ++i) {
    gp::bench::writeText(sources / ("setup" + std::to_string(i) + ".dll"),
                         "MZ");
  }
  gp::bench::writeText(tree / "setup.exe", "MZ");
  gp::bench::writeText(tree / "boot" / "bcd", "bcd");
  fs::path wim = sources / "install.wim";
  std::ofstream(wim).close();
  fs::resize_file(wim, (4ull << 30) - (64ull << 20));
  std::string tmp = path + ".tmp";
  std::string cmd = "genisoimage -quiet -udf -J -R -allow-limited-size -o '" +
                    tmp + "' '" + tree.string() +
                    "' && fallocate --dig-holes '" + tmp + "' && mv '" + tmp +
                    "' '" + path + "'";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot master %s\n", path.c_str());
    std::exit(1);
  }
  fs::remove_all(tree);
  return path;
}

void BM_GuessGuestUdfWindows7(benchmark::State &state) {
  std::string path = image();
  gp::bench::ReadCounter reads;
  GuessInfo info;
  for (auto _ : state) {
    if (Guess_Guest(path.c_str(), 0, &info) != GUESS_FOUND) {
      state.SkipWithError("not recognised");
      break;
    }
    benchmark::DoNotOptimize(info.osName);
  }
  state.counters["bytes_read_per_call"] =
      static_cast<double>(reads.total()) /
      static_cast<double>(state.iterations());
}
BENCHMARK(BM_GuessGuestUdfWindows7)->Unit(benchmark::kMicrosecond);

}  // namespace
