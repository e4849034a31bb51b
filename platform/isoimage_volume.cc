// Reading the image: sectors, volume descriptors and directory records.
#include <sys/stat.h>

#include <cstring>

#include "platform/isoimage_internal.h"

namespace gp::iso {
namespace {

using rec::Bytes;
using rec::kSectorSize;
using rec::Record;

// Block devices report no size; reads past their end come back short and
// fail, so any extent that fits this bound is tried.
constexpr uint64_t kDeviceSizeLimit = uint64_t{1} << 42;

int recordAt(IsoImage &image, Dir &dir, uint8_t *buffer, Record &record) {
  for (;;) {
    if (dir.pos >= dir.size) {
      return ISO_END;
    }
    uint32_t inSector = static_cast<uint32_t>(dir.pos % kSectorSize);
    const uint8_t *sector = nullptr;
    if (!readSector(image,
                    dir.extent + static_cast<uint32_t>(dir.pos / kSectorSize),
                    sector)) {
      return ISO_ERR_IO;
    }
    size_t length = sector[inSector];
    if (length == 0) {
      // Records never cross a sector boundary; the rest is padding.
      dir.pos += kSectorSize - inSector;
      continue;
    }
    if (inSector + length > kSectorSize || dir.pos + length > dir.size ||
        ++dir.records > kMaxDirectoryRecords) {
      return ISO_ERR_FORMAT;
    }
    std::memcpy(buffer, sector + inSector, length);
    if (!rec::parseRecord(Bytes{buffer, length}, record)) {
      return ISO_ERR_FORMAT;
    }
    dir.pos += length;
    return ISO_OK;
  }
}

// Collects the System Use entries of a record, following continuation
// areas. A malformed entry ends the collection; what came before counts.
void readSystemUse(IsoImage &image, const Record &record, size_t skip,
                   rec::SystemUse &su) {
  if (skip > record.systemUse.size()) {
    return;
  }
  Bytes area = record.systemUse.sub(skip, record.systemUse.size() - skip);
  std::vector<uint8_t> continuation;
  for (int areas = 0;; ++areas) {
    if (!rec::parseSystemUse(area, su) || !su.hasNext ||
        areas == kMaxContinuationAreas) {
      return;
    }
    su.hasNext = false;
    if (su.nextOffset >= kSectorSize || su.nextLength == 0 ||
        su.nextLength > kMaxContinuationLength) {
      return;
    }
    uint64_t offset = uint64_t{su.nextBlock} * kSectorSize + su.nextOffset;
    continuation.resize(su.nextLength);
    if (!inImage(image, su.nextBlock,
                 su.nextOffset + uint64_t{su.nextLength})) {
      return;
    }
    // Areas usually share one sector, which every lookup revisits.
    const uint8_t *sector = nullptr;
    if (su.nextOffset + su.nextLength <= kSectorSize) {
      if (!readSector(image, su.nextBlock, sector)) {
        return;
      }
      std::memcpy(continuation.data(), sector + su.nextOffset, su.nextLength);
    } else if (!readBytes(image, offset, continuation.data(),
                          continuation.size())) {
      return;
    }
    area = Bytes{continuation.data(), continuation.size()};
  }
}

// The size of a directory from its "." record (Rock Ridge child links
// give only the location).
bool directorySizeAt(IsoImage &image, uint32_t extent, uint32_t &size) {
  Dir dir;
  if (startDir(image, extent, kSectorSize, dir) != ISO_OK) {
    return false;
  }
  uint8_t buffer[256];
  Record self;
  if (recordAt(image, dir, buffer, self) != ISO_OK || !isSelfOrParent(self) ||
      (self.flags & rec::kFlagDirectory) == 0 || self.extent != extent) {
    return false;
  }
  size = self.size;
  return true;
}

bool rootOk(const IsoImage &image, const Record &root) {
  return root.size <= kMaxDirectoryBytes &&
         inImage(image, root.extent, root.size);
}

// Rock Ridge is announced by "SP" at the start of the root's "." record.
void detectRockRidge(IsoImage &image, bool &present, uint8_t &skip) {
  Dir dir;
  uint8_t buffer[256];
  Record self;
  present = false;
  if (startDir(image, image.root.extent, image.root.size, dir) != ISO_OK ||
      recordAt(image, dir, buffer, self) != ISO_OK || !isSelfOrParent(self)) {
    return;
  }
  rec::SystemUse su;
  readSystemUse(image, self, 0, su);
  present =
      su.hasSharingProtocol && (su.hasRockRidgeId || su.hasRockRidgeEntry);
  skip = su.skip;
}

}  // namespace

bool inImage(const IsoImage &image, uint64_t block, uint64_t size) {
  uint64_t start = block * kSectorSize;  // block < 2^32: cannot overflow
  return start <= image.fileSize && size <= image.fileSize - start;
}

bool readSector(IsoImage &image, uint32_t block, const uint8_t *&data) {
  auto &slot = image.cache[block % image.cache.size()];
  if (!slot.valid || slot.block != block) {
    slot.valid = false;
    if (!inImage(image, block, kSectorSize) ||
        !readBytes(image, uint64_t{block} * kSectorSize, slot.data.data(),
                   kSectorSize)) {
      return false;
    }
    slot.valid = true;
    slot.block = block;
  }
  data = slot.data.data();
  return true;
}

bool readBytes(IsoImage &image, uint64_t offset, void *buffer, size_t length) {
  ssize_t n =
      preadFull(image.fd.get(), buffer, length, static_cast<off_t>(offset));
  if (n > 0) {
    image.bytesRead += static_cast<uint64_t>(n);
  }
  return n >= 0 && static_cast<size_t>(n) == length;
}

int probe(const char *path, IsoImage &image, uint32_t &formats,
          Record &jolietRoot) {
  formats = 0;
  image.fd = gp::openUntrustedFile(path, O_RDONLY, 0, nullptr,
                                   /*allowBlockDevice=*/true);
  struct stat st;
  if (!image.fd.valid() || hostOps().fstat(image.fd.get(), &st) != 0) {
    return ISO_ERR_IO;
  }
  if (S_ISREG(st.st_mode)) {
    image.fileSize = static_cast<uint64_t>(st.st_size);
  } else if (S_ISBLK(st.st_mode)) {
    image.fileSize = kDeviceSizeLimit;
  } else {
    return ISO_ERR_FORMAT;
  }
  bool joliet = false;
  for (int i = 0; i < kMaxDescriptors; ++i) {
    const uint8_t *sector = nullptr;
    if (!readSector(image, rec::kFirstDescriptorSector + i, sector)) {
      break;
    }
    Bytes bytes{sector, kSectorSize};
    rec::DescriptorType type = rec::classifyDescriptor(bytes);
    if (type == rec::DescriptorType::Invalid ||
        type == rec::DescriptorType::Terminator) {
      break;
    }
    Record root;
    if (type == rec::DescriptorType::Primary &&
        (formats & FORMAT_ISO9660) == 0 && bytes.le16(128) == kSectorSize &&
        rec::descriptorRoot(bytes, root) && rootOk(image, root)) {
      formats |= FORMAT_ISO9660;
      image.root = root;
      std::string_view id = bytes.text(40, 32);
      size_t end = id.find_last_not_of(std::string_view(" \0", 2));
      image.volumeId = std::string(id.substr(0, end == id.npos ? 0 : end + 1));
    } else if (type == rec::DescriptorType::Joliet && !joliet &&
               bytes.le16(128) == kSectorSize &&
               rec::descriptorRoot(bytes, root) && rootOk(image, root)) {
      joliet = true;
      jolietRoot = root;
    }
  }
  if ((formats & FORMAT_ISO9660) == 0) {
    formats = 0;
    return ISO_ERR_FORMAT;
  }
  if (joliet) {
    formats |= FORMAT_JOLIET;
  }
  bool rockRidge = false;
  detectRockRidge(image, rockRidge, image.suspSkip);
  if (rockRidge) {
    formats |= FORMAT_ROCKRIDGE;
  }
  return ISO_OK;
}

int startDir(const IsoImage &image, uint32_t extent, uint32_t size, Dir &dir) {
  if (size > kMaxDirectoryBytes || !inImage(image, extent, size)) {
    return ISO_ERR_FORMAT;
  }
  dir = Dir{};
  dir.extent = extent;
  dir.size = size;
  return ISO_OK;
}

int nextItem(IsoImage &image, Dir &dir, Item &item) {
  uint8_t buffer[256];
  uint8_t part[256];
  Record record;
  for (;;) {
    int rc = recordAt(image, dir, buffer, record);
    if (rc != ISO_OK) {
      return rc;
    }
    // Associated files (resource forks) repeat the name of their file.
    bool associated = (record.flags & rec::kFlagAssociated) != 0;
    if (isSelfOrParent(record)) {
      continue;
    }
    item = Item{};
    item.extent = record.extent;
    item.isDirectory = (record.flags & rec::kFlagDirectory) != 0;
    item.extents.push_back(Extent{record.extent, record.size});
    item.size = record.size;
    // Every part of a multi-extent file repeats the name; the last part
    // clears the flag.
    Record next = record;
    while ((next.flags & rec::kFlagMultiExtent) != 0) {
      rc = recordAt(image, dir, part, next);
      if (rc != ISO_OK || item.extents.size() == kMaxExtentsPerFile ||
          next.identifier.size() != record.identifier.size() ||
          std::memcmp(next.identifier.data(), record.identifier.data(),
                      record.identifier.size()) != 0) {
        return rc == ISO_ERR_IO ? rc : ISO_ERR_FORMAT;
      }
      item.extents.push_back(Extent{next.extent, next.size});
      item.size += next.size;
    }
    bool relocated = false;
    if (image.format == FORMAT_ROCKRIDGE) {
      rec::SystemUse su;
      readSystemUse(image, record, image.suspSkip, su);
      relocated = su.relocated;
      item.name = (su.hasName && !su.nameSpecial)
                      ? su.name
                      : rec::primaryName(record.identifier);
      if (su.hasChildLink) {
        uint32_t size = 0;
        if (!directorySizeAt(image, su.childLink, size)) {
          return ISO_ERR_FORMAT;
        }
        item.isDirectory = true;
        item.extent = su.childLink;
        item.size = size;
        item.extents = {Extent{su.childLink, size}};
      }
      item.isRegular = !item.isDirectory &&
                       (!su.hasMode || S_ISREG(static_cast<mode_t>(su.mode)));
    } else if (image.format == FORMAT_JOLIET) {
      if (!rec::jolietName(record.identifier, item.name)) {
        return ISO_ERR_FORMAT;
      }
      item.isRegular = !item.isDirectory;
    } else {
      item.name = rec::primaryName(record.identifier);
      item.isRegular = !item.isDirectory;
    }
    if (relocated || associated || !rec::isUsableName(item.name)) {
      continue;
    }
    return ISO_OK;
  }
}

}  // namespace gp::iso
