// Writing the answer file of a Linux guest: the kind's template filled
// with the user's entries, password hashes and per-version choices.
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"

#include <cerrno>
#include <cstring>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_escape.h"
#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/hostio.h"
#include "platform/unicode.h"

namespace gp::autoinstall {
namespace {

bool startsWith(const char *text, const char *prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

const char *onOff(bool on, const char *yes, const char *no) {
  return on ? yes : no;
}

// Version choices of the kickstart file, computed once per file.
struct KickstartMarks {
  bool isRhelLike = false;
  bool upTo4 = false;
  bool from5 = false;
  bool from6 = false;
  bool newSyntax = false;
};

KickstartMarks kickstartMarks(const char *osName, GuessVersion subVersion) {
  KickstartMarks m;
  const bool rhel = startsWith(osName, "rhel");
  const bool centos = subVersion >= GUESS_VERSION_CENTOS_3 &&
                      subVersion <= GUESS_VERSION_CENTOS_6;
  m.isRhelLike = rhel || centos;
  int major = -1;  // none
  if (rhel) {
    // "rhel5-64" is version 5. An identifier without a digit there has no
    // version, and none of the version tests hold for it.
    char digit = osName[4];
    if (digit >= '0' && digit <= '9') {
      major = digit - '0';
    }
  } else if (centos) {
    major = 3 + (subVersion - GUESS_VERSION_CENTOS_3);
  }
  if (m.isRhelLike && major >= 0) {
    m.upTo4 = major <= 4;
    m.from5 = major >= 5;
    m.from6 = major >= 6;
  }
  m.newSyntax = m.from6 || (subVersion == GUESS_VERSION_FEDORA_14_OR_HIGHER &&
                            !startsWith(osName, "asianux"));
  return m;
}

const char *kickstartPackages(const char *osName, GuessVersion subVersion,
                              const KickstartMarks &m) {
  if (startsWith(osName, "asianux")) {
    return kKickstartAsianuxPackages;
  }
  if (m.from6) {
    return kKickstartVersion6Packages;
  }
  if (subVersion == GUESS_VERSION_FEDORA_9_TO_12 ||
      subVersion == GUESS_VERSION_FEDORA_14_OR_HIGHER) {
    return kKickstartFontsPackages;
  }
  return kKickstartPlainPackages;
}

const char *autoyastPatterns(const char *osName, GuessVersion subVersion) {
  if (subVersion == GUESS_VERSION_SLED_ALL) {
    return kAutoyastDesktopPatterns;
  }
  if (startsWith(osName, "sles11")) {
    return kAutoyastSles11Patterns;
  }
  if (startsWith(osName, "sles")) {
    return kAutoyastSles10Patterns;
  }
  return kAutoyastOpensusePatterns;
}

// The password hashes that the templates draw from, copied out of the hash
// function's static buffer before the next one is made. Each template
// escapes the user's entries for the places they land in.
struct PreparedValues {
  std::string passwordHash;
  std::string rootPasswordHash;
};

bool prepareValues(const LinuxAnswerInput &in, PreparedValues &v) {
  const char *hash = autoInstallCryptPassword(in.password);
  if (hash == nullptr) {
    return false;
  }
  v.passwordHash = hash;
  hash = autoInstallCryptPassword(in.rootPassword);
  if (hash == nullptr) {
    return false;
  }
  v.rootPasswordHash = hash;
  return true;
}

// Kickstart: the product key is a word of a kickstart command, the user
// entries stand in shell commands of the %post script. Every line of the
// file is a command or a section mark, so no entry may break a line.
bool kickstartText(const LinuxAnswerInput &in, const PreparedValues &v,
                   std::string &out) {
  const KickstartMarks m = kickstartMarks(in.osName, in.subVersion);
  const bool fedora14 = in.subVersion == GUESS_VERSION_FEDORA_14_OR_HIGHER;
  const bool haveKey = in.productKey != nullptr && in.productKey[0] != '\0';
  if (!isOneLine(in.userName) || !isOneLine(in.fullName) ||
      (haveKey && !isOneLine(in.productKey))) {
    return false;
  }
  const std::string key = haveKey ? shellWord(in.productKey) : "--skip";
  const std::string user = shellWord(in.userName);
  out = autoInstallFillTemplate(
      kKickstartTemplate,
      {
          onOff(m.upTo4, "", "#"),                         // langsupport
          onOff(m.newSyntax, "#", ""),                     // zerombr yes
          onOff(fedora14, "", "#"),                        // part biosboot
          onOff(m.upTo4, "", "#"),                         // mouse
          onOff(m.newSyntax, "#", ""),                     // --resolution
          v.rootPasswordHash,                              // rootpw
          onOff(in.powerOff, "poweroff", "reboot"),        // own line
          onOff(m.from5, "", "#"),                         // key
          key,                                             // key value
          onOff(m.upTo4, " --resolvedeps", ""),            // %packages
          kickstartPackages(in.osName, in.subVersion, m),  // packages
          onOff(m.newSyntax, "", "#"),                     // %end of %packages
          user,                                            // adduser
          v.passwordHash,                                  // usermod -p
          user,                                            // usermod
          shellDoubleQuoted(in.fullName),                  // chfn -f
          user,                                            // chfn
          onOff(m.newSyntax, "", "#"),                     // %end of %post
      });
  return true;
}

// Preseed: each entry is the rest of a debconf selection line, taken as it
// stands. The full name keeps its quotes escaped, as it always had them.
bool preseedText(const LinuxAnswerInput &in, std::string &out) {
  const std::string fullName = autoInstallEscapeQuotes(in.fullName);
  if (!fitsDebconfValue(fullName) || !fitsDebconfValue(in.userName)) {
    return false;
  }
  // The installer's user gets a hash of its own; the administrator has no
  // password on Ubuntu.
  const char *hash = autoInstallCryptPassword(in.password);
  if (hash == nullptr) {
    return false;
  }
  out = autoInstallFillTemplate(
      kPreseedTemplate,
      {fullName, in.userName, hash, onOff(in.powerOff, "poweroff", "reboot")});
  return true;
}

// An XML document is UTF-8 text without control characters but tab and
// line breaks, and without the two non-characters U+FFFE and U+FFFF; a line
// break would not survive in a user's name.
bool fitsXml(std::string_view text) {
  std::u16string units;
  return isOneLine(text) && utf8ToUtf16(text, units) &&
         units.find_first_of(u"\uFFFE\uFFFF") == std::u16string::npos;
}

// AutoYaST: the user name is element content; the full name stands in a
// character-data section, where quotes need no escaping.
bool autoyastText(AutoInstallLinuxKind kind, const LinuxAnswerInput &in,
                  const PreparedValues &v, std::string &out) {
  if (!fitsXml(in.userName) || !fitsXml(in.fullName)) {
    return false;
  }
  out = autoInstallFillTemplate(
      kAutoyastTemplate,
      {
          autoyastPatterns(in.osName, in.subVersion),
          onOff(in.powerOff, "true", "false"),                 // final_halt
          onOff(startsWith(in.osName, "sles"), "gdm", "kdm"),  // display
          v.rootPasswordHash,                                  // root
          v.passwordHash,                                      // the user
          xmlText(in.userName),                                // username
          xmlCdata(in.fullName),                               // forename
          onOff(kind == LINUX_KIND_SUSE10, "hda", "sr0"),      // tools CD
      });
  return true;
}

// Mandriva: Perl strings, the user name single-quoted, the full name and
// the plain-text passwords double-quoted. A Perl string may span lines, so
// only the names, which the installer writes into one-line records, must
// be one line.
bool mandrivaText(const LinuxAnswerInput &in, std::string &out) {
  if (!isOneLine(in.userName) || !isOneLine(in.fullName)) {
    return false;
  }
  const std::string user = perlSingleQuoted(in.userName);
  out = autoInstallFillTemplate(
      kMandrivaTemplate,
      {user, perlDoubleQuoted(in.fullName), user, perlDoubleQuoted(in.password),
       perlDoubleQuoted(in.rootPassword)});
  return true;
}

// Creates the one directory level below an existing parent; an existing
// directory is fine, so that the file can be written again.
bool makeOneDirectory(const std::string &path) {
  if (hostOps().mkdir(path.c_str(), 0755) == 0) {
    return true;
  }
  struct stat st;
  return errno == EEXIST && hostOps().stat(path.c_str(), &st) == 0 &&
         S_ISDIR(st.st_mode);
}

bool prepareAnswerFile(const char *osName, GuessVersion subVersion,
                       const char *outDir, const char *userName,
                       const char *fullName, const char *password,
                       const char *rootPassword, const char *productKey,
                       bool powerOff) {
  const AutoInstallLinuxKind kind = autoInstallGetLinuxKind(osName);
  if (outDir == nullptr || !makeDirectories(outDir) || userName == nullptr ||
      fullName == nullptr || password == nullptr || rootPassword == nullptr) {
    return false;
  }
  if (kind == LINUX_KIND_NONE) {
    return false;
  }
  if (kind == LINUX_KIND_UBUNTU &&
      !makeOneDirectory(joinPath(outDir, "custom"))) {
    return false;
  }
  const std::string path = autoInstallLinuxAnswerPath(kind, outDir);

  // The text first: entries it cannot hold leave no file behind.
  const LinuxAnswerInput in = {osName,   subVersion,   userName,   fullName,
                               password, rootPassword, productKey, powerOff};
  std::string text;
  if (!autoInstallLinuxAnswerText(kind, in, text)) {
    return false;
  }

  // Written from its start without emptying it first. A link is not
  // followed, so nothing is written outside the caller's directory, and a
  // FIFO or device in the file's place cannot block or swallow the text.
  UniqueFd fd =
      openUntrustedFile(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW, 0600);
  if (!fd.valid()) {
    return false;
  }
  const bool written = writeFull(fd.get(), text.data(), text.size());
  // A failed close can be the write's delayed failure.
  const bool closed = fd.reset() == 0;
  return written && closed;
}

}  // namespace

std::string autoInstallEscapeQuotes(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '"') {
      out.push_back('\\');
    }
    out.push_back(c);
  }
  return out;
}

