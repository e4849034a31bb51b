#include "platform/udf_volume.h"

#include <algorithm>
#include <cstring>

namespace gp::udf {

using disc::Bytes;
using disc::LbAddr;

namespace {

constexpr uint64_t kRecognitionStart = 32768;
constexpr int kMaxRecognitionDescriptors = 64;
constexpr size_t kMaxSequenceDescriptors = 512;
constexpr int kMaxPointerHops = 16;
constexpr uint32_t kMaxPartitionMaps = 64;
constexpr uint32_t kAnchorBlock = 256;

bool regidIs(Bytes regid, const char *ident) {
  size_t n = std::strlen(ident);
  return regid.size() >= 1 + n && std::memcmp(regid.data() + 1, ident, n) == 0;
}

}  // namespace

std::unique_ptr<Volume> Volume::open(const char *path) {
  std::unique_ptr<Volume> volume(new Volume);
  volume->fd_ = openUntrustedFile(path, O_RDONLY);
  if (!volume->fd_.valid()) {
    return nullptr;
  }
  struct stat st;
  if (hostOps().fstat(volume->fd_.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    return nullptr;
  }
  volume->imageSize_ = static_cast<uint64_t>(st.st_size);
  if (!volume->hasNsrDescriptor()) {
    return nullptr;
  }
  // Optical media use 2048-byte blocks; images of other media may not.
  for (uint32_t blockSize : {2048u, 512u, 1024u, 4096u}) {
    if (volume->openWithBlockSize(blockSize)) {
      return volume;
    }
  }
  return nullptr;
}

bool Volume::readImage(uint64_t offset, size_t length, uint8_t *out) const {
  if (offset > imageSize_ || length > imageSize_ - offset) {
    return false;
  }
  ssize_t n = preadFull(fd_.get(), out, length, static_cast<off_t>(offset));
  if (n < 0) {
    return false;
  }
  bytesRead_ += static_cast<uint64_t>(n);
  return static_cast<size_t>(n) == length;
}

// A UDF volume announces itself in the volume recognition sequence, which
// a bridge image shares with its ISO 9660 descriptors.
bool Volume::hasNsrDescriptor() const {
  for (uint64_t step : {2048u, 4096u}) {
    for (int i = 0; i < kMaxRecognitionDescriptors; ++i) {
      uint8_t head[7];
      if (!readImage(kRecognitionStart + i * step, sizeof head, head)) {
        break;
      }
      std::string_view id(reinterpret_cast<const char *>(head + 1), 5);
      if (id == "NSR02" || id == "NSR03") {
        return true;
      }
      if (id != "BEA01" && id != "CD001" && id != "CDW02" && id != "BOOT2") {
        break;
      }
    }
  }
  return false;
}

bool Volume::openWithBlockSize(uint32_t blockSize) {
  blockSize_ = blockSize;
  uint64_t blocks = imageSize_ / blockSize;
  if (blocks <= kAnchorBlock) {
    return false;
  }
  std::vector<uint8_t> block(blockSize);
  for (uint64_t where : {uint64_t{kAnchorBlock}, blocks - 256, blocks - 1}) {
    if (!readImage(where * blockSize, blockSize, block.data())) {
      continue;
    }
    Bytes anchor(block.data(), block.size());
    if (!disc::validTag(anchor, disc::TAG_ANCHOR)) {
      continue;
    }
    uint32_t mainLength = anchor.le32(16), mainLocation = anchor.le32(20);
    uint32_t reserveLength = anchor.le32(24), reserveLocation = anchor.le32(28);
    if ((readSequence(mainLocation, mainLength) && setUp()) ||
        (readSequence(reserveLocation, reserveLength) && setUp())) {
      return true;
    }
  }
  return false;
}

bool Volume::readSequence(uint32_t location, uint32_t length) {
  partitionDescs_.clear();
  lvd_.clear();
  std::vector<uint8_t> block(blockSize_);
  uint64_t at = location;
  uint64_t end = at + length / blockSize_;
  int hops = 0;
  for (size_t count = 0; at < end && count < kMaxSequenceDescriptors;
       ++count, ++at) {
    if (!readImage(at * blockSize_, blockSize_, block.data())) {
      break;
    }
    Bytes d(block.data(), block.size());
    uint16_t id = disc::tagId(d);
    if (!disc::validTag(d, id) || id == disc::TAG_TERMINATING) {
      break;
    }
    if (id == disc::TAG_PARTITION) {
      uint16_t number = d.le16(22);
      bool known = std::any_of(
          partitionDescs_.begin(), partitionDescs_.end(),
          [&](const PartitionDesc &p) { return p.number == number; });
      if (!known) {
        partitionDescs_.push_back({number, d.le32(188), d.le32(192)});
      }
    } else if (id == disc::TAG_LOGICAL_VOLUME && lvd_.empty()) {
      lvd_.assign(reinterpret_cast<const char *>(block.data()), block.size());
    } else if (id == disc::TAG_POINTER) {
      if (++hops > kMaxPointerHops) {
        break;
      }
      at = uint64_t{d.le32(24)} - 1;  // the loop's increment moves onto it
      end = d.le32(24) + uint64_t{d.le32(20)} / blockSize_;
    }
  }
  return !lvd_.empty() && !partitionDescs_.empty();
}

bool Volume::setUp() {
  Bytes lvd(lvd_);
  if (lvd.le32(212) != blockSize_ || !setUpPartitions(lvd)) {
    return false;
  }
  disc::LongAd fsdAd = disc::decodeLongAd(lvd, 248);
  std::vector<uint8_t> block(blockSize_);
  if (!read(fsdAd.where, blockSize_, block.data())) {
    return false;
  }
  Bytes fsd(block.data(), block.size());
  if (!disc::validTag(fsd, disc::TAG_FILE_SET)) {
    return false;
  }
  root_ = disc::decodeLongAd(fsd, 400).where;
  return true;
}

bool Volume::setUpPartitions(Bytes lvd) {
  partitions_.clear();
  uint32_t tableLength = lvd.le32(264);
  uint32_t count = lvd.le32(268);
  if (count == 0 || count > kMaxPartitionMaps ||
      tableLength > lvd.size() - 440) {
    return false;
  }
  Bytes table = lvd.clip(440, tableLength);
  struct Pending {
    size_t ref;
    uint32_t file, mirror;
  };
  std::vector<Pending> pendingMeta;
  std::vector<size_t> pendingVirtual;
  std::vector<uint16_t> numbers;
  size_t at = 0;
  for (uint32_t i = 0; i < count; ++i) {
    uint8_t type = table.u8(at), length = table.u8(at + 1);
    if (length < 2 || at + length > table.size()) {
      return false;
    }
    Bytes map = table.clip(at, length);
    at += length;
    Partition p;
    uint16_t number = 0xFFFF;
    bool physical = false;
    if (type == 1 && length >= 6) {
      number = map.le16(4);
      physical = true;
    } else if (type == 2 && length >= 40) {
      number = map.le16(38);
      Bytes regid = map.clip(4, 32);
      if (regidIs(regid, "*UDF Sparable Partition")) {
        // Spared packets are never remapped on pressed or mastered media.
        physical = true;
      } else if (regidIs(regid, "*UDF Metadata Partition") && length >= 52) {
        p.kind = Partition::Kind::Metadata;
        pendingMeta.push_back({partitions_.size(), map.le32(40), map.le32(44)});
      } else if (regidIs(regid, "*UDF Virtual Partition")) {
        pendingVirtual.push_back(partitions_.size());
      }
    }
    if (physical) {
      for (const PartitionDesc &d : partitionDescs_) {
        if (d.number == number) {
          p.kind = Partition::Kind::Physical;
          p.start = d.start;
          p.length = d.length;
          break;
        }
      }
    }
    numbers.push_back(number);
    partitions_.push_back(std::move(p));
  }
  // Metadata and virtual partitions lie on the physical partition of the
  // same number.
  auto physicalOf = [&](size_t ref, uint16_t &physical) {
    for (size_t other = 0; other < partitions_.size(); ++other) {
      if (partitions_[other].kind == Partition::Kind::Physical &&
          numbers[other] == numbers[ref]) {
        physical = static_cast<uint16_t>(other);
        return true;
      }
    }
    return false;
  };
  for (size_t ref : pendingVirtual) {
    Partition &virt = partitions_[ref];
    if (physicalOf(ref, virt.physical) && loadVirtualTable(virt)) {
      virt.kind = Partition::Kind::Virtual;
    }
  }
  for (const Pending &m : pendingMeta) {
    Partition &meta = partitions_[m.ref];
    meta.kind = Partition::Kind::Unusable;
    if (!physicalOf(m.ref, meta.physical)) {
      continue;
    }
    // The mirror copy stands in when the main metadata file is damaged.
    if (loadMetadataMap(meta, m.file) || loadMetadataMap(meta, m.mirror)) {
      meta.kind = Partition::Kind::Metadata;
    }
  }
  return true;
}

bool Volume::loadMetadataMap(Partition &meta, uint32_t fileBlock) {
  Node node;
  if (!loadNode({fileBlock, meta.physical}, node) || node.embedded ||
      (node.fileType != disc::FILE_TYPE_METADATA &&
       node.fileType != disc::FILE_TYPE_METADATA_MIRROR)) {
    return false;
  }
  meta.map.clear();
  meta.mapStart.clear();
  uint64_t offset = 0;
  for (const disc::Extent &e : node.extents) {
    if (e.where.partition != meta.physical) {
      return false;
    }
    meta.map.push_back(e);
    meta.mapStart.push_back(offset);
    offset += e.length;
  }
  return !meta.map.empty();
}

// The allocation table of a write-once medium is the file entry in the
// last recorded block; a closed medium has its anchors after it, so the
// last few hundred blocks are searched backwards.
bool Volume::loadVirtualTable(Partition &virt) {
  const Partition &physical = partitions_[virt.physical];
  uint64_t imageBlocks = imageSize_ / blockSize_;
  uint64_t last = std::min<uint64_t>(
      imageBlocks, uint64_t{physical.start} + physical.length);
  for (uint64_t back = 1; back <= 512 && back <= last; ++back) {
    uint64_t block = last - back;
    if (block < physical.start) {
      break;
    }
    Node node;
    if (!loadNode(
            {static_cast<uint32_t>(block - physical.start), virt.physical},
            node)) {
      continue;
    }
    std::string table;
    if (!readData(node, kMaxVatBytes, table)) {
      continue;
    }
    Bytes t(table);
    size_t begin = 0, end = 0;
    if (node.fileType == disc::FILE_TYPE_VAT) {
      begin = t.le16(0);  // the header's length
      end = t.size();
    } else if (node.fileType == 0 && t.size() >= 36 &&
               regidIs(t.clip(t.size() - 36, 32), "*UDF Virtual Alloc Tbl")) {
      end = t.size() - 36;  // the older layout: entries, then a trailer
    } else {
      continue;
    }
    if (begin > end) {
      continue;
    }
    virt.vat.clear();
    for (size_t at = begin; at + 4 <= end; at += 4) {
      virt.vat.push_back(t.le32(at));
    }
    return true;
  }
  return false;
}

bool Volume::resolve(LbAddr at, uint64_t &imageBlock, uint64_t &run,
                     int depth) const {
  if (at.partition >= partitions_.size() || depth > 1) {
    return false;
  }
  const Partition &p = partitions_[at.partition];
  switch (p.kind) {
    case Partition::Kind::Physical:
      if (at.block >= p.length) {
        return false;
      }
      imageBlock = uint64_t{p.start} + at.block;
      run = p.length - at.block;
      return true;
    case Partition::Kind::Metadata: {
      uint64_t offset = uint64_t{at.block} * blockSize_;
      auto it = std::upper_bound(p.mapStart.begin(), p.mapStart.end(), offset);
      if (it == p.mapStart.begin()) {
        return false;
      }
      size_t i = static_cast<size_t>(it - p.mapStart.begin()) - 1;
      const disc::Extent &e = p.map[i];
      uint64_t inExtent = offset - p.mapStart[i];
      if (inExtent >= e.length || !e.recorded) {
        return false;
      }
      uint64_t skip = inExtent / blockSize_;
      uint64_t left = (e.length - inExtent + blockSize_ - 1) / blockSize_;
      if (e.where.block + skip > UINT32_MAX) {
        return false;
      }
      LbAddr below{static_cast<uint32_t>(e.where.block + skip), p.physical};
      if (!resolve(below, imageBlock, run, depth + 1)) {
        return false;
      }
      run = std::min(run, left);
      return true;
    }
    case Partition::Kind::Virtual: {
      if (at.block >= p.vat.size() || p.vat[at.block] == 0xFFFFFFFFu) {
        return false;
      }
      if (!resolve({p.vat[at.block], p.physical}, imageBlock, run, depth + 1)) {
        return false;
      }
      run = 1;  // neighbouring virtual blocks may lie anywhere
      return true;
    }
    default:
      return false;
  }
}

bool Volume::read(LbAddr at, uint64_t length, uint8_t *out) const {
  while (length > 0) {
    uint64_t imageBlock = 0, run = 0;
    if (!resolve(at, imageBlock, run)) {
      return false;
    }
    uint64_t bytes = std::min(length, run * blockSize_);
    if (!readImage(imageBlock * blockSize_, bytes, out)) {
      return false;
    }
    out += bytes;
    length -= bytes;
    uint64_t nextBlock = at.block + run;
    if (length > 0 && nextBlock > UINT32_MAX) {
      return false;
    }
    at.block = static_cast<uint32_t>(nextBlock);
  }
  return true;
}

bool Volume::walkDescriptors(const disc::FileEntry &entry, LbAddr icb,
                             std::vector<disc::Extent> &extents) const {
  Bytes run = entry.descriptors;
  std::vector<uint8_t> block(blockSize_);
  std::vector<LbAddr> visited;
  for (;;) {
    std::optional<LbAddr> next;
    uint32_t nextLength = 0;
    if (!disc::decodeAdRun(run, entry.form, icb.partition, extents, next,
                           nextLength) ||
        extents.size() > kMaxExtents) {
      return false;
    }
    if (!next) {
      return true;
    }
    // A chain that comes back to a block it has visited would never end.
    if (visited.size() >= kMaxChainHops ||
        std::find(visited.begin(), visited.end(), *next) != visited.end()) {
      return false;
    }
    visited.push_back(*next);
    if (!read(*next, blockSize_, block.data())) {
      return false;
    }
    Bytes aed(block.data(), std::min<size_t>(block.size(), nextLength));
    if (!disc::validTag(aed, disc::TAG_ALLOC_EXTENT) ||
        24 + uint64_t{aed.le32(20)} > aed.size()) {
      return false;
    }
    run = aed.clip(24, aed.le32(20));
  }
}

bool Volume::loadNode(LbAddr icb, Node &node) const {
  std::vector<uint8_t> block(blockSize_);
  for (int hop = 0;; ++hop) {
    if (hop > kMaxIndirectHops || !read(icb, blockSize_, block.data())) {
      return false;
    }
    Bytes b(block.data(), block.size());
    if (disc::validTag(b, disc::TAG_INDIRECT_ENTRY)) {
      icb = disc::decodeLongAd(b, 36).where;
      continue;
    }
    uint16_t id = disc::tagId(b);
    if ((id != disc::TAG_FILE_ENTRY && id != disc::TAG_EXTENDED_FILE_ENTRY) ||
        !disc::validTag(b, id)) {
      return false;
    }
    disc::FileEntry entry;
    if (!disc::decodeFileEntry(b, entry)) {
      return false;
    }
    node = Node{};
    node.icb = icb;
    node.fileType = entry.fileType;
    node.infoLength = entry.infoLength;
    if (entry.form == disc::AdForm::Embedded) {
      if (entry.infoLength > entry.descriptors.size()) {
        return false;
      }
      node.embedded = true;
      node.embeddedData.assign(
          reinterpret_cast<const char *>(entry.descriptors.data()),
          entry.infoLength);
      return true;
    }
    return walkDescriptors(entry, icb, node.extents);
  }
}

bool Volume::readData(const Node &node, uint64_t limit,
                      std::string &out) const {
  if (node.infoLength > limit) {
    return false;
  }
  if (node.embedded) {
    out = node.embeddedData;
    return true;
  }
  out.assign(node.infoLength, '\0');
  uint64_t done = 0;
  for (const disc::Extent &e : node.extents) {
    if (done == node.infoLength) {
      break;
    }
    uint64_t length = std::min(e.length, node.infoLength - done);
    auto *dst = reinterpret_cast<uint8_t *>(out.data()) + done;
    if (e.recorded && !read(e.where, length, dst)) {
      return false;
    }
    done += length;  // unrecorded extents stay zero
  }
  return done == node.infoLength;
}

}  // namespace gp::udf
