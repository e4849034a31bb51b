// Loads fuzzed text as a dictionary, strictly and leniently, and reads
// every entry back through the typed accessors.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/configdict.h"
#include "platform/msgcatalog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  for (auto mode : {gp::ConfigDict::LoadMode::kStrict,
                    gp::ConfigDict::LoadMode::kSkipBadLines}) {
    gp::ConfigDict dict;
    bool loaded = dict.loadBuffer(text, "fuzz", mode);
    std::string pending = gp::msg::takePending();
    if (loaded != pending.empty()) {
      __builtin_trap();  // a failure must say why, a success nothing
    }
    size_t seen = dict.iterate([&](const char *name, const char *value) {
      if (std::strcmp(dict.get(name), value) != 0 || !dict.isDefined(name)) {
        __builtin_trap();
      }
      dict.getInt32(name, 0);
      gp::ConfigDict::valueToBool(value, false);
    });
    if (seen != dict.count()) {
      __builtin_trap();
    }
  }
  return 0;
}
