#include <cstring>

#include "lib/guestInstall/autoinstallGuestLinux.h"
#include "platform/fatal.h"

namespace gp::autoinstall {
namespace {

struct KindPrefix {
  const char *prefix;
  AutoInstallLinuxKind kind;
};

// Tested in order; the first prefix that matches decides.
const KindPrefix kKindPrefixes[] = {
    {"redhat", LINUX_KIND_REDHAT},  {"rhel", LINUX_KIND_REDHAT},
    {"asianux", LINUX_KIND_REDHAT}, {"fedora", LINUX_KIND_REDHAT},
    {"centos", LINUX_KIND_REDHAT},  {"sles10", LINUX_KIND_SUSE10},
    {"sles11", LINUX_KIND_SUSE11},  {"opensuse", LINUX_KIND_SUSE11},
    {"ubuntu", LINUX_KIND_UBUNTU},  {"mandriva", LINUX_KIND_MANDRIVA},
    {nullptr, LINUX_KIND_NONE},
};

}  // namespace

AutoInstallLinuxKind autoInstallGetLinuxKind(const char *osName) {
  if (osName == nullptr) {
    return LINUX_KIND_NONE;
  }
  for (const KindPrefix *p = kKindPrefixes; p->prefix != nullptr; ++p) {
    if (std::strncmp(osName, p->prefix, std::strlen(p->prefix)) == 0) {
      return p->kind;
    }
  }
  return LINUX_KIND_NONE;
}

}  // namespace gp::autoinstall
