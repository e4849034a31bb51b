// Names on a FAT volume: 8.3 short names with their case bits, long names
// in UTF-16 pieces, and the short alias generated for a long name.
#include "platform/fatimage_names.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/fatimage_internal.h"
#include "platform/unicode.h"

namespace gp::fat {
namespace {

bool isShortNameChar(unsigned char c) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
      (c >= '0' && c <= '9')) {
    return true;
  }
  return c != 0 && std::strchr("!#$%&'()-@^_`{}~", c) != nullptr;
}

bool isUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool isLower(char c) { return c >= 'a' && c <= 'z'; }
char upper(char c) { return isLower(c) ? static_cast<char>(c - 32) : c; }
char lower(char c) { return isUpper(c) ? static_cast<char>(c + 32) : c; }

// One part of an 8.3 name: all of its letters share one case.
bool shortPartFits(std::string_view part, size_t maxLen, bool &lowerCase) {
  if (part.size() > maxLen) {
    return false;
  }
  bool hasUpper = false, hasLower = false;
  for (char c : part) {
    if (!isShortNameChar(static_cast<unsigned char>(c))) {
      return false;
    }
    hasUpper |= isUpper(c);
    hasLower |= isLower(c);
  }
  lowerCase = hasLower;
  return !(hasUpper && hasLower);
}

}  // namespace

bool forbiddenInName(uint32_t unit) {
  return unit < 0x20 || unit == 0x7F ||
         (unit < 0x80 &&
          std::strchr("\"*/:<>?\\|", static_cast<int>(unit)) != nullptr);
}

bool shortNameFits(std::string_view name, uint8_t shortName[11],
                   uint8_t &caseBits) {
  size_t dot = name.find('.');
  std::string_view base = name.substr(0, dot);
  std::string_view ext =
      dot == std::string_view::npos ? std::string_view() : name.substr(dot + 1);
  if (base.empty() || (dot != std::string_view::npos && ext.empty())) {
    return false;
  }
  bool baseLower = false, extLower = false;
  if (!shortPartFits(base, 8, baseLower) || !shortPartFits(ext, 3, extLower)) {
    return false;  // also refuses a second dot, which is not a name char
  }
  std::memset(shortName, ' ', 11);
  for (size_t i = 0; i < base.size(); ++i) {
    shortName[i] = static_cast<uint8_t>(upper(base[i]));
  }
  for (size_t i = 0; i < ext.size(); ++i) {
    shortName[8 + i] = static_cast<uint8_t>(upper(ext[i]));
  }
  caseBits = static_cast<uint8_t>((baseLower ? kCaseLowerBase : 0) |
                                  (extLower ? kCaseLowerExt : 0));
  return true;
}

std::string shortNameText(const uint8_t *entry, bool applyCase) {
  // Bytes that a short name may not hold are shown as '_', so that a name
  // read from a hostile image can never carry a path separator.
  auto part = [&](size_t from, size_t len, bool lowerCase) {
    std::string s;
    for (size_t i = 0; i < len; ++i) {
      uint8_t c = entry[from + i];
      if (from == 0 && i == 0 && c == 0x05) {
        c = kDeleted;
      }
      s += isShortNameChar(c) || c == ' ' ? static_cast<char>(c) : '_';
    }
    while (!s.empty() && s.back() == ' ') {
      s.pop_back();
    }
    if (applyCase && lowerCase) {
      for (char &c : s) {
        c = lower(c);
      }
    }
    return s;
  };
  std::string base = part(0, 8, (entry[12] & kCaseLowerBase) != 0);
  std::string ext = part(8, 3, (entry[12] & kCaseLowerExt) != 0);
  if (base.empty() || base[0] == ' ') {
    base.insert(base.begin(), '_');
  }
  return ext.empty() ? base : base + "." + ext;
}

uint8_t shortNameChecksum(const uint8_t *shortName) {
  uint8_t sum = 0;
  for (int i = 0; i < 11; ++i) {
    sum = static_cast<uint8_t>(((sum & 1) << 7) + (sum >> 1) + shortName[i]);
  }
  return sum;
}

