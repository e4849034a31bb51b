// Fuzzes the UDF reader. A UDF volume starts 512 KiB into its image, so the
// input describes a sparse image instead of being one: a sequence of
// records, each a 16-bit little-endian block number followed by the 2048
// bytes of that block (the last record may be short). The image is built
// in a memory file and walked the way the identification code walks media.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/udfimage.h"

namespace {

constexpr size_t kBlock = 2048;

void walk(UdfImage *image, gp::udf::Dir *start, const char *path, int depth) {
  gp::udf::Dir *dir = gp::udf::openDir(image, start, path);
  if (dir == nullptr) {
    return;
  }
  std::vector<std::string> names;
  while (const char *name = gp::udf::readDir(dir)) {
    if (names.size() < 64) {
      names.emplace_back(name);
    }
  }
  gp::udf::rewindDir(dir);
  for (const std::string &name : names) {
    if (gp::udf::File *file = gp::udf::openFile(image, dir, name.c_str())) {
      char *data = nullptr;
      size_t length = 0;
      if (gp::udf::readFile(file, &data, &length)) {
        if (data[length] != '\0') {
          std::abort();
        }
        std::free(data);
      }
      gp::udf::closeFile(file);
    } else if (depth < 4) {
      walk(image, dir, name.c_str(), depth + 1);
    }
  }
  gp::udf::closeDir(dir);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int fd = memfd_create("udfimage", 0);
  if (fd < 0) {
    return 0;
  }
  size_t blocks = 0;
  for (size_t at = 0; at + 2 < size; at += 2 + kBlock) {
    size_t block = data[at] | (data[at + 1] << 8);
    size_t length = size - at - 2 < kBlock ? size - at - 2 : kBlock;
    if (pwrite(fd, data + at + 2, length, static_cast<off_t>(block * kBlock)) !=
        static_cast<ssize_t>(length)) {
      close(fd);
      return 0;
    }
    blocks = block + 1 > blocks ? block + 1 : blocks;
  }
  if (ftruncate(fd, static_cast<off_t>(blocks * kBlock)) == 0) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    if (UdfImage *image = gp::udf::open(path)) {
      walk(image, nullptr, "", 0);
      gp::udf::close(image);
    }
  }
  close(fd);
  return 0;
}
