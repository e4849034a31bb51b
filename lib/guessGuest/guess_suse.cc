// SUSE detection: SUSE Linux, openSUSE, SUSE Linux Enterprise Server and
// Desktop, Novell Linux Desktop and Sun Java Desktop media.
//
// The root "content" file describes the product in keyword lines:
//   NAME SUSE_SLED
//   VERSION 10.1
//   BASEARCHS x86_64
// Media without it may have "media.1/products", and the oldest ones only a
// ".S.u.S.E-disk-..." marker in the root.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "lib/guessGuest/guess_internal.h"
#include "lib/guessGuest/guess_markers.h"
#include "platform/strutil.h"

namespace gp::guess {
namespace {

struct SuseNames {
  const char *name32;
  const char *name64;
};

const SuseNames kSuse = {"suse", "suse-64"};
const SuseNames kOpenSuse = {"opensuse", "opensuse-64"};
const SuseNames kSles = {"sles", "sles-64"};
const SuseNames kSles10 = {"sles10", "sles10-64"};
const SuseNames kSles11 = {"sles11", "sles11-64"};

const SuseNames &enterpriseNames(long major) {
  switch (major) {
    case 10:
      return kSles10;
    case 11:
      return kSles11;
    default:
      return kSles;
  }
}

const char *pick(const SuseNames &names, bool is64) {
  return is64 ? names.name64 : names.name32;
}

bool isCSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// What the keyword lines of "content" say.
struct SuseContent {
  std::optional<std::string_view> product;
  std::optional<std::string_view> arch;
  SuseVersion version;
};

// The product name after a PRODUCT or NAME word: the white space after the
// word is skipped, across line ends too, then the rest of that line.
std::optional<std::string_view> productAfter(std::string_view text,
                                             size_t pos) {
  while (pos < text.size() && isCSpace(text[pos])) {
    ++pos;
  }
  std::string_view name;
  if (!str::nextToken(text, pos, "\n", name)) {
    return std::nullopt;
  }
  return name;
}

// Applies the VERSION lines whose words end at `ends` (in file order).
//
// Each line reads two integer tokens delimited by "." only, so a token can
// run over many lines to the next dot. Every line overwrites what the one
// before it read, so only two lines matter: the last that has a first token
// (the major version, and the minor version when it has a second token),
// and otherwise, for the minor version, the last line that still has a
// second token. Reading just those keeps a file of many VERSION lines and
// few dots from being rescanned once per line.
void applyVersionLines(std::string_view text, const std::vector<size_t> &ends,
                       SuseVersion &version) {
  if (ends.empty()) {
    return;
  }
  size_t last = ends.size() - 1;
  size_t pos = ends[last];
  long major = 0;
  if (!str::nextIntToken(text, pos, ".", major)) {
    // Only dots follow the last line, which therefore reads nothing; the
    // line before it has the last line's word as a token.
    if (last == 0) {
      return;
    }
    --last;
    pos = ends[last];
    str::nextIntToken(text, pos, ".", major);
  }
  version.major = major;
  long minor = 0;
  if (str::nextIntToken(text, pos, ".", minor)) {
    version.minor = minor;
    return;
  }
  // The last line's first token runs to the end or to a dot followed by
  // dots only. A line has a second token exactly when a dot lies between
  // its word and that line's word, so the latest such line decides.
  size_t dot = text.rfind('.', ends[last] - 1);
  if (dot == std::string_view::npos) {
    return;
  }
  auto after = std::upper_bound(ends.begin(), ends.begin() + last, dot);
  if (after == ends.begin()) {
    return;
  }
  pos = *(after - 1);
  if (str::nextIntToken(text, pos, ".", major) &&
      str::nextIntToken(text, pos, ".", minor)) {
    version.minor = minor;
  }
}

SuseContent readContent(std::string_view text) {
  SuseContent content;
  std::vector<size_t> versionEnds;
  size_t linePos = 0;
  std::string_view line;
  while (str::nextToken(text, linePos, "\n", line)) {
    // A line of blanks only has no word of its own: its word would be the
    // next line's first, which that line reads anyway, to the same effect.
    size_t wordPos = 0;
    std::string_view word;
    if (!str::nextToken(line, wordPos, " ", word)) {
      continue;
    }
    size_t after = static_cast<size_t>(line.data() - text.data()) + wordPos;
    if (str::startsWith(word, "PRODUCT") || str::startsWith(word, "NAME")) {
      if (!content.product) {
        content.product = productAfter(text, after);
      }
    } else if (str::startsWith(word, "VERSION")) {
      versionEnds.push_back(after);
    } else if (str::startsWith(word, "DEFAULTBASE") ||
               str::startsWith(word, "BASEARCHS")) {
      std::string_view arch;
      if (!content.arch && str::nextToken(text, after, " \n", arch)) {
        content.arch = arch;
      }
    }
  }
  applyVersionLines(text, versionEnds, content.version);
  return content;
}

MarkerVerdict enterpriseVerdict(std::string_view product, SuseVersion version,
                                bool is64) {
  MarkerVerdict v;
  long major = version.major;
  long minor = version.minor;
  bool desktop = product.size() > 8 && product[8] == 'D';
  if (desktop) {
    v.subVersion = (major == 10 && minor < 3)
                       ? GUESS_VERSION_SLED_10_SP2_OR_LOWER
                       : GUESS_VERSION_SLED_ALL;
  } else if (major == 10 && minor <= 2) {
    v.subVersion = GUESS_VERSION_SLES_10_SP2_OR_LOWER;
  }
  v.osName = pick(enterpriseNames(major), is64);
  return v;
}

}  // namespace

SuseVersion suseContentVersion(std::string_view text) {
  return readContent(text).version;
}

MarkerVerdict suseFromContent(std::string_view text) {
  SuseContent c = readContent(text);
  MarkerVerdict v;
  if (!c.product || !c.arch) {
    return v;
  }
  std::string_view product = *c.product;
  bool is64 = *c.arch == "x86_64";
  if (str::startsWithCaseless(product, "SUSE LINUX")) {
    v.osName = pick(kSuse, is64);
  } else if (str::startsWithCaseless(product, "openSUSE")) {
    v.osName = pick(kOpenSuse, is64);
    long major = c.version.major;
    if ((major >= 0 && major <= 10) || (major == 11 && c.version.minor <= 2)) {
      v.subVersion = GUESS_VERSION_OPENSUSE_11_2_OR_LOWER;
    }
  } else if (str::startsWith(product, "SUSE SLE") ||
             str::startsWith(product, "SUSE_SLE")) {
    v = enterpriseVerdict(product, c.version, is64);
  } else if (str::startsWithCaseless(product, "Sun Java Desktop")) {
    v.osName = "sjds";
  } else if (str::startsWithCaseless(product, "Novell Linux Desktop")) {
    v.osName = "nld9";
  }
  return v;
}

MarkerVerdict suseFromProducts(std::string_view text) {
  MarkerVerdict v;
  // Each line is the product's path on the medium, a blank, its name.
  std::string_view rest = text.size() > 2 ? text.substr(2) : "";
  if (str::startsWith(rest, "SLES9-SLD")) {
    v.osName = "nld9";
  } else if (str::startsWith(rest, "SLES8-SLEC-i386-SUN")) {
    v.osName = "sjds";
  } else if (str::startsWith(rest, "SUSE-Linux-Enterprise") ||
             str::startsWith(rest, "SUSE-Linux-SLES")) {
    size_t pos = 0;
    std::string_view name;
    long major = 0;
    if (str::nextToken(rest, pos, " ", name)) {
      str::nextIntToken(rest, pos, " \n", major);
    }
    v.osName = pick(enterpriseNames(major), str::contains(text, "x86_64"));
    if (str::contains(text, "Desktop")) {
      v.subVersion = GUESS_VERSION_SLED_ALL;
    }
  } else if (str::startsWithCaseless(rest, "SUSE-Linux")) {
    v.osName = pick(
        kSuse, str::contains(text, "x86_64") || str::contains(text, "x86-64"));
  }
  return v;
}

}  // namespace gp::guess

