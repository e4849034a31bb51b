// Opens a fuzzed floppy image, lists every directory, reads every file,
// then creates and writes a file on it: whatever the image claims, the
// service must answer with an error value, not a crash or a hang.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/fatimage.h"

namespace {

namespace fat = gp::fat;

constexpr int kMaxDepth = 4;

void readAll(FatHandle dir, const char *name) {
  FatHandle file = nullptr;
  if (fat::openFile(dir, name, &file) != fat::FAT_OK) {
    return;
  }
  uint64_t size = 0;
  fat::fileSize(file, &size);
  uint8_t buffer[4096];
  uint32_t offset = 0, got = 0;
  while (fat::readFile(file, offset, buffer, sizeof buffer, &got) ==
             fat::FAT_OK &&
         got > 0) {
    offset += got;
  }
  if (offset != size) {
    std::abort();  // an opened file reads exactly its size
  }
  fat::close(file);
}

void walk(FatHandle dir, int depth) {
  int64_t count = fat::entryCount(dir);
  for (int64_t i = 0; i < count; ++i) {
    uint8_t present = 0, isDir = 0;
    char *name = nullptr;
    if (fat::catalogEntry(dir, i, &present, &name, &isDir, nullptr, nullptr) ==
            fat::FAT_OK &&
        present) {
      if (!isDir) {
        readAll(dir, name);
      } else if (depth < kMaxDepth) {
        FatHandle sub = nullptr;
        if (fat::openDirectory(dir, name, &sub) == fat::FAT_OK) {
          walk(sub, depth + 1);
          fat::close(sub);
        }
      }
    }
    std::free(name);
  }
}

void writeSome(FatHandle dir) {
  FatHandle file = nullptr;
  if (fat::createFile(dir, "fuzzed long name.txt", &file) != fat::FAT_OK &&
      fat::openFile(dir, "fuzzed long name.txt", &file) != fat::FAT_OK) {
    return;
  }
  static const uint8_t data[3000] = {1, 2, 3};
  uint32_t done = 0;
  fat::writeFile(file, 100, data, sizeof data, &done);
  fat::close(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string path =
      "/tmp/fatimage_fuzz." + std::to_string(getpid()) + ".img";
  FILE *f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) {
    return 0;
  }
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  FatHandle volume = nullptr, root = nullptr;
  if (fat::openVolume(path.c_str(), 1, &volume) == fat::FAT_OK) {
    fat::skipVolumeBoot(volume, fat::FAT_FILE_SYSTEM);
    if (fat::openRootDirectory(volume, &root) == fat::FAT_OK) {
      walk(root, 0);
      writeSome(root);
      fat::close(root);
    }
    fat::close(volume);
  }
  std::remove(path.c_str());
  return 0;
}
