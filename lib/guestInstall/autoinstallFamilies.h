// Guest families of the unattended installation: the per-guest rule tables
// of Windows and Linux that the family table in autoinstall.cc joins, and
// the family rules of input validation.
#pragma once

#include <cstdint>

#include "guestprep/autoinstall.h"

namespace gp::autoinstall {

inline constexpr const char kModule[] = "lib/guestInstall/autoinstall";
inline constexpr const char kWindowsModule[] =
    "lib/guestInstall/autoinstallGuestWindows";

// A per-guest rule. It applies when osName begins with osPrefix and
// versionString with versionPrefix (both caseless; a versionPrefix of
// exactly "*" matches any version). A list ends with a null osPrefix.
struct AutoInstallGuestRule {
  const char *osPrefix;
  const char *versionPrefix;
  uint8_t guestFlags[2];
  uint32_t maxNameLength;
  uint32_t guestLimit;
  const AutoInstallReservedName *reservedNames;
};

// A guest family; the table ends with a null name. The first rule of a
// family is its default rule.
struct AutoInstallFamily {
  const char *name;
  uint32_t maxShortNameLength;
  uint32_t maxPasswordLength;
  uint8_t familyFlags[4];
  const AutoInstallReservedName *reservedShortNames;
  const AutoInstallGuestRule *rules;
};

extern const AutoInstallGuestRule kWindowsRules[];
extern const AutoInstallGuestRule kLinuxRules[];
extern const AutoInstallReservedName kLinuxReservedShortNames[];

// The family table, ended by a null name.
extern const AutoInstallFamily kFamilies[];

}  // namespace gp::autoinstall