using namespace gp;
using namespace gp::guess;

namespace {

// The oldest media are known only by a marker entry in the root.
bool hasSuseDiskMarker(GuessMedium *medium) {
  DirHandle root(medium, "/");
  if (!root) {
    return false;
  }
  while (const char *entry = Guess_ReadDir(medium, root.get())) {
    if (str::startsWith(entry, ".S.u.S.E-disk")) {
      return true;
    }
  }
  return false;
}

MarkerVerdict suseVerdict(GuessMedium *medium) {
  FileText content = readFileName(medium, "content");
  if (content.present()) {
    return suseFromContent(content.text());
  }
  FileText products = readFileName(medium, "media.1/products");
  if (products.present()) {
    return suseFromProducts(products.text());
  }
  MarkerVerdict v;
  if (hasSuseDiskMarker(medium)) {
    v.osName = "suse";
  }
  return v;
}

}  // namespace

GP_EXPORT Bool Guess_SUSE(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    MarkerVerdict v = suseVerdict(medium);
    bool isolinux = isolinuxConfigIn(
        medium, {"boot/loader", "boot/i386/loader", "boot/x86_64/loader"});
    if (v.osName == nullptr) {
      return Outcome::NotRecognised;
    }
    info->noIsolinux = isolinux ? FALSE : TRUE;
    return recognise(info, v.osName, v.subVersion);
  });
}
