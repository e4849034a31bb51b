// Windows media detection: the NT family (NT 4.0 to Server 2003) by its
// text-mode setup files, Windows 95/98/Me by a directory name, and Vista
// and later by the files of "sources". Besides the identifier the
// detectors report the installation language and the install images.
#include <string>
#include <string_view>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

constexpr char kDefaultLanguage[] = "en-US";

struct ProductName {
  const char *name;  // null ends the table
  const char *osName;
};

const ProductName kProductNames[] = {
    {"Windows Server 2003, Standard", "winNetStandard"},
    {"Windows Server 2003, Enterprise", "winNetEnterprise"},
    {"Windows Server 2003, Web", "winNetWeb"},
    {"Windows Server 2003 Standard x64 Edition", "winNetStandard-64"},
    {"Windows Server 2003 Enterprise x64 Edition", "winNetEnterprise-64"},
    {"Windows Server 2003 for Small Business Server", "winNetBusiness"},
    {"Microsoft Windows 2000 Professional", "win2000Pro"},
    {"Microsoft Windows 2000 Server", "win2000Serv"},
    {"Microsoft Windows 2000 Advanced Server", "win2000AdvServ"},
    {"Windows NT Workstation Version 4.00", "winNT"},
    {"Windows NT Server Version 4.00", "winNT"},
    {nullptr, nullptr},
};

// Install image names that decide the release when the build branch
// does not.
const char *const kVistaImagePrefix = "install_Windows Vista";
const char *const kWindows7ImagePrefix = "install_Windows 7";

bool isBlankSpace(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' ||
         c == '\f';
}

bool isControl(char c) {
  auto u = static_cast<unsigned char>(c);
  return u < 0x20 || u == 0x7F;
}

// Reads one key = value assignment at the start of `text`; the key ends at
// the first blank of the text (or at the "=" when there is none) and the
// value, optionally quoted, at the first control character or quote.
bool guessParseKeyValue(std::string_view text, std::string *key,
                        std::string *value) {
  size_t equals = text.find('=');
  if (equals == std::string_view::npos) {
    return false;
  }
  size_t blank = text.find(' ');
  size_t keyEnd = blank != std::string_view::npos ? blank : equals;
  size_t at = equals + 1;
  while (at < text.size() && isBlankSpace(text[at])) {
    ++at;
  }
  if (at >= text.size()) {
    return false;
  }
  if (text[at] == '"') {
    if (++at >= text.size() || text[at] == '"') {
      return false;
    }
  }
  size_t end = at;
  while (end < text.size() && !isControl(text[end]) && text[end] != '"') {
    ++end;
  }
  if (end == at) {
    return false;
  }
  if (key != nullptr) {
    *key = std::string(text.substr(0, keyEnd));
  }
  if (value != nullptr) {
    *value = std::string(text.substr(at, end - at));
  }
  return true;
}

// The value of the first `marker` assignment in `text`, if one can be read.
bool valueAfter(std::string_view text, std::string_view marker,
                std::string &value) {
  size_t at = text.find(marker);
  return at != std::string_view::npos &&
         guessParseKeyValue(text.substr(at), nullptr, &value);
}

// The identifier of an NT-family product name: the table first, then the
// Windows XP substring rules.
const char *ntIdentifier(const std::string &product) {
  for (const ProductName *p = kProductNames; p->name != nullptr; ++p) {
    if (product == p->name) {
      return p->osName;
    }
  }
  std::string lower = str::toLower(product);
  if (!str::contains(lower, "windows xp")) {
    return nullptr;
  }
  if (!str::contains(lower, "pro")) {
    return "winXPHome";
  }
  return str::contains(lower, "x64") ? "winXPPro-64" : "winXPPro";
}

enum class Release { None, Vista, Windows7, Windows8 };

Release releaseClass(const std::string &branch,
                     const WindowsImageTest &hasImage) {
  if (str::startsWith(branch, "vista") ||
      str::startsWith(branch, "lh_sp2rtm")) {
    return Release::Vista;
  }
  if (str::contains(branch, "win7")) {
    return Release::Windows7;
  }
  if (str::contains(branch, "win8") || str::startsWith(branch, "winmain")) {
    return Release::Windows8;
  }
  if (hasImage(kVistaImagePrefix)) {
    return Release::Vista;
  }
  if (hasImage(kWindows7ImagePrefix)) {
    return Release::Windows7;
  }
  return Release::None;
}

// The identifiers of each release (in Release order): client 32-bit and
// 64-bit, server 32-bit and 64-bit. Releases from Windows 7 on have
// 64-bit servers only.
const char *const kVistaFamily[][4] = {
    {"longhorn", "longhorn-64", "longhorn", "longhorn-64"},
    {"winvista", "winvista-64", "longhorn", "longhorn-64"},
    {"windows7", "windows7-64", "windows7srv-64", "windows7srv-64"},
    {"windows8", "windows8-64", "windows8srv-64", "windows8srv-64"},
};

const char *vistaIdentifier(Release release, bool server, bool is64) {
  return kVistaFamily[static_cast<int>(release)]
                     [(server ? 2 : 0) + (is64 ? 1 : 0)];
}

// The install image names of "sources", each followed by "?".
void writeEditions(GuessMedium *medium, GuessInfo *info) {
  DirHandle dir(medium, "/sources");
  if (!dir) {
    return;
  }
  constexpr std::string_view kPrefix = "install_", kSuffix = ".clg";
  std::string editions;
  while (const char *entry = Guess_ReadDir(medium, dir.get())) {
    std::string_view name(entry);
    if (name.size() >= kPrefix.size() + kSuffix.size() &&
        str::startsWith(name, kPrefix) &&
        name.substr(name.size() - kSuffix.size()) == kSuffix) {
      editions.append(name.substr(
          kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size()));
      editions += '?';
    }
  }
  str::boundedCopy(info->editions, sizeof info->editions, editions);
}

