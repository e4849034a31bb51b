// Decodes arbitrary bytes as an install image header and the rest as its
// UTF-16 XML. The XML's place must lie inside the file and under the cap;
// parsing must end with at most the bounded number of images.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "lib/medium/wim.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  gp::ByteView bytes(data, size);
  gp::medium::WimXmlLocation where;
  if (gp::medium::wimXmlLocation(bytes, size, where) &&
      (where.offset + where.size > size ||
       where.size > gp::medium::kWimXmlMax)) {
    std::abort();
  }
  size_t skip =
      size < gp::medium::kWimHeaderSize ? 0 : gp::medium::kWimHeaderSize;
  std::string language;
  auto editions = gp::medium::parseWimXml(
      std::string_view(reinterpret_cast<const char *>(data) + skip,
                       size - skip),
      language);
  if (editions.size() > 256) {
    std::abort();
  }
  for (const auto &e : editions) {
    (void)gp::medium::windowsId(e);
  }
  return 0;
}
