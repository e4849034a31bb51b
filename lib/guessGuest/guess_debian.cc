// Debian and Ubuntu detection from ".disk/info", the one-line description
// that their media carry, e.g.
//   Ubuntu 8.04 "Hardy Heron" - Release amd64 (20080424)
#include <string>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

struct DebianFamily {
  const char *prefix;  // null ends the table
  const char *name32;
  const char *name64;
  bool ubuntu;
};

const DebianFamily kFamilies[] = {
    {"Debian GNU/Linux 4.0", "debian4", "debian4-64", false},
    {"Debian GNU/Linux 5.0", "debian5", "debian5-64", false},
    {"Debian GNU/Linux 7.0", "debian7", "debian7-64", false},
    {"Ubuntu", "ubuntu", "ubuntu-64", true},
    {"Kubuntu", "ubuntu", "ubuntu-64", true},
    {"Xubuntu", "ubuntu", "ubuntu-64", true},
    {"Edubuntu", "ubuntu", "ubuntu-64", true},
    {nullptr, nullptr, nullptr, false},
};

// Ubuntu's release is the second word; server media install differently
// from 8.10 on, desktop media from 7.10 on.
void ubuntuRelease(std::string_view text, DebianFacts &facts) {
  size_t pos = 0;
  std::string_view release;
  if (!str::nextToken(text, pos, " ", release) ||
      !str::nextToken(text, pos, " ", release)) {
    return;
  }
  if (str::contains(text, "Ubuntu-Server")) {
    facts.verdict.subVersion = str::compareDottedVersion(release, "8.10") < 0
                                   ? GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER
                                   : GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER;
    facts.version = "Server " + std::string(release);
  } else {
    if (str::compareDottedVersion(release, "7.10") >= 0) {
      facts.verdict.subVersion = GUESS_VERSION_UBUNTU_710_OR_HIGHER;
    }
    facts.version = std::string(release);
  }
}

}  // namespace

DebianFacts debianFromDiskInfo(std::string_view text) {
  DebianFacts facts;
  const DebianFamily *family = kFamilies;
  while (family->prefix != nullptr && !str::startsWith(text, family->prefix)) {
    ++family;
  }
  if (family->prefix == nullptr) {
    return facts;
  }
  if (str::contains(text, "amd64")) {
    facts.verdict.osName = family->name64;
  } else if (str::contains(text, "i386")) {
    facts.verdict.osName = family->name32;
  }
  if (family->ubuntu) {
    facts.verdict.subVersion = GUESS_VERSION_UBUNTU_704_OR_LOWER;
    ubuntuRelease(text, facts);
  }
  return facts;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_Debian(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText diskInfo = readFileName(medium, ".disk/info");
    bool isolinux = Guess_FileExists(medium, "isolinux", "isolinux.cfg");
    if (!diskInfo.present()) {
      return Outcome::NotRecognised;
    }
    DebianFacts facts = debianFromDiskInfo(diskInfo.text());
    if (!facts.version.empty()) {
      str::boundedCopy(info->versionString, sizeof info->versionString,
                       facts.version);
    }
    if (facts.verdict.osName == nullptr) {
      return Outcome::NotRecognised;
    }
    info->noIsolinux = isolinux ? FALSE : TRUE;
    return recognise(info, facts.verdict.osName, facts.verdict.subVersion);
  });
}
