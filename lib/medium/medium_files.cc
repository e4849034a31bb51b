// The files of an installation medium, read within one budget.
#include "lib/medium/medium_files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "platform/isoimage.h"
#include "platform/udfimage.h"

namespace gp::medium {

std::vector<std::string> splitPath(const std::string &path) {
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) {
      end = path.size();
    }
    if (end > start) {
      parts.push_back(path.substr(start, end - start));
    }
    start = end + 1;
  }
  return parts;
}

MediumFiles::~MediumFiles() {
  if (iso_ != nullptr) {
    iso::close(iso_);
  }
  if (udf_ != nullptr) {
    udf::close(udf_);
  }
}

img::Error MediumFiles::open(const char *path) {
  struct stat st {};
  fd_ = openUntrustedFile(path, O_RDONLY, 0, &st, true);
  if (!fd_.valid()) {
    return img::IMG_ERR_NOT_FOUND;
  }
  size_ = static_cast<uint64_t>(st.st_size);
  path_ = path;
  if (S_ISBLK(st.st_mode)) {
    off_t end = lseek(fd_.get(), 0, SEEK_END);
    size_ = end < 0 ? 0 : static_cast<uint64_t>(end);
  }
  if (iso::open(path, iso::FORMAT_ROCKRIDGE | iso::FORMAT_JOLIET, 0, &iso_) ==
      iso::ISO_OK) {
    return img::IMG_OK;
  }
  iso_ = nullptr;
  udfTried_ = true;
  if (udf::open(path, &udf_) == img::IMG_OK) {
    return img::IMG_OK;
  }
  udf_ = nullptr;
  errno = EINVAL;
  return img::IMG_ERR_FORMAT;
}

std::string MediumFiles::volumeId() {
  std::string out;
  char *id = nullptr;
  if (iso_ != nullptr && iso::volumeId(iso_, &id) == iso::ISO_OK &&
      id != nullptr) {
    out = id;
  }
  std::free(id);
  return out;
}

uint64_t MediumFiles::bytesRead() const {
  return rawBytes_ + xmlBytes_ + iso::bytesRead(iso_) + udf::bytesRead(udf_);
}

uint64_t MediumFiles::budgetUsed() const {
  return rawBytes_ + iso::bytesRead(iso_) + udf::bytesRead(udf_) - udfXmlBytes_;
}

UdfImage *MediumFiles::udfSide() {
  if (!udfTried_) {
    udfTried_ = true;
    if (udf::open(path_.c_str(), &udf_) != img::IMG_OK) {
      udf_ = nullptr;
    }
  }
  return udf_;
}

std::optional<FoundFile> MediumFiles::resolve(const std::string &path) {
  if (iso_ == nullptr) {
    return std::nullopt;
  }
  FoundFile found;
  iso::Entry entry{};
  std::vector<std::string> parts = splitPath(path);
  if (parts.empty()) {
    return std::nullopt;
  }
  for (size_t i = 0; i < parts.size(); ++i) {
    if (budgetUsed() > kBudget ||
        iso::findEntryCaseless(iso_, found.path.c_str(), parts[i].c_str(),
                               &entry) != iso::ISO_OK) {
      return std::nullopt;
    }
    if (i + 1 < parts.size() && !entry.isDirectory) {
      return std::nullopt;
    }
    found.path += found.path.empty() ? "" : "/";
    found.path += entry.name;
  }
  found.extent = entry.extent;
  found.size = entry.isDirectory ? 0 : entry.size;
  found.isDirectory = entry.isDirectory;
  return found;
}

std::optional<FoundFile> MediumFiles::find(const std::string &path) {
  return resolve(path);
}

bool MediumFiles::exists(const std::string &path) {
  if (iso_ != nullptr) {
    return resolve(path).has_value();
  }
  if (udf_ == nullptr || budgetUsed() > kBudget) {
    return false;
  }
  udf::Dir *dir = nullptr;
  if (udf::openDir(udf_, nullptr, path.c_str(), &dir) == img::IMG_OK) {
    udf::closeDir(dir);
    return true;
  }
  return read(path, 0).has_value();
}

namespace {

std::optional<std::string> readIsoFile(IsoImage *iso, const iso::Entry &entry,
                                       size_t maxBytes) {
  iso::File *file = nullptr;
  if (iso::openFile(iso, &entry, &file) != iso::ISO_OK) {
    return std::nullopt;
  }
  std::string out;
  char buffer[2048];
  while (out.size() < maxBytes) {
    size_t length = sizeof buffer;
    iso::Result rc = iso::readFile(iso, file, buffer, &length);
    if (rc == iso::ISO_END) {
      break;
    }
    if (rc != iso::ISO_OK) {
      iso::closeFile(iso, file);
      return std::nullopt;
    }
    out.append(buffer, std::min(length, maxBytes - out.size()));
  }
  iso::closeFile(iso, file);
  return out;
}

// One file of the UDF side, opened by path and closed on destruction.
class UdfFile {
 public:
  UdfFile(UdfImage *udf, const std::string &path) {
    if (udf == nullptr) {
      return;
    }
    size_t slash = path.rfind('/');
    std::string dirPath =
        slash == std::string::npos ? "" : path.substr(0, slash);
    std::string name =
        slash == std::string::npos ? path : path.substr(slash + 1);
    if (udf::openDir(udf, nullptr, dirPath.c_str(), &dir_) != img::IMG_OK) {
      dir_ = nullptr;
      return;
    }
    if (udf::openFile(udf, dir_, name.c_str(), &file_) != img::IMG_OK) {
      file_ = nullptr;
    }
  }
  ~UdfFile() {
    if (file_ != nullptr) udf::closeFile(file_);
    if (dir_ != nullptr) udf::closeDir(dir_);
  }
  UdfFile(const UdfFile &) = delete;
  UdfFile &operator=(const UdfFile &) = delete;
  bool ok() const { return file_ != nullptr; }
  udf::File *get() const { return file_; }

