// Loads a fuzzed host manifest, AVR file and guest manifest (separated by
// NUL bytes) into one component table and computes the status.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lib/toolsversion/toolsversion_internal.h"
#include "platform/configdict.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"

namespace {

using namespace gp::tools;

bool apply(std::string_view text, ToolsComponentTable *table,
           ToolsDebugFlags *flags, ToolsManifestKind kind) {
  gp::ConfigDict dict;
  if (!dict.loadBuffer(text, "fuzz")) {
    gp::msg::takePending();
    return false;
  }
  ToolsManifestContext ctx{table, kind, flags};
  dict.iterate([&](const char *name, const char *value) {
    toolsManifestAddEntry(name, value, &ctx);
  });
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool quiet = [] {
    gp::setLogSink([](std::string_view) {});
    return true;
  }();
  (void)quiet;
  std::string_view text(reinterpret_cast<const char *>(data), size);
  std::string_view parts[3];
  for (int i = 0; i < 2; ++i) {
    size_t nul = text.find('\0');
    parts[i] = text.substr(0, nul);
    text = nul == std::string_view::npos ? std::string_view()
                                         : text.substr(nul + 1);
  }
  parts[2] = text;

  ToolsComponentTable table;
  ToolsDebugFlags flags;
  if (!apply(parts[0], &table, &flags, TOOLS_MANIFEST_HOST)) {
    return 0;
  }
  if (!apply(parts[1], &table, &flags, TOOLS_MANIFEST_AVR)) {
    toolsSetAvrMinFromHost(&table);
  }
  apply(parts[2], &table, nullptr, TOOLS_MANIFEST_GUEST);
  ToolsStatusDecision decision = toolsStatusDecide(&table);
  toolsStatusLog(table, decision, &flags);
  ToolsVersionStatus status = decision.status();
  // A reason that names components has at least one to name.
  bool holderless = decision.reason == ToolsStatusReason::Holders &&
                    !decision.monolithicCounts &&
                    decision.lists[decision.overall].empty();
  if (status < TOOLS_STATUS_TOO_OLD || status > TOOLS_STATUS_BLACKLISTED ||
      holderless) {
    __builtin_trap();
  }
  table.forEach([](const std::string &, const ToolsComponent &c) {
    if (c.status >= kToolsComponentStatusCount) {
      __builtin_trap();
    }
  });
  return 0;
}
