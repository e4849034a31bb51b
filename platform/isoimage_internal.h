// The image handle and the directory walk shared by the reader's files.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/hostio.h"
#include "platform/isoimage.h"
#include "platform/isoimage_records.h"

namespace gp::iso {

// Hostile images can claim anything; these keep every walk small.
constexpr size_t kMaxPathComponents = 64;
constexpr size_t kMaxPathLength = 4096;
constexpr uint32_t kMaxDirectoryBytes = 64u << 20;
constexpr uint32_t kMaxDirectoryRecords = 200000;
constexpr size_t kMaxExtentsPerFile = 4096;
constexpr size_t kMaxMultiExtentFiles = 65536;
constexpr int kMaxContinuationAreas = 16;
constexpr uint32_t kMaxContinuationLength = 64u << 10;
constexpr int kMaxDescriptors = 64;
// The work one open image may do on its structures, whatever the callers
// ask: directory records decoded, and bytes of directory records and
// continuation areas taken in. Past either the reads fail with
// ISO_ERR_BUDGET. A real installation disc needs a small part of this.
constexpr uint64_t kMaxRecordsPerOpen = 400000;
constexpr uint64_t kMaxMetadataBytesPerOpen = 48u << 20;
// Directory listings kept in memory, in entries over all directories.
constexpr size_t kMaxCachedEntries = 400000;

struct Extent {
  uint32_t block;
  uint64_t size;
};

struct Listing;

struct Dir {
  uint32_t extent = 0;
  uint32_t size = 0;
  uint64_t pos = 0;                  // decoding: the next record
  uint32_t records = 0;              // decoding: records so far
  std::shared_ptr<Listing> listing;  // once decoded
  size_t next = 0;                   // the next entry of the listing
};

struct File {
  std::vector<Extent> extents;
  size_t index = 0;     // extent being read
  uint64_t offset = 0;  // within that extent
};

// One listed entry with what the public Entry cannot carry.
struct Item {
  std::string name;
  uint32_t extent = 0;
  uint64_t size = 0;
  bool isDirectory = false;
  bool isRegular = false;  // false for Rock Ridge symlinks, devices, ...
  std::vector<Extent> extents;
};

// A directory decoded once: its usable entries and how the listing ended
// (ISO_END, or the error that stopped it).
struct Listing {
  std::vector<Item> items;
  Result end = ISO_END;
  // An index of the names without regard to ASCII case, built on the
  // first lookup in a long listing: open addressing over `buckets`, each
  // holding the first and the last entry of one name (kNoItem: empty), and
  // `sameName` linking each entry to the next one of its name.
  std::vector<std::pair<size_t, size_t>> buckets;
  std::vector<size_t> sameName;
};
constexpr size_t kNoItem = SIZE_MAX;

}  // namespace gp::iso

struct IsoImage {
  gp::UniqueFd fd;
  uint64_t fileSize = 0;
  uint32_t format = 0;
  gp::iso::rec::Record root;  // of the tree in use
  bool rockRidge = false;     // reading Rock Ridge names
  uint8_t suspSkip = 0;
  std::string volumeId;
  uint64_t bytesRead = 0;
  // Extent lists of multi-extent files, by first block, so that openFile
  // can follow a file that readDir listed.
  std::map<uint32_t, std::vector<gp::iso::Extent>> multiExtent;

  struct CacheSlot {
    bool valid = false;
    uint32_t block = 0;
    std::array<uint8_t, gp::iso::rec::kSectorSize> data;
  };
  // Recently read sectors: room for a whole continuation area.
  std::array<CacheSlot, 64> cache;
  // Decoded directories by first block and size: lookups and walks repeat.
  std::map<uint64_t, std::shared_ptr<gp::iso::Listing>> listings;
  size_t cachedEntries = 0;
  // The work done so far (kMax...PerOpen).
  uint64_t recordsDecoded = 0;
  uint64_t metadataBytes = 0;
  bool overBudget = false;
};

namespace gp::iso {

// True when `size` bytes from `block` lie inside the image file.
bool inImage(const IsoImage &image, uint64_t block, uint64_t size);

// One sector, possibly from the cache; valid until the next read. False
// when the sector is outside the image or cannot be read.
bool readSector(IsoImage &image, uint32_t block, const uint8_t *&data);

// Bytes at an offset of the image; false unless all of them were read.
bool readBytes(IsoImage &image, uint64_t offset, void *buffer, size_t length);

// Opens the image file and reads its volume descriptors; the handle's
// tree is the primary one. Sets `formats` to what the image carries.
Result probe(const char *path, IsoImage &image, uint32_t &formats,
             rec::Record &jolietRoot);

// A directory walker positioned at the start of `extent`.
Result startDir(const IsoImage &image, uint32_t extent, uint32_t size,
                Dir &dir);

// The next listed entry, valid while `dir` lives: "." and "..", relocated
// Rock Ridge directories and names that cannot be used are passed over.
// ISO_OK or ISO_END, or an error on a malformed directory. The directory
// is decoded on the first call and kept for later walks.
Result nextItem(IsoImage &image, Dir &dir, const Item *&item);
// The whole listing of the directory `dir` walks, decoded if need be.
Listing &listingOf(IsoImage &image, Dir &dir);

}  // namespace gp::iso