bool isDecimal(std::string_view s, long &number) {
  while (!s.empty() && s.back() == ' ') {
    s.remove_suffix(1);
  }
  size_t digits = (!s.empty() && (s[0] == '-' || s[0] == '+')) ? 1 : 0;
  if (digits == s.size()) {
    return false;
  }
  for (size_t i = digits; i < s.size(); ++i) {
    if (s[i] < '0' || s[i] > '9') {
      return false;
    }
  }
  number = str::parseLong(s);
  return true;
}

}  // namespace

std::string windowsLanguage(std::string_view langIni) {
  constexpr std::string_view kHeader = "[Available UI Languages]\r\n";
  constexpr std::string_view kNext = "\r\n[Fallback Languages]";
  size_t begin = langIni.find(kHeader);
  if (begin == std::string_view::npos) {
    return {};
  }
  begin += kHeader.size();
  size_t end = langIni.find(kNext, begin);
  if (end == std::string_view::npos) {
    return {};
  }
  std::string_view section = langIni.substr(begin, end - begin);
  std::string chosen;
  size_t at = 0;
  for (;;) {
    while (section.compare(at, 2, "\r\n") == 0) {
      at += 2;
    }
    if (at >= section.size()) {
      break;
    }
    size_t lineEnd = section.find("\r\n", at);
    if (lineEnd == std::string_view::npos) {
      lineEnd = section.size();
    }
    std::string_view line = section.substr(at, lineEnd - at);
    at = lineEnd;
    std::string key, value;
    if (!guessParseKeyValue(line, &key, &value)) {
      continue;
    }
    long number = 0;
    if (!isDecimal(value, number)) {
      break;
    }
    if (number >= 0) {
      chosen = key;
    }
  }
  return chosen;
}

const char *windowsVistaFamily(std::string_view productIni,
                               std::string_view buildInfo,
                               const WindowsImageTest &hasImage) {
  std::string value;
  bool server =
      valueAfter(productIni, "Type=", value) && str::contains(value, "Server");
  Release release = Release::None;
  if (valueAfter(buildInfo, "BuildBranch=", value)) {
    release = releaseClass(value, hasImage);
  }
  if (release == Release::Windows8 &&
      valueAfter(productIni, "staged=", value)) {
    server = str::contains(value, "SERVERSTANDARD");
  }
  if (release == Release::None && !server) {
    return nullptr;
  }
  size_t arch = buildInfo.find("BuildArch=");
  if (arch == std::string_view::npos) {
    return nullptr;
  }
  bool is64 = guessParseKeyValue(buildInfo.substr(arch), nullptr, &value) &&
              value == "amd64";
  return vistaIdentifier(release, server, is64);
}

const char *windowsNtFromSetup(std::string_view setup) {
  size_t at = setup.find("wks_id ");
  if (at == std::string_view::npos) {
    at = setup.find("srv_id ");
  }
  std::string product;
  if (at == std::string_view::npos ||
      !guessParseKeyValue(setup.substr(at), nullptr, &product)) {
    return nullptr;
  }
  return ntIdentifier(product);
}

std::string windowsNtLanguage(std::string_view prodspec) {
  std::string language;
  valueAfter(prodspec, "Localization=", language);
  return language;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_WindowsNT(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText setup =
        readFirstOf(medium, {"I386/TXTSETUP.SIF", "AMD64/TXTSETUP.SIF"});
    if (!setup.present()) {
      return Outcome::NotRecognised;
    }
    FileText prodspec =
        readFirstOf(medium, {"I386/PRODSPEC.INI", "AMD64/PRODSPEC.INI"});
    const char *osName = windowsNtFromSetup(setup.view());
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    std::string language = windowsNtLanguage(prodspec.view());
    if (!language.empty()) {
      str::boundedCopy(info->language, sizeof info->language, language);
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_WindowsLegacy(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    struct Marker {
      const char *dir;
      const char *osName;
    };
    // Later entries outrank earlier ones: a Me medium also carries the
    // directories of its predecessors.
    const Marker markers[] = {
        {"win98", "win98"}, {"win95", "win95"}, {"win9x", "winMe"}};
    const char *osName = nullptr;
    for (const Marker &m : markers) {
      if (DirHandle(medium, m.dir)) {
        osName = m.osName;
      }
    }
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}

GP_EXPORT Bool Guess_WindowsVistaAndNewer(GuessMedium *medium,
                                          GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText product = readFileName(medium, "sources/product.ini");
    FileText build = readFileName(medium, "sources/idwbinfo.txt");
    FileText lang = readFileName(medium, "sources/lang.ini");
    const char *osName = nullptr;
    std::string language;
    if (product.present() && build.present() && lang.present()) {
      writeEditions(medium, info);
      osName = windowsVistaFamily(
          product.view(), build.view(), [medium](const char *prefix) {
            return Guess_FileExistsWithPrefix(medium, "sources", prefix) != 0;
          });
      if (osName != nullptr) {
        language = windowsLanguage(lang.view());
      }
    }
    str::boundedCopy(info->language, sizeof info->language,
                     language.empty() ? kDefaultLanguage : language);
    if (osName == nullptr) {
      return Outcome::NotRecognised;
    }
    return recognise(info, osName, GUESS_VERSION_UNKNOWN);
  });
}