std::string autoInstallFillTemplate(
    const char *answerTemplate,
    std::initializer_list<std::string_view> values) {
  std::string out;
  size_t valueBytes = 0;
  for (std::string_view value : values) {
    valueBytes += value.size();
  }
  out.reserve(std::strlen(answerTemplate) + valueBytes);
  const std::string_view *next = values.begin();
  for (const char *p = answerTemplate; *p != '\0'; ++p) {
    if (*p != '%') {
      out.push_back(*p);
      continue;
    }
    ++p;
    if (*p == '%') {
      out.push_back('%');
    } else if (*p == 's' && next != values.end()) {
      out.append(*next++);
    } else {
      GP_NOT_REACHED(kLinuxModule);
    }
  }
  if (next != values.end()) {
    GP_NOT_REACHED(kLinuxModule);
  }
  return out;
}

bool autoInstallLinuxAnswerText(AutoInstallLinuxKind kind,
                                const LinuxAnswerInput &in, std::string &out) {
  PreparedValues v;
  if (!prepareValues(in, v)) {
    return false;
  }
  switch (kind) {
    case LINUX_KIND_REDHAT:
      return kickstartText(in, v, out);
    case LINUX_KIND_UBUNTU:
      return preseedText(in, out);
    case LINUX_KIND_SUSE11:
    case LINUX_KIND_SUSE10:
      return autoyastText(kind, in, v, out);
    case LINUX_KIND_MANDRIVA:
      return mandrivaText(in, out);
    case LINUX_KIND_NONE:
      break;
  }
  GP_NOT_REACHED(kLinuxModule);
}

}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_PrepareAnswerFileEx_Linux(
    const char *osName, GuessVersion subVersion, const char *outDir,
    const char *userName, const char *fullName, const char *password,
    const char *rootPassword, const char *productKey, Bool powerOff) {
  return gp::abiGuard(static_cast<Bool>(FALSE), [&]() -> Bool {
    return gp::autoinstall::prepareAnswerFile(
               osName, subVersion, outDir, userName, fullName, password,
               rootPassword, productKey, powerOff != FALSE)
               ? TRUE
               : FALSE;
  });
}
