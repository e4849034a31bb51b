// AutoInstall_ScanISO on a 4 GiB installation image whose kernel and RAM
// disk total 60 MB, against `cp` of the same two files from a host
// directory, measured in one run.
//
// The image is a Rock Ridge + Joliet volume with an Ubuntu-style isolinux
// configuration, extended to 4 GiB as a sparse file. Both copies read from
// the page cache once the first iteration has warmed it.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "guestprep/autoinstall.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kImageSize = uint64_t{4} << 30;
constexpr size_t kKernelSize = 12u << 20;
constexpr size_t kRamDiskSize = 48u << 20;

fs::path treeDir() { return gp::bench::fixtureDir() / "linuxboot-tree"; }

// Bytes that do not repeat, so nothing on the way can shortcut them.
void writePattern(const fs::path &path, size_t size, uint32_t seed) {
  std::vector<uint32_t> words(size / 4);
  for (uint32_t &w : words) {
    seed = seed * 1664525u + 1013904223u;
    w = seed;
  }
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char *>(words.data()),
             static_cast<std::streamsize>(words.size() * 4));
}

// Builds the tree and the image once per build tree.
std::string bootImage() {
  fs::path image = gp::bench::fixtureDir() / "linuxboot-4g.iso";
  std::error_code ec;
  if (fs::exists(image, ec) && fs::file_size(image, ec) == kImageSize) {
    return image.string();
  }
  fs::path tree = treeDir();
  fs::remove_all(tree, ec);
  gp::bench::writeText(tree / "isolinux/isolinux.cfg",
                       "default install\nlabel install\n"
                       "  kernel /casper/vmlinuz\n"
                       "  append initrd=/casper/initrd.lz quiet splash --\n");
  gp::bench::writeText(tree / "isolinux/isolinux.bin", "isolinux");
  writePattern(tree / "casper/vmlinuz", kKernelSize, 1);
  writePattern(tree / "casper/initrd.lz", kRamDiskSize, 2);
  gp::bench::masterSparseImage("-R -J", tree, image, kImageSize);
  return image.string();
}

void setBytes(benchmark::State &state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(kKernelSize + kRamDiskSize));
}

void BM_ScanISO4GiB(benchmark::State &state) {
  static const std::string image = bootImage();
  const fs::path out = gp::bench::fixtureDir() / "linuxboot-staging";
  for (auto _ : state) {
    if (!AutoInstall_ScanISO(image.c_str(), out.c_str(), "ubuntu-64",
                             nullptr)) {
      state.SkipWithError("the scan failed");
      return;
    }
  }
  setBytes(state);
}
BENCHMARK(BM_ScanISO4GiB)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_CpKernelAndRamDisk(benchmark::State &state) {
  bootImage();
  const fs::path out = gp::bench::fixtureDir() / "linuxboot-cp";
  fs::create_directories(out);
  const std::string cmd = "cp '" + (treeDir() / "casper/vmlinuz").string() +
                          "' '" + (treeDir() / "casper/initrd.lz").string() +
                          "' '" + out.string() + "/'";
  for (auto _ : state) {
    if (std::system(cmd.c_str()) != 0) {
      state.SkipWithError("cp failed");
      return;
    }
  }
  setBytes(state);
}
BENCHMARK(BM_CpKernelAndRamDisk)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
