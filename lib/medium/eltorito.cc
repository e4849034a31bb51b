// The El Torito boot catalog, decoded from untrusted bytes.
#include "lib/medium/eltorito.h"

namespace gp::medium {
namespace {

constexpr size_t kEntrySize = 32;
constexpr size_t kMaxEntries = 64;

BootPlatform platformOf(uint8_t id) {
  switch (id) {
    case 0x00:
      return BootPlatform::X86;
    case 0x01:
      return BootPlatform::Ppc;
    case 0x02:
      return BootPlatform::Mac;
    case 0xEF:
      return BootPlatform::Efi;
    default:
      return BootPlatform::Other;
  }
}

bool validationEntryOk(ByteView entry) {
  if (entry.u8(0) != 0x01 || entry.u8(30) != 0x55 || entry.u8(31) != 0xAA) {
    return false;
  }
  uint16_t sum = 0;
  for (size_t i = 0; i < kEntrySize; i += 2) {
    sum = static_cast<uint16_t>(sum + entry.le16(i));
  }
  return sum == 0;
}

BootEntry bootEntry(ByteView entry, BootPlatform platform) {
  BootEntry out;
  out.platform = platform;
  out.bootable = entry.u8(0) == 0x88;
  out.sectorCount = entry.le16(6);
  out.loadSector = entry.le32(8);
  return out;
}

}  // namespace

uint32_t catalogSector(ByteView descriptor) {
  static constexpr char kSystem[] = "EL TORITO SPECIFICATION";
  if (descriptor.u8(0) != 0 || descriptor.text(1, 5) != "CD001" ||
      descriptor.u8(6) != 1 ||
      descriptor.text(7, sizeof kSystem - 1) != kSystem) {
    return 0;
  }
  return descriptor.le32(0x47);
}

std::vector<BootEntry> parseCatalog(ByteView catalog) {
  std::vector<BootEntry> entries;
  if (!catalog.has(0, 2 * kEntrySize) ||
      !validationEntryOk(catalog.sub(0, kEntrySize))) {
    return entries;
  }
  BootPlatform platform = platformOf(catalog.u8(1));
  entries.push_back(bootEntry(catalog.sub(kEntrySize, kEntrySize), platform));
  // Section headers (0x90, or 0x91 for the last) each announce a count of
  // section entries, which may be followed by extension entries (0x44).
  size_t offset = 2 * kEntrySize;
  bool last = false;
  while (!last && catalog.has(offset, kEntrySize) &&
         entries.size() < kMaxEntries) {
    uint8_t header = catalog.u8(offset);
    if (header != 0x90 && header != 0x91) {
      break;
    }
    last = header == 0x91;
    platform = platformOf(catalog.u8(offset + 1));
    size_t count = catalog.le16(offset + 2);
    offset += kEntrySize;
    for (size_t i = 0; i < count && catalog.has(offset, kEntrySize) &&
                       entries.size() < kMaxEntries;
         ++i) {
      entries.push_back(bootEntry(catalog.sub(offset, kEntrySize), platform));
      offset += kEntrySize;
      while (catalog.has(offset, kEntrySize) && catalog.u8(offset) == 0x44) {
        offset += kEntrySize;
      }
    }
  }
  return entries;
}

const char *platformName(BootPlatform platform) {
  switch (platform) {
    case BootPlatform::X86:
      return "x86";
    case BootPlatform::Efi:
      return "efi";
    case BootPlatform::Ppc:
      return "ppc";
    case BootPlatform::Mac:
      return "mac";
    case BootPlatform::Other:
      break;
  }
  return "other";
}

}  // namespace gp::medium