 private:
  udf::Dir *dir_ = nullptr;
  udf::File *file_ = nullptr;
};

// At most `maxBytes` of a file of the UDF side, never more than the
// budget whatever the file's size.
std::optional<std::string> readUdfFile(UdfImage *udf, const std::string &path,
                                       size_t maxBytes) {
  UdfFile file(udf, path);
  if (!file.ok()) {
    return std::nullopt;
  }
  uint64_t size = udf::fileSize(file.get());
  std::string out;
  if (udf::readFileRange(
          file.get(), 0,
          static_cast<size_t>(std::min<uint64_t>(
              size, std::min<uint64_t>(maxBytes, MediumFiles::kBudget))),
          out) != img::IMG_OK) {
    return std::nullopt;
  }
  return out;
}

}  // namespace

std::optional<std::string> MediumFiles::read(const std::string &path,
                                             size_t maxBytes) {
  if (budgetUsed() > kBudget) {
    return std::nullopt;
  }
  if (iso_ != nullptr) {
    std::optional<FoundFile> found = resolve(path);
    if (!found && udfSide() != nullptr) {
      return readUdfFile(udf_, path, maxBytes);
    }
    if (!found || found->isDirectory ||
        found->size > kBudget) {  // huge files are not read
      return std::nullopt;
    }
    iso::Entry entry{};
    std::vector<std::string> parts = splitPath(found->path);
    std::string dir;
    for (size_t i = 0; i + 1 < parts.size(); ++i) {
      dir += (i == 0 ? "" : "/") + parts[i];
    }
    if (iso::findEntryCaseless(iso_, dir.c_str(), parts.back().c_str(),
                               &entry) != iso::ISO_OK ||
        entry.isDirectory) {
      return std::nullopt;
    }
    return readIsoFile(iso_, entry, maxBytes);
  }
  if (udf_ != nullptr) {
    return readUdfFile(udf_, path, maxBytes);
  }
  return std::nullopt;
}

std::vector<FoundFile> MediumFiles::list(const std::string &path,
                                         size_t limit) {
  std::vector<FoundFile> out;
  if (iso_ == nullptr || budgetUsed() > kBudget) {
    return out;
  }
  std::string base;
  if (!splitPath(path).empty()) {
    std::optional<FoundFile> dirFound = resolve(path);
    if (!dirFound) {
      return out;
    }
    base = dirFound->path;
  }
  iso::Dir *dir = nullptr;
  if (iso::openDir(iso_, base.c_str(), &dir) != iso::ISO_OK) {
    return out;
  }
  iso::Entry entry{};
  while (out.size() < limit && bytesRead() <= kBudget &&
         iso::readDir(iso_, dir, &entry) == iso::ISO_OK) {
    FoundFile f;
    f.path = base.empty() ? entry.name : base + "/" + entry.name;
    f.extent = entry.extent;
    f.size = entry.isDirectory ? 0 : entry.size;
    f.isDirectory = entry.isDirectory;
    out.push_back(std::move(f));
  }
  iso::closeDir(iso_, dir);
  return out;
}

bool MediumFiles::readRaw(uint64_t offset, size_t length, std::string &out) {
  if (offset > size_ || length > size_ - offset ||
      rawBytes_ + length > kBudget) {
    return false;
  }
  out.resize(length);
  ssize_t got =
      preadFull(fd_.get(), out.data(), length, static_cast<off_t>(offset));
  rawBytes_ += length;
  return got == static_cast<ssize_t>(length);
}

bool MediumFiles::readXml(uint64_t offset, size_t length, std::string &out) {
  if (offset > size_ || length > size_ - offset ||
      xmlBytes_ + length > kXmlBudget) {
    return false;
  }
  out.resize(length);
  ssize_t got =
      preadFull(fd_.get(), out.data(), length, static_cast<off_t>(offset));
  xmlBytes_ += length;
  return got == static_cast<ssize_t>(length);
}

std::optional<uint64_t> MediumFiles::sizeOf(const std::string &path) {
  if (std::optional<FoundFile> f = resolve(path)) {
    return f->isDirectory ? std::nullopt : std::optional<uint64_t>(f->size);
  }
  UdfFile file(udfSide(), path);
  if (!file.ok()) {
    return std::nullopt;
  }
  return udf::fileSize(file.get());
}

bool MediumFiles::readRange(const std::string &path, uint64_t offset,
                            size_t length, bool xml, std::string &out) {
  if (std::optional<FoundFile> f = resolve(path)) {
    if (f->isDirectory || offset > f->size || length > f->size - offset) {
      return false;
    }
    uint64_t at = uint64_t{f->extent} * 2048 + offset;
    return xml ? readXml(at, length, out) : readRaw(at, length, out);
  }
  UdfFile file(udfSide(), path);
  uint64_t before = udf::bytesRead(udf_);
  if (!file.ok() || (xml ? xmlBytes_ + udfXmlBytes_ + length > kXmlBudget
                         : budgetUsed() + length > kBudget)) {
    return false;
  }
  bool ok = udf::readFileRange(file.get(), offset, length, out) == img::IMG_OK;
  if (xml) {
    udfXmlBytes_ += udf::bytesRead(udf_) - before;
  }
  return ok;
}

}  // namespace gp::medium
