// Feeds arbitrary bytes to the ISO 9660 reader as an image and lists and
// reads all of it in every name format.
//
// The input is the image from its first volume descriptor on: the 32 KiB
// system area before it is never read, so it is supplied as zeros and the
// fuzzer spends its mutations on the structures that matter.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/isoimage.h"

namespace {

using namespace gp::iso;

constexpr size_t kSystemArea = 16 * 2048;
constexpr int kMaxDepth = 6;
constexpr int kMaxEntries = 512;
constexpr size_t kMaxFileBytes = 256 << 10;

void readWhole(IsoImage *image, const Entry &entry) {
  File *file = nullptr;
  if (openFile(image, &entry, &file) != ISO_OK) {
    return;
  }
  char buffer[2048];
  size_t total = 0;
  while (total < kMaxFileBytes) {
    size_t length = sizeof buffer;
    if (readFile(image, file, buffer, &length) != ISO_OK) {
      break;
    }
    total += length;
  }
  closeFile(image, file);
}

void walk(IsoImage *image, const std::string &path, int depth, int &budget) {
  Dir *dir = nullptr;
  if (openDir(image, path.c_str(), &dir) != ISO_OK) {
    return;
  }
  Entry entry;
  for (int pass = 0; pass < 2; ++pass) {
    while (budget > 0 && readDir(image, dir, &entry) == ISO_OK) {
      --budget;
      if (pass == 1) {
        continue;
      }
      if (!entry.isDirectory) {
        readWhole(image, entry);
      } else if (depth < kMaxDepth) {
        walk(image, path + "/" + entry.name, depth + 1, budget);
      }
    }
    rewindDir(image, dir);
  }
  closeDir(image, dir);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int fd = memfd_create("isoimage_fuzz", 0);
  if (fd < 0) {
    std::abort();
  }
  std::vector<uint8_t> image(kSystemArea + size, 0);
  std::copy(data, data + size, image.begin() + kSystemArea);
  if (write(fd, image.data(), image.size()) !=
      static_cast<ssize_t>(image.size())) {
    std::abort();
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  uint32_t present = listFormats(path.c_str());
  for (uint32_t formats :
       {present, uint32_t{FORMAT_ISO9660}, uint32_t{FORMAT_JOLIET}}) {
    IsoImage *iso = nullptr;
    if (gp::iso::open(path.c_str(), formats, 0, &iso) != ISO_OK) {
      continue;
    }
    int budget = kMaxEntries;
    walk(iso, "", 0, budget);
    char *id = nullptr;
    if (volumeId(iso, &id) == ISO_OK) {
      std::free(id);
    }
    gp::iso::close(iso);
  }
  ::close(fd);
  return 0;
}
