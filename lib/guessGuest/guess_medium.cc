// The medium interface on the ISO 9660 and UDF readers.
#include "lib/guessGuest/guess_medium.h"

#include <cstring>
#include <string>

#include "platform/fatal.h"
#include "platform/isoimage.h"
#include "platform/udfimage.h"

namespace gp::guess {
namespace {

using namespace img;

// Marker files are small; the largest one read whole is a kernel of a few
// MiB. A larger file is treated as unreadable, so a hostile image cannot
// make identification allocate gigabytes (the UDF reader has the same cap).
constexpr size_t kMaxFileBytes = 64u << 20;
// All that one identification reads from an image, files included; past
// it no more files are read and the medium counts as unreadable.
constexpr uint64_t kMaxBytesPerMedium = 256u << 20;

class IsoDir final : public GuessDir {
 public:
  IsoDir(IsoImage *image, iso::Dir *dir, const char *path)
      : image_(image), dir_(dir), path_(path) {}
  ~IsoDir() override { iso::closeDir(image_, dir_); }

  Error next(const char *&name) override {
    Error err = iso::readDir(image_, dir_, &entry_);  // clears entry_
    name = entry_.name;
    return err;
  }
  Error rewind() override { return iso::rewindDir(image_, dir_); }

  // Names compare without regard to case; the reader keeps the listing,
  // so repeated lookups do not rescan the directory.
  Error lookup(const char *name, FileText *contents) override {
    if (contents != nullptr && iso::bytesRead(image_) > kMaxBytesPerMedium) {
      return IMG_ERR_BUDGET;
    }
    iso::Entry entry;
    iso::File *file = nullptr;
    Error err = iso::findEntryCaseless(image_, path_.c_str(), name, &entry);
    if (err == IMG_OK) {
      err = iso::openFile(image_, &entry, &file);
    }
    if (err == IMG_OK && contents != nullptr) {
      err = readWhole(file, *contents);
    }
    iso::closeFile(image_, file);
    return err;
  }

 private:
  // At most one sector comes with each read.
  Error readWhole(iso::File *file, FileText &contents) {
    std::string data;
    char chunk[2048];
    size_t length = sizeof chunk;
    Error err;
    while ((err = iso::readFile(image_, file, chunk, &length)) == IMG_OK) {
      if (data.size() + length > kMaxFileBytes) {
        return IMG_ERR_TOO_LARGE;
      }
      data.append(chunk, length);
      length = sizeof chunk;
    }
    if (err == IMG_END) {
      contents.data.reset(heapCopy(data));
      contents.size = data.size();
      err = IMG_OK;
    }
    return err;
  }

  IsoImage *image_;
  iso::Dir *dir_;
  iso::Entry entry_{};
  std::string path_;
};

class UdfDir final : public GuessDir {
 public:
  UdfDir(UdfImage *image, udf::Dir *dir) : image_(image), dir_(dir) {}
  ~UdfDir() override { udf::closeDir(dir_); }

  Error next(const char *&name) override { return udf::readDir(dir_, &name); }
  Error rewind() override { return udf::rewindDir(dir_); }

  // The reader's own matching decides (exact, else caseless).
  Error lookup(const char *name, FileText *contents) override {
    if (contents != nullptr && udf::bytesRead(image_) > kMaxBytesPerMedium) {
      return IMG_ERR_BUDGET;
    }
    udf::File *file = nullptr;
    Error err = udf::openFile(image_, dir_, name, &file);
    if (err == IMG_OK && contents != nullptr) {
      char *data = nullptr;
      err = udf::readFile(file, &data, &contents->size);
      contents->data.reset(data);
    }
    udf::closeFile(file);
    return err;
  }

 private:
  UdfImage *image_;
  udf::Dir *dir_;
};

}  // namespace

Error openMedium(const char *imagePath, GuessMedium &medium) {
  if (udf::open(imagePath, &medium.udfImage) == IMG_OK) {
    medium.kind = GUESS_MEDIUM_UDF;
    return IMG_OK;
  }
  uint32_t formats = iso::listFormats(imagePath);
  Error err = iso::open(imagePath, formats, 0, &medium.isoImage);
  if (err == IMG_OK) {
    medium.kind = GUESS_MEDIUM_ISO9660;
  }
  return err;
}

bool mediumOverBudget(const GuessMedium &medium) {
  return iso::overBudget(medium.isoImage) || udf::overBudget(medium.udfImage) ||
         iso::bytesRead(medium.isoImage) > kMaxBytesPerMedium ||
         udf::bytesRead(medium.udfImage) > kMaxBytesPerMedium;
}

void closeMedium(GuessMedium &medium) {
  iso::close(medium.isoImage);
  udf::close(medium.udfImage);
}

Error openMediumDir(GuessMedium &medium, const char *path,
                    std::unique_ptr<GuessDir> &dir) {
  Error err = IMG_ERR_ARG;
  if (medium.kind == GUESS_MEDIUM_ISO9660) {
    iso::Dir *isoDir = nullptr;
    err = iso::openDir(medium.isoImage, path, &isoDir);
    if (err == IMG_OK) {
      dir = std::make_unique<IsoDir>(medium.isoImage, isoDir, path);
    }
  } else if (medium.kind == GUESS_MEDIUM_UDF) {
    udf::Dir *udfDir = nullptr;
    err = udf::openDir(medium.udfImage, nullptr, path, &udfDir);
    if (err == IMG_OK) {
      dir = std::make_unique<UdfDir>(medium.udfImage, udfDir);
    }
  } else {
    GP_NOT_REACHED(kModule);
  }
  return err;
}

}  // namespace gp::guess
