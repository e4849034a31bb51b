// Mandriva and Mandrake detection.
//
// Older media carry a "VERSION" file in the root. Newer ones have none and
// are known by the ISO volume identifier ("Mandriva.2010.0 ..." style) or
// by the "product.id" file of their architecture directory.
#include <cstdlib>
#include <string>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/isoimage.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

constexpr std::string_view kVolumePrefix = "Mandriva.";

// The identifier that a text names by its architecture, or null.
const char *mandrivaByArch(std::string_view text) {
  if (text.find("x86_64") != std::string_view::npos) {
    return "mandriva-64";
  }
  if (text.find("i586") != std::string_view::npos) {
    return "mandriva";
  }
  return nullptr;
}

// The release code of a "version=" value of product.id; `code` unchanged
// for releases before 2007 and other texts.
uint32_t productRelease(std::string_view release, uint32_t code) {
  if (str::startsWith(release, "2007.")) {
    return GUESS_VERSION_MANDRIVA_2007;
  }
  if (str::startsWith(release, "2008.0")) {
    return GUESS_VERSION_MANDRIVA_2008_0;
  }
  if (str::compareDottedVersion(release, "2008.1") >= 0) {
    return GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER;
  }
  return code;
}

// The volume identifier of an ISO 9660 medium; empty when unavailable.
std::string volumeIdOf(GuessMedium *medium) {
  if (medium->isoImage == nullptr) {
    return {};
  }
  char *raw = nullptr;
  if (iso::volumeId(medium->isoImage, &raw) != iso::ISO_OK) {
    std::free(raw);
    return {};
  }
  MallocPtr<char> owned(raw);
  return raw != nullptr ? std::string(raw) : std::string();
}

}  // namespace

MandrivaFacts mandrivaFromVersionFile(std::string_view text) {
  MandrivaFacts facts;
  facts.settled = true;
  if (str::startsWith(text, "Mandrake")) {
    facts.verdict.osName = "mandrake";
    return facts;
  }
  if (!str::startsWith(text, "Mandriva")) {
    return facts;
  }
  facts.verdict.osName = mandrivaByArch(text);
  if (text.find(" 2006.") != std::string_view::npos) {
    facts.version = "2006";
    facts.verdict.subVersion = GUESS_VERSION_MANDRIVA_2006;
  }
  return facts;
}

void mandrivaFromVolumeId(std::string_view volumeId, MandrivaFacts &facts) {
  facts.verdict = MarkerVerdict();
  if (!str::startsWith(volumeId, kVolumePrefix)) {
    return;
  }
  std::string_view rest = volumeId.substr(kVolumePrefix.size());
  facts.verdict.osName = mandrivaByArch(rest);
  // "Mandriva.201x.y": a release of the 2010s, which all install alike.
  if (str::startsWith(rest, "201") && rest.size() > 4 && rest[4] == '.') {
    facts.verdict.subVersion = GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER;
    facts.settled = facts.verdict.osName != nullptr;
  }
}

void mandrivaFromProductId(std::string_view text, MandrivaFacts &facts) {
  if (!str::startsWith(text, "vendor=Mandriva")) {
    return;
  }
  size_t arch = text.find("arch=");
  if (arch == std::string_view::npos) {
    return;
  }
  std::string_view archValue = text.substr(arch + 5);
  if (str::startsWith(archValue, "x86_6")) {
    facts.verdict.osName = "mandriva-64";
  } else if (str::startsWith(archValue, "i586")) {
    facts.verdict.osName = "mandriva";
  }
  size_t version = text.find("version=");
  if (version == std::string_view::npos) {
    return;
  }
  size_t pos = version + 8;
  std::string_view release;
  if (!str::nextToken(text, pos, " ,\n", release)) {
    return;
  }
  facts.version = std::string(release);
  facts.verdict.subVersion = productRelease(release, facts.verdict.subVersion);
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_Mandriva(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    MandrivaFacts facts;
    bool noIsolinux = false;
    FileText version = readFileName(medium, "VERSION");
    if (version.present()) {
      facts = mandrivaFromVersionFile(version.text());
    } else {
      noIsolinux = !isolinuxConfigIn(
          medium, {"isolinux", "i586/isolinux", "x86_64/isolinux"});
      mandrivaFromVolumeId(volumeIdOf(medium), facts);
      if (!facts.settled) {
        FileText product =
            readFirstOf(medium, {"i586/product.id", "x86_64/product.id"});
        if (product.present()) {
          mandrivaFromProductId(product.text(), facts);
        }
      }
    }
    if (!facts.version.empty()) {
      str::boundedCopy(info->versionString, sizeof info->versionString,
                       facts.version);
    }
    if (facts.verdict.osName == nullptr) {
      return Outcome::NotRecognised;
    }
    info->noIsolinux = noIsolinux ? TRUE : FALSE;
    return recognise(info, facts.verdict.osName, facts.verdict.subVersion);
  });
}
