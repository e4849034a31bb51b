// Feeds arbitrary bytes to the ISO 9660 reader as an image and lists and
// reads all of it in every name format. The input starts at the first
// volume descriptor: the 32 KiB system area before it is never read, so it
// is supplied as zeros and mutations go to the structures that matter.
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

// Lists each directory twice (the second time after a rewind) and reads
// every file, within a budget of entries, a depth and a size per file.
void walk(IsoImage *image, const std::string &path, int depth, int &budget) {
  Dir *dir = nullptr;
  if (openDir(image, path.c_str(), &dir) != ISO_OK) return;
  Entry entry;
  for (int pass = 0; pass < 2; ++pass, rewindDir(image, dir)) {
    while (budget > 0 && readDir(image, dir, &entry) == ISO_OK) {
      --budget;
      File *file = nullptr;
      if (pass == 1) continue;
      if (entry.isDirectory && depth < 6) {
        walk(image, path + "/" + entry.name, depth + 1, budget);
      } else if (openFile(image, &entry, &file) == ISO_OK) {
        char buffer[2048];
        size_t total = 0, length = sizeof buffer;
        while (total < (256 << 10) &&
               readFile(image, file, buffer, &length) == ISO_OK) {
          total += length;
          length = sizeof buffer;
        }
        closeFile(image, file);
      }
    }
  }
  closeDir(image, dir);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  int fd = memfd_create("isoimage_fuzz", 0);
  std::vector<uint8_t> image(16 * 2048 + size, 0);
  std::copy(data, data + size, image.begin() + 16 * 2048);
  if (fd < 0 || write(fd, image.data(), image.size()) !=
                    static_cast<ssize_t>(image.size())) {
    std::abort();
  }
  std::string path = "/proc/self/fd/" + std::to_string(fd);
  for (uint32_t formats : {listFormats(path.c_str()), 1u, 2u}) {
    IsoImage *iso = nullptr;
    if (gp::iso::open(path.c_str(), formats, 0, &iso) != ISO_OK) continue;
    int budget = 512;
    walk(iso, "", 0, budget);
    char *id = nullptr;
    if (volumeId(iso, &id) == ISO_OK) std::free(id);
    gp::iso::close(iso);
  }
  ::close(fd);
  return 0;
}
