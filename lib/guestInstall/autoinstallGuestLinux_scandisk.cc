// AutoInstall_ScanDisk: the boot files of a disc whose files are in a host
// directory.
#include <set>
#include <utility>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_scan.h"
#include "lib/guestInstall/autoinstall_hostfiles.h"
#include "platform/abi.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::autoinstall {
namespace {

class HostDisc : public IsolinuxDisc {
 public:
  explicit HostDisc(const char *discDir)
      : root_(discDir == nullptr ? "/" : discDir) {}

  std::string searchRoot() const override { return root_; }

  bool findConfig(std::string &path) override {
    size_t budget = kMaxSearchEntries;
    std::set<std::pair<dev_t, ino_t>> visited;
    return findFileInDisk(root_, "", 0, budget, visited, path);
  }

  Read readText(const std::string &path, size_t room,
                std::string &text) override {
    UniqueFd fd = openFile(host(path).c_str(), O_RDONLY | O_NONBLOCK);
    struct stat st;
    if (!fd.valid() || hostOps().fstat(fd.get(), &st) != 0 ||
        !S_ISREG(st.st_mode)) {
      return Read::OpenFailed;
    }
    text.assign(room, '\0');
    ssize_t got = preadFull(fd.get(), text.data(), room, 0);
    if (got < 0) {
      return Read::ReadFailed;
    }
    text.resize(static_cast<size_t>(got));
    return Read::Ok;
  }

  std::vector<std::string> listNames(const std::string &dir) override {
    std::vector<HostDirEntry> entries;
    std::vector<std::string> names;
    listHostDirectory(host(dir), kMaxSearchEntries, entries);
    for (HostDirEntry &e : entries) {
      names.push_back(std::move(e.name));
    }
    return names;
  }

  Copy copyOut(const std::string &path, const std::string &to) override {
    const std::string from = host(path);
    struct stat st;
    if (hostOps().stat(from.c_str(), &st) != 0) {
      return errno == ENOENT ? Copy::Missing : Copy::Failed;
    }
    // A link on the disc may point anywhere on the host.
    if (!hostPathInside(root_, from)) {
      return Copy::Outside;
    }
    return copyHostFile(from, to) ? Copy::Ok : Copy::Failed;
  }

  std::string describe(const std::string &path) const override {
    return host(path);
  }

 private:
  std::string host(const std::string &path) const {
    return path.empty() ? root_ : joinPath(root_, path);
  }

  // The walk over the host tree: any entry but "." and ".." is tried as a
  // directory, links included; a directory already searched (a link loop)
  // is passed over.
  bool findFileInDisk(const std::string &dir, const std::string &rel, int depth,
                      size_t &budget,
                      std::set<std::pair<dev_t, ino_t>> &visited,
                      std::string &found) {
    struct stat st;
    if (hostOps().stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) ||
        !visited.insert({st.st_dev, st.st_ino}).second) {
      return false;
    }
    std::vector<HostDirEntry> entries;
    if (!listHostDirectory(dir, budget, entries)) {
      budget = entries.size() == budget ? 0 : budget;
      return false;
    }
    for (const HostDirEntry &e : entries) {
      if (budget == 0) {
        return false;
      }
      --budget;
      std::string childRel = rel.empty() ? e.name : rel + "/" + e.name;
      if (str::equalsCaseless(e.name, "isolinux.cfg")) {
        found = childRel;
        return true;
      }
      if (e.mayBeDirectory && depth + 1 < kMaxSearchDepth &&
          findFileInDisk(joinPath(dir, e.name), childRel, depth + 1, budget,
                         visited, found)) {
        return true;
      }
    }
    return false;
  }

  std::string root_;
};

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_ScanDisk(const char *discDir, const char *outDir,
                                    const char *osName,
                                    const char *isolinuxBinPath) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    gp::autoinstall::HostDisc disc(discDir);
    const gp::autoinstall::ScanRequest request = {
        "AutoInstall_ScanDisk", true, outDir, osName, isolinuxBinPath};
    return gp::autoinstall::scanIsolinuxDisc(disc, request) ? TRUE : FALSE;
  });
}
