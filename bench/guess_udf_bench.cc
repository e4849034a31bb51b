// Guess_Guest on a 4 GiB UDF bridge image of a Windows 7 medium. The image
// is mastered once into the build tree (its 4 GiB install image is sparse
// on the host). Reports the time per call and the bytes read per call.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "guestprep/guess.h"
#include "platform/hostio.h"

namespace {

namespace fs = std::filesystem;

void put(const fs::path &path, const std::string &text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string image() {
  static std::string path;
  if (!path.empty()) {
    return path;
  }
  fs::path dir = fs::path(GP_BINARY_DIR) / "bench-fixtures";
  path = (dir / "windows7-4g-udf.iso").string();
  if (fs::exists(path)) {
    return path;
  }
  fs::path tree = dir / "windows7-tree";
  fs::remove_all(tree);
  fs::path sources = tree / "sources";
  put(sources / "product.ini", "[Product]\r\nType=Client\r\n");
  put(sources / "idwbinfo.txt",
      "[BUILDINFO]\r\nBuildArch=amd64\r\nBuildBranch=win7_rtm\r\n"
      "BuildType=fre\r\n");
  put(sources / "lang.ini",
      "[Available UI Languages]\r\nen-US = 3\r\n\r\n"
      "[Fallback Languages]\r\nen-US = en-us\r\n");
  for (const char *edition :
       {"HOMEBASIC", "HOMEPREMIUM", "PROFESSIONAL", "ULTIMATE", "STARTER"}) {
    put(sources / (std::string("install_Windows 7 ") + edition + ".clg"),
        std::string(4096, 'c'));
  }
  // A realistic directory: a few hundred setup files beside the markers.
  for (int i = 0; i < 300; ++i) {
    put(sources / ("setup" + std::to_string(i) + ".dll"), "MZ");
  }
  put(tree / "setup.exe", "MZ");
  put(tree / "boot" / "bcd", "bcd");
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

uint64_t gBytes = 0;

ssize_t countingPread(int fd, void *buf, size_t count, off_t offset) {
  ssize_t n = gp::realHostOps().pread(fd, buf, count, offset);
  if (n > 0) {
    gBytes += static_cast<uint64_t>(n);
  }
  return n;
}

void BM_GuessGuestUdfWindows7(benchmark::State &state) {
  std::string path = image();
  gp::HostOps ops = gp::hostOps();
  ops.pread = countingPread;
  gp::ScopedHostOps counting(ops);
  gBytes = 0;
  GuessInfo info;
  for (auto _ : state) {
    if (Guess_Guest(path.c_str(), 0, &info) != GUESS_FOUND) {
      state.SkipWithError("not recognised");
      break;
    }
    benchmark::DoNotOptimize(info.osName);
  }
  state.counters["bytes_read_per_call"] =
      static_cast<double>(gBytes) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_GuessGuestUdfWindows7)->Unit(benchmark::kMicrosecond);

}  // namespace
