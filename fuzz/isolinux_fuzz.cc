// Parses arbitrary isolinux configurations. A parsed entry must hold what
// the text held, fit the buffers it is copied into, and give a rewritten
// configuration that fits its buffer and keeps to one line per statement.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lib/guestInstall/autoinstallGuestLinux_isolinux.h"

namespace {

namespace ai = gp::autoinstall;

void check(bool ok) {
  if (!ok) std::abort();
}

bool oneLine(const std::string &s) { return s.find('\n') == std::string::npos; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view text(reinterpret_cast<const char *>(data), size);
  ai::IsolinuxBootEntry entry;
  if (!ai::parseIsolinuxConfig(text, entry)) {
    return 0;
  }
  check(!entry.kernel.empty() && oneLine(entry.kernel));
  check(oneLine(entry.initrd) && oneLine(entry.append));
  check(entry.append.size() <= ai::kIsolinuxAppendRoom);
  check(entry.append.empty() || entry.append.back() == ' ');
  check(entry.append.find("  ") == std::string::npos);
  check(text.find(entry.kernel) != std::string_view::npos);
  for (uint32_t kind = ai::LINUX_KIND_REDHAT; kind < ai::kLinuxKindCount;
       ++kind) {
    std::string out;
    if (ai::rewriteIsolinuxConfig(
            entry, static_cast<ai::AutoInstallLinuxKind>(kind), out)) {
      check(out.size() < ai::kIsolinuxTextRoom);
      check(out.rfind("default linux\nprompt 0\ntimeout 1\n\nlabel linux\n",
                      0) == 0);
      check(out.back() == '\n');
      size_t lines = 0;
      for (char c : out) lines += c == '\n';
      check(lines == 7);
    }
  }
  return 0;
}
