// Independent checks of FAT images with dosfstools and mtools.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace gp::test {

// `fsck.fat -n` finds nothing wrong; its report goes into `report`.
bool fsckClean(const std::string &image, std::string *report = nullptr);

// One entry of the root directory (or `dir`) as mdir shows it.
struct MdirEntry {
  std::string shortName;  // "preseed.cfg": base and extension as shown
  std::string longName;   // empty when the entry has none
  std::string size;       // bytes, or "<DIR>"
};
std::vector<MdirEntry> mdirList(const std::string &image,
                                const std::string &dir = "::/");

// The bytes of a file of the image as mcopy reads them; false on failure.
bool mcopyOut(const std::string &image, const std::string &name,
              std::string &content);

// Copies a host file into the image with mcopy.
bool mcopyIn(const std::string &image, const std::string &hostPath,
             const std::string &name);

// `n` bytes that repeat neither per sector nor per cluster.
std::string pattern(size_t n, unsigned seed);

// A new image made with mkfs.fat -C -F 12 (1440 KiB).
bool mkfsFat12(const std::string &image);

}  // namespace gp::test
