#include "lib/medium/linux_answer_values.h"

#include <cctype>
#include <cstdlib>
#include <string_view>

#include "guestprep/autoinstall.h"
#include "lib/medium/answer_escape.h"
#include "lib/medium/password_hash.h"
#include "platform/timezone.h"

namespace gp::medium {
namespace {

struct Keyboard {
  const char *country;  // the country of the language entry
  const char *xkb;      // the X keyboard layout
  const char *yast;     // YaST's keymap name
};

// The layout that the people of a country mostly type on; any other
// country types on the US layout.
constexpr Keyboard kKeyboards[] = {
    {"US", "us", "english-us"},   {"GB", "gb", "english-uk"},
    {"DE", "de", "german"},       {"AT", "at", "german"},
    {"CH", "ch", "german-ch"},    {"FR", "fr", "french"},
    {"BE", "be", "belgian"},      {"ES", "es", "spanish"},
    {"IT", "it", "italian"},      {"PT", "pt", "portugese"},
    {"BR", "br", "portugese-br"}, {"NL", "nl", "dutch"},
    {"DK", "dk", "danish"},       {"NO", "no", "norwegian"},
    {"SE", "se", "swedish"},      {"FI", "fi", "finnish"},
    {"PL", "pl", "polish"},       {"CZ", "cz", "czech"},
    {"SK", "sk", "slovak"},       {"HU", "hu", "hungarian"},
    {"RU", "ru", "russian"},      {"JP", "jp", "japanese"},
    {"KR", "kr", "korean"},       {"TR", "tr", "turkish"},
    {"GR", "gr", "greek"},
};

constexpr size_t kMaxUserName = 32;
constexpr size_t kMaxLabel = 63;

bool isLower(char c) { return c >= 'a' && c <= 'z'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// "en-US", "en_us", "EN_US" -> "en_US"; false for anything else.
bool normalLanguage(const std::string &entry, std::string &out) {
  if (entry.empty()) {
    out = "en_US";
    return true;
  }
  size_t sep = entry.find_first_of("-_");
  if (sep < 2 || sep > 3 || entry.size() != sep + 3) {
    return false;
  }
  std::string language, country;
  for (size_t i = 0; i < entry.size(); ++i) {
    char c =
        static_cast<char>(std::tolower(static_cast<unsigned char>(entry[i])));
    if (i == sep) {
      continue;
    }
    if (!isLower(c)) {
      return false;
    }
    if (i < sep) {
      language += c;
    } else {
      country += static_cast<char>(c - 'a' + 'A');
    }
  }
  out = language + "_" + country;
  return true;
}

bool isHostLabel(const std::string &name) {
  if (name.empty() || name.size() > kMaxLabel || name.front() == '-' ||
      name.back() == '-') {
    return false;
  }
  for (char c : name) {
    if (!isLower(c) && !isDigit(c) && c != '-' && !(c >= 'A' && c <= 'Z')) {
      return false;
    }
  }
  return true;
}

// The library's message for a refused text, or a plain one.
bool validated(AutoInstallValidation result, char *message, const char *what,
               std::string &error) {
  if (result == AUTOINSTALL_VALID) {
    return true;
  }
  error = std::string(what) + ": " + (message != nullptr ? message : "refused");
  std::free(message);
  return false;
}

bool checkUserName(const InstallEntries &entries, UserNameRules rules,
                   std::string &error) {
  if (entries.user.empty() || entries.user.size() > kMaxUserName) {
    error = "user name: give one of 1 to 32 characters";
    return false;
  }
  if (entries.user == "root") {
    error = "user name: root is the administrator; choose another name";
    return false;
  }
  // The Ubuntu rules are the Linux rules plus a letter first, which is what
  // Debian's installer wants as well.
  GuessInfo info{};
  info.osName = rules == UserNameRules::LetterFirst ? "ubuntu" : nullptr;
  char *message = nullptr;
  AutoInstallValidation result = AutoInstall_ValidateShortName(
      "linux", info.osName != nullptr ? &info : nullptr, entries.user.c_str(),
      &message);
  return validated(result, message, "user name", error);
}

bool checkFullName(const std::string &name, std::string &error) {
  // Every answer file escapes the full name; the passwd file alone cannot
  // hold a colon, its field separator.
  if (!isOneLineText(name)) {
    error = "full name: give one line of UTF-8 text";
    return false;
  }
  if (name.find(':') != std::string::npos) {
    error =
        "full name: a colon cannot be part of it (it separates the "
        "fields of the user database)";
    return false;
  }
  return true;
}

bool hashPassword(const std::string &password, const char *what,
                  std::string &hash, std::string &error) {
  if (password.empty()) {
    error = std::string(what) + ": give one";
    return false;
  }
  std::optional<std::string> made = sha512CryptHash(password);
  if (!made) {
    error = std::string(what) + (password.find('\0') != std::string::npos
                                     ? ": a NUL character cannot be part of it"
                                     : ": the SHA-512 hash could not be made");
    return false;
  }
  hash = *made;
  return true;
}

bool knownZone(const std::string &zone) {
  return zone == "Etc/UTC" || !tz::windowsZoneFor(zone).name.empty();
}

}  // namespace

bool prepareLinuxValues(const InstallEntries &entries, UserNameRules rules,
                        LinuxAnswerValues &out, std::string &error) {
  LinuxAnswerValues v;
  if (!checkUserName(entries, rules, error) ||
      !checkFullName(entries.fullName, error)) {
    return false;
  }
  v.user = entries.user;
  v.fullName = entries.fullName;

  v.hostname = entries.hostname;
  if (v.hostname.empty()) {
    // A valid user name is a valid host name once its dashes are off the
    // ends.
    v.hostname = v.user.substr(0, kMaxLabel);
    while (!v.hostname.empty() && v.hostname.front() == '-') {
      v.hostname.erase(0, 1);
    }
    while (!v.hostname.empty() && v.hostname.back() == '-') {
      v.hostname.pop_back();
    }
    if (v.hostname.empty()) {
      v.hostname = "linux";
    }
  } else if (!isHostLabel(v.hostname)) {
    error =
        "host name: give 1 to 63 letters, digits and dashes, not "
        "starting or ending with a dash";
    return false;
  }

  if (!normalLanguage(entries.language, v.language)) {
    error = "language: give a language and a country, e.g. en-US or de_DE";
    return false;
  }
  v.locale = v.language + ".UTF-8";
  v.xkbLayout = "us";
  v.yastKeymap = "english-us";
  std::string_view country =
      std::string_view(v.language).substr(v.language.find('_') + 1);
  for (const Keyboard &k : kKeyboards) {
    if (country == k.country) {
      v.xkbLayout = k.xkb;
      v.yastKeymap = k.yast;
    }
  }

  v.timeZone = entries.timeZone.empty() ? "Etc/UTC" : entries.timeZone;
  if (v.timeZone == "UTC") {
    v.timeZone = "Etc/UTC";
  }
  if (!knownZone(v.timeZone)) {
    error = "time zone: " + (isOneLineText(v.timeZone) ? v.timeZone : "") +
            " is not a time zone name this knows (e.g. Europe/Berlin)";
    return false;
  }

  if (!hashPassword(entries.password, "password", v.userHash, error) ||
      !hashPassword(entries.rootPassword, "root password", v.rootHash, error)) {
    return false;
  }
  out = std::move(v);
  return true;
}

long leadingNumber(const std::string &version) {
  if (version.empty() || !isDigit(version[0])) {
    return -1;
  }
  return std::strtol(version.substr(0, 6).c_str(), nullptr, 10);
}

const OsFacts *installerFacts(const Described &disc, const char *installer,
                              std::string &error) {
  const auto &os = disc.facts.os;
  if (!os || !os->installer || *os->installer != installer) {
    error = std::string("the disc is not installed with ") + installer +
            (os && os->installer ? " (its installer is " + *os->installer + ")"
                                 : "");
    return nullptr;
  }
  return &*os;
}

bool parseMirrorUrl(const std::string &url, MirrorUrl &out) {
  size_t colon = url.find("://");
  if (colon == std::string::npos) {
    return false;
  }
  MirrorUrl m;
  m.scheme = url.substr(0, colon);
  if (m.scheme != "http" && m.scheme != "https" && m.scheme != "ftp") {
    return false;
  }
  for (char c : url) {
    auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte >= 0x7F || c == '"' || c == '\'' || c == '\\' ||
        c == '`' || c == '<' || c == '>') {
      return false;
    }
  }
  std::string rest = url.substr(colon + 3);
  size_t slash = rest.find('/');
  m.host = rest.substr(0, slash);
  m.directory = slash == std::string::npos ? "/" : rest.substr(slash);
  if (m.host.empty() || m.host.find('@') != std::string::npos) {
    return false;
  }
  out = std::move(m);
  return true;
}

}  // namespace gp::medium
