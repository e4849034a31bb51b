#include "platform/udf_descriptors.h"

#include "platform/unicode.h"

namespace gp::udf::disc {

uint16_t crc16(const uint8_t *data, size_t size) {
  uint16_t crc = 0;
  for (size_t i = 0; i < size; ++i) {
    crc = static_cast<uint16_t>(crc ^ (data[i] << 8));
    for (int bit = 0; bit < 8; ++bit) {
      crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ 0x1021
                                                 : (crc << 1));
    }
  }
  return crc;
}

uint16_t tagId(Bytes bytes) { return bytes.le16(0); }

bool validTag(Bytes bytes, uint16_t expectedId) {
  if (bytes.size() < 16 || tagId(bytes) != expectedId) {
    return false;
  }
  uint8_t sum = 0;
  for (size_t i = 0; i < 16; ++i) {
    if (i != 4) {
      sum = static_cast<uint8_t>(sum + bytes.u8(i));
    }
  }
  if (sum != bytes.u8(4)) {
    return false;
  }
  size_t crcLength = bytes.le16(10);
  if (crcLength > bytes.size() - 16) {
    return false;
  }
  return crcLength == 0 || crc16(bytes.data() + 16, crcLength) == bytes.le16(8);
}

LongAd decodeLongAd(Bytes bytes, size_t at) {
  LongAd ad;
  uint32_t raw = bytes.le32(at);
  ad.length = raw & 0x3FFFFFFFu;
  ad.type = static_cast<uint8_t>(raw >> 30);
  ad.where.block = bytes.le32(at + 4);
  ad.where.partition = bytes.le16(at + 8);
  return ad;
}

bool decodeFileEntry(Bytes block, FileEntry &entry) {
  size_t fixed;
  size_t eaLengthAt;
  if (tagId(block) == TAG_FILE_ENTRY) {
    fixed = 176;
    eaLengthAt = 168;
  } else if (tagId(block) == TAG_EXTENDED_FILE_ENTRY) {
    fixed = 216;
    eaLengthAt = 208;
  } else {
    return false;
  }
  if (block.size() < fixed) {
    return false;
  }
  entry.strategy = block.le16(16 + 4);
  entry.fileType = block.u8(16 + 11);
  entry.form = static_cast<AdForm>(block.le16(16 + 18) & 0x7);
  if (block.le16(16 + 18) & 0x4) {
    return false;  // forms 4 to 7 do not exist
  }
  entry.infoLength = block.le64(56);
  uint64_t eaLength = block.le32(eaLengthAt);
  uint64_t adLength = block.le32(eaLengthAt + 4);
  if (fixed + eaLength + adLength > block.size()) {
    return false;
  }
  entry.descriptors = block.clip(fixed + eaLength, adLength);
  return true;
}

bool decodeAdRun(Bytes run, AdForm form, uint16_t home,
                 std::vector<Extent> &extents, std::optional<LbAddr> &next,
                 uint32_t &nextLength) {
  size_t step;
  switch (form) {
    case AdForm::Short:
      step = 8;
      break;
    case AdForm::Long:
      step = 16;
      break;
    case AdForm::Extended:
      step = 20;
      break;
    default:
      return false;
  }
  next.reset();
  for (size_t at = 0; at + step <= run.size(); at += step) {
    uint32_t raw = run.le32(at);
    uint32_t length = raw & 0x3FFFFFFFu;
    uint8_t type = static_cast<uint8_t>(raw >> 30);
    if (length == 0) {
      break;  // the list ends at the first empty descriptor
    }
    LbAddr where;
    switch (form) {
      case AdForm::Short:
        where = {run.le32(at + 4), home};
        break;
      case AdForm::Long:
        where = {run.le32(at + 4), run.le16(at + 8)};
        break;
      default:
        where = {run.le32(at + 12), run.le16(at + 16)};
        break;
    }
    if (type == 3) {
      next = where;
      nextLength = length;
      return true;
    }
    extents.push_back({length, where, type == 0});
  }
  return true;
}

bool decodeFileIdent(Bytes stream, size_t at, FileIdent &ident) {
  Bytes rest = stream.clip(at, stream.size());
  if (rest.size() < 38) {
    return false;
  }
  size_t nameLength = rest.u8(19);
  size_t implLength = rest.le16(36);
  size_t length = (38 + implLength + nameLength + 3) & ~size_t{3};
  if (38 + implLength + nameLength > rest.size()) {
    return false;
  }
  // The tag's CRC covers the padding too, except where the end of the
  // stream cuts the padding of the last record.
  Bytes record = rest.clip(0, length);
  if (!validTag(record, TAG_FILE_IDENTIFIER)) {
    return false;
  }
  ident.characteristics = rest.u8(18);
  ident.icb = decodeLongAd(rest, 20);
  ident.name = rest.clip(38 + implLength, nameLength);
  ident.recordLength = record.size();
  return true;
}

std::optional<std::string> decodeName(Bytes name) {
  if (name.size() < 2) {
    return std::nullopt;
  }
  uint8_t compression = name.u8(0);
  std::u16string units;
  if (compression == 8 || compression == 254) {
    for (size_t i = 1; i < name.size(); ++i) {
      units += static_cast<char16_t>(name.u8(i));
    }
  } else if (compression == 16 || compression == 255) {
    if ((name.size() - 1) % 2 != 0) {
      return std::nullopt;
    }
    for (size_t i = 1; i + 1 < name.size(); i += 2) {
      units += static_cast<char16_t>(name.be16(i));
    }
  } else {
    return std::nullopt;
  }
  if (units.find(u'\0') != std::u16string::npos ||
      units.find(u'/') != std::u16string::npos) {
    return std::nullopt;  // such a name could not be looked up by path
  }
  // A lone surrogate is shown as U+FFFD rather than hiding the file.
  std::string out;
  utf16ToUtf8(units, out, LoneSurrogate::Replace);
  return out;
}

}  // namespace gp::udf::disc
