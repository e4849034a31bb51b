// The legacy tools version: one number per disk descriptor, from before
// manifests existed.
#include <optional>
#include <string>
#include <vector>

#include "guestprep/toolsversion.h"
#include "platform/abi.h"
#include "platform/disks.h"

namespace {

// The whole text as an unsigned 32-bit decimal number.
std::optional<uint32_t> parseLegacy(const std::string &text) {
  if (text.empty() || text.size() > 10) {
    return std::nullopt;
  }
  uint64_t n = 0;
  for (char c : text) {
    if (c < '0' || c > '9') {
      return std::nullopt;
    }
    n = n * 10 + static_cast<uint64_t>(c - '0');
  }
  if (n > UINT32_MAX) {
    return std::nullopt;
  }
  return static_cast<uint32_t>(n);
}

bool legacyVersionNumber(const char *configPath, uint32_t *version) {
  std::vector<std::string> paths;
  if (!gp::disks::listCurrentDisks(configPath, &paths)) {
    return false;
  }
  for (const std::string &path : paths) {
    gp::disks::VirtualDisk disk;
    if (!disk.open(path)) {
      continue;
    }
    std::optional<std::string> value = disk.getDescriptorKey("toolsVersion");
    std::optional<uint32_t> n = value ? parseLegacy(*value) : std::nullopt;
    if (n && *n > *version) {
      *version = *n;
    }
  }
  return true;
}

}  // namespace

GP_EXPORT Bool ToolsVersion_GetLegacyVersionNumber(const char *configPath,
                                                   uint32_t *version) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    if (version == nullptr) {
      return FALSE;
    }
    *version = 0;
    return legacyVersionNumber(configPath, version) ? TRUE : FALSE;
  });
}
