// Internals of the FAT image service shared by its source files.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bytes.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"

namespace gp::fat {

constexpr uint32_t kDirEntrySize = 32;
constexpr uint8_t kAttrReadOnly = 0x01;
constexpr uint8_t kAttrVolumeLabel = 0x08;
constexpr uint8_t kAttrDirectory = 0x10;
constexpr uint8_t kAttrArchive = 0x20;
constexpr uint8_t kAttrLongName = 0x0F;
constexpr uint8_t kDeleted = 0xE5;
constexpr uint8_t kCaseLowerBase = 0x08;
constexpr uint8_t kCaseLowerExt = 0x10;
// Slots of one directory that are looked at. A floppy's directories hold
// far fewer; the bound keeps listing a hostile directory and looking up
// each of its names from taking minutes.
constexpr uint32_t kMaxDirSlots = 4096;

// Fields of a 32-byte directory entry.
inline uint32_t entryFirstCluster(const uint8_t *entry) {
  return ByteView(entry, kDirEntrySize).le16(26);
}
inline uint32_t entrySize(const uint8_t *entry) {
  return ByteView(entry, kDirEntrySize).le32(28);
}

// Geometry from the boot sector, checked for consistency before use.
struct Geometry {
  uint32_t bytesPerSector = 0;
  uint32_t sectorsPerCluster = 0;
  uint32_t reservedSectors = 0;
  uint32_t fatCount = 0;
  uint32_t rootEntries = 0;
  uint32_t totalSectors = 0;
  uint32_t sectorsPerFat = 0;
  // Derived.
  uint32_t rootStart = 0;  // first sector of the root directory
  uint32_t rootSectors = 0;
  uint32_t dataStart = 0;  // first sector of cluster 2
  uint32_t clusterCount = 0;
  uint32_t clusterBytes() const { return bytesPerSector * sectorsPerCluster; }
  uint32_t maxCluster() const { return clusterCount + 1; }
};

// Decodes and checks the boot sector; FAT_OK or why it is unusable.
Error parseGeometry(ByteView sector, size_t fileSize, Geometry &geo);

struct FileNode;

struct Volume {
  UniqueFd fd;
  bool writable = false;
  Geometry geo;
  std::vector<uint8_t> bytes;  // the whole volume
  std::vector<uint8_t> dirty;  // one flag per sector
  bool anyDirty = false;
  uint32_t allocHint = 2;
  // Bumped whenever a directory changes shape, so cached slot lists of
  // open directory handles are rebuilt.
  uint64_t generation = 0;
  // Open files by the image offset of their directory entry: two handles
  // on one file share its state.
  std::map<uint32_t, std::weak_ptr<FileNode>> openFiles;

  uint8_t *at(uint32_t offset) { return bytes.data() + offset; }
  void markDirty(uint32_t offset, uint32_t length);
  Error flush();

  uint32_t fatEntry(uint32_t cluster) const;
  void setFatEntry(uint32_t cluster, uint32_t value);
  uint32_t clusterOffset(uint32_t cluster) const {
    return (geo.dataStart + (cluster - 2) * geo.sectorsPerCluster) *
           geo.bytesPerSector;
  }
  // The clusters of the chain from `first` (none for 0), checked to end
  // properly, stay inside the volume and not loop.
  Error chain(uint32_t first, std::vector<uint32_t> &out) const;
  uint32_t freeClusters() const;
  // Appends `count` zeroed clusters to `chain` (which may be empty); all or
  // nothing.
  Error grow(std::vector<uint32_t> &chain, uint32_t count);
};

struct FileNode {
  uint32_t entryOffset = 0;  // image offset of the short directory entry
  std::vector<uint32_t> clusters;
  uint32_t size = 0;
};

}  // namespace gp::fat

extern "C" {
struct FatObject {
  enum class Kind { Volume, Dir, File };
  explicit FatObject(Kind k, std::shared_ptr<gp::fat::Volume> v)
      : kind(k), volume(std::move(v)) {}
  Kind kind;
  std::shared_ptr<gp::fat::Volume> volume;
  // Directory handles.
  bool root = false;
  uint32_t firstCluster = 0;
  uint64_t generation = ~0ull;
  std::vector<uint32_t> slots;  // image offsets of the entry slots
  uint32_t endSlot = 0;         // first slot past the end marker
  // File handles.
  std::shared_ptr<gp::fat::FileNode> file;
};
}

namespace gp::fat {

// Rebuilds the slot list of a directory handle when it is stale.
Error refreshSlots(FatObject &dir);

// A visible entry found by name.
struct Found {
  uint32_t entryOffset = 0;
  uint8_t attributes = 0;
};
Error findEntry(FatObject &dir, std::string_view name, Found &found);

// Adds a new entry (with long-name pieces as needed) for `name`; returns
// the image offset of its short entry.
Error addEntry(FatObject &dir, std::string_view name, uint8_t attributes,
               uint32_t &entryOffset);

// Name of the entry at slot `index`; empty when the slot is not visible.
std::string entryName(FatObject &dir, uint32_t index);

// FAT date and time of the host clock.
void fatTimestamp(uint16_t &date, uint16_t &time);

}  // namespace gp::fat
