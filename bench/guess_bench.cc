// Guess_Guest on a 4 GiB Red Hat installation image.
//
// The image is a small Rock Ridge + Joliet volume with the Red Hat markers,
// extended to 4 GiB as a sparse file: identification must not depend on
// the image's size, and the benchmark reports how much of it is read.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "guestprep/guess.h"
#include "platform/hostio.h"

namespace {

namespace fs = std::filesystem;

constexpr uint64_t kImageSize = uint64_t{4} << 30;

void writeText(const fs::path &path, const std::string &text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// Builds the image once per build tree.
std::string redHatImage() {
  fs::path dir = fs::path(GP_BINARY_DIR) / "bench-fixtures";
  fs::path image = dir / "rhel5-x86_64-4g.iso";
  std::error_code ec;
  if (fs::exists(image, ec) && fs::file_size(image, ec) == kImageSize) {
    return image.string();
  }
  fs::path tree = dir / "rhel5-tree";
  fs::remove_all(tree, ec);
  writeText(tree / ".discinfo",
            "1170972069.396645\nRed Hat Enterprise Linux Server 5\n"
            "x86_64\n1,2,3,4,5,6\n");
  writeText(tree / "isolinux/isolinux.cfg",
            "default linux\nlabel linux\n  kernel vmlinuz\n"
            "  append initrd=initrd.img\n");
  writeText(tree / "RPM-GPG-KEY-redhat-release", "key\n");
  // A root about as full as a real installation disc's.
  for (int i = 0; i < 40; ++i) {
    writeText(tree / ("RELEASE-NOTES-" + std::to_string(i) + ".html"),
              std::string(3000, 'r'));
  }
  std::string cmd = "xorriso -as mkisofs -quiet -R -J -V RHEL5 -o '" +
                    image.string() + "' '" + tree.string() +
                    "' >/dev/null 2>&1 && truncate -s " +
                    std::to_string(kImageSize) + " '" + image.string() + "'";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot build %s\n", image.c_str());
    std::exit(1);
  }
  return image.string();
}

std::atomic<uint64_t> gBytesRead{0};

ssize_t countingPread(int fd, void *buf, size_t count, off_t offset) {
  ssize_t n = gp::realHostOps().pread(fd, buf, count, offset);
  if (n > 0) {
    gBytesRead += static_cast<uint64_t>(n);
  }
  return n;
}

void BM_GuessGuestRedHat4GiB(benchmark::State &state) {
  static const std::string image = redHatImage();
  gp::HostOps ops = gp::hostOps();
  ops.pread = countingPread;
  gp::ScopedHostOps counting(ops);
  GuessInfo info;
  if (Guess_Guest(image.c_str(), 0, &info) != GUESS_FOUND ||
      std::string(info.osName ? info.osName : "") != "rhel5-64") {
    state.SkipWithError("the image was not identified as rhel5-64");
    return;
  }
  gBytesRead = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(Guess_Guest(image.c_str(), 0, &info));
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["bytes_read_per_call"] =
      benchmark::Counter(static_cast<double>(gBytesRead) /
                         static_cast<double>(state.iterations()));
}
BENCHMARK(BM_GuessGuestRedHat4GiB)->Unit(benchmark::kMicrosecond);

}  // namespace
