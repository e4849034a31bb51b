// The boot floppy of an unattended Windows installation: the mass-storage
// driver that lets setup see the virtual disk, the answer files, and the
// guest programs that finish the installation. The answer files are
// consumed: they leave workDir whatever the outcome; the image stays.
#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "guestprep/iniutil.h"
#include "lib/guestInstall/autoinstall_hostfiles.h"
#include "platform/abi.h"
#include "platform/fatimage.h"
#include "platform/hostio.h"
#include "platform/isoimage.h"
#include "platform/log.h"

namespace gp::autoinstall {
namespace {

constexpr const char kFn[] = "AutoInstall_MakeFloppyImg";

// More driver files than any driver set has; a crafted driver floppy or
// directory beyond this is refused instead of being staged whole.
constexpr size_t kMaxDriverFiles = 1024;
// The clean-up removes what a refused tools image left, within this bound.
constexpr size_t kMaxCleanUpFiles = 65536;

unsigned long long errValue(fat::Error err) {
  return static_cast<unsigned long long>(err);
}

// A name from a driver floppy's catalogue that may become a host file in
// the staging directory: one path component, nothing that climbs out.
bool safeStagingName(const char *name) {
  return name[0] != '\0' && std::strchr(name, '/') == nullptr &&
         std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

void lowerCaseInPlace(char *s) {
  for (; *s != '\0'; ++s) {
    *s = static_cast<char>(std::tolower(static_cast<unsigned char>(*s)));
  }
}

bool pathExists(const std::string &path) {
  struct stat st;
  return hostOps().stat(path.c_str(), &st) == 0;
}

std::string lastComponent(const std::string &path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool equalsNoCase(const std::string &a, const char *b) {
  return strcasecmp(a.c_str(), b) == 0;
}

struct Request {
  const char *templateFloppy;
  const char *workDir;
  const char *toolsIso;
  const char *scsiDriverDir;
  const char *upgraderDir;
  const char *supportDir;
};

// One run. The destructor is the clean-up that every path ends with.
class FloppyBuild {
 public:
  explicit FloppyBuild(const Request &r)
      : r_(r),
        winnt_(joinPath(r.workDir, "winnt.sif")),
        unattend_(joinPath(r.workDir, "autoun~0.xml")),
        storePwd_(joinPath(r.workDir, "storePwd.ini")),
        floppy_(joinPath(r.workDir, "autoinst.flp")) {}
  ~FloppyBuild() { cleanUp(); }
  FloppyBuild(const FloppyBuild &) = delete;
  FloppyBuild &operator=(const FloppyBuild &) = delete;

  bool run() {
    if (!openImage()) {
      return false;
    }
    if (r_.scsiDriverDir != nullptr && (!stageDrivers() || !addDriverFiles())) {
      return false;
    }
    return addAnswerFilesAndPrograms();
  }

 private:
  bool openImage();
  bool stageDrivers();
  bool stageFromIso();
  bool stageFromDriverFloppy();
  bool copyOutDriverFloppy();
  bool addDriverFiles();
  bool addAnswerFilesAndPrograms();
  bool add(const std::string &host, const char *name, const char *label);
  void cleanUp();

  Request r_;
  std::string winnt_, unattend_, storePwd_, floppy_;
  std::string tempdir_;
  std::string scsiFlp_;
  bool listed_ = false;
  std::vector<HostDirEntry> listing_;
  fat::UniqueHandle volume_, root_;
  fat::UniqueHandle scsiVolume_, scsiRoot_;
  IsoImage *iso_ = nullptr;
};

bool FloppyBuild::openImage() {
  const char *f = floppy_.c_str();
  fat::Error err;
  if (r_.templateFloppy != nullptr) {
    if (!copyHostFile(r_.templateFloppy, floppy_)) {
      logf("%s: File_CopyFromNameToName from=\"%s\" to=\"%s\"\n", kFn,
           r_.templateFloppy, f);
      return false;
    }
    err = fat::openVolume(f, 1, volume_.out());
    if (err != fat::FAT_OK) {
      logf("%s: FSImage_OpenVolume err=%llu floppyImageFilePath =\"%s\"\n", kFn,
           errValue(err), f);
      return false;
    }
  } else {
    // Formatting writes at the path as it is: a link there would send the
    // image outside workDir.
    removeSpecialFile(floppy_);
    err = fat::formatVolume(f, 1, volume_.out());
    if (err != fat::FAT_OK) {
      logf("%s: FSImage_FormatVolume err=%llu floppyImageFilePath =\"%s\"\n",
           kFn, errValue(err), f);
      return false;
    }
  }
  err = fat::skipVolumeBoot(volume_.get(), fat::FAT_FILE_SYSTEM);
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_SkipVolumeBoot err=%llu FSIMAGE_FAT_FILE_SYSTEM\n", kFn,
         errValue(err));
    return false;
  }
  err = fat::openRootDirectory(volume_.get(), root_.out());
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_OpenRootDirectory err=%llu\n", kFn, errValue(err));
    return false;
  }
  return true;
}

bool FloppyBuild::stageDrivers() {
  if (r_.toolsIso == nullptr) {
    tempdir_ = r_.scsiDriverDir;
    return true;
  }
  tempdir_ = joinPath(r_.workDir, "scsi");
  // A link in workDir's place would send the staged files elsewhere.
  removeSpecialFile(tempdir_);
  if (!makeDirectories(tempdir_)) {
    logf("%s: File_CreateDirectory guestConfigDir=\"%s\"\n", kFn, r_.workDir);
    return false;
  }
  return stageFromIso();
}

bool FloppyBuild::stageFromIso() {
  const int res = iso::open(r_.toolsIso, 2, 0, &iso_);
  if (res == iso::ISO_OK) {
    const int extracted =
        iso::extractDir(iso_, r_.scsiDriverDir, tempdir_.c_str());
    if (extracted != iso::ISO_OK) {
      logf("%s: Iso9660_Extract res=%d scsiDriverDir=\"%s\"tempdir=\"%s\"\n",
           kFn, extracted, r_.scsiDriverDir, tempdir_.c_str());
      return false;
    }
    return true;
  }
  iso_ = nullptr;
  if (pathExists(r_.toolsIso)) {
    logf("%s: Iso9660_Open res=%d toolsIsoPath=\"%s\"\n", kFn, res,
         r_.toolsIso);
    return false;
  }
  return stageFromDriverFloppy();
}

bool FloppyBuild::stageFromDriverFloppy() {
  const std::string source = joinPath(r_.supportDir, "ztscsi.flp");
  scsiFlp_ = joinPath(tempdir_, "ztscsi.flp");
  if (!copyHostFile(source, scsiFlp_)) {
    logf("%s: File_CopyFromNameToName from=\"%s\" to=\"%s\"\n", kFn,
         source.c_str(), scsiFlp_.c_str());
    return false;
  }
  // Read only: the copy is a scratch file, but nothing needs to change.
  fat::Error err = fat::openVolume(scsiFlp_.c_str(), 0, scsiVolume_.out());
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_OpenVolume err=%llu scsiFlp=\"%s\"\n", kFn, errValue(err),
         scsiFlp_.c_str());
    return false;
  }
  err = fat::openRootDirectory(scsiVolume_.get(), scsiRoot_.out());
  if (err != fat::FAT_OK) {
    logf("%s: FSImage_OpenRootDirectory err=%llu\n", kFn, errValue(err));
    return false;
  }
  const bool ok = copyOutDriverFloppy();
  scsiRoot_.closeNow();
  scsiVolume_.closeNow();
  hostOps().unlink(scsiFlp_.c_str());
  return ok;
}

