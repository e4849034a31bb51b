#include "platform/isoimage_records.h"

#include <cstring>

#include "platform/unicode.h"

namespace gp::iso::rec {

bool parseRecord(Bytes bytes, Record &record) {
  size_t length = bytes.u8(0);
  if (length < kMinRecordLength || !bytes.has(0, length)) {
    return false;
  }
  Bytes r = bytes.sub(0, length);
  size_t nameLength = r.u8(32);
  if (nameLength == 0 || 33 + nameLength > length) {
    return false;
  }
  uint32_t attributeBlocks = r.u8(1);
  uint32_t extent = r.le32(2);
  if (extent > UINT32_MAX - attributeBlocks) {
    return false;
  }
  record.extent = extent + attributeBlocks;
  record.size = r.le32(10);
  record.flags = r.u8(25);
  record.identifier = r.sub(33, nameLength);
  // The identifier is padded to an even offset for the System Use area.
  size_t suStart = 33 + nameLength + ((nameLength % 2 == 0) ? 1 : 0);
  record.systemUse =
      suStart <= length ? r.sub(suStart, length - suStart) : Bytes{};
  return true;
}

bool isSelfOrParent(const Record &record) {
  return record.identifier.size() == 1 && record.identifier.u8(0) <= 1;
}

DescriptorType classifyDescriptor(Bytes sector) {
  if (sector.size() < kSectorSize || sector.text(1, 5) != "CD001") {
    return DescriptorType::Invalid;
  }
  switch (sector.u8(0)) {
    case 1:
      return DescriptorType::Primary;
    case 2: {
      // Escape sequences "%/@", "%/C", "%/E": UCS-2 levels 1 to 3.
      std::string_view esc = sector.text(88, 3);
      if (esc.size() == 3 && esc[0] == '%' && esc[1] == '/' &&
          (esc[2] == '@' || esc[2] == 'C' || esc[2] == 'E')) {
        return DescriptorType::Joliet;
      }
      return DescriptorType::Other;
    }
    case 255:
      return DescriptorType::Terminator;
    default:
      return DescriptorType::Other;
  }
}

bool descriptorRoot(Bytes sector, Record &root) {
  if (sector.u8(156) != kMinRecordLength) {
    return false;
  }
  if (!parseRecord(sector.sub(156, kMinRecordLength), root)) {
    return false;
  }
  return (root.flags & kFlagDirectory) != 0;
}

namespace {

void stripVersionAndDot(std::string &name) {
  size_t semicolon = name.find(';');
  if (semicolon != std::string::npos) {
    name.resize(semicolon);
  }
  if (!name.empty() && name.back() == '.') {
    name.pop_back();
  }
}

}  // namespace

std::string primaryName(Bytes identifier) {
  std::string name(identifier.text(0, identifier.size()));
  stripVersionAndDot(name);
  return name;
}

bool jolietName(Bytes identifier, std::string &name) {
  if (identifier.size() % 2 != 0) {
    return false;
  }
  std::u16string units;
  for (size_t i = 0; i < identifier.size(); i += 2) {
    units += static_cast<char16_t>(identifier.be16(i));
  }
  // Mastering tools write UTF-16 for characters beyond the BMP; keep a
  // well-formed pair and replace a lone surrogate.
  utf16ToUtf8(units, name, LoneSurrogate::Replace);
  stripVersionAndDot(name);
  return true;
}

bool parseSystemUse(Bytes area, SystemUse &su) {
  size_t pos = 0;
  while (area.has(pos, 4)) {
    std::string_view sig = area.text(pos, 2);
    size_t length = area.u8(pos + 2);
    if (length < 4 || !area.has(pos, length)) {
      return false;
    }
    Bytes e = area.sub(pos, length);
    if (sig == "ST") {
      return true;
    }
    if (sig == "SP" && pos == 0 && length >= 7 && e.u8(4) == 0xBE &&
        e.u8(5) == 0xEF) {
      su.hasSharingProtocol = true;
      su.skip = e.u8(6);
    } else if (sig == "CE" && length >= 28) {
      su.hasNext = true;
      su.nextBlock = e.le32(4);
      su.nextOffset = e.le32(12);
      su.nextLength = e.le32(20);
    } else if (sig == "ER" && length >= 8) {
      std::string_view id = e.text(8, e.u8(4));
      if (id == "RRIP_1991A" || id == "IEEE_P1282" || id == "IEEE_1282") {
        su.hasRockRidgeId = true;
      }
    } else if (sig == "NM" && length >= 5) {
      su.hasRockRidgeEntry = true;
      uint8_t flags = e.u8(4);
      if ((flags & 0x06) != 0) {
        su.nameSpecial = true;
      }
      su.name.append(e.text(5, length - 5));
      su.hasName = true;
    } else if (sig == "PX" && length >= 12) {
      su.hasRockRidgeEntry = true;
      su.hasMode = true;
      su.mode = e.le32(4);
    } else if (sig == "CL" && length >= 12) {
      su.hasRockRidgeEntry = true;
      su.hasChildLink = true;
      su.childLink = e.le32(4);
    } else if (sig == "RE") {
      su.hasRockRidgeEntry = true;
      su.relocated = true;
    } else if (sig == "RR" || sig == "TF" || sig == "SL" || sig == "PN") {
      su.hasRockRidgeEntry = true;
    }
    pos += length;
  }
  return true;
}

bool isUsableName(std::string_view name) {
  if (name.empty() || name == "." || name == ".." || name.size() > 255) {
    return false;
  }
  return name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

}  // namespace gp::iso::rec
