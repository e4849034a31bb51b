// Decoding of the on-disc structures of an ISO 9660 image: volume
// descriptors, directory records, the three kinds of names and the
// System Use entries that carry Rock Ridge names. Everything here works on
// byte spans that the caller has already bounds-checked against the image;
// nothing reads the image itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/bytes.h"

namespace gp::iso::rec {

constexpr uint32_t kSectorSize = 2048;
constexpr uint32_t kFirstDescriptorSector = 16;
constexpr size_t kMinRecordLength = 34;

// Directory record flags.
constexpr uint8_t kFlagDirectory = 0x02;
constexpr uint8_t kFlagAssociated = 0x04;
constexpr uint8_t kFlagMultiExtent = 0x80;

// The records are decoded through the shared bounds-checked view.
using Bytes = ByteView;

// The fields of one directory record that the reader uses.
struct Record {
  uint32_t extent = 0;  // first block of the data, past any extended
                        // attribute record
  uint32_t size = 0;
  uint8_t flags = 0;
  Bytes identifier;  // the raw file identifier
  Bytes systemUse;   // what follows the identifier and its padding
};

// Parses the record at the start of `bytes` (whose first byte is its
// length). False when the record is shorter than its fixed part, longer
// than `bytes`, or its identifier does not fit inside it.
bool parseRecord(Bytes bytes, Record &record);

// "." and ".." are stored as the one-byte identifiers 0 and 1.
bool isSelfOrParent(const Record &record);

enum class DescriptorType { Primary, Joliet, Other, Terminator, Invalid };

// Classifies one 2048-byte volume descriptor. A supplementary descriptor
// counts as Joliet only when it carries one of the UCS-2 escape sequences.
DescriptorType classifyDescriptor(Bytes sector);

// The root directory record held in a primary or supplementary descriptor.
bool descriptorRoot(Bytes sector, Record &root);

// Primary names as users see them: the ";1" version and a trailing "."
// removed.
std::string primaryName(Bytes identifier);

// Joliet names: UCS-2 big-endian to UTF-8, then the version and trailing
// dot removed as for primary names. False on an odd length.
bool jolietName(Bytes identifier, std::string &name);

// What the System Use entries of one record (and its continuation areas)
// say. parseSystemUse() adds one area to it; `next*` names the
// continuation area to read next, if any.
struct SystemUse {
  bool hasSharingProtocol = false;  // "SP": the area starts with it
  uint8_t skip = 0;                 // bytes to skip in every later record
  bool hasRockRidgeId = false;      // "ER" naming the Rock Ridge extension
  bool hasRockRidgeEntry = false;   // any of the Rock Ridge entries
  std::string name;                 // "NM" pieces, concatenated
  bool hasName = false;
  bool nameSpecial = false;   // "NM" naming "." or ".."
  bool relocated = false;     // "RE": shown elsewhere through "CL"
  bool hasChildLink = false;  // "CL": the directory lives at childLink
  uint32_t childLink = 0;
  bool hasMode = false;  // "PX"
  uint32_t mode = 0;
  bool hasNext = false;  // "CE"
  uint32_t nextBlock = 0;
  uint32_t nextOffset = 0;
  uint32_t nextLength = 0;
};

// Adds the entries of one area. False when an entry is malformed (a length
// below 4 or past the end of the area); entries before it still count.
bool parseSystemUse(Bytes area, SystemUse &su);

// A name that can be listed and used as a host file name: not empty, not
// "." or "..", without "/" or NUL, and short enough for an Entry.
bool isUsableName(std::string_view name);

}  // namespace gp::iso::rec
