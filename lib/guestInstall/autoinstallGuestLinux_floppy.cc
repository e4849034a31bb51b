// Which Linux installers read their answer file from a floppy image rather
// than from the remastered CD.
#include "lib/guestInstall/autoinstallGuestLinux.h"
#include "platform/fatal.h"

namespace gp::autoinstall {
namespace {

// Indexed by AutoInstallLinuxKind. Kickstart is read from the CD itself.
const bool kNeedsFloppy[kLinuxKindCount] = {
    false,  // LINUX_KIND_NONE
    false,  // LINUX_KIND_REDHAT
    true,   // LINUX_KIND_UBUNTU
    true,   // LINUX_KIND_SUSE11
    true,   // LINUX_KIND_SUSE10
    true,   // LINUX_KIND_MANDRIVA
};

}  // namespace

bool autoInstallLinuxNeedsFloppy(AutoInstallLinuxKind kind) {
  if (kind >= kLinuxKindCount) {
    GP_NOT_REACHED(kLinuxModule);
  }
  return kNeedsFloppy[kind];
}

}  // namespace gp::autoinstall