bool unitsToUtf8(const std::u16string &units, std::string &out) {
  for (char16_t u : units) {
    if (forbiddenInName(u)) {
      return false;
    }
  }
  if (!utf16ToUtf8(units, out, LoneSurrogate::Reject)) {
    return false;
  }
  return !out.empty() && out != "." && out != "..";
}

Error checkNewName(std::string_view name, std::u16string &units) {
  if (!utf8ToUtf16(name, units) || units.empty() || units.size() > 255 ||
      name == "." || name == ".." || name.back() == '.' || name.back() == ' ') {
    return FAT_ERR_BAD_NAME;
  }
  for (char16_t u : units) {
    if (forbiddenInName(u)) {
      return FAT_ERR_BAD_NAME;
    }
  }
  return FAT_OK;
}

bool aliasBasis(std::string_view name, uint8_t basis[11]) {
  bool lossy = false;
  std::string_view n = name;
  while (!n.empty() && (n.front() == '.' || n.front() == ' ')) {
    n.remove_prefix(1);
    lossy = true;
  }
  size_t dot = n.rfind('.');
  std::string_view base = n.substr(0, dot);
  std::string_view ext =
      dot == std::string_view::npos ? std::string_view() : n.substr(dot + 1);
  auto fill = [&](std::string_view part, uint8_t *dst, size_t room) {
    size_t used = 0;
    for (size_t i = 0; i < part.size(); ++i) {
      auto c = static_cast<unsigned char>(part[i]);
      if (c == ' ' || c == '.') {
        lossy = true;
        continue;
      }
      if (c >= 0x80) {
        // One '_' for a whole UTF-8 sequence.
        while (i + 1 < part.size() &&
               (static_cast<unsigned char>(part[i + 1]) & 0xC0) == 0x80) {
          ++i;
        }
        c = '_';
        lossy = true;
      } else if (!isShortNameChar(c)) {
        c = '_';
        lossy = true;
      }
      if (used == room) {
        lossy = true;
        break;
      }
      dst[used++] = static_cast<uint8_t>(upper(static_cast<char>(c)));
    }
  };
  std::memset(basis, ' ', 11);
  fill(base, basis, 8);
  fill(ext, basis + 8, 3);
  if (basis[0] == ' ') {
    basis[0] = '_';
    lossy = true;
  }
  return lossy;
}

void aliasWithTail(const uint8_t basis[11], uint32_t n, uint8_t out[11]) {
  std::memcpy(out, basis, 11);
  std::string tail = "~" + std::to_string(n);
  size_t baseLen = 0;
  while (baseLen < 8 && basis[baseLen] != ' ') {
    ++baseLen;
  }
  size_t keep = std::min(baseLen, 8 - tail.size());
  std::memset(out, ' ', 8);
  std::memcpy(out, basis, keep);
  std::memcpy(out + keep, tail.data(), tail.size());
}

void packLongNamePiece(const std::u16string &units, uint32_t piece, bool last,
                       uint8_t checksum, uint8_t *entry) {
  static const uint8_t kOffsets[13] = {1,  3,  5,  7,  9,  14, 16,
                                       18, 20, 22, 24, 28, 30};
  std::memset(entry, 0, kDirEntrySize);
  entry[0] = static_cast<uint8_t>(piece | (last ? 0x40 : 0));
  entry[11] = kAttrLongName;
  entry[13] = checksum;
  for (uint32_t k = 0; k < 13; ++k) {
    size_t idx = size_t{piece - 1} * 13 + k;
    uint16_t u = idx < units.size()    ? units[idx]
                 : idx == units.size() ? 0x0000
                                       : 0xFFFF;
    put16(entry + kOffsets[k], u);
  }
}

void unpackLongNamePiece(const uint8_t *entry, std::u16string &units) {
  static const uint8_t kOffsets[13] = {1,  3,  5,  7,  9,  14, 16,
                                       18, 20, 22, 24, 28, 30};
  ByteView e(entry, kDirEntrySize);
  for (uint8_t off : kOffsets) {
    units += static_cast<char16_t>(e.le16(off));
  }
}

}  // namespace gp::fat
