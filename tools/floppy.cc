// guestprep floppy: make, fill, read and list FAT floppy images.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/abi.h"
#include "platform/fatimage.h"
#include "tools/cli.h"
#include "tools/json.h"

namespace gp::cli {
namespace {

namespace fat = gp::fat;

// Owner of an image handle for the length of one command.
struct Handle {
  FatHandle h = nullptr;
  ~Handle() {
    if (h != nullptr) {
      fat::close(h);
    }
  }
};

// Reports an image that could not be used: why the system cannot read it,
// or else what is wrong with its content.
int fail(const std::string &path, fat::Error err) {
  std::string reason = readProblem(path);
  reportFileError(path, reason.empty() ? fat::errorText(err) : reason);
  return 1;
}

// Opens the volume and its root directory.
int openRoot(const std::string &image, int writable, Handle &volume,
             Handle &root) {
  fat::Error err = fat::openVolume(nullptr, image.c_str(), writable, &volume.h);
  if (err == fat::FAT_OK) {
    err = fat::skipVolumeBoot(volume.h, fat::FAT_FILE_SYSTEM);
  }
  if (err == fat::FAT_OK) {
    err = fat::openRootDirectory(volume.h, &root.h);
  }
  return err == fat::FAT_OK ? 0 : fail(image, err);
}

int cmdNew(const Args &args) {
  Handle volume;
  fat::Error err = fat::formatVolume(nullptr, args[1].c_str(), 1, 1, &volume.h);
  if (err == fat::FAT_OK) {
    err = fat::close(volume.h);
    volume.h = nullptr;
  }
  return err == fat::FAT_OK ? 0 : fail(args[1], err);
}

// The last part of a host path.
std::string baseName(const std::string &path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

int cmdAdd(const Args &args) {
  if (args.size() > 4) {
    return usageError("floppy");
  }
  const std::string &image = args[1];
  const std::string &host = args[2];
  std::string name = args.size() == 4 ? args[3] : baseName(host);
  Handle volume, root;
  if (int rc = openRoot(image, 1, volume, root)) {
    return rc;
  }
  if (!AddFileToFloppyImg(root.h, host.c_str(), name.c_str())) {
    std::string problem = readProblem(host);
    if (!problem.empty()) {
      reportFileError(host, problem);
      return 1;
    }
    std::fprintf(stderr, "guestprep floppy: cannot add %s to %s as %s\n",
                 host.c_str(), image.c_str(), name.c_str());
    return 1;
  }
  fat::close(root.h);
  root.h = nullptr;
  fat::Error err = fat::close(volume.h);
  volume.h = nullptr;
  return err == fat::FAT_OK ? 0 : fail(image, err);
}

int cmdGet(const Args &args) {
  if (args.size() != 4) {
    return usageError("floppy");
  }
  Handle volume, root;
  if (int rc = openRoot(args[1], 0, volume, root)) {
    return rc;
  }
  if (!GetFileFromFloppyImg(root.h, args[2].c_str(), args[3].c_str())) {
    std::fprintf(stderr, "guestprep floppy: cannot copy %s from %s to %s\n",
                 args[2].c_str(), args[1].c_str(), args[3].c_str());
    return 1;
  }
  return 0;
}

int cmdLs(const Args &args, bool json) {
  if (args.size() != 2) {
    return usageError("floppy");
  }
  Handle volume, root;
  if (int rc = openRoot(args[1], 0, volume, root)) {
    return rc;
  }
  Json entries = Json::array();
  int64_t count = fat::entryCount(root.h);
  for (int64_t i = 0; i < count; ++i) {
    uint8_t present = 0, isDir = 0;
    char *name = nullptr;
    uint64_t size = 0;
    fat::Error err =
        fat::catalogEntry(root.h, i, &present, &name, &isDir, &size, nullptr);
    if (err != fat::FAT_OK) {
      return fail(args[1], err);
    }
    MallocPtr<char> owned(name);
    if (!present) {
      continue;
    }
    if (json) {
      entries.push_back(
          {{"name", name}, {"isDir", isDir != 0}, {"size", size}});
    } else if (isDir) {
      std::printf("%10s  %s/\n", "<DIR>", name);
    } else {
      std::printf("%10" PRIu64 "  %s\n", size, name);
    }
  }
  if (json) {
    printJson({{"image", args[1]},
               {"entries", entries},
               {"freeBytes", fat::freeBytes(volume.h)}});
  } else {
    std::printf("%10" PRIu64 "  bytes free\n", fat::freeBytes(volume.h));
  }
  return 0;
}

int runFloppy(const Args &all) {
  Args args = all;
  bool json = takeFlag(args, "--json");
  if (args.empty()) {
    return usageError("floppy");
  }
  const std::string &sub = args[0];
  if (json && sub != "ls") {
    return usageError("floppy");
  }
  if (sub == "new" && args.size() == 2) {
    return cmdNew(args);
  }
  if (sub == "add" && args.size() >= 3) {
    return cmdAdd(args);
  }
  if (sub == "get") {
    return cmdGet(args);
  }
  if (sub == "ls") {
    return cmdLs(args, json);
  }
  return usageError("floppy");
}

}  // namespace
}  // namespace gp::cli

GP_COMMAND("floppy",
           "new IMAGE | add IMAGE HOSTFILE [NAME] | get IMAGE NAME HOSTFILE | "
           "ls [--json] IMAGE",
           "make a 1.44 MB FAT floppy image, copy files in and out, list it",
           gp::cli::runFloppy);
