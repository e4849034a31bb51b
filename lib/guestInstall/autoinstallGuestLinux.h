// Linux guests: the installer kind of a guest identifier, shared by the
// support decisions, the validation rules, the answer files and the boot
// media.
#pragma once

#include <cstdint>

namespace gp::autoinstall {

inline constexpr const char kLinuxModule[] =
    "lib/guestInstall/autoinstallGuestLinux";

// Also the row index of the Linux answer-file table.
enum AutoInstallLinuxKind : uint32_t {
  LINUX_KIND_NONE = 0,
  LINUX_KIND_REDHAT = 1,
  LINUX_KIND_UBUNTU = 2,
  LINUX_KIND_SUSE11 = 3,
  LINUX_KIND_SUSE10 = 4,
  LINUX_KIND_MANDRIVA = 5,
};

inline constexpr uint32_t kLinuxKindCount = 6;

// Case-sensitive prefix tests on the identifier; null gives NONE.
AutoInstallLinuxKind autoInstallGetLinuxKind(const char *osName);

// Whether the kind's installer reads its answer file from a floppy.
bool autoInstallLinuxNeedsFloppy(AutoInstallLinuxKind kind);

}  // namespace gp::autoinstall
