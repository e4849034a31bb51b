// Fuzzes the UDF reader. A UDF volume starts 512 KiB into its image, so the
// input describes a sparse image: records of a 16-bit little-endian block
// number and the 2048 bytes of that block (the last may be short). The
// image is built in a memory file and walked as the detectors walk media.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/udfimage.h"

namespace {

void walk(UdfImage *image, gp::udf::Dir *start, const char *path, int depth) {
  gp::udf::Dir *dir = nullptr;
  if (gp::udf::openDir(image, start, path, &dir) != gp::img::IMG_OK) return;
  std::vector<std::string> names;
  const char *name = nullptr;
  while (gp::udf::readDir(dir, &name) == gp::img::IMG_OK) {
    if (names.size() < 64) names.emplace_back(name);
  }
  gp::udf::rewindDir(dir);
  for (const std::string &entry : names) {
    gp::udf::File *file = nullptr;
    if (gp::udf::openFile(image, dir, entry.c_str(), &file) ==
        gp::img::IMG_OK) {
      char *data = nullptr;
      size_t length = 0;
      if (gp::udf::readFile(file, &data, &length) == gp::img::IMG_OK) {
        if (data[length] != '\0') std::abort();
        std::free(data);
      }
      gp::udf::closeFile(file);
    } else if (depth < 4) {
      walk(image, dir, entry.c_str(), depth + 1);
    }
  }
  gp::udf::closeDir(dir);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int fd = memfd_create("udfimage", 0);
  if (fd < 0) return 0;
  off_t end = 0;
  bool written = true;
  for (size_t at = 0; written && at + 2 < size; at += 2 + 2048) {
    off_t block = (data[at] | data[at + 1] << 8) * off_t{2048};
    size_t length = std::min<size_t>(size - at - 2, 2048);
    written = pwrite(fd, data + at + 2, length, block) == ssize_t(length);
    end = std::max<off_t>(end, block + 2048);
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (written && ftruncate(fd, end) == 0) {
    UdfImage *image = nullptr;
    if (gp::udf::open(path.c_str(), &image) == gp::img::IMG_OK) {
      walk(image, nullptr, "", 0);
      gp::udf::close(image);
    }
  }
  close(fd);
  return 0;
}
