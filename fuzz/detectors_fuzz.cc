// Runs every marker-file reading of the Windows, Linux and other detectors
// over one fuzzed text, as a detector would after reading it from a medium.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

using namespace gp::guess;

namespace {

void mustBeStatic(const MarkerVerdict &v) {
  // The identifier is a static string: reading it must be safe.
  if (v.osName != nullptr && std::string_view(v.osName).empty()) {
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  // Detectors see the file as text up to its first NUL.
  std::string file(reinterpret_cast<const char *>(data), size);
  std::string_view text(file.c_str());

  MandrivaFacts facts = mandrivaFromVersionFile(text);
  mustBeStatic(facts.verdict);
  facts = MandrivaFacts();
  mandrivaFromVolumeId(text, facts);
  mandrivaFromProductId(text, facts);
  mustBeStatic(facts.verdict);

  mustBeStatic(debianFromDiskInfo(text).verdict);
  mustBeStatic(suseFromContent(text));
  mustBeStatic(suseFromProducts(text));
  orvexFromPackageList(file.c_str());
  orvexiFromBootMenu(text);
  solarisFromEntry(text);
  netwareFromEntry(text);

  // Windows: the text serves as each of the files a detector reads; the
  // install image test answers from the text as well.
  windowsNtFromSetup(text);
  windowsNtLanguage(text);
  windowsLanguage(text);
  windowsVistaFamily(text, text, [text](const char *prefix) {
    return gp::str::contains(text, prefix);
  });

  // Versions compare consistently whichever way round.
  size_t half = text.size() / 2;
  std::string_view a = text.substr(0, half), b = text.substr(half);
  int ab = gp::str::compareDottedVersion(a, b);
  int ba = gp::str::compareDottedVersion(b, a);
  if ((ab < 0) != (ba > 0) || (ab == 0) != (ba == 0)) {
    __builtin_trap();
  }
  return 0;
}
