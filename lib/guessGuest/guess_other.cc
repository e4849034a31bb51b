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

// What the first root entry that marks something marks; null when none
// does or the root does not open (`opened` tells which).
template <typename Mark>
auto firstRootMark(GuessMedium *medium, Mark mark, bool *opened = nullptr)
    -> decltype(mark("")) {
  DirHandle root(medium, "/");
  if (opened != nullptr) {
    *opened = static_cast<bool>(root);
  }
  const char *entry = nullptr;
  while (root && (entry = Guess_ReadDir(medium, root.get())) != nullptr) {
    if (auto marked = mark(entry)) {
      return marked;
    }
  }
  return nullptr;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_Solaris(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    const SolarisRelease *release = firstRootMark(medium, solarisFromEntry);
    if (release == nullptr) {
      return Outcome::Refused;
    }
    info->osName64 = release->osName64;
    return recognise(info, release->osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_NetWare(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    bool opened = false;
    const char *osName = firstRootMark(medium, netwareFromEntry, &opened);
    if (osName == nullptr) {
      return opened ? Outcome::NotRecognised : Outcome::Refused;
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_FreeBSD(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText kernel = readFirstOf(medium, {"/kernel", "/boot/kernel/kernel"});
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
