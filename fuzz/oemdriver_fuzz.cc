// Scans arbitrary driver description files for the storage driver's
// description. A description found must be a quoted piece of the text
// before its first NUL, found after one of the driver keys.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lib/guestInstall/autoinstallGuestWindows_oem.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text(reinterpret_cast<const char *>(data), size);
  const auto description = gp::autoinstall::oemDriverDescription(text);
  if (!description) {
    return 0;
  }
  const std::string_view d = *description;
  const std::string_view before = text.substr(0, text.find('\0'));
  if (d.size() < 2 || d.front() != '"' || d.back() != '"' ||
      d.substr(1, d.size() - 2).find('"') != std::string_view::npos ||
      before.find(d) == std::string_view::npos) {
    std::abort();
  }
  return 0;
}
