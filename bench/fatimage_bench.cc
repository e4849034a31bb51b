// Making a floppy: format a new image and add ten 4 KiB files through the
// transfer functions, as an unattended installation does. Counts the writes
// that reach the image file.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"

namespace {

namespace fat = gp::fat;

uint64_t gWrites = 0;
ssize_t countingPwrite(int fd, const void *buf, size_t count, off_t offset) {
  ++gWrites;
  return gp::realHostOps().pwrite(fd, buf, count, offset);
}

void BM_FormatAndAddTenFiles(benchmark::State &state) {
  std::string tmp =
      (std::filesystem::temp_directory_path() / "gpbench-XXXXXX").string();
  if (mkdtemp(tmp.data()) == nullptr) {
    state.SkipWithError("mkdtemp failed");
    return;
  }
  std::string image = tmp + "/autoinst.flp";
  std::string files[10];
  for (int i = 0; i < 10; ++i) {
    files[i] = tmp + "/file" + std::to_string(i) + ".cfg";
    std::ofstream(files[i]) << std::string(4096, static_cast<char>('a' + i));
  }
  gp::HostOps ops = gp::hostOps();
  ops.pwrite = countingPwrite;
  gp::ScopedHostOps counting(ops);
  gWrites = 0;
  for (auto _ : state) {
    FatHandle volume = nullptr, root = nullptr;
    if (fat::formatVolume(image.c_str(), 1, &volume) != fat::FAT_OK ||
        fat::openRootDirectory(volume, &root) != fat::FAT_OK) {
      state.SkipWithError("format failed");
      break;
    }
    for (int i = 0; i < 10; ++i) {
      std::string name = "file" + std::to_string(i) + ".cfg";
      if (!AddFileToFloppyImg(root, files[i].c_str(), name.c_str())) {
        state.SkipWithError("add failed");
      }
    }
    fat::close(root);
    fat::close(volume);
  }
  state.counters["image_writes_per_floppy"] =
      static_cast<double>(gWrites) / static_cast<double>(state.iterations());
  std::filesystem::remove_all(tmp);
}
BENCHMARK(BM_FormatAndAddTenFiles)->Unit(benchmark::kMillisecond);

}  // namespace
