// The El Torito boot catalog: which platforms a disc boots on and where
// each boot image starts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/bytes.h"

namespace gp::medium {

enum class BootPlatform { X86, Efi, Ppc, Mac, Other };

struct BootEntry {
  BootPlatform platform = BootPlatform::X86;
  bool bootable = false;
  uint32_t loadSector = 0;   // first 2048-byte sector of the image
  uint16_t sectorCount = 0;  // in 512-byte units, as the catalog gives it
};

// The sector of the boot catalog named by the boot record volume
// descriptor `descriptor` (sector 17 of the image), or 0 when it is not
// an El Torito boot record.
uint32_t catalogSector(ByteView descriptor);

// The entries of the catalog in `catalog` (one or more sectors); empty
// when the validation entry is missing or its checksum is wrong. Walks at
// most the given bytes and a bounded number of entries.
std::vector<BootEntry> parseCatalog(ByteView catalog);

// "x86", "efi", "ppc", "mac" or "other".
const char *platformName(BootPlatform platform);

}  // namespace gp::medium
