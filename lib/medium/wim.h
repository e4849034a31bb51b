// The Windows install image (install.wim, install.esd): the header's
// pointer to the XML that lists the images, and that XML. Only the header
// and the XML are ever read, never the images themselves.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lib/medium/description.h"
#include "platform/bytes.h"

namespace gp::medium {

inline constexpr size_t kWimHeaderSize = 208;
inline constexpr uint64_t kWimXmlMax = 16u << 20;

struct WimXmlLocation {
  uint64_t offset = 0;  // from the start of the install image
  uint64_t size = 0;
};

// Where the XML lies, checked against `fileSize` (the install image's)
// and the 16 MiB cap; false for anything that is not a WIM header or
// points outside the file.
bool wimXmlLocation(ByteView header, uint64_t fileSize, WimXmlLocation &out);

// The images listed by the UTF-16LE XML, in index order, and the default
// language of the first image that names one. Empty for text that is not
// well-formed XML.
std::vector<Edition> parseWimXml(std::string_view utf16le,
                                 std::string &language);

// The OS database's id for an image: win8.1, win10, win11, win2k12r2 ...
// win2k25; "" for builds before Windows 8.1.
std::string windowsId(const Edition &edition);

}  // namespace gp::medium
