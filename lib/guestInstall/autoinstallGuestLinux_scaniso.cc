// AutoInstall_ScanISO: the boot files of an installation image.
#include <memory>
#include <set>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_scan.h"
#include "platform/abi.h"
#include "platform/isoimage.h"
#include "platform/strutil.h"

namespace gp::autoinstall {
namespace {

// Name format set 4: Rock Ridge names where the image has them.
constexpr uint32_t kNameFormats = iso::FORMAT_ROCKRIDGE;

struct ImageCloser {
  void operator()(IsoImage *image) const { iso::close(image); }
};
using UniqueImage = std::unique_ptr<IsoImage, ImageCloser>;

class IsoDisc : public IsolinuxDisc {
 public:
  IsoDisc(const char *isoPath, IsoImage *image)
      : isoPath_(isoPath), image_(image) {}

  std::string searchRoot() const override { return isoPath_; }

  bool findConfig(std::string &path) override {
    size_t budget = kMaxSearchEntries;
    std::set<uint32_t> visited;
    return search("", 0, budget, visited, path);
  }

  Read readText(const std::string &path, size_t room,
                std::string &text) override {
    iso::Entry entry;
    iso::File *file = nullptr;
    if (!findEntry(path, entry) ||
        iso::openFile(image_, &entry, &file) != iso::ISO_OK) {
      return Read::OpenFailed;
    }
    text.assign(room, '\0');
    size_t done = 0;
    int rc = iso::ISO_OK;
    while (done < room && rc == iso::ISO_OK) {
      size_t length = room - done;
      rc = iso::readFile(image_, file, text.data() + done, &length);
      done += rc == iso::ISO_OK ? length : 0;
    }
    iso::closeFile(image_, file);
    text.resize(done);
    return rc == iso::ISO_OK || rc == iso::ISO_END ? Read::Ok
                                                   : Read::ReadFailed;
  }

  std::vector<std::string> listNames(const std::string &dir) override {
    std::vector<std::string> names;
    Listing listing(image_, dir);
    iso::Entry entry;
    while (names.size() < kMaxSearchEntries && listing.next(entry)) {
      names.emplace_back(entry.name);
    }
    return names;
  }

  Copy copyOut(const std::string &path, const std::string &to) override {
    int rc = iso::extractFile(image_, path.c_str(), to.c_str());
    if (rc == iso::ISO_ERR_NOT_FOUND) {
      // Images with primary names only show them in upper case, while the
      // configuration names the files as the boot loader finds them, in
      // any case.
      std::string actual;
      if (!findCaseless(path, actual)) {
        return Copy::Missing;
      }
      rc = iso::extractFile(image_, actual.c_str(), to.c_str());
    }
    return rc == iso::ISO_OK ? Copy::Ok : Copy::Failed;
  }

  std::string describe(const std::string &path) const override {
    return "/" + path;
  }

 private:
  // One open directory of the image.
  class Listing {
   public:
    Listing(IsoImage *image, const std::string &path) : image_(image) {
      if (iso::openDir(image, path.c_str(), &dir_) != iso::ISO_OK) {
        dir_ = nullptr;
      }
    }
    ~Listing() {
      if (dir_ != nullptr) {
        iso::closeDir(image_, dir_);
      }
    }
    Listing(const Listing &) = delete;
    Listing &operator=(const Listing &) = delete;
    // The next entry other than "." and "..".
    bool next(iso::Entry &entry) {
      while (dir_ != nullptr &&
             iso::readDir(image_, dir_, &entry) == iso::ISO_OK) {
        std::string_view name = entry.name;
        if (name != "." && name != "..") {
          return true;
        }
      }
      return false;
    }

   private:
    IsoImage *image_;
    iso::Dir *dir_ = nullptr;
  };

  static std::string join(const std::string &dir, const char *name) {
    return dir.empty() ? std::string(name) : dir + "/" + name;
  }

  bool search(const std::string &dir, int depth, size_t &budget,
              std::set<uint32_t> &visited, std::string &found) {
    Listing listing(image_, dir);
    iso::Entry entry;
    while (budget > 0 && listing.next(entry)) {
      --budget;
      if (str::equalsCaseless(entry.name, "isolinux.cfg")) {
        found = join(dir, entry.name);
        return true;
      }
      // A directory record that points back at a directory already
      // searched would make the walk endless.
      if (entry.isDirectory && depth + 1 < kMaxSearchDepth &&
          visited.insert(entry.extent).second &&
          search(join(dir, entry.name), depth + 1, budget, visited, found)) {
        return true;
      }
    }
    return false;
  }

  bool findEntry(const std::string &path, iso::Entry &entry) {
    size_t slash = path.rfind('/');
    std::string dir = slash == std::string::npos ? "" : path.substr(0, slash);
    std::string name =
        slash == std::string::npos ? path : path.substr(slash + 1);
    Listing listing(image_, dir);
    size_t seen = 0;
    while (seen++ < kMaxSearchEntries && listing.next(entry)) {
      if (name == entry.name) {
        return true;
      }
    }
    return false;
  }

  // The path with each component matched without regard to case.
  bool findCaseless(const std::string &path, std::string &actual) {
    actual.clear();
    str::Tokenizer parts(path, "/");
    std::string_view part;
    while (parts.next(part)) {
      Listing listing(image_, actual);
      iso::Entry entry;
      bool matched = false;
      size_t seen = 0;
      while (!matched && seen++ < kMaxSearchEntries && listing.next(entry)) {
        matched = str::equalsCaseless(entry.name, part);
      }
      if (!matched) {
        return false;
      }
      actual = join(actual, entry.name);
    }
    return !actual.empty();
  }

  std::string isoPath_;
  IsoImage *image_;
};

bool scanIso(const char *isoPath, const char *outDir, const char *osName,
             const char *isolinuxBinPath) {
  IsoImage *raw = nullptr;
  if (isoPath == nullptr ||
      iso::open(isoPath, kNameFormats, 0, &raw) != iso::ISO_OK) {
    return false;
  }
  UniqueImage image(raw);
  IsoDisc disc(isoPath, image.get());
  // The image scan reports its failures by its result; only refusals of a
  // hostile disc are logged.
  const ScanRequest request = {"AutoInstall_ScanISO", false, outDir, osName,
                               isolinuxBinPath};
  return scanIsolinuxDisc(disc, request);
}

}  // namespace
}  // namespace gp::autoinstall

GP_EXPORT Bool AutoInstall_ScanISO(const char *isoPath, const char *outDir,
                                   const char *osName,
                                   const char *isolinuxBinPath) {
  return gp::abiGuard<Bool>(FALSE, [&]() -> Bool {
    return gp::autoinstall::scanIso(isoPath, outDir, osName, isolinuxBinPath)
               ? TRUE
               : FALSE;
  });
}
