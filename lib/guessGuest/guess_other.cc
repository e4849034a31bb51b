// Detection of the remaining systems: Solaris, NetWare, FreeBSD, the
// integrated edition of the Orvex hypervisor (Orvexi), and Mac OS X.
#include <cstring>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

struct SolarisMarker {
  const char *entry;
  SolarisRelease release;
};

const SolarisMarker kSolarisMarkers[] = {
    {"Solaris_2.7", {"solaris7", nullptr}},
    {"Solaris_8", {"solaris8", nullptr}},
    {"Solaris_9", {"solaris9", nullptr}},
    {"Solaris_10", {"solaris10", "solaris10-64"}},
    {nullptr, {nullptr, nullptr}},
};

struct NetWareMarker {
  const char *entry;
  const char *osName;
};

const NetWareMarker kNetWareMarkers[] = {
    {"netware6", "netware6"},
    {"nw65os", "netware6"},
    {"nw51", "netware5"},
    {nullptr, nullptr},
};

// Mac OS X markers: (entry name, directory). The Boot Camp guide counts in
// the root as well as in its own directory, for an older release.
struct MacMarkerName {
  const char *entry;
  const char *dir;
};

constexpr MacMarkerName kMacMarkerNames[] = {
    {"Install Mac OS X Lion.app", "/"},
    {"Boot Camp Installation & Setup Guide.pdf", "/Boot Camp/Documentation"},
    {nullptr, nullptr},
};

struct MacTest {
  const char *dir;
  const char *entry;
  const char *osName;
  const char *osName64;
};

constexpr MacTest kMacTests[] = {
    {kMacMarkerNames[0].dir, kMacMarkerNames[0].entry, "darwin11",
     "darwin11-64"},
    {kMacMarkerNames[0].dir, kMacMarkerNames[1].entry, "darwin", "darwin-64"},
    {kMacMarkerNames[1].dir, kMacMarkerNames[1].entry, "darwin10",
     "darwin10-64"},
    {nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

const SolarisRelease *solarisFromEntry(std::string_view entry) {
  for (const SolarisMarker *m = kSolarisMarkers; m->entry != nullptr; ++m) {
    if (str::equalsCaseless(entry, m->entry)) {
      return &m->release;
    }
  }
  return nullptr;
}

const char *netwareFromEntry(std::string_view entry) {
  for (const NetWareMarker *m = kNetWareMarkers; m->entry != nullptr; ++m) {
    if (str::equalsCaseless(entry, m->entry)) {
      return m->osName;
    }
  }
  return nullptr;
}

const char *orvexiFromBootMenu(std::string_view text) {
  if (text.find("menu title Zentav ZTvisor") != std::string_view::npos) {
    return "ztkernel";
  }
  if (text.find("MENU TITLE Orvexi-5") != std::string_view::npos) {
    return "ztkernel5";
  }
  return nullptr;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_Solaris(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    const SolarisRelease *release = nullptr;
    {
      DirHandle root(medium, "/");
      if (!root) {
        return Outcome::Refused;
      }
      while (release == nullptr) {
        const char *entry = Guess_ReadDir(medium, root.get());
        if (entry == nullptr) {
          return Outcome::Refused;
        }
        release = solarisFromEntry(entry);
      }
    }
    info->osName64 = release->osName64;
    return recognise(info, release->osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_NetWare(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    const char *osName = nullptr;
    {
      DirHandle root(medium, "/");
      if (!root) {
        return Outcome::Refused;
      }
      while (osName == nullptr) {
        const char *entry = Guess_ReadDir(medium, root.get());
        if (entry == nullptr) {
          break;
        }
        osName = netwareFromEntry(entry);
      }
    }
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_FreeBSD(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText kernel = readFileName(medium, "/kernel");
    if (!kernel.present()) {
      kernel = readFileName(medium, "/boot/kernel/kernel");
    }
    if (!kernel.present()) {
      return Outcome::NotRecognised;
    }
    int arch = Guess_ELF_Arch(
        reinterpret_cast<const unsigned char *>(kernel.data.get()),
        kernel.size);
    return recognise(info, arch == GUESS_ARCH_64 ? "freeBSD-64" : "freeBSD",
                     GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_Orvexi(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText menu = readFileName(medium, "isolinux.cfg");
    if (!menu.present()) {
      return Outcome::Refused;
    }
    const char *osName = orvexiFromBootMenu(menu.text());
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_MacOS(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    for (const MacTest *t = kMacTests; t->dir != nullptr; ++t) {
      if (Guess_FileExists(medium, t->dir, t->entry)) {
        info->osName64 = t->osName64;
        return recognise(info, t->osName, GUESS_VERSION_UNKNOWN);
      }
    }
    return Outcome::Refused;
  });
}
