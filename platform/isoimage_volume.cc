// Reading the image: sectors, volume descriptors and directory records.
#include <sys/stat.h>

#include <algorithm>
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

// Counts the decoding of `bytes` (a record when `record`) against the
// image's budget; false once it is spent.
bool spend(IsoImage &image, uint64_t bytes, bool record = true) {
  image.recordsDecoded += record ? 1 : 0;
  image.metadataBytes += bytes;
  if (image.recordsDecoded > kMaxRecordsPerOpen ||
      image.metadataBytes > kMaxMetadataBytesPerOpen) {
    image.overBudget = true;
  }
  return !image.overBudget;
}

Result recordAt(IsoImage &image, Dir &dir, uint8_t *buffer, Record &record) {
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
    if (!spend(image, length)) {
      return ISO_ERR_BUDGET;
    }
    std::memcpy(buffer, sector + inSector, length);
    if (!rec::parseRecord(Bytes{buffer, length}, record)) {
      return ISO_ERR_FORMAT;
    }
    dir.pos += length;
    return ISO_OK;
  }
}

// Copies `length` bytes from `offset` of `block` on, across sectors,
// through the sector cache.
bool readCached(IsoImage &image, uint32_t block, uint32_t offset, uint8_t *out,
                uint32_t length) {
  while (length > 0) {
    const uint8_t *sector = nullptr;
    if (!readSector(image, block + offset / kSectorSize, sector)) {
      return false;
    }
    uint32_t at = offset % kSectorSize;
    uint32_t n = std::min(length, kSectorSize - at);
    std::memcpy(out, sector + at, n);
    out += n;
    offset += n;
    length -= n;
  }
  return true;
}

// Collects the System Use entries of a record, following continuation
// areas, each at most once however the entries chain them. A malformed
// entry ends the collection; what came before counts. ISO_ERR_BUDGET when
// the areas use up the image's budget.
Result readSystemUse(IsoImage &image, const Record &record, size_t skip,
                     rec::SystemUse &su) {
  if (skip > record.systemUse.size()) {
    return ISO_OK;
  }
  Bytes area = record.systemUse.sub(skip, record.systemUse.size() - skip);
  std::vector<uint8_t> continuation;
  std::array<uint64_t, kMaxContinuationAreas> seen;
  for (int areas = 0;; ++areas) {
    if (!rec::parseSystemUse(area, su) || !su.hasNext ||
        areas == kMaxContinuationAreas) {
      return ISO_OK;
    }
    su.hasNext = false;
    uint64_t where = uint64_t{su.nextBlock} * kSectorSize + su.nextOffset;
    if (su.nextOffset >= kSectorSize || su.nextLength == 0 ||
        su.nextLength > kMaxContinuationLength ||
        !inImage(image, su.nextBlock,
                 su.nextOffset + uint64_t{su.nextLength}) ||
        std::find(seen.begin(), seen.begin() + areas, where) !=
            seen.begin() + areas) {
      return ISO_OK;
    }
    seen[areas] = where;
    if (!spend(image, su.nextLength, false)) {
      return ISO_ERR_BUDGET;
    }
    continuation.resize(su.nextLength);
    if (!readCached(image, su.nextBlock, su.nextOffset, continuation.data(),
                    su.nextLength)) {
      return ISO_OK;
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
  if (readSystemUse(image, self, 0, su) != ISO_OK) {
    return;
  }
  present =
      su.hasSharingProtocol && (su.hasRockRidgeId || su.hasRockRidgeEntry);
  skip = su.skip;
}

// The next usable entry of the directory's records.
Result decodeItem(IsoImage &image, Dir &dir, Item &item) {
  uint8_t buffer[256];
  uint8_t part[256];
  Record record;
  for (;;) {
    Result rc = recordAt(image, dir, buffer, record);
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
      rc = readSystemUse(image, record, image.suspSkip, su);
      if (rc != ISO_OK) {
        return rc;
      }
      relocated = su.relocated;
      item.name = (su.hasName && !su.nameSpecial)
                      ? su.name
                      : rec::primaryName(record.identifier);
      if (su.hasChildLink) {
        // A link to something that is no directory hides only this entry.
        uint32_t size = 0;
        if (!directorySizeAt(image, su.childLink, size)) {
          continue;
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

// Decodes the whole directory once; later walks of it come from memory.
// Only an ending that the image decides is kept: a failed read may succeed
// when tried again, and a spent budget stays spent.
void listDirectory(IsoImage &image, Dir &dir) {
  uint64_t key = uint64_t{dir.extent} << 32 | dir.size;
  auto kept = image.listings.find(key);
  if (kept != image.listings.end()) {
    dir.listing = kept->second;
    return;
  }
  auto listing = std::make_shared<Listing>();
  listing->items.reserve(dir.size / 64);  // a typical record's length
  Item item;
  Result rc;
  while ((rc = decodeItem(image, dir, item)) == ISO_OK) {
    listing->items.push_back(std::move(item));
  }
  listing->end = rc;
  dir.listing = listing;
  if (rc == ISO_END || rc == ISO_ERR_FORMAT) {
    if (image.cachedEntries + listing->items.size() > kMaxCachedEntries) {
      image.listings.clear();
      image.cachedEntries = 0;
    }
    image.listings[key] = listing;
    image.cachedEntries += listing->items.size();
  }
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

Result probe(const char *path, IsoImage &image, uint32_t &formats,
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

Result startDir(const IsoImage &image, uint32_t extent, uint32_t size,
                Dir &dir) {
  if (size > kMaxDirectoryBytes || !inImage(image, extent, size)) {
    return ISO_ERR_FORMAT;
  }
  dir = Dir{};
  dir.extent = extent;
  dir.size = size;
  return ISO_OK;
}

Listing &listingOf(IsoImage &image, Dir &dir) {
  if (dir.listing == nullptr) {
    listDirectory(image, dir);
  }
  return *dir.listing;
}

Result nextItem(IsoImage &image, Dir &dir, const Item *&item) {
  Listing &listing = listingOf(image, dir);
  if (dir.next < listing.items.size()) {
    item = &listing.items[dir.next++];
    return ISO_OK;
  }
  return listing.end;
}

}  // namespace gp::iso
