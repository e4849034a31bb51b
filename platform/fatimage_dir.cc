// Directories of the FAT image service: slots, lookup by name, new
// entries, and the catalogue.
#include <cstring>

#include "platform/fatal.h"
#include "platform/fatimage.h"
#include "platform/fatimage_internal.h"
#include "platform/fatimage_names.h"
#include "platform/strutil.h"

namespace gp::fat {
namespace {

// Long names have at most 255 units, so at most 20 pieces.
constexpr uint32_t kMaxLongPieces = 20;

bool isDirHandle(FatHandle h) {
  return h != nullptr && h->kind == FatObject::Kind::Dir;
}

const uint8_t *slotEntry(FatObject &dir, uint32_t index) {
  return dir.volume->at(dir.slots[index]);
}

// Whether slot `index` holds a visible file or directory.
bool visible(FatObject &dir, uint32_t index) {
  if (index >= dir.endSlot) {
    return false;
  }
  const uint8_t *e = slotEntry(dir, index);
  uint8_t attr = e[11];
  return e[0] != kDeleted && e[0] != '.' &&
         (attr & kAttrLongName) != kAttrLongName &&
         (attr & kAttrVolumeLabel) == 0;
}

// The long name stored in the pieces right before the short entry at
// `index`; empty when there is none or it does not belong to this entry.
std::string longNameOf(FatObject &dir, uint32_t index) {
  const uint8_t *shortEntry = slotEntry(dir, index);
  uint8_t sum = shortNameChecksum(shortEntry);
  std::u16string units;
  for (uint32_t k = 1; k <= kMaxLongPieces && k <= index; ++k) {
    const uint8_t *e = slotEntry(dir, index - k);
    if (e[11] != kAttrLongName || e[0] == kDeleted || e[13] != sum ||
        (e[0] & 0x1F) != k) {
      return {};
    }
    unpackLongNamePiece(e, units);
    if (e[0] & 0x40) {
      size_t end = units.find(u'\0');
      if (end != std::u16string::npos) {
        units.resize(end);
      }
      std::string name;
      return unitsToUtf8(units, name) ? name : std::string();
    }
  }
  return {};
}

bool shortNameTaken(FatObject &dir, const uint8_t *shortName) {
  for (uint32_t i = 0; i < dir.endSlot; ++i) {
    const uint8_t *e = slotEntry(dir, i);
    if (e[0] != kDeleted && e[11] != kAttrLongName &&
        std::memcmp(e, shortName, 11) == 0) {
      return true;
    }
  }
  return false;
}

// The first run of `count` free slots, or -1.
int64_t freeRun(FatObject &dir, uint32_t count) {
  uint32_t run = 0;
  for (uint32_t i = 0; i < dir.slots.size(); ++i) {
    bool isFree = i >= dir.endSlot || slotEntry(dir, i)[0] == kDeleted;
    run = isFree ? run + 1 : 0;
    if (run == count) {
      return static_cast<int64_t>(i + 1 - count);
    }
  }
  return -1;
}

Error growDirectory(FatObject &dir) {
  Volume &vol = *dir.volume;
  if (dir.root) {
    return FAT_ERR_DIR_FULL;
  }
  if (dir.slots.size() + vol.geo.clusterBytes() / kDirEntrySize >
      kMaxDirSlots) {
    return FAT_ERR_DIR_FULL;
  }
  std::vector<uint32_t> clusters;
  Error err = vol.chain(dir.firstCluster, clusters);
  if (err == FAT_OK) {
    err = vol.grow(clusters, 1);
  }
  if (err != FAT_OK) {
    return err;
  }
  ++vol.generation;
  return refreshSlots(dir);
}

void writeShortEntry(uint8_t *e, const uint8_t *shortName, uint8_t attributes,
                     uint8_t caseBits) {
  std::memset(e, 0, kDirEntrySize);
  std::memcpy(e, shortName, 11);
  e[11] = attributes;
  e[12] = caseBits;
  uint16_t date, time;
  fatTimestamp(date, time);
  for (int off : {14, 22}) {
    put16(e + off, time);
  }
  for (int off : {16, 18, 24}) {
    put16(e + off, date);
  }
}

// The short name for a new entry: the name itself when it fits 8.3, else
// an alias that no other entry of the directory has.
Error chooseShortName(FatObject &dir, std::string_view name,
                      uint8_t shortName[11], uint8_t &caseBits,
                      bool &needsLongName) {
  caseBits = 0;
  needsLongName = !shortNameFits(name, shortName, caseBits);
  if (!needsLongName) {
    return FAT_OK;
  }
  uint8_t basis[11];
  bool lossy = aliasBasis(name, basis);
  if (!lossy && !shortNameTaken(dir, basis)) {
    std::memcpy(shortName, basis, 11);
    return FAT_OK;
  }
  for (uint32_t n = 1; n < 1000000; ++n) {
    aliasWithTail(basis, n, shortName);
    if (!shortNameTaken(dir, shortName)) {
      return FAT_OK;
    }
  }
  return FAT_ERR_DIR_FULL;
}

}  // namespace

Error refreshSlots(FatObject &dir) {
  Volume &vol = *dir.volume;
  if (dir.generation == vol.generation) {
    return FAT_OK;
  }
  dir.slots.clear();
  const Geometry &g = vol.geo;
  if (dir.root) {
    for (uint32_t i = 0; i < g.rootEntries; ++i) {
      dir.slots.push_back(g.rootStart * g.bytesPerSector + i * kDirEntrySize);
    }
  } else {
    std::vector<uint32_t> clusters;
    Error err = vol.chain(dir.firstCluster, clusters);
    if (err != FAT_OK) {
      return err;
    }
    for (uint32_t c : clusters) {
      for (uint32_t off = 0;
           off < g.clusterBytes() && dir.slots.size() < kMaxDirSlots;
           off += kDirEntrySize) {
        dir.slots.push_back(vol.clusterOffset(c) + off);
      }
    }
  }
  dir.endSlot = static_cast<uint32_t>(dir.slots.size());
  for (uint32_t i = 0; i < dir.slots.size(); ++i) {
    if (slotEntry(dir, i)[0] == 0) {
      dir.endSlot = i;
      break;
    }
  }
  dir.generation = vol.generation;
  return FAT_OK;
}

std::string entryName(FatObject &dir, uint32_t index) {
  if (!visible(dir, index)) {
    return {};
  }
  std::string name = longNameOf(dir, index);
  return name.empty() ? shortNameText(slotEntry(dir, index), true) : name;
}

Error findEntry(FatObject &dir, std::string_view name, Found &found) {
  Error err = refreshSlots(dir);
  if (err != FAT_OK) {
    return err;
  }
  for (uint32_t i = 0; i < dir.endSlot; ++i) {
    if (!visible(dir, i)) {
      continue;
    }
    const uint8_t *e = slotEntry(dir, i);
    if (str::equalsCaseless(name, shortNameText(e, false)) ||
        str::equalsCaseless(name, longNameOf(dir, i))) {
      found.entryOffset = dir.slots[i];
      found.attributes = e[11];
      return FAT_OK;
    }
  }
  return FAT_ERR_NOT_FOUND;
}

Error addEntry(FatObject &dir, std::string_view name, uint8_t attributes,
               uint32_t &entryOffset) {
  Volume &vol = *dir.volume;
  if (!vol.writable) {
    return FAT_ERR_READ_ONLY;
  }
  std::u16string units;
  Error err = checkNewName(name, units);
  Found existing;
  if (err == FAT_OK) {
    err = findEntry(dir, name, existing);
    err = err == FAT_OK              ? FAT_ERR_EXISTS
          : err == FAT_ERR_NOT_FOUND ? FAT_OK
                                     : err;
  }
  uint8_t shortName[11], caseBits;
  bool needsLongName = false;
  if (err == FAT_OK) {
    err = chooseShortName(dir, name, shortName, caseBits, needsLongName);
  }
  if (err != FAT_OK) {
    return err;
  }
  uint32_t pieces =
      needsLongName ? static_cast<uint32_t>((units.size() + 12) / 13) : 0;
  int64_t start = freeRun(dir, pieces + 1);
  while (start < 0) {
    if ((err = growDirectory(dir)) != FAT_OK) {
      return err;
    }
    start = freeRun(dir, pieces + 1);
  }
  auto first = static_cast<uint32_t>(start);
  uint8_t sum = shortNameChecksum(shortName);
  for (uint32_t k = 0; k < pieces; ++k) {
    uint32_t piece = pieces - k;  // the last piece comes first
    packLongNamePiece(units, piece, k == 0, sum, vol.at(dir.slots[first + k]));
  }
  entryOffset = dir.slots[first + pieces];
  writeShortEntry(vol.at(entryOffset), shortName, attributes, caseBits);
  // Slots of a subdirectory may cross into a cluster elsewhere.
  for (uint32_t k = 0; k <= pieces; ++k) {
    vol.markDirty(dir.slots[first + k], kDirEntrySize);
  }
  // Entries placed past the end marker move it; the slot after them must
  // read as the end again, whatever an odd image left there.
  uint32_t newEnd = first + pieces + 1;
  if (newEnd > dir.endSlot && newEnd < dir.slots.size()) {
    std::memset(vol.at(dir.slots[newEnd]), 0, kDirEntrySize);
    vol.markDirty(dir.slots[newEnd], kDirEntrySize);
  }
  ++vol.generation;
  return FAT_OK;
}

Error openDirectory(FatHandle dir, const char *name, FatHandle *subdir) {
  if (subdir == nullptr) {
    return FAT_ERR_ARG;
  }
  *subdir = nullptr;
  if (!isDirHandle(dir) || name == nullptr) {
    return FAT_ERR_ARG;
  }
  Found found;
  Error err = findEntry(*dir, name, found);
  if (err != FAT_OK) {
    return err;
  }
  if (!(found.attributes & kAttrDirectory)) {
    return FAT_ERR_NOT_DIR;
  }
  const uint8_t *e = dir->volume->at(found.entryOffset);
  auto handle = std::make_unique<FatObject>(FatObject::Kind::Dir, dir->volume);
  handle->firstCluster = entryFirstCluster(e);
  if (handle->firstCluster == 0) {
    return FAT_ERR_BAD_IMAGE;  // only ".." may point at the root
  }
  if ((err = refreshSlots(*handle)) != FAT_OK) {
    return err;
  }
  *subdir = handle.release();
  return FAT_OK;
}

int64_t entryCount(FatHandle dir) {
  if (!isDirHandle(dir) || refreshSlots(*dir) != FAT_OK) {
    return -1;
  }
  return static_cast<int64_t>(dir->slots.size());
}

Error catalogEntry(FatHandle dir, int64_t index, uint8_t *present, char **name,
                   uint8_t *isDirectory, uint64_t *size, uint8_t *attributes) {
  if (present) *present = 0;
  if (name) *name = nullptr;
  if (isDirectory) *isDirectory = 0;
  if (size) *size = 0;
  if (attributes) *attributes = 0;
  if (!isDirHandle(dir)) {
    return FAT_ERR_ARG;
  }
  Error err = refreshSlots(*dir);
  if (err != FAT_OK) {
    return err;
  }
  if (index < 0 || static_cast<uint64_t>(index) >= dir->slots.size()) {
    return FAT_ERR_ARG;
  }
  auto i = static_cast<uint32_t>(index);
  if (!visible(*dir, i)) {
    return FAT_OK;
  }
  const uint8_t *e = slotEntry(*dir, i);
  if (present) *present = 1;
  if (name) *name = heapCopy(entryName(*dir, i));
  if (isDirectory) *isDirectory = (e[11] & kAttrDirectory) ? 1 : 0;
  if (size) *size = entrySize(e);
  if (attributes) *attributes = e[11];
  return FAT_OK;
}

}  // namespace gp::fat
