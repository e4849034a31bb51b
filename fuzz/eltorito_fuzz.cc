// Decodes arbitrary bytes as a boot record descriptor and as a boot
// catalog. The walk must stay inside the bytes and bounded in entries.
#include <cstdint>
#include <cstdlib>

#include "lib/medium/eltorito.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  gp::ByteView bytes(data, size);
  (void)gp::medium::catalogSector(bytes);
  auto entries = gp::medium::parseCatalog(bytes);
  if (entries.size() > 64 || (!entries.empty() && size < 64)) {
    std::abort();
  }
  for (const auto &e : entries) {
    if (gp::medium::platformName(e.platform) == nullptr) {
      std::abort();
    }
  }
  return 0;
}
