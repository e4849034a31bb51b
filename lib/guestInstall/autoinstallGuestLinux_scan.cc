#include "lib/guestInstall/autoinstallGuestLinux_scan.h"

#include <cerrno>
#include <cstdarg>

#include "lib/guestInstall/autoinstallGuestLinux.h"
#include "lib/guestInstall/autoinstallGuestLinux_isolinux.h"
#include "lib/guestInstall/autoinstall_hostfiles.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "platform/strutil.h"

namespace gp::autoinstall {
namespace {

// Lines that only AutoInstall_ScanDisk writes. Refusals of hostile discs
// are logged by both scans.
class ScanLog {
 public:
  explicit ScanLog(bool enabled) : enabled_(enabled) {}
  void failure(const char *format, ...) const
      __attribute__((format(printf, 2, 3))) {
    if (!enabled_) {
      return;
    }
    char line[4096 + 256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    logLine(line);
  }

 private:
  bool enabled_;
};

std::string dirName(const std::string &path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// Names the boot files may not take in the staging directory: they would
// replace the boot loader or its configuration.
bool reservedStagingName(std::string_view name) {
  for (const char *reserved :
       {"isolinux.cfg", "isolinux.bin", "ldlinux.c32", "boot.cat"}) {
    if (str::equalsCaseless(name, reserved)) {
      return true;
    }
  }
  return false;
}

// The disc path of a boot file named in the configuration: relative to the
// configuration's directory, or to the disc root when absolute. False for a
// path that climbs with "..", or that names no file.
bool resolveBootFile(const std::string &configDir, std::string_view named,
                     std::string &path) {
  std::string joined = !named.empty() && named.front() == '/'
                           ? std::string(named)
                           : configDir + "/" + std::string(named);
  path.clear();
  str::Tokenizer parts(joined, "/");
  std::string_view part;
  std::string_view last;
  while (parts.next(part)) {
    if (part == "..") {
      return false;
    }
    if (part == ".") {
      continue;
    }
    path += path.empty() ? "" : "/";
    path += part;
    last = part;
  }
  return !last.empty() && last == isolinuxBaseName(named) &&
         !reservedStagingName(last);
}

// Finds "isolinux.cfg" and parses it; when it does not parse, every other
// ".cfg" file of its directory in turn. `configPath` is the file that did.
bool parseCfgFilesInDisk(IsolinuxDisc &disc, const ScanLog &log,
                         std::string &configPath, IsolinuxBootEntry &entry) {
  const char *fn = "parseCfgFilesInDisk";
  std::string path;
  if (!disc.findConfig(path)) {
    log.failure("%s: findFileInDisk failed isolinux.cfg in \"%s\"\n", fn,
                disc.searchRoot().c_str());
    return false;
  }
  std::string text;
  switch (disc.readText(path, kIsolinuxTextRoom, text)) {
    case IsolinuxDisc::Read::OpenFailed:
      log.failure("%s: FileIO_Open failed pathIsolinuxCfg=\"%s\"\n", fn,
                  disc.describe(path).c_str());
      return false;
    case IsolinuxDisc::Read::ReadFailed:
      log.failure("%s: FileIO_Read failed\n", fn);
      return false;
    case IsolinuxDisc::Read::Ok:
      break;
  }
  if (text.empty()) {
    log.failure("%s: FileIO_Read failed\n", fn);
    return false;
  }
  if (parseIsolinuxConfig(text, entry)) {
    configPath = path;
    return true;
  }
  const std::string dir = dirName(path);
  const std::string_view tried = isolinuxBaseName(path);
  for (const std::string &name : disc.listNames(dir)) {
    if (name == tried || !str::endsWithCaseless(name, ".cfg")) {
      continue;
    }
    std::string other = dir.empty() ? name : dir + "/" + name;
    if (disc.readText(other, kIsolinuxTextRoom, text) ==
            IsolinuxDisc::Read::Ok &&
        parseIsolinuxConfig(text, entry)) {
      configPath = other;
      return true;
    }
  }
  return false;
}

// Copies one disc file into the staging "isolinux" directory.
bool copyBootFile(IsolinuxDisc &disc, const ScanRequest &req,
                  const ScanLog &log, const std::string &path,
                  const std::string &to, bool optional) {
  IsolinuxDisc::Copy result = disc.copyOut(path, to);
  if (result == IsolinuxDisc::Copy::Ok ||
      (optional && result == IsolinuxDisc::Copy::Missing)) {
    return true;
  }
  if (result == IsolinuxDisc::Copy::Outside) {
    logf("%s: refusing \"%s\": it leads outside the disc\n", req.function,
         disc.describe(path).c_str());
    return false;
  }
  log.failure("%s: File_CopyFromNameToName failed from=\"%s\" to=\"%s\"\n",
              req.function, disc.describe(path).c_str(), to.c_str());
  return false;
}

bool writeConfig(const ScanRequest &req, const ScanLog &log,
                 const std::string &path, const std::string &text) {
  // A link or a FIFO in the file's place is refused, not followed.
  UniqueFd fd =
      openFile(path.c_str(),
               O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK, 0644);
  struct stat st;
  if (!fd.valid() || hostOps().fstat(fd.get(), &st) != 0 ||
      !S_ISREG(st.st_mode)) {
    int err = fd.valid() ? EINVAL : errno;
    log.failure("%s: FileIO_Open failed errio=%d configPath=\"%s\"\n",
                req.function, err, path.c_str());
    return false;
  }
  if (!writeFull(fd.get(), text.data(), text.size()) || fd.reset() != 0) {
    log.failure("%s: FileIO_Write failed errio=%d\n", req.function, errno);
    return false;
  }
  return true;
}

// "isolinux.bin", and "ldlinux.c32" beside it when there is one: isolinux
// 5 and later cannot start without it.
bool copyBootLoader(IsolinuxDisc &disc, const ScanRequest &req,
                    const ScanLog &log, const std::string &configDir,
                    const std::string &stagingDir) {
  const std::string bin = joinPath(stagingDir, "isolinux.bin");
  const std::string ldlinux = joinPath(stagingDir, "ldlinux.c32");
  if (req.isolinuxBinPath == nullptr) {
    std::string from = configDir.empty() ? "" : configDir + "/";
    return copyBootFile(disc, req, log, from + "isolinux.bin", bin, false) &&
           copyBootFile(disc, req, log, from + "ldlinux.c32", ldlinux, true);
  }
  const std::string hostBin = req.isolinuxBinPath;
  if (!copyHostFile(hostBin, bin)) {
    log.failure("%s: File_CopyFromNameToName failed from=\"%s\" to=\"%s\"\n",
                req.function, hostBin.c_str(), bin.c_str());
    return false;
  }
  size_t slash = hostBin.rfind('/');
  std::string hostLdlinux =
      slash == std::string::npos
          ? std::string("ldlinux.c32")
          : joinPath(hostBin.substr(0, slash + 1), "ldlinux.c32");
  if (hostRegularFileExists(hostLdlinux) &&
      !copyHostFile(hostLdlinux, ldlinux)) {
    log.failure("%s: File_CopyFromNameToName failed from=\"%s\" to=\"%s\"\n",
                req.function, hostLdlinux.c_str(), ldlinux.c_str());
    return false;
  }
  return true;
}

}  // namespace

bool scanIsolinuxDisc(IsolinuxDisc &disc, const ScanRequest &req) {
  const ScanLog log(req.logFailures);
  const AutoInstallLinuxKind kind = autoInstallGetLinuxKind(req.osName);
  if (req.outDir == nullptr) {
    return false;
  }
  if (kind == LINUX_KIND_NONE) {
    logf("%s: no unattended Linux installer for \"%s\"\n", req.function,
         req.osName == nullptr ? "" : req.osName);
    return false;
  }
  const std::string stagingDir = joinPath(req.outDir, "isolinux");
  if (!makeDirectories(stagingDir)) {
    log.failure("%s: File_CreateDirectoryHierarchy failed \"%s\"\n",
                req.function, stagingDir.c_str());
    return false;
  }
  std::string configPath;
  IsolinuxBootEntry entry;
  if (!parseCfgFilesInDisk(disc, log, configPath, entry)) {
    log.failure("%s: parseIsolinuxConfig failed\n", req.function);
    return false;
  }
  const std::string configDir = dirName(configPath);
  std::string kernel, initrd;
  for (const auto &[named, path] :
       {std::pair{&entry.kernel, &kernel}, std::pair{&entry.initrd, &initrd}}) {
    if (!resolveBootFile(configDir, *named, *path)) {
      logf("%s: refusing boot file \"%s\": not a file of the disc\n",
           req.function, named->c_str());
      return false;
    }
  }
  if (str::equalsCaseless(isolinuxBaseName(kernel), isolinuxBaseName(initrd))) {
    logf("%s: refusing kernel and RAM disk of the same name \"%s\"\n",
         req.function, std::string(isolinuxBaseName(kernel)).c_str());
    return false;
  }
  for (const std::string *path : {&kernel, &initrd}) {
    if (!copyBootFile(disc, req, log, *path,
                      joinPath(stagingDir, isolinuxBaseName(*path)), false)) {
      return false;
    }
  }
  std::string config;
  if (!rewriteIsolinuxConfig(entry, kind, config)) {
    logf("%s: refusing a boot configuration longer than %zu bytes\n",
         req.function, kIsolinuxTextRoom - 1);
    return false;
  }
  return writeConfig(req, log, joinPath(stagingDir, "isolinux.cfg"), config) &&
         copyBootLoader(disc, req, log, configDir, stagingDir);
}

}  // namespace gp::autoinstall
