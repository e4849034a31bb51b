// Decoding of the on-disc records of a UDF volume: descriptor tags,
// allocation descriptors, file entries, file identifiers and compressed
// Unicode names. Every decoder works on a bounded byte span and reports
// malformed input as failure; nothing here reads the image.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bytes.h"

namespace gp::udf::disc {

// Tag identifiers.
enum TagId : uint16_t {
  TAG_PRIMARY_VOLUME = 1,
  TAG_ANCHOR = 2,
  TAG_POINTER = 3,
  TAG_IMPL_USE_VOLUME = 4,
  TAG_PARTITION = 5,
  TAG_LOGICAL_VOLUME = 6,
  TAG_UNALLOCATED_SPACE = 7,
  TAG_TERMINATING = 8,
  TAG_FILE_SET = 256,
  TAG_FILE_IDENTIFIER = 257,
  TAG_ALLOC_EXTENT = 258,
  TAG_INDIRECT_ENTRY = 259,
  TAG_FILE_ENTRY = 261,
  TAG_EXTENDED_FILE_ENTRY = 266,
};

// File types of the ICB tag.
enum FileType : uint8_t {
  FILE_TYPE_DIRECTORY = 4,
  FILE_TYPE_VAT = 248,
  FILE_TYPE_METADATA = 250,
  FILE_TYPE_METADATA_MIRROR = 251,
};

// Descriptors are decoded through the shared bounds-checked view; where a
// declared length may overrun its block, clip() keeps the part inside.
using Bytes = ByteView;

// CRC-16 (CCITT, polynomial 0x1021, initial value 0) as descriptor tags use.
uint16_t crc16(const uint8_t *data, size_t size);

// A descriptor tag is accepted when its identifier is the expected one, its
// checksum is right and, when it declares a CRC, the CRC over the declared
// length is right and that length lies inside `bytes`. The recorded tag
// location is not checked: mastering tools disagree on it and it guards
// nothing that the bounds checks do not.
bool validTag(Bytes bytes, uint16_t expectedId);
uint16_t tagId(Bytes bytes);

// A logical block address inside a partition.
struct LbAddr {
  uint32_t block = 0;
  uint16_t partition = 0;
  bool operator==(const LbAddr &o) const {
    return block == o.block && partition == o.partition;
  }
};

// long_ad: an extent with its partition.
struct LongAd {
  uint32_t length = 0;  // bytes, type bits removed
  uint8_t type = 0;     // 0 recorded, 1 allocated, 2 unallocated, 3 chain
  LbAddr where;
};
LongAd decodeLongAd(Bytes bytes, size_t at);

// One data extent of a file, in the file's order.
struct Extent {
  uint64_t length = 0;  // bytes
  LbAddr where;
  bool recorded = true;  // unrecorded extents read as zeros
};

// How a file entry records its data.
enum class AdForm : uint8_t { Short = 0, Long = 1, Extended = 2, Embedded = 3 };

// The parts of a (extended) file entry that reading needs.
struct FileEntry {
  uint8_t fileType = 0;
  uint16_t strategy = 0;
  AdForm form = AdForm::Short;
  uint64_t infoLength = 0;
  Bytes descriptors;  // allocation descriptors, or the embedded data
};

// Decodes a file entry or extended file entry at the start of `block`
// (tag already validated). False when its fields overrun the block.
bool decodeFileEntry(Bytes block, FileEntry &entry);

// Appends the extents of one run of allocation descriptors. `home` is the
// partition that short descriptors refer to. A chain descriptor, if any, is
// returned through `next` (and ends the run). False on a malformed run.
bool decodeAdRun(Bytes run, AdForm form, uint16_t home,
                 std::vector<Extent> &extents, std::optional<LbAddr> &next,
                 uint32_t &nextLength);

// One file identifier of a directory stream.
struct FileIdent {
  uint8_t characteristics = 0;
  LongAd icb;
  Bytes name;               // compressed Unicode, still encoded
  size_t recordLength = 0;  // bytes to the next identifier
  bool isDirectory() const { return (characteristics & 0x02) != 0; }
  bool isDeleted() const { return (characteristics & 0x04) != 0; }
  bool isParent() const { return (characteristics & 0x08) != 0; }
};

// Decodes the file identifier at `at` in a directory stream. False when it
// is malformed or runs past the end of the stream.
bool decodeFileIdent(Bytes stream, size_t at, FileIdent &ident);

// Converts an OSTA compressed Unicode name (compression 8 or 16, also 254
// and 255) to UTF-8. Nothing when the name is empty, has an unknown
// compression, an odd 16-bit length, or would contain a NUL or a "/".
std::optional<std::string> decodeName(Bytes name);

}  // namespace gp::udf::disc
