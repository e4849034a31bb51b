// The volume side of the UDF reader: finding the anchor, reading the volume
// descriptor sequence, mapping partition-relative blocks to image offsets
// (physical and metadata partitions) and loading file entries with their
// allocation descriptors. All reads go through the host seam, on demand.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/hostio.h"
#include "platform/udf_descriptors.h"

namespace gp::udf {

// Bounds that keep a hostile image from making a walk run away.
inline constexpr size_t kMaxExtents = 65536;   // per file
inline constexpr size_t kMaxChainHops = 4096;  // extent descriptor blocks
inline constexpr int kMaxIndirectHops = 16;    // indirect ICB entries
inline constexpr uint64_t kMaxFileBytes = 64u << 20;
inline constexpr uint64_t kMaxDirBytes = 4u << 20;
inline constexpr uint64_t kMaxVatBytes = 16u << 20;

// A file entry with the data layout it describes.
struct Node {
  disc::LbAddr icb;
  uint8_t fileType = 0;
  uint64_t infoLength = 0;
  bool embedded = false;
  std::string embeddedData;
  std::vector<disc::Extent> extents;
  bool isDirectory() const { return fileType == disc::FILE_TYPE_DIRECTORY; }
};

struct Partition {
  enum class Kind {
    Unusable,
    Physical,
    Metadata,
    Virtual
  } kind = Kind::Unusable;
  uint32_t start = 0;   // physical: first block in the image
  uint32_t length = 0;  // physical: blocks
  // Metadata: the extents of the metadata file, in the physical partition
  // `physical`, with each extent's offset in the metadata partition.
  uint16_t physical = 0;
  std::vector<disc::Extent> map;
  std::vector<uint64_t> mapStart;
  // Virtual (write-once media): the allocation table, virtual block to
  // block of the partition `physical`.
  std::vector<uint32_t> vat;
};

class Volume {
 public:
  // Null when `path` is not a readable UDF image.
  static std::unique_ptr<Volume> open(const char *path);

  uint32_t blockSize() const { return blockSize_; }
  disc::LbAddr root() const { return root_; }
  uint64_t bytesRead() const { return bytesRead_; }

  // Reads `length` bytes starting at a partition block. False when any of
  // it lies outside its partition or the image.
  bool read(disc::LbAddr at, uint64_t length, uint8_t *out) const;

  // Loads the file entry at `icb`, following indirect entries, with its
  // whole allocation descriptor chain.
  bool loadNode(disc::LbAddr icb, Node &node) const;

  // The node's data, at most `limit` bytes of information length.
  bool readData(const Node &node, uint64_t limit, std::string &out) const;

 private:
  Volume() = default;
  bool readImage(uint64_t offset, size_t length, uint8_t *out) const;
  bool hasNsrDescriptor() const;
  bool openWithBlockSize(uint32_t blockSize);
  bool readSequence(uint32_t location, uint32_t length);
  bool setUp();
  bool setUpPartitions(disc::Bytes lvd);
  bool loadMetadataMap(Partition &meta, uint32_t fileBlock);
  bool loadVirtualTable(Partition &virt);
  // The image block that a partition block maps to, and how many blocks
  // from there on are contiguous in the image.
  bool resolve(disc::LbAddr at, uint64_t &imageBlock, uint64_t &run,
               int depth = 0) const;
  bool walkDescriptors(const disc::FileEntry &entry, disc::LbAddr icb,
                       std::vector<disc::Extent> &extents) const;

  UniqueFd fd_;
  uint64_t imageSize_ = 0;
  uint32_t blockSize_ = 2048;
  mutable uint64_t bytesRead_ = 0;
  disc::LbAddr root_;
  // Gathered from the descriptor sequence.
  struct PartitionDesc {
    uint16_t number;
    uint32_t start;
    uint32_t length;
  };
  std::vector<PartitionDesc> partitionDescs_;
  std::string lvd_;
  std::vector<Partition> partitions_;  // by partition reference number
};

}  // namespace gp::udf
