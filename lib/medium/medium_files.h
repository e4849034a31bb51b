// The files of an installation medium as the description reads them: an
// ISO 9660 image (Rock Ridge or Joliet names when present) or, failing
// that, a UDF image. Paths are matched without regard to ASCII case, since
// the same disc shows upper-case primary names or mixed-case extension
// names depending on the format read. Every read counts against one
// budget, so a description reads a bounded number of bytes whatever the
// size and shape of the image.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/hostio.h"
#include "platform/imageerror.h"

extern "C" {
struct IsoImage;
struct UdfImage;
}

namespace gp::medium {

// A file found on an ISO 9660 medium: its path as the medium spells it, its
// first sector and its size.
struct FoundFile {
  std::string path;
  uint32_t extent = 0;
  uint64_t size = 0;
  bool isDirectory = false;
};

class MediumFiles {
 public:
  // Bytes a description may read besides the install image's XML.
  static constexpr uint64_t kBudget = 1u << 20;
  // Bytes of the install image's XML a description may read.
  static constexpr uint64_t kXmlBudget = 16u << 20;

  MediumFiles() = default;
  ~MediumFiles();
  MediumFiles(const MediumFiles &) = delete;
  MediumFiles &operator=(const MediumFiles &) = delete;

  // IMG_ERR_NOT_FOUND (errno set) when the file cannot be opened,
  // IMG_ERR_FORMAT when it is neither ISO 9660 nor UDF.
  img::Error open(const char *path);

  bool isIso() const { return iso_ != nullptr; }
  // The primary volume identifier without trailing blanks ("" on UDF).
  std::string volumeId();

  // The file at `path` (caseless), up to `maxBytes`; nullopt when it is
  // missing, a directory, unreadable or the budget is spent.
  std::optional<std::string> read(const std::string &path, size_t maxBytes);
  // Whether `path` names a file or directory.
  bool exists(const std::string &path);
  // The entry at `path` on ISO 9660 media, with the medium's spelling.
  std::optional<FoundFile> find(const std::string &path);
  // The names in directory `path` (ISO 9660 only), at most `limit`.
  std::vector<FoundFile> list(const std::string &path, size_t limit);

  // Reads `length` bytes at `offset` of the image file itself; false when
  // the range is not inside the file or the budget is spent.
  bool readRaw(uint64_t offset, size_t length, std::string &out);
  uint64_t imageSize() const { return size_; }

  // The same for the install image's XML, which has a budget of its own.
  bool readXml(uint64_t offset, size_t length, std::string &out);

  // A large file that is read in pieces (the install image): its size, and
  // `length` bytes from `offset` counted against the main budget, or the
  // XML's when `xml`. ISO 9660 names first, then the UDF side, which on
  // Windows discs is the only one that holds the files.
  std::optional<uint64_t> sizeOf(const std::string &path);
  bool readRange(const std::string &path, uint64_t offset, size_t length,
                 bool xml, std::string &out);
  // Every byte read from the image file so far, by any reader.
  uint64_t bytesRead() const;

  IsoImage *iso() { return iso_; }

 private:
  std::optional<FoundFile> resolve(const std::string &path);
  // The UDF side of an image opened as ISO 9660, opened on first use.
  UdfImage *udfSide();
  uint64_t budgetUsed() const;
  std::string path_;
  bool udfTried_ = false;
  uint64_t udfXmlBytes_ = 0;

  UniqueFd fd_;
  uint64_t size_ = 0;
  IsoImage *iso_ = nullptr;
  UdfImage *udf_ = nullptr;
  uint64_t rawBytes_ = 0;
  uint64_t xmlBytes_ = 0;
};

// Splits "a/b/c" into its non-empty components.
std::vector<std::string> splitPath(const std::string &path);

}  // namespace gp::medium
