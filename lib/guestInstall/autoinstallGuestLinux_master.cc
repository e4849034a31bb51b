// AutoInstall_MasterISO: the staging directory mastered into a bootable
// "autoinst.iso" by an external tool, run through the system shell.
#include <cstring>
#include <string>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "lib/guestInstall/autoinstall_hostfiles.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/log.h"

namespace gp::autoinstall {
namespace {

constexpr const char kFunction[] = "AutoInstall_MasterISO";

// Inside double quotes the shell still expands "$" and "`", ends the word
// at "\"", escapes with "\\", and a line break would end the command.
bool safeInDoubleQuotes(const char *text) {
  return std::strpbrk(text, "$`\"\\\n\r") == nullptr;
}

bool refuseUnsafe(const char *what, const char *text) {
  if (safeInDoubleQuotes(text)) {
    return false;
  }
  // The log takes one line per event.
  std::string shown;
  for (const char *p = text; *p != '\0'; ++p) {
    shown += *p == '\n' ? "\\n" : *p == '\r' ? "\\r" : std::string(1, *p);
  }
  logf(
      "%s: refusing %s \"%s\": it holds a character the shell would "
      "interpret\n",
      kFunction, what, shown.c_str());
  return true;
}

bool master(const char *stagingDir, const char *toolPath, const char *outDir) {
  if (stagingDir == nullptr || toolPath == nullptr || outDir == nullptr) {
    return false;
  }
  const std::string isoPath = joinPath(outDir, "autoinst.iso");
  bool ok = false;
  if (!refuseUnsafe("tool path", toolPath) &&
      !refuseUnsafe("output path", isoPath.c_str()) &&
      !refuseUnsafe("staging path", stagingDir)) {
    const std::string command = autoInstallFillTemplate(
        "\"%s\" -o \"%s\" -b isolinux/isolinux.bin -c isolinux/boot.cat "
        "-no-emul-boot -boot-load-size 4 -boot-info-table \"%s\"",
        {toolPath, isoPath, stagingDir});
    // The tool writes through a link in the image's place.
    removeSpecialFile(isoPath);
    ok = hostOps().system(command.c_str()) == 0;
  }
  // The staging tree goes whatever the tool did.
  removeHostTree(stagingDir);
  return ok;
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_MasterISO(const char *stagingDir,
                                     const char *toolPath, const char *outDir) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::master(stagingDir, toolPath, outDir) ? TRUE : FALSE;
  });
}
