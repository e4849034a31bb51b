// The tools image of a machine, the files named after it (the AVR file
// beside it, the cached manifest) and the host manifest cache directory.
#include <cstring>
#include <string>

#include "lib/toolsversion/toolsversion_machine.h"
#include "platform/abi.h"
#include "platform/guestos.h"
#include "platform/hostio.h"
#include "platform/isoimage.h"
#include "platform/log.h"
#include "platform/msgcatalog.h"

namespace gp::tools {
namespace {

// Where the tools images are when the configuration does not say; only
// tests move it.
std::string defaultLibDir = "/usr/lib/zentav";
constexpr const char kManifestName[] = "manifest.txt";

// Set by the host before status queries start; read by them without a lock.
std::string *hostManifestCacheDir = nullptr;

// The name formats an image is opened with: Joliet for the Windows
// images, Rock Ridge for the others.
int isoFormatOf(const std::string &isoName) {
  return isoName == "windows.iso" || isoName == "winPre2k.iso"
             ? iso::FORMAT_JOLIET
             : iso::FORMAT_ROCKRIDGE;
}

}  // namespace

void toolsSetDefaultLibDir(const char *dir) { defaultLibDir = dir; }

bool toolsGetIsoPath(const char *configPath, const char *isoName,
                     ToolsIsoPaths *paths) {
  *paths = ToolsIsoPaths();
  ConfigDict config;
  if (configPath != nullptr && !config.loadFile(configPath)) {
    logf("Error loading dictionary for ztx config file: %s.\n",
         msg::takePending().c_str());
    return false;
  }
  std::string name;
  if (isoName != nullptr) {
    name = isoName;
  } else {
    const char *guestOS = config.get("guestOS");
    const guestos::GuestOsEntry *entry =
        guestOS != nullptr ? guestos::find(guestOS) : nullptr;
    const char *image =
        entry != nullptr ? guestos::toolsImage(entry->id) : nullptr;
    if (image == nullptr) {
      return false;
    }
    name = image;
  }
  std::string libDir = config.get("libdir", defaultLibDir.c_str());
  paths->isoDir = libDir + "/isoimages";
  paths->isoPath = paths->isoDir + "/" + name;
  size_t dot = name.rfind('.');
  paths->isoBase = dot == std::string::npos ? name : name.substr(0, dot);
  paths->isoFormat = isoFormatOf(name);
  return true;
}

void toolsGetManifestPaths(const std::string &isoDir,
                           const std::string &isoBase, std::string *avrPath,
                           std::string *cachePath) {
  *avrPath = isoDir + "/" + isoBase + "_avr_" + kManifestName;
  cachePath->clear();
  if (hostManifestCacheDir != nullptr) {
    *cachePath = *hostManifestCacheDir + "/" + isoBase + "_" + kManifestName;
  }
}

bool toolsExtractManifest(const char *destPath, const char *isoPath,
                          int isoFormat) {
  IsoImage *image = nullptr;
  int rc = iso::open(isoPath, static_cast<uint32_t>(isoFormat), 0, &image);
  if (rc != iso::ISO_OK) {
    iso::close(image);
    logf("Failed to open tools ISO image.\n");
    return false;
  }
  // The reader writes a temporary file beside destPath and renames it, so
  // a truncated image never leaves half a manifest behind.
  rc = iso::extractFile(image, kManifestName, destPath);
  iso::close(image);
  if (rc != iso::ISO_OK) {
    logf("Failed to extract version file from tools ISO image.\n");
    return false;
  }
  return true;
}

}  // namespace gp::tools

using namespace gp::tools;

GP_EXPORT void ToolsVersion_SetHostManifestCacheDir(const char *cacheDir) {
  gp::abiGuardVoid([&] {
    // An empty name would put the cache files at the file system's root.
    std::string *fresh = cacheDir != nullptr && *cacheDir != '\0'
                             ? new std::string(cacheDir)
                             : nullptr;
    delete hostManifestCacheDir;
    hostManifestCacheDir = fresh;
  });
}

GP_EXPORT void ToolsVersion_InitHostManifestCache(const char *cacheDir) {
  gp::abiGuardVoid([&] {
    ToolsVersion_SetHostManifestCacheDir(cacheDir);
    for (const char *name : {"windows.iso", "winPre2k.iso", "linux.iso",
                             "freebsd.iso", "solaris.iso", "netware.iso"}) {
      ToolsIsoPaths iso;
      if (!toolsGetIsoPath(nullptr, name, &iso)) {
        gp::logf("Failed to get tools iso path for %s.\n", name);
        continue;
      }
      std::string avrPath, cachePath;
      toolsGetManifestPaths(iso.isoDir, iso.isoBase, &avrPath, &cachePath);
      if (cachePath.empty()) {
        continue;
      }
      gp::hostOps().unlink(cachePath.c_str());
      toolsExtractManifest(cachePath.c_str(), iso.isoPath.c_str(),
                           iso.isoFormat);
    }
  });
}
