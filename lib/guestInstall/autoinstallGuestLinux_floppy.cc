// The floppy that carries a Linux answer file, and the guest tools files
// under the short names that the answer files' commands expect.
#include <string>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux.h"
#include "lib/guestInstall/autoinstallGuestLinux_answer.h"
#include "lib/guestInstall/autoinstall_hostfiles.h"
#include "platform/abi.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"
#include "platform/log.h"

namespace gp::autoinstall {
namespace {

constexpr const char kFunction[] = "AutoInstall_MakeFloppyImg_Linux";

const char *floppyTemplate(AutoInstallLinuxKind kind) {
  return kind == LINUX_KIND_MANDRIVA ? "mandriva.flp" : "suse.flp";
}

// Opens the floppy volume of `kind`: a fresh one for Ubuntu, else a copy of
// the kind's template.
bool openFloppy(AutoInstallLinuxKind kind, const char *templateDir,
                const std::string &floppy, fat::UniqueHandle &volume) {
  const char *f = floppy.c_str();
  if (kind == LINUX_KIND_UBUNTU) {
    // The volume is formatted at the path as it is: a link there would
    // send it outside workDir.
    removeSpecialFile(floppy);
    if (fat::formatVolume(f, 1, volume.out()) != fat::FAT_OK) {
      logf("%s: FSImage_FormatVolume failed floppyImageFilePath=\"%s\"\n",
           kFunction, f);
      return false;
    }
    return true;
  }
  const std::string templ =
      joinPath(templateDir == nullptr ? "" : templateDir, floppyTemplate(kind));
  if (templateDir == nullptr || !hostRegularFileExists(templ)) {
    logf("%s: !File_Exists failed templatePath=\"%s\"\n", kFunction,
         templ.c_str());
    return false;
  }
  if (!copyHostFile(templ, floppy)) {
    logf(
        "%s: File_CopyFromNameToName failed templatePath=\"%s\" "
        "floppyImageFilePath=\"%s\"\n",
        kFunction, templ.c_str(), f);
    return false;
  }
  if (fat::openVolume(f, 1, volume.out()) != fat::FAT_OK) {
    logf("%s: FSImage_OpenVolume failed floppyImageFilePath=\"%s\"\n",
         kFunction, f);
    return false;
  }
  return true;
}

bool makeFloppy(const char *answerDir, const char *workDir,
                const char *templateDir, const char *osName) {
  const AutoInstallLinuxKind kind = autoInstallGetLinuxKind(osName);
  if (kind == LINUX_KIND_NONE || kind == LINUX_KIND_REDHAT) {
    return true;
  }
  if (answerDir == nullptr || workDir == nullptr) {
    return false;
  }
  const std::string floppy = joinPath(workDir, "autoinst.flp");
  const std::string answer = autoInstallLinuxAnswerPath(kind, answerDir);
  if (!hostRegularFileExists(answer)) {
    return false;
  }
  fat::UniqueHandle volume;
  fat::UniqueHandle root;
  if (!openFloppy(kind, templateDir, floppy, volume)) {
    return false;
  }
  fat::Error err = fat::skipVolumeBoot(volume.get(), fat::FAT_FILE_SYSTEM);
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_SkipVolumeBoot failed err=%lld\n", kFunction,
         static_cast<long long>(err));
    return false;
  }
  err = fat::openRootDirectory(volume.get(), root.out());
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_OpenRootDirectory failed err=%lld\n", kFunction,
         static_cast<long long>(err));
    return false;
  }
  const char *name = autoInstallLinuxAnswer(kind).answerFileName;
  if (!AddFileToFloppyImg(root.get(), answer.c_str(), name)) {
    logf("%s: AddFileToFloppyImg failed preseedFilePath=\"%s\"\n", kFunction,
         answer.c_str());
    return false;
  }
  root.closeNow();
  err = volume.closeNow();
  if (err != fat::FAT_OK) {
    logf("%s: closing the volume failed err=%lld floppyImageFilePath=\"%s\"\n",
         kFunction, static_cast<long long>(err), floppy.c_str());
    return false;
  }
  return true;
}

bool addTools(const char *destDir, const char *toolsDir) {
  if (destDir == nullptr || toolsDir == nullptr) {
    return false;
  }
  static const struct {
    const char *from;
    const char *to;
  } kFiles[] = {
      {"zentav-tools-upgrader-32", "upgra32"},
      {"zentav-tools-upgrader-64", "upgra64"},
      {"run_upgrader.sh", "upgrade.sh"},
  };
  for (const auto &file : kFiles) {
    if (!copyHostFile(joinPath(toolsDir, file.from),
                      joinPath(destDir, file.to))) {
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_MakeFloppyImg_Linux(const char *answerDir,
                                               const char *workDir,
                                               const char *templateDir,
                                               const char *osName) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::makeFloppy(answerDir, workDir, templateDir, osName)
               ? TRUE
               : FALSE;
  });
}

GP_EXPORT Bool AutoInstall_AddTools_Linux(const char *destDir,
                                          const char *toolsDir) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::addTools(destDir, toolsDir) ? TRUE : FALSE;
  });
}
