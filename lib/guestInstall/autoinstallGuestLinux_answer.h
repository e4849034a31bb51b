// Linux answer files: the per-kind table (template, boot arguments, file
// name), the password hash and the text builder behind
// AutoInstall_PrepareAnswerFileEx_Linux. The boot media code reads the
// table as well.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "guestprep/guess.h"
#include "lib/guestInstall/autoinstallGuestLinux.h"

namespace gp::autoinstall {

// Format texts: "%s" is a placeholder, "%%" a literal percent sign.
extern const char kKickstartTemplate[];
extern const char kPreseedTemplate[];
extern const char kAutoyastTemplate[];
extern const char kMandrivaTemplate[];

// Kickstart package lists and AutoYaST pattern lists, one entry a line.
extern const char kKickstartAsianuxPackages[];
extern const char kKickstartVersion6Packages[];
extern const char kKickstartFontsPackages[];
extern const char kKickstartPlainPackages[];
extern const char kAutoyastDesktopPatterns[];
extern const char kAutoyastOpensusePatterns[];
extern const char kAutoyastSles11Patterns[];
extern const char kAutoyastSles10Patterns[];

// One row per AutoInstallLinuxKind, indexed by the kind's value. The NONE
// row has no template, arguments or name (all null).
struct AutoInstallLinuxAnswer {
  const char *answerTemplate;
  const char *bootArguments;   // kernel arguments that find the answer file
  const char *answerFileName;  // its name on the boot medium
  uint32_t needsFloppy;        // Bool
};

// The row of `kind`; a value outside the six kinds stops the process.
const AutoInstallLinuxAnswer &autoInstallLinuxAnswer(AutoInstallLinuxKind kind);

// Where AutoInstall_PrepareAnswerFileEx_Linux puts the answer file of
// `kind` below `outDir`; empty for LINUX_KIND_NONE.
std::string autoInstallLinuxAnswerPath(AutoInstallLinuxKind kind,
                                       std::string_view outDir);

// MD5-crypt ("$1$") hash of `password` with a salt drawn from the random
// generator after seeding it with the current time. The result lives in a
// static buffer until the next call (not reentrant); null when `password`
// is null or the hash cannot be made.
const char *autoInstallCryptPassword(const char *password);

// The text with a backslash before every double quote; nothing else
// changes.
std::string autoInstallEscapeQuotes(std::string_view text);

// Replaces the template's placeholders with `values` in order and "%%"
// with "%". A template whose placeholders do not match the values is a
// programming error and stops the process.
std::string autoInstallFillTemplate(
    const char *answerTemplate, std::initializer_list<std::string_view> values);

// The user's entries for one answer file; every pointer but productKey
// must be non-null.
struct LinuxAnswerInput {
  const char *osName;
  GuessVersion subVersion;
  const char *userName;
  const char *fullName;
  const char *password;
  const char *rootPassword;
  const char *productKey;  // null or empty: none
  bool powerOff;
};

// The complete answer file of `kind` (not NONE) for `in`, every entry
// escaped for the place it lands in. False when a password hash cannot be
// made, or when an entry cannot be written so that the installer reads it
// literally (a line break in a name or product key, a debconf value ending
// in a backslash, text that is not UTF-8 in XML).
bool autoInstallLinuxAnswerText(AutoInstallLinuxKind kind,
                                const LinuxAnswerInput &in, std::string &out);

}  // namespace gp::autoinstall
