// Red Hat family detection: Red Hat Linux, Red Hat Enterprise Linux,
// CentOS, Asianux, Enterprise Linux and Fedora media.
#include <string>
#include <vector>

#include "lib/guessGuest/guess_internal.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

struct CentosKey {
  const char *file;
  uint32_t code;
};

const CentosKey kCentosKeys[] = {
    {"RPM-GPG-KEY-CentOS-3", GUESS_VERSION_CENTOS_3},
    {"RPM-GPG-KEY-centos4", GUESS_VERSION_CENTOS_4},
    {"RPM-GPG-KEY-CentOS-5", GUESS_VERSION_CENTOS_5},
    {"RPM-GPG-KEY-CentOS-6", GUESS_VERSION_CENTOS_6},
    {nullptr, 0},
};

struct ReleaseRule {
  const char *prefix;  // null ends the table
  const char *name32;
  const char *name64;
};

const ReleaseRule kReleaseRules[] = {
    {"Red Hat Enterprise Linux 3", "rhel3", "rhel3-64"},
    {"Red Hat Enterprise Linux 4", "rhel4", "rhel4-64"},
    {"Red Hat Enterprise Linux Client 5", "rhel5", "rhel5-64"},
    {"Red Hat Enterprise Linux Server 5", "rhel5", "rhel5-64"},
    {"final", "centos", "centos-64"},
    {"Final", "centos", "centos-64"},
    {"CentOS", "centos", "centos-64"},
    {"Red Hat Enterprise Linux 6", "rhel6", "rhel6-64"},
    {"Asianux 3.0", "asianux3", "asianux3-64"},
    {"Asianux Server 3 SP", "asianux3", "asianux3-64"},
    {"Enterprise Linux Enterprise Linux 4", "oraclelinux", "oraclelinux-64"},
    {"Enterprise Linux Server 5", "oraclelinux", "oraclelinux-64"},
    {nullptr, nullptr, nullptr},
};

uint32_t centosCode(GuessMedium *medium) {
  for (const CentosKey *k = kCentosKeys; k->file != nullptr; ++k) {
    if (Guess_FileExists(medium, "", k->file)) {
      return k->code;
    }
  }
  return GUESS_VERSION_UNKNOWN;
}

uint32_t fedoraCode(std::string_view release) {
  size_t skip = release.find("Fedora Core ") != std::string_view::npos ? 12 : 7;
  long number =
      release.size() > skip ? str::parseLong(release.substr(skip)) : 0;
  if (number == 8) {
    return GUESS_VERSION_FEDORA_8;
  }
  if (number >= 9 && number <= 12) {
    return GUESS_VERSION_FEDORA_9_TO_12;
  }
  if (number == 13) {
    return GUESS_VERSION_FEDORA_13;
  }
  if (number >= 14) {
    return GUESS_VERSION_FEDORA_14_OR_HIGHER;
  }
  return GUESS_VERSION_UNKNOWN;
}

// The first `count` line tokens of a text (fewer when it has fewer).
std::vector<std::string_view> lineTokens(std::string_view text, size_t count) {
  std::vector<std::string_view> tokens;
  str::Tokenizer lines(text, "\n");
  std::string_view token;
  while (tokens.size() < count && lines.next(token)) {
    tokens.push_back(token);
  }
  return tokens;
}

// From .DISCINFO: the identifier, with the CentOS code deciding first.
const char *fromDiscInfo(std::string_view discInfo, uint32_t centos,
                         uint32_t &subVersion) {
  std::vector<std::string_view> lines = lineTokens(discInfo, 3);
  if (lines.size() < 3) {
    return nullptr;
  }
  std::string_view release = lines[1];
  std::string_view arch = lines[2];
  bool is64;
  if (arch == "x86_64") {
    is64 = true;
  } else if (arch == "i386") {
    is64 = false;
  } else {
    return nullptr;
  }
  subVersion = GUESS_VERSION_UNKNOWN;
  if (centos != GUESS_VERSION_UNKNOWN) {
    subVersion = centos;
    return is64 ? "centos-64" : "centos";
  }
  for (const ReleaseRule *r = kReleaseRules; r->prefix != nullptr; ++r) {
    if (str::startsWith(release, r->prefix)) {
      return is64 ? r->name64 : r->name32;
    }
  }
  if (release.find("Fedora") != std::string_view::npos) {
    subVersion = fedoraCode(release);
    return is64 ? "fedora-64" : "fedora";
  }
  return nullptr;
}

// From the first line of RELEASE-NOTES, for media without .DISCINFO.
const char *fromReleaseNotes(std::string_view notes) {
  std::vector<std::string_view> lines = lineTokens(notes, 1);
  if (lines.empty()) {
    return nullptr;
  }
  std::string_view first = lines[0];
  if (str::startsWith(first, "Red Hat Enterprise Linux")) {
    return first.find(" 2.1 ") != std::string_view::npos ? "rhel2" : nullptr;
  }
  if (str::startsWith(first, "Red Hat Linux")) {
    return "redhat";
  }
  return nullptr;
}

}  // namespace
}  // namespace gp::guess

using namespace gp::guess;

GP_EXPORT Bool Guess_RedHat(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText discInfo = readFileName(medium, ".DISCINFO");
    bool isolinux = Guess_FileExists(medium, "isolinux", "isolinux.cfg");
    uint32_t centos = centosCode(medium);

    const char *osName = nullptr;
    uint32_t subVersion = centos;
    if (discInfo.present()) {
      osName = fromDiscInfo(discInfo.view(), centos, subVersion);
    } else {
      FileText notes = readFileName(medium, "RELEASE-NOTES");
      if (notes.present()) {
        osName = fromReleaseNotes(notes.view());
      }
    }
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    info->noIsolinux = isolinux ? FALSE : TRUE;
    return recognise(info, osName, subVersion);
  });
}