bool FloppyBuild::copyOutDriverFloppy() {
  const int64_t count = fat::entryCount(scsiRoot_.get());
  size_t copied = 0;
  for (int64_t i = 0; i < count; ++i) {
    uint8_t present = 0;
    uint8_t isDirectory = 0;
    char *raw = nullptr;
    fat::Error err = fat::catalogEntry(scsiRoot_.get(), i, &present, &raw,
                                       &isDirectory, nullptr, nullptr);
    std::unique_ptr<char, decltype(&std::free)> name(raw, &std::free);
    if (err == fat::FAT_OK && name && !safeStagingName(name.get())) {
      err = fat::FAT_ERR_BAD_NAME;
    }
    if (err != fat::FAT_OK) {
      logf("%s: FSImage_GetCatInfo err=%llu\n", kFn, errValue(err));
      continue;
    }
    if (!present || isDirectory || !name) {
      continue;
    }
    if (++copied > kMaxDriverFiles) {
      logf("%s: FSImage_GetCatInfo err=%llu\n", kFn,
           errValue(fat::FAT_ERR_TOO_LARGE));
      return false;
    }
    // The name on the image comes from the host file's name, so both are
    // lower case.
    lowerCaseInPlace(name.get());
    const std::string host = joinPath(tempdir_, name.get());
    removeSpecialFile(host);
    if (!GetFileFromFloppyImg(scsiRoot_.get(), name.get(), host.c_str())) {
      logf("%s: GetFileFromFloppyImg file=\"%s\"\n", kFn, host.c_str());
      return false;
    }
  }
  return true;
}

