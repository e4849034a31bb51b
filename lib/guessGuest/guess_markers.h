// Readings of the marker files that identify Linux and other media.
//
// The detectors read a file from the medium and hand its text to one of
// these functions, which decide from the text alone. Keeping them apart
// from the media access lets the tests and the fuzzer feed them any text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "guestprep/guess.h"

namespace gp::guess {

// What the marker files say; osName null when they name no system.
struct MarkerVerdict {
  const char *osName = nullptr;
  uint32_t subVersion = GUESS_VERSION_UNKNOWN;
};

// Mandriva and Mandrake media. `version` is the text for versionString,
// written even when no identifier is found; empty when there is none.
struct MandrivaFacts {
  MarkerVerdict verdict;
  std::string version;
  bool settled = false;  // no further source is consulted
};

// The root "VERSION" file. Always settles: a file that names neither
// Mandrake nor Mandriva gives no identifier.
MandrivaFacts mandrivaFromVersionFile(std::string_view text);

// The ISO volume identifier of a medium without "VERSION".
void mandrivaFromVolumeId(std::string_view volumeId, MandrivaFacts &facts);

// The "product.id" file read after the volume identifier.
void mandrivaFromProductId(std::string_view text, MandrivaFacts &facts);

// Debian and Ubuntu media from ".disk/info". `version` is the text for
// versionString (Ubuntu only; written even without an identifier).
struct DebianFacts {
  MarkerVerdict verdict;
  std::string version;
};
DebianFacts debianFromDiskInfo(std::string_view text);

// SUSE media from the root "content" file, and from "media.1/products"
// when there is no "content".
MarkerVerdict suseFromContent(std::string_view text);

// The version that the VERSION lines of "content" give: major 0 and minor
// -1 when there are none.
struct SuseVersion {
  long major = 0;
  long minor = -1;
};
SuseVersion suseContentVersion(std::string_view text);
MarkerVerdict suseFromProducts(std::string_view text);

// The Orvex package list "packages.xml", NUL-terminated: whether it
// describes an Orvex 4 installation medium.
bool orvexFromPackageList(const char *xml);

// The root "isolinux.cfg" of Orvexi media: "ztkernel", "ztkernel5" or null.
const char *orvexiFromBootMenu(std::string_view text);

// Root directory entries that mark Solaris and NetWare media; null when
// the entry marks nothing.
struct SolarisRelease {
  const char *osName;
  const char *osName64;
};
const SolarisRelease *solarisFromEntry(std::string_view entry);
const char *netwareFromEntry(std::string_view entry);

}  // namespace gp::guess
