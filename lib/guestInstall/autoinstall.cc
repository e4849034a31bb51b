// What the host asks before it offers an unattended installation: the guest
// families with their limits and reserved names, whether a guest is
// supported at all, and the validation of the user's entries by family.
#include <cstring>

#include "lib/guestInstall/autoinstallFamilies.h"
#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/strutil.h"

namespace gp::autoinstall {

const AutoInstallFamily kFamilies[] = {
    {"windows", 0, 127, {1, 0, 0, 0}, nullptr, kWindowsRules},
    {"linux", 32, 127, {0, 1, 1, 1}, kLinuxReservedShortNames, kLinuxRules},
    {nullptr, 0, 0, {0, 0, 0, 0}, nullptr, nullptr},
};

namespace {

const AutoInstallFamily *findFamily(const char *name) {
  for (const AutoInstallFamily *f = kFamilies; f->name != nullptr; ++f) {
    if (std::strcmp(f->name, name) == 0) {
      return f;
    }
  }
  return nullptr;
}

// The rule's "*" is a literal prefix for the identifier; only the version
// prefix treats it as "any".
bool ruleApplies(const AutoInstallGuestRule &rule, const GuessInfo &info) {
  if (!str::startsWithCaseless(info.osName, rule.osPrefix)) {
    return false;
  }
  return std::strcmp(rule.versionPrefix, "*") == 0 ||
         str::startsWithCaseless(
             std::string_view(
                 info.versionString,
                 strnlen(info.versionString, sizeof info.versionString)),
             rule.versionPrefix);
}

void copyRule(const AutoInstallGuestRule &rule, AutoInstallConfigInfo &out) {
  std::memcpy(out.guestFlags, rule.guestFlags, sizeof out.guestFlags);
  out.maxNameLength = rule.maxNameLength;
  out.guestLimit = rule.guestLimit;
  out.reservedNames = rule.reservedNames;
}

void fillConfigInfo(const AutoInstallFamily &family, const GuessInfo &info,
                    AutoInstallConfigInfo &out) {
  out.reservedShortNames = family.reservedShortNames;
  out.maxShortNameLength = family.maxShortNameLength;
  out.maxPasswordLength = family.maxPasswordLength;
  std::memcpy(out.familyFlags, family.familyFlags, sizeof out.familyFlags);
  copyRule(family.rules[0], out);
  // Later rules are more specific, so the last one that applies wins.
  for (const AutoInstallGuestRule *r = family.rules; r->osPrefix != nullptr;
       ++r) {
    if (ruleApplies(*r, info)) {
      copyRule(*r, out);
    }
  }
}

AutoInstallValidation validateText(const char *family, const GuessInfo *info,
                                   const char *text, int kind, char **message) {
  if (family != nullptr && std::strcmp(family, "windows") == 0) {
    return AutoInstallValidateWindowsText(info, text, kind, message);
  }
  if (family != nullptr && std::strcmp(family, "linux") == 0) {
    return AutoInstallValidateLinuxText(info, text, kind, message);
  }
  GP_NOT_REACHED(kModule);
}

}  // namespace
}  // namespace gp::autoinstall

using namespace gp::autoinstall;

GP_EXPORT Bool AutoInstall_GetInstallConfigInfo(const char *family,
                                                const GuessInfo *info,
                                                AutoInstallConfigInfo *out) {
  if (family == nullptr || info == nullptr || out == nullptr ||
      info->osName == nullptr) {
    return FALSE;
  }
  const AutoInstallFamily *f = findFamily(family);
  if (f == nullptr) {
    return FALSE;
  }
  fillConfigInfo(*f, *info, *out);
  return TRUE;
}

GP_EXPORT Bool AutoInstall_IsSupportedGuest(const GuessInfo *info) {
  if (info == nullptr || info->osName == nullptr) {
    return FALSE;
  }
  if (AutoInstallIsSupportedWindowsGuest(info)) {
    return TRUE;
  }
  return AutoInstallIsSupportedLinuxGuest(info);
}

GP_EXPORT AutoInstallValidation AutoInstall_ValidateName(const char *family,
                                                         const GuessInfo *info,
                                                         const char *text,
                                                         char **message) {
  return validateText(family, info, text, AUTOINSTALL_TEXT_NAME, message);
}

GP_EXPORT AutoInstallValidation
AutoInstall_ValidateShortName(const char *family, const GuessInfo *info,
                              const char *text, char **message) {
  return validateText(family, info, text, AUTOINSTALL_TEXT_SHORT_NAME, message);
}

GP_EXPORT AutoInstallValidation
AutoInstall_ValidatePassword(const char *family, const GuessInfo *info,
                             const char *text, char **message) {
  return validateText(family, info, text, AUTOINSTALL_TEXT_PASSWORD, message);
}
