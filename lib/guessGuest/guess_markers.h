// Readings of the marker files that identify Windows, Linux and other
// media.
//
// The detectors read a file from the medium and hand its text to one of
// these functions, which decide from the text alone. Keeping them apart
// from the media access lets the tests and the fuzzer feed them any text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "guestprep/guess.h"

namespace gp::guess {

// Windows NT 4.0 to Server 2003: the identifier that the "wks_id" or
// "srv_id" line of TXTSETUP.SIF names, or null.
const char *windowsNtFromSetup(std::string_view setup);
// The "Localization=" value of PRODSPEC.INI; empty when there is none.
std::string windowsNtLanguage(std::string_view prodspec);

// Windows Vista and later, from "sources/product.ini" and
// "sources/idwbinfo.txt"; null when they name no release. When the build
// branch does not tell the release, `hasImage` says whether "sources"
// holds an install image whose name starts with the given prefix.
using WindowsImageTest = std::function<bool(const char *prefix)>;
const char *windowsVistaFamily(std::string_view productIni,
                               std::string_view buildInfo,
                               const WindowsImageTest &hasImage);
// The installation language from "sources/lang.ini": the last entry of
// the available UI languages with a non-negative number; empty when the
// section or a choice is missing.
std::string windowsLanguage(std::string_view langIni);

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