bool FloppyBuild::addDriverFiles() {
  listed_ = listHostDirectory(tempdir_, kMaxDriverFiles, listing_);
  if (!listed_ || listing_.empty()) {
    logf("%s: File_ListDirectory nf=%d tempdir=\"%s\"\n", kFn, listed_ ? 0 : -1,
         tempdir_.c_str());
    return false;
  }
  std::string txtsetupOem;
  for (const HostDirEntry &entry : listing_) {
    const char *name = entry.name.c_str();
    const std::string host = joinPath(tempdir_, entry.name);
    if (!AddFileToFloppyImg(root_.get(), host.c_str(), name)) {
      logf("%s: AddFileToFloppyImg file=\"%s\"\n", kFn, name);
    } else if (!IniUtil_WriteIniFileString(winnt_.c_str(), "OEMBootFiles", name,
                                           "", FALSE)) {
      logf(
          "%s: IniUtil_WriteIniFileString OEMBootFiles=\"%s\""
          "unattendFilePath=\"%s\"\n",
          kFn, name, winnt_.c_str());
      return false;
    }
    if (equalsNoCase(lastComponent(host), "txtsetup.oem")) {
      txtsetupOem = host;
    }
  }
  if (!txtsetupOem.empty()) {
    WriteOEMDriverInfo(txtsetupOem.c_str(), winnt_.c_str());
  }
  return true;
}

bool FloppyBuild::add(const std::string &host, const char *name,
                      const char *label) {
  if (AddFileToFloppyImg(root_.get(), host.c_str(), name)) {
    return true;
  }
  logf("%s: AddFileToFloppyImg %s=\"%s\"\n", kFn, label, host.c_str());
  return false;
}

bool FloppyBuild::addAnswerFilesAndPrograms() {
  if (!add(winnt_, "winnt.sif", "UNATTENDED_INSTALL_FILE") ||
      !add(unattend_, "autoun~0.xml", "UNATTENDED_XML_INSTALL_FILE")) {
    return false;
  }
  if (hostRegularFileExists(storePwd_)) {
    const std::string exe = joinPath(r_.supportDir, "storePwd.exe");
    if (!add(storePwd_, "storePwd.ini", "STOREPWD_INI_FILENAME") ||
        !add(exe, "storePwd.exe", "STOREPWD_EXE_FILENAME")) {
      return false;
    }
  }
  // The upgrader is needed only when the tools image is there to upgrade
  // from.
  const std::string upgrader =
      joinPath(r_.upgraderDir, "ZentavToolsUpgrader.exe");
  if (!AddFileToFloppyImg(root_.get(), upgrader.c_str(), "upgrader.exe") &&
      r_.toolsIso != nullptr && pathExists(r_.toolsIso)) {
    logf("%s: AddFileToFloppyImg (tools \"%s\") UPGRADER_EXE=\"%s\"\n", kFn,
         r_.toolsIso, upgrader.c_str());
    return false;
  }
  return add(joinPath(r_.supportDir, "unattend.cmd"), "unattend.cmd",
             "UNATTENDED_CMD");
}

void FloppyBuild::cleanUp() {
  root_.closeNow();
  volume_.closeNow();
  if (r_.toolsIso != nullptr && !tempdir_.empty()) {
    // A run that stopped before the listing still staged files; they go
    // too, so that a failure leaves no driver files behind.
    if (!listed_) {
      listHostDirectory(tempdir_, kMaxCleanUpFiles, listing_);
    }
    for (const HostDirEntry &entry : listing_) {
      hostOps().unlink(joinPath(tempdir_, entry.name).c_str());
    }
  }
  if (iso_ != nullptr) {
    iso::close(iso_);
    iso_ = nullptr;
  }
  listing_.clear();
  hostOps().unlink(winnt_.c_str());
  hostOps().unlink(unattend_.c_str());
  hostOps().unlink(storePwd_.c_str());
  scsiRoot_.closeNow();
  scsiVolume_.closeNow();
  if (!scsiFlp_.empty()) {
    hostOps().unlink(scsiFlp_.c_str());
  }
  if (!tempdir_.empty()) {
    hostOps().rmdir(tempdir_.c_str());
  }
}

bool makeFloppyImg(const Request &r) {
  if (r.workDir == nullptr || r.upgraderDir == nullptr ||
      r.supportDir == nullptr) {
    return false;
  }
  FloppyBuild build(r);
  return build.run();
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_MakeFloppyImg(const char *templateFloppyPath,
                                         const char *workDir,
                                         const char *toolsIsoPath,
                                         const char *scsiDriverDir,
                                         const char *upgraderDir,
                                         const char *supportDir) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    const gp::autoinstall::Request r{templateFloppyPath, workDir,
                                     toolsIsoPath,       scsiDriverDir,
                                     upgraderDir,        supportDir};
    return gp::autoinstall::makeFloppyImg(r) ? TRUE : FALSE;
  });
}
