// The Linux answer-file table and the package and pattern lists that the
// templates take.
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "platform/fatal.h"
#include "platform/hostio.h"

namespace gp::autoinstall {

extern const char kKickstartAsianuxPackages[] =
    "@ base-x\n"
    "@ Chinese-support\n"
    "@ Japanese-support\n"
    "@ Korean-support\n"
    "@ web-browsers\n"
    "@ kde-desktop\n";

extern const char kKickstartVersion6Packages[] =
    "@ Desktop\n"
    "@ General Purpose Desktop\n"
    "@ Internet Browser\n"
    "@ X Window System\n"
    "@ Fonts\n"
    "gcc\n"
    "make\n"
    "patch\n"
    "binutils\n"
    "kernel-devel\n";

extern const char kKickstartFontsPackages[] =
    "@ X Window System\n"
    "@ GNOME Desktop Environment\n"
    "@ Graphical Internet\n"
    "@ Development Tools\n"
    "@ Fonts\n";

extern const char kKickstartPlainPackages[] =
    "@ X Window System\n"
    "@ GNOME Desktop Environment\n"
    "@ Graphical Internet\n"
    "@ Development Tools\n";

extern const char kAutoyastDesktopPatterns[] =
    "      <pattern>default</pattern>\n"
    "      <pattern>desktop-gnome</pattern>\n"
    "      <pattern>Basis-Devel</pattern>\n";

extern const char kAutoyastOpensusePatterns[] =
    "      <pattern>kde4</pattern>\n"
    "      <pattern>enhanced_base</pattern>\n"
    "      <pattern>devel_C_C++</pattern>\n";

extern const char kAutoyastSles11Patterns[] =
    "      <pattern>base</pattern>\n"
    "      <pattern>gnome</pattern>\n"
    "      <pattern>Basis-Devel</pattern>\n";

extern const char kAutoyastSles10Patterns[] =
    "      <pattern>default</pattern>\n"
    "      <pattern>gnome</pattern>\n"
    "      <pattern>Basis-Devel</pattern>\n";

namespace {

// Indexed by AutoInstallLinuxKind.
const AutoInstallLinuxAnswer kLinuxAnswers[kLinuxKindCount] = {
    // LINUX_KIND_NONE
    {nullptr, nullptr, nullptr, 0},
    // LINUX_KIND_REDHAT: kickstart is read from the CD, no floppy.
    {kKickstartTemplate, "ks=cdrom:/ks.cfg", "ks.cfg", 0},
    // LINUX_KIND_UBUNTU
    {kPreseedTemplate,
     "debian-installer/custom-installation=/custom find_preseed=/preseed.cfg "
     "auto preseed/file=/floppy/preseed.cfg automatic-ubiquity noprompt "
     "priority=critical locale=en_US console-setup/modelcode=evdev",
     "preseed.cfg", 1},
    // LINUX_KIND_SUSE11
    {kAutoyastTemplate,
     "autoyast=device://fd0/autoinst.xml install=cd:/?device=sr1 "
     "driverupdate=disk:/?device=fd0",
     "autoinst.xml", 1},
    // LINUX_KIND_SUSE10
    {kAutoyastTemplate,
     "autoyast=device://fd0/autoinst.xml install=cd:/?device=hdc "
     "driverupdate=disk:/?device=fd0",
     "autoinst.xml", 1},
    // LINUX_KIND_MANDRIVA: an 8.3 name, used on the floppy as it is.
    {kMandrivaTemplate, "auto_install=floppy", "auto_i~1.cfg", 1},
};

}  // namespace

const AutoInstallLinuxAnswer &autoInstallLinuxAnswer(
    AutoInstallLinuxKind kind) {
  if (static_cast<uint32_t>(kind) >= kLinuxKindCount) {
    GP_NOT_REACHED(kLinuxModule);
  }
  return kLinuxAnswers[kind];
}

bool autoInstallLinuxNeedsFloppy(AutoInstallLinuxKind kind) {
  return autoInstallLinuxAnswer(kind).needsFloppy != 0;
}

std::string autoInstallLinuxAnswerPath(AutoInstallLinuxKind kind,
                                       std::string_view outDir) {
  const AutoInstallLinuxAnswer &row = autoInstallLinuxAnswer(kind);
  if (row.answerFileName == nullptr) {
    return std::string();
  }
  // The Ubuntu installer looks for its preseed file in the "custom"
  // directory that its boot arguments name.
  if (kind == LINUX_KIND_UBUNTU) {
    return joinPath(joinPath(outDir, "custom"), row.answerFileName);
  }
  return joinPath(outDir, row.answerFileName);
}

}  // namespace gp::autoinstall
