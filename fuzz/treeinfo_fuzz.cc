// Parses arbitrary text as a .treeinfo. Every section and key found must
// be lower case and every value must come from the text.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "lib/medium/treeinfo.h"

namespace {

bool lowerCase(const std::string &s) {
  for (char c : s) {
    if (c >= 'A' && c <= 'Z') return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  for (const auto &[section, keys] : gp::medium::parseIni(text)) {
    if (!lowerCase(section)) std::abort();
    for (const auto &[key, value] : keys) {
      if (!lowerCase(key) || text.find(value) == std::string_view::npos) {
        std::abort();
      }
    }
  }
  gp::medium::TreeInfo info = gp::medium::readTreeInfo(text);
  if (info.name.size() > size || info.version.size() > size) std::abort();
  return 0;
}
