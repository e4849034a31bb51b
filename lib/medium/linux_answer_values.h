// The user's entries as the Linux installers take them: checked once,
// normalised (locale, keyboard layout, time zone, host name) and with the
// passwords hashed, before each writer escapes them for its format.
#pragma once

#include <string>

#include "lib/medium/install_entries.h"

namespace gp::medium {

struct LinuxAnswerValues {
  std::string user;
  std::string fullName;
  std::string hostname;    // one DNS label
  std::string language;    // "en_US"
  std::string locale;      // "en_US.UTF-8"
  std::string xkbLayout;   // "us", "de", "gb"...
  std::string yastKeymap;  // "english-us", "german"...
  std::string timeZone;    // an IANA zone; "Etc/UTC" by default
  std::string userHash;    // "$6$..."
  std::string rootHash;    // "$6$..."
};

// Whose rules the user name must follow: Debian's and Ubuntu's installers
// also want a letter first.
enum class UserNameRules { Linux, LetterFirst };

// Fills `out` from `entries`, or returns false with `error` saying which
// entry is refused and why (the library's own validation messages where
// they apply).
bool prepareLinuxValues(const InstallEntries &entries, UserNameRules rules,
                        LinuxAnswerValues &out, std::string &error);

// The leading number of a version ("9.3" -> 9, "15 SP4" -> 15, "40" ->
// 40); -1 when it does not start with a digit.
long leadingNumber(const std::string &version);

// The os facts of `disc` when its installer is `installer`; null with
// `error` set otherwise.
const OsFacts *installerFacts(const Described &disc, const char *installer,
                              std::string &error);

// An http, https or ftp URL without blanks or controls that the installers
// can take as it stands, split into its parts; false otherwise.
struct MirrorUrl {
  std::string scheme;     // "http"
  std::string host;       // "deb.debian.org" (with ":port" when given)
  std::string directory;  // "/debian"
};
bool parseMirrorUrl(const std::string &url, MirrorUrl &out);

}  // namespace gp::medium
