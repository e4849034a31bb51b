// Volumes of the FAT image service: the boot sector, the FAT, formatting,
// opening, and writing changed sectors back.
#include "platform/fatimage.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/fatimage_internal.h"

namespace gp::fat {
namespace {

bool isPowerOfTwo(uint32_t v) { return v != 0 && (v & (v - 1)) == 0; }

// A FAT12 volume has fewer clusters than this; more means FAT16 or FAT32.
constexpr uint32_t kFat12ClusterLimit = 4085;
// The largest volume loaded into memory. FAT12 volumes with big clusters
// can pass a floppy's size by far; such images are not floppies.
constexpr uint64_t kMaxVolumeBytes = 64u << 20;
// Clean sectors between two dirty runs that are still written with them,
// so a flush is one write rather than one per run.
constexpr uint32_t kMergeGap = 128;

// The 1.44 MB layout that formatVolume() writes.
constexpr uint32_t kSectorSize = 512;
constexpr uint32_t kFloppySectors = 2880;
constexpr uint32_t kFloppyFatSectors = 9;
constexpr uint32_t kFloppyRootEntries = 224;
constexpr uint8_t kFloppyMedia = 0xF0;

Error errnoError() { return errno == ENOENT ? FAT_ERR_NOT_FOUND : FAT_ERR_IO; }

// Boot code of a data floppy: tell the BIOS to try the next boot device,
// then halt.
const uint8_t kBootCode[] = {0xCD, 0x18, 0xF4, 0xEB, 0xFD};

void buildFloppy(std::vector<uint8_t> &image) {
  image.assign(kFloppySectors * kSectorSize, 0);
  uint8_t *b = image.data();
  const uint8_t jump[] = {0xEB, 0x3C, 0x90};
  std::memcpy(b, jump, sizeof jump);
  std::memcpy(b + 3, "GUESTPRP", 8);
  put16(b + 11, kSectorSize);
  b[13] = 1;         // sectors per cluster
  put16(b + 14, 1);  // reserved sectors
  b[16] = 2;         // FAT copies
  put16(b + 17, kFloppyRootEntries);
  put16(b + 19, kFloppySectors);
  b[21] = kFloppyMedia;
  put16(b + 22, kFloppyFatSectors);
  put16(b + 24, 18);  // sectors per track
  put16(b + 26, 2);   // heads
  b[36] = 0x00;       // drive number: first floppy
  b[38] = 0x29;       // extended boot signature
  uint32_t serial = static_cast<uint32_t>(hostOps().time(nullptr)) ^
                    static_cast<uint32_t>(hostOps().rand()) << 8;
  put32(b + 39, serial);
  std::memcpy(b + 43, "NO NAME    ", 11);
  std::memcpy(b + 54, "FAT12   ", 8);
  std::memcpy(b + 62, kBootCode, sizeof kBootCode);
  b[510] = 0x55;
  b[511] = 0xAA;
  for (uint32_t copy = 0; copy < 2; ++copy) {
    uint8_t *fat = b + (1 + copy * kFloppyFatSectors) * kSectorSize;
    fat[0] = kFloppyMedia;
    fat[1] = 0xFF;
    fat[2] = 0xFF;
  }
}

FatHandle newVolumeHandle(std::shared_ptr<Volume> vol) {
  return new FatObject(FatObject::Kind::Volume, std::move(vol));
}

}  // namespace

Error parseGeometry(ByteView s, size_t fileSize, Geometry &g) {
  g = Geometry{};
  g.bytesPerSector = s.le16(11);
  g.sectorsPerCluster = s.u8(13);
  g.reservedSectors = s.le16(14);
  g.fatCount = s.u8(16);
  g.rootEntries = s.le16(17);
  g.totalSectors = s.le16(19) ? s.le16(19) : s.le32(32);
  g.sectorsPerFat = s.le16(22);
  if (g.bytesPerSector < 512 || g.bytesPerSector > 4096 ||
      !isPowerOfTwo(g.bytesPerSector) || !isPowerOfTwo(g.sectorsPerCluster) ||
      g.clusterBytes() > 65536 || g.reservedSectors == 0 || g.fatCount == 0 ||
      g.fatCount > 4 || g.totalSectors == 0) {
    return FAT_ERR_BAD_IMAGE;
  }
  if (g.sectorsPerFat == 0 || g.rootEntries == 0) {
    return FAT_ERR_UNSUPPORTED;  // FAT32 keeps these in other fields
  }
  if (g.rootEntries > kMaxDirSlots) {
    return FAT_ERR_BAD_IMAGE;
  }
  uint64_t volumeBytes = uint64_t{g.totalSectors} * g.bytesPerSector;
  if (volumeBytes > kMaxVolumeBytes) {
    return FAT_ERR_UNSUPPORTED;
  }
  if (volumeBytes > fileSize) {
    return FAT_ERR_BAD_IMAGE;  // truncated image file
  }
  uint64_t rootStart =
      g.reservedSectors + uint64_t{g.fatCount} * g.sectorsPerFat;
  uint64_t rootSectors =
      (uint64_t{g.rootEntries} * kDirEntrySize + g.bytesPerSector - 1) /
      g.bytesPerSector;
  uint64_t dataStart = rootStart + rootSectors;
  if (dataStart >= g.totalSectors) {
    return FAT_ERR_BAD_IMAGE;
  }
  g.rootStart = static_cast<uint32_t>(rootStart);
  g.rootSectors = static_cast<uint32_t>(rootSectors);
  g.dataStart = static_cast<uint32_t>(dataStart);
  g.clusterCount = (g.totalSectors - g.dataStart) / g.sectorsPerCluster;
  if (g.clusterCount == 0) {
    return FAT_ERR_BAD_IMAGE;
  }
  if (g.clusterCount >= kFat12ClusterLimit) {
    return FAT_ERR_UNSUPPORTED;
  }
  // Every cluster's FAT entry must lie inside one FAT copy.
  uint64_t fatBytes = uint64_t{g.sectorsPerFat} * g.bytesPerSector;
  if ((uint64_t{g.maxCluster()} * 3) / 2 + 2 > fatBytes) {
    return FAT_ERR_BAD_IMAGE;
  }
  return FAT_OK;
}

void Volume::markDirty(uint32_t offset, uint32_t length) {
  if (length == 0) {
    return;
  }
  uint32_t first = offset / geo.bytesPerSector;
  uint32_t last = (offset + length - 1) / geo.bytesPerSector;
  for (uint32_t s = first; s <= last; ++s) {
    dirty[s] = 1;
  }
  anyDirty = true;
}

Error Volume::flush() {
  if (!anyDirty) {
    return FAT_OK;
  }
  const uint32_t n = geo.totalSectors;
  uint32_t s = 0;
  while (s < n) {
    if (!dirty[s]) {
      ++s;
      continue;
    }
    uint32_t end = s + 1;  // one past the last dirty sector of the run
    for (uint32_t probe = end; probe < n && probe - end < kMergeGap; ++probe) {
      if (dirty[probe]) {
        end = probe + 1;
      }
    }
    size_t off = size_t{s} * geo.bytesPerSector;
    size_t len = size_t{end - s} * geo.bytesPerSector;
    if (!pwriteFull(fd.get(), bytes.data() + off, len,
                    static_cast<off_t>(off))) {
      return FAT_ERR_IO;
    }
    std::memset(dirty.data() + s, 0, end - s);
    s = end;
  }
  anyDirty = false;
  return FAT_OK;
}

uint32_t Volume::fatEntry(uint32_t cluster) const {
  size_t off =
      size_t{geo.reservedSectors} * geo.bytesPerSector + cluster + cluster / 2;
  uint32_t v = bytes[off] | bytes[off + 1] << 8;
  return (cluster & 1) ? v >> 4 : v & 0xFFF;
}

void Volume::setFatEntry(uint32_t cluster, uint32_t value) {
  // Every copy is kept identical.
  for (uint32_t copy = 0; copy < geo.fatCount; ++copy) {
    uint32_t off =
        (geo.reservedSectors + copy * geo.sectorsPerFat) * geo.bytesPerSector +
        cluster + cluster / 2;
    uint8_t *p = at(off);
    if (cluster & 1) {
      p[0] = static_cast<uint8_t>((p[0] & 0x0F) | (value << 4 & 0xF0));
      p[1] = static_cast<uint8_t>(value >> 4);
    } else {
      p[0] = static_cast<uint8_t>(value);
      p[1] = static_cast<uint8_t>((p[1] & 0xF0) | (value >> 8 & 0x0F));
    }
    markDirty(off, 2);
  }
}

Error Volume::chain(uint32_t first, std::vector<uint32_t> &out) const {
  out.clear();
  if (first == 0) {
    return FAT_OK;
  }
  uint32_t c = first;
  for (;;) {
    // A chain longer than the volume has clusters loops.
    if (c < 2 || c > geo.maxCluster() || out.size() >= geo.clusterCount) {
      return FAT_ERR_BAD_IMAGE;
    }
    out.push_back(c);
    uint32_t next = fatEntry(c);
    if (next >= 0xFF8) {
      return FAT_OK;
    }
    c = next;
  }
}

uint32_t Volume::freeClusters() const {
  uint32_t count = 0;
  for (uint32_t c = 2; c <= geo.maxCluster(); ++c) {
    count += fatEntry(c) == 0;
  }
  return count;
}

Error Volume::grow(std::vector<uint32_t> &clusters, uint32_t count) {
  if (count == 0) {
    return FAT_OK;
  }
  if (freeClusters() < count) {
    return FAT_ERR_DISK_FULL;
  }
  const uint32_t span = geo.clusterCount;
  uint32_t c = allocHint >= 2 && allocHint <= geo.maxCluster() ? allocHint : 2;
  for (uint32_t added = 0; added < count;) {
    if (fatEntry(c) == 0) {
      setFatEntry(c, 0xFFF);
      if (!clusters.empty()) {
        setFatEntry(clusters.back(), c);
      }
      clusters.push_back(c);
      uint32_t off = clusterOffset(c);
      std::memset(at(off), 0, geo.clusterBytes());
      markDirty(off, geo.clusterBytes());
      ++added;
    }
    c = c - 2 + 1 < span ? c + 1 : 2;
  }
  allocHint = c;
  return FAT_OK;
}

void fatTimestamp(uint16_t &date, uint16_t &time) {
  time_t now = hostOps().time(nullptr);
  struct tm tm;
  if (localtime_r(&now, &tm) == nullptr || tm.tm_year < 80 ||
      tm.tm_year > 207) {
    date = (0 << 9) | (1 << 5) | 1;  // 1980-01-01
    time = 0;
    return;
  }
  date = static_cast<uint16_t>((tm.tm_year - 80) << 9 | (tm.tm_mon + 1) << 5 |
                               tm.tm_mday);
  time =
      static_cast<uint16_t>(tm.tm_hour << 11 | tm.tm_min << 5 | tm.tm_sec / 2);
}

const char *errorText(Error err) {
  switch (err) {
    case FAT_OK:
      return "success";
    case FAT_ERR_ARG:
      return "invalid argument";
    case FAT_ERR_NOT_FOUND:
      return "not found";
    case FAT_ERR_DISK_FULL:
      return "disk full";
    case FAT_ERR_DIR_FULL:
      return "directory full";
    case FAT_ERR_BAD_IMAGE:
      return "bad image";
    case FAT_ERR_IO:
      return "I/O error";
    case FAT_ERR_EXISTS:
      return "name exists";
    case FAT_ERR_BAD_NAME:
      return "invalid name";
    case FAT_ERR_READ_ONLY:
      return "read-only volume";
    case FAT_ERR_IS_DIR:
      return "is a directory";
    case FAT_ERR_NOT_DIR:
      return "not a directory";
    case FAT_ERR_UNSUPPORTED:
      return "unsupported file system";
    case FAT_ERR_TOO_LARGE:
      return "file too large";
    default:
      return "unknown error";
  }
}

Error formatVolume(FatHandle disk, const char *path, int create, int writable,
                   FatHandle *volume) {
  if (volume == nullptr) {
    return FAT_ERR_ARG;
  }
  *volume = nullptr;
  if (disk != nullptr || path == nullptr || create != 1) {
    return FAT_ERR_ARG;
  }
  auto vol = std::make_shared<Volume>();
  buildFloppy(vol->bytes);
  Error err = parseGeometry(ByteView(vol->bytes.data(), vol->bytes.size()),
                            vol->bytes.size(), vol->geo);
  if (err != FAT_OK) {
    return err;
  }
  vol->fd = gp::openUntrustedFile(path, O_RDWR | O_CREAT | O_TRUNC, 0644);
  if (!vol->fd.valid()) {
    return errnoError();
  }
  // The whole image in one write.
  if (!pwriteFull(vol->fd.get(), vol->bytes.data(), vol->bytes.size(), 0)) {
    return FAT_ERR_IO;
  }
  vol->writable = writable != 0;
  vol->dirty.assign(vol->geo.totalSectors, 0);
  *volume = newVolumeHandle(std::move(vol));
  return FAT_OK;
}

Error openVolume(FatHandle disk, const char *path, int writable,
                 FatHandle *volume) {
  if (volume == nullptr) {
    return FAT_ERR_ARG;
  }
  *volume = nullptr;
  if (disk != nullptr || path == nullptr) {
    return FAT_ERR_ARG;
  }
  auto vol = std::make_shared<Volume>();
  vol->fd = gp::openUntrustedFile(path, writable ? O_RDWR : O_RDONLY);
  if (!vol->fd.valid()) {
    return errnoError();
  }
  struct stat st;
  if (hostOps().fstat(vol->fd.get(), &st) != 0) {
    return FAT_ERR_IO;
  }
  if (!S_ISREG(st.st_mode)) {
    return FAT_ERR_BAD_IMAGE;
  }
  uint8_t boot[512];
  ssize_t got = preadFull(vol->fd.get(), boot, sizeof boot, 0);
  if (got < 0) {
    return FAT_ERR_IO;
  }
  if (got < static_cast<ssize_t>(sizeof boot)) {
    return FAT_ERR_BAD_IMAGE;
  }
  Error err = parseGeometry(ByteView(boot, sizeof boot),
                            static_cast<size_t>(st.st_size), vol->geo);
  if (err != FAT_OK) {
    return err;
  }
  size_t volumeBytes = size_t{vol->geo.totalSectors} * vol->geo.bytesPerSector;
  vol->bytes.resize(volumeBytes);
  got = preadFull(vol->fd.get(), vol->bytes.data(), volumeBytes, 0);
  if (got < 0) {
    return FAT_ERR_IO;
  }
  if (static_cast<size_t>(got) < volumeBytes) {
    return FAT_ERR_BAD_IMAGE;  // shrank since fstat
  }
  vol->writable = writable != 0;
  vol->dirty.assign(vol->geo.totalSectors, 0);
  *volume = newVolumeHandle(std::move(vol));
  return FAT_OK;
}

Error skipVolumeBoot(FatHandle volume, int kind) {
  if (volume == nullptr || volume->kind != FatObject::Kind::Volume) {
    return FAT_ERR_ARG;
  }
  // The boot area was already measured when the volume was opened; all
  // that is left is to make sure the caller expects what is there.
  return kind == FAT_FILE_SYSTEM ? FAT_OK : FAT_ERR_UNSUPPORTED;
}

Error openRootDirectory(FatHandle volume, FatHandle *dir) {
  if (dir == nullptr) {
    return FAT_ERR_ARG;
  }
  *dir = nullptr;
  if (volume == nullptr || volume->kind != FatObject::Kind::Volume) {
    return FAT_ERR_ARG;
  }
  auto handle =
      std::make_unique<FatObject>(FatObject::Kind::Dir, volume->volume);
  handle->root = true;
  Error err = refreshSlots(*handle);
  if (err != FAT_OK) {
    return err;
  }
  *dir = handle.release();
  return FAT_OK;
}

Error close(FatHandle handle) {
  if (handle == nullptr) {
    return FAT_ERR_ARG;
  }
  std::unique_ptr<FatObject> owner(handle);
  Volume &vol = *owner->volume;
  Error err = FAT_OK;
  if (owner->kind != FatObject::Kind::Dir) {
    err = vol.flush();
  }
  if (owner->kind == FatObject::Kind::File && owner->file.use_count() == 1) {
    vol.openFiles.erase(owner->file->entryOffset);
  }
  return err;
}

uint64_t freeBytes(FatHandle handle) {
  if (handle == nullptr) {
    return 0;
  }
  const Volume &vol = *handle->volume;
  return uint64_t{vol.freeClusters()} * vol.geo.clusterBytes();
}

}  // namespace gp::fat
