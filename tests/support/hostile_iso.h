// Hand-made ISO 9660 images that try to make a reader work without end:
// a root with many Rock Ridge records whose continuation areas lead back to
// themselves, very large directories, child links that point nowhere. No
// mastering tool writes such images, so they are put together byte by byte
// (shared by the tests and the benchmarks).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace gp::test {

struct HostileIso {
  uint32_t records = 100;   // file records in the root
  uint32_t areaLength = 0;  // > 0: every record has a continuation area
                            // of this length that continues into itself
  bool rockRidge = true;    // names in "NM" entries
  int badChildLinkAt = -1;  // this record is a directory whose child
                            // link points past the end of the image
};

namespace hostile {

constexpr uint32_t kSector = 2048;

inline void put32(std::vector<uint8_t> &b, size_t at, uint32_t v) {
  for (int i = 0; i < 4; ++i) {
    b[at + i] = static_cast<uint8_t>(v >> (8 * i));
    b[at + 7 - i] = static_cast<uint8_t>(v >> (8 * i));
  }
}

inline void putEntry(std::vector<uint8_t> &su, const char *sig,
                     std::vector<uint8_t> body) {
  su.insert(su.end(),
            {uint8_t(sig[0]), uint8_t(sig[1]), uint8_t(4 + body.size()), 1});
  su.insert(su.end(), body.begin(), body.end());
}

// A "CE" entry naming `length` bytes at `offset` of `block`.
inline void putContinuation(std::vector<uint8_t> &su, uint32_t block,
                            uint32_t offset, uint32_t length) {
  std::vector<uint8_t> body(24, 0);
  for (uint32_t i = 0, v[] = {block, offset, length}; i < 3; ++i) {
    std::vector<uint8_t> field(8);
    put32(field, 0, v[i]);
    std::copy(field.begin(), field.end(), body.begin() + 8 * i);
  }
  putEntry(su, "CE", body);
}

inline std::vector<uint8_t> record(uint32_t extent, uint32_t size,
                                   uint8_t flags, const std::string &id,
                                   const std::vector<uint8_t> &su) {
  size_t idEnd = 33 + id.size() + (id.size() % 2 == 0 ? 1 : 0);
  std::vector<uint8_t> r(idEnd + su.size(), 0);
  r[0] = static_cast<uint8_t>(r.size());
  put32(r, 2, extent);
  put32(r, 10, size);
  r[25] = flags;
  r[32] = static_cast<uint8_t>(id.size());
  std::copy(id.begin(), id.end(), r.begin() + 33);
  std::copy(su.begin(), su.end(), r.begin() + idEnd);
  return r;
}

}  // namespace hostile

// Writes the image to `path`; false when it cannot be written.
inline bool writeHostileIso(const std::string &path, const HostileIso &shape) {
  using namespace hostile;
  // Sectors: 16 primary descriptor, 17 terminator, 18.. the continuation
  // area (starting one byte into its sector, so that it crosses sectors),
  // then the root directory.
  const uint32_t areaBlock = 18;
  const uint32_t areaSectors =
      shape.areaLength == 0 ? 0
                            : (1 + shape.areaLength + kSector - 1) / kSector;
  const uint32_t rootBlock = areaBlock + areaSectors;

  std::vector<std::vector<uint8_t>> records;
  std::vector<uint8_t> self;
  if (shape.rockRidge) {
    self = {'S', 'P', 7, 1, 0xBE, 0xEF, 0};
    putEntry(self, "RR", {0x81});
  }
  records.push_back(record(rootBlock, 0, 2, std::string(1, '\0'), self));
  records.push_back(record(rootBlock, 0, 2, std::string(1, '\1'), {}));
  for (uint32_t i = 0; i < shape.records; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "F%07u", i);
    std::vector<uint8_t> su;
    if (shape.rockRidge) {
      std::vector<uint8_t> nm{0, 'f'};  // the name in lower case
      nm.insert(nm.end(), name + 1, name + 8);
      putEntry(su, "NM", nm);
    }
    if (static_cast<int64_t>(i) == shape.badChildLinkAt) {
      std::vector<uint8_t> cl(8);
      put32(cl, 0, 0x00FFFFFF);
      putEntry(su, "CL", cl);
    }
    if (shape.areaLength != 0) {
      putContinuation(su, areaBlock, 1, shape.areaLength);
    }
    records.push_back(record(rootBlock, 0, 0, std::string(name) + ".;1", su));
  }
  // Records never cross a sector boundary.
  std::vector<uint8_t> dir;
  for (const auto &r : records) {
    size_t used = dir.size() % kSector;
    if (used + r.size() > kSector) dir.resize(dir.size() + kSector - used, 0);
    dir.insert(dir.end(), r.begin(), r.end());
  }
  dir.resize((dir.size() + kSector - 1) / kSector * kSector, 0);
  // The root's own size lives in "." and in the descriptor.
  put32(dir, 10, static_cast<uint32_t>(dir.size()));

  std::vector<uint8_t> image(size_t{rootBlock} * kSector, 0);
  uint8_t *pvd = &image[16 * kSector];
  pvd[0] = 1;
  std::copy_n("CD001", 5, pvd + 1);
  pvd[6] = 1;
  std::string volumeId = "HOSTILE";
  volumeId.resize(32, ' ');
  std::copy(volumeId.begin(), volumeId.end(), pvd + 40);
  pvd[128] = kSector & 0xFF;
  pvd[129] = kSector >> 8;
  pvd[130] = kSector >> 8;
  pvd[131] = kSector & 0xFF;
  std::vector<uint8_t> root = record(rootBlock, 0, 2, std::string(1, '\0'), {});
  put32(root, 10, static_cast<uint32_t>(dir.size()));
  std::copy(root.begin(), root.end(), pvd + 156);
  uint8_t *end = &image[17 * kSector];
  end[0] = 255;
  std::copy_n("CD001", 5, end + 1);
  end[6] = 1;
  if (shape.areaLength != 0) {
    // The area continues into itself; "ST" ends each pass cleanly.
    std::vector<uint8_t> area;
    putContinuation(area, areaBlock, 1, shape.areaLength);
    putEntry(area, "ST", {});
    std::copy(area.begin(), area.end(),
              image.begin() + areaBlock * kSector + 1);
  }
  image.insert(image.end(), dir.begin(), dir.end());
  put32(image, 16 * kSector + 80,
        static_cast<uint32_t>(image.size() / kSector));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char *>(image.data()),
            static_cast<std::streamsize>(image.size()));
  return static_cast<bool>(out);
}

}  // namespace gp::test
