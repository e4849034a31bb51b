// Directories and files of a UDF image, on top of the volume layer.
#include "platform/udfimage.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/strutil.h"
#include "platform/udf_volume.h"

struct UdfImage {
  std::unique_ptr<gp::udf::Volume> volume;
  // Directory work so far: every openDir lists its directories afresh, so
  // a hostile image with huge directories is stopped by this budget.
  uint64_t dirBytes = 0;
  uint64_t records = 0;
  bool overBudget = false;
};

namespace gp::udf {

using namespace img;

namespace {

constexpr size_t kMaxEntries = 100000;
constexpr uint64_t kMaxRecordsPerOpen = 400000;
constexpr uint64_t kMaxDirBytesPerOpen = 48u << 20;
constexpr size_t kMaxPathComponents = 64;

struct Entry {
  std::string name;
  disc::LbAddr icb;
  bool isDirectory;
};

}  // namespace

struct Dir {
  UdfImage *image;
  disc::LbAddr self;
  std::vector<Entry> entries;
  size_t next = 0;
};

struct File {
  UdfImage *image;
  Node node;
};

namespace {

// Counts directory work against the image's budget; false once it is
// spent.
bool spend(UdfImage &image, uint64_t bytes, uint64_t records) {
  image.dirBytes += bytes;
  image.records += records;
  image.overBudget = image.overBudget || image.dirBytes > kMaxDirBytesPerOpen ||
                     image.records > kMaxRecordsPerOpen;
  return !image.overBudget;
}

// Lists a directory node. A malformed identifier ends the listing with
// what came before it.
Error listDirectory(UdfImage &image, const Node &node,
                    std::vector<Entry> &entries) {
  std::string stream;
  if (!node.isDirectory() ||
      !image.volume->readData(node, kMaxDirBytes, stream)) {
    return IMG_ERR_FORMAT;
  }
  disc::Bytes bytes(stream);
  size_t at = 0;
  disc::FileIdent ident;
  while (at < bytes.size() && entries.size() < kMaxEntries &&
         disc::decodeFileIdent(bytes, at, ident)) {
    if (!spend(image, ident.recordLength, 1)) {
      return IMG_ERR_BUDGET;
    }
    at += ident.recordLength;
    if (ident.isDeleted() || ident.isParent()) {
      continue;
    }
    std::optional<std::string> name = disc::decodeName(ident.name);
    if (!name) {
      continue;
    }
    entries.push_back({std::move(*name), ident.icb.where, ident.isDirectory()});
  }
  return IMG_OK;
}

// The exact match if there is one, else the first caseless one.
const Entry *findEntry(const std::vector<Entry> &entries,
                       std::string_view name) {
  const Entry *caseless = nullptr;
  for (const Entry &e : entries) {
    if (e.name == name) {
      return &e;
    }
    if (caseless == nullptr && str::equalsCaseless(e.name, name)) {
      caseless = &e;
    }
  }
  return caseless;
}

Error openDirAt(UdfImage *image, disc::LbAddr icb, std::unique_ptr<Dir> &dir) {
  Node node;
  dir = std::make_unique<Dir>();
  dir->image = image;
  dir->self = icb;
  Error err = image->volume->loadNode(icb, node)
                  ? listDirectory(*image, node, dir->entries)
                  : IMG_ERR_FORMAT;
  if (err != IMG_OK) {
    dir.reset();
  }
  return err;
}

Error openDirPath(UdfImage *image, Dir *start, const char *path, Dir **out) {
  std::unique_ptr<Dir> dir;
  Error err = openDirAt(
      image, start != nullptr ? start->self : image->volume->root(), dir);
  str::Tokenizer parts(path, "/");
  std::string_view part;
  size_t depth = 0;
  while (err == IMG_OK && parts.next(part)) {
    const Entry *e = findEntry(dir->entries, part);
    if (++depth > kMaxPathComponents || e == nullptr) {
      return IMG_ERR_NOT_FOUND;
    }
    if (!e->isDirectory) {
      return IMG_ERR_NOT_DIR;
    }
    err = openDirAt(image, e->icb, dir);
  }
  *out = dir.release();
  return err;
}

// Clears an out-parameter; false when there is none.
template <typename T>
bool clearOut(T **out) {
  if (out != nullptr) {
    *out = nullptr;
  }
  return out != nullptr;
}

}  // namespace

Error open(const char *path, UdfImage **image) {
  if (!clearOut(image) || path == nullptr) {
    return IMG_ERR_ARG;
  }
  return abiGuard(IMG_ERR_IO, [&] {
    std::unique_ptr<Volume> volume = Volume::open(path);
    if (volume == nullptr) {
      return IMG_ERR_FORMAT;
    }
    // The root must list, or the volume is of no use.
    std::unique_ptr<UdfImage> handle(new UdfImage{std::move(volume)});
    std::unique_ptr<Dir> root;
    Error err = openDirAt(handle.get(), handle->volume->root(), root);
    if (err == IMG_OK) {
      *image = handle.release();
    }
    return err;
  });
}

void close(UdfImage *image) { delete image; }

Error openDir(UdfImage *image, Dir *start, const char *path, Dir **dir) {
  if (!clearOut(dir) || image == nullptr || path == nullptr) {
    return IMG_ERR_ARG;
  }
  return abiGuard(IMG_ERR_IO,
                  [&] { return openDirPath(image, start, path, dir); });
}

Error readDir(Dir *dir, const char **name) {
  if (dir == nullptr || name == nullptr) {
    return IMG_ERR_ARG;
  }
  if (dir->next >= dir->entries.size()) {
    return IMG_END;
  }
  *name = dir->entries[dir->next++].name.c_str();
  return IMG_OK;
}

Error rewindDir(Dir *dir) {
  if (dir == nullptr) {
    return IMG_ERR_ARG;
  }
  dir->next = 0;
  return IMG_OK;
}

Error closeDir(Dir *dir) {
  if (dir == nullptr) {
    return IMG_ERR_ARG;
  }
  delete dir;
  return IMG_OK;
}

Error openFile(UdfImage *image, Dir *dir, const char *name, File **file) {
  if (!clearOut(file) || image == nullptr || dir == nullptr ||
      name == nullptr) {
    return IMG_ERR_ARG;
  }
  return abiGuard(IMG_ERR_IO, [&] {
    const Entry *e = findEntry(dir->entries, name);
    if (e == nullptr) {
      return IMG_ERR_NOT_FOUND;
    }
    if (e->isDirectory) {
      return IMG_ERR_IS_DIR;
    }
    auto handle = std::make_unique<File>();
    handle->image = image;
    if (!image->volume->loadNode(e->icb, handle->node)) {
      return IMG_ERR_FORMAT;
    }
    if (handle->node.isDirectory()) {
      return IMG_ERR_IS_DIR;
    }
    *file = handle.release();
    return IMG_OK;
  });
}

Error readFile(File *file, char **contents, size_t *length) {
  if (file == nullptr || contents == nullptr) {
    return IMG_ERR_ARG;
  }
  return abiGuard(IMG_ERR_IO, [&] {
    std::string data;
    if (!file->image->volume->readData(file->node, kMaxFileBytes, data)) {
      return IMG_ERR_FORMAT;
    }
    *contents = heapCopy(data);
    if (length != nullptr) {
      *length = data.size();
    }
    return IMG_OK;
  });
}

void closeFile(File *file) { delete file; }

uint64_t fileSize(const File *file) {
  return file == nullptr ? 0 : file->node.infoLength;
}

Error readFileRange(File *file, uint64_t offset, size_t length,
                    std::string &out) {
  if (file == nullptr) {
    return IMG_ERR_ARG;
  }
  return abiGuard(IMG_ERR_IO, [&] {
    const Node &node = file->node;
    if (offset > node.infoLength || length > node.infoLength - offset) {
      return IMG_ERR_FORMAT;
    }
    out.assign(length, '\0');
    if (node.embedded) {
      if (offset + length > node.embeddedData.size()) {
        return IMG_ERR_FORMAT;
      }
      out = node.embeddedData.substr(offset, length);
      return IMG_OK;
    }
    const Volume &volume = *file->image->volume;
    uint32_t blockSize = volume.blockSize();
    uint64_t extentStart = 0;
    size_t done = 0;
    for (const disc::Extent &e : node.extents) {
      uint64_t want = offset + done;
      if (done == length) {
        break;
      }
      if (want >= extentStart + e.length) {
        extentStart += e.length;
        continue;
      }
      uint64_t inExtent = want - extentStart;
      uint64_t bytes = std::min<uint64_t>(e.length - inExtent, length - done);
      if (e.recorded) {
        // Read from the block holding the first byte, then drop the lead.
        uint64_t lead = inExtent % blockSize;
        uint64_t block = e.where.block + inExtent / blockSize;
        if (block > UINT32_MAX) {
          return IMG_ERR_FORMAT;
        }
        std::string buffer(lead + bytes, '\0');
        disc::LbAddr at{static_cast<uint32_t>(block), e.where.partition};
        if (!volume.read(at, buffer.size(),
                         reinterpret_cast<uint8_t *>(buffer.data()))) {
          return IMG_ERR_FORMAT;
        }
        out.replace(done, bytes, buffer, lead, bytes);
      }
      done += bytes;
      extentStart += e.length;
    }
    return done == length ? IMG_OK : IMG_ERR_FORMAT;
  });
}

bool overBudget(const UdfImage *image) {
  return image != nullptr && image->overBudget;
}

uint64_t bytesRead(const UdfImage *image) {
  return image != nullptr ? image->volume->bytesRead() : 0;
}

}  // namespace gp::udf
