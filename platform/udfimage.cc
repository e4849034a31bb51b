// Directories and files of a UDF image, on top of the volume layer.
#include "platform/udfimage.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "platform/abi.h"
#include "platform/fatal.h"
#include "platform/strutil.h"
#include "platform/udf_volume.h"

struct UdfImage {
  std::unique_ptr<gp::udf::Volume> volume;
};

namespace gp::udf {

namespace {

constexpr size_t kMaxEntries = 100000;
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

// Lists a directory node. A malformed identifier ends the listing with
// what came before it.
bool listDirectory(const Volume &volume, const Node &node,
                   std::vector<Entry> &entries) {
  if (!node.isDirectory()) {
    return false;
  }
  std::string stream;
  if (!volume.readData(node, kMaxDirBytes, stream)) {
    return false;
  }
  disc::Bytes bytes(stream);
  size_t at = 0;
  disc::FileIdent ident;
  while (at < bytes.size() && entries.size() < kMaxEntries &&
         disc::decodeFileIdent(bytes, at, ident)) {
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
  return true;
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

std::unique_ptr<Dir> openDirAt(UdfImage *image, disc::LbAddr icb) {
  Node node;
  auto dir = std::make_unique<Dir>();
  dir->image = image;
  dir->self = icb;
  if (!image->volume->loadNode(icb, node) ||
      !listDirectory(*image->volume, node, dir->entries)) {
    return nullptr;
  }
  return dir;
}

Dir *openDirPath(UdfImage *image, Dir *start, const char *path) {
  std::unique_ptr<Dir> dir =
      openDirAt(image, start != nullptr ? start->self : image->volume->root());
  str::Tokenizer parts(path, "/");
  std::string_view part;
  size_t depth = 0;
  while (dir != nullptr && parts.next(part)) {
    if (++depth > kMaxPathComponents) {
      return nullptr;
    }
    const Entry *e = findEntry(dir->entries, part);
    if (e == nullptr || !e->isDirectory) {
      return nullptr;
    }
    dir = openDirAt(image, e->icb);
  }
  return dir.release();
}

}  // namespace

UdfImage *open(const char *path) {
  if (path == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<UdfImage *>(nullptr), [&]() -> UdfImage * {
    std::unique_ptr<Volume> volume = Volume::open(path);
    if (volume == nullptr) {
      return nullptr;
    }
    // The root must list, or the volume is of no use.
    std::unique_ptr<UdfImage> image(new UdfImage{std::move(volume)});
    if (openDirAt(image.get(), image->volume->root()) == nullptr) {
      return nullptr;
    }
    return image.release();
  });
}

void close(UdfImage *image) { delete image; }

Dir *openDir(UdfImage *image, Dir *start, const char *path) {
  if (image == nullptr || path == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<Dir *>(nullptr),
                  [&] { return openDirPath(image, start, path); });
}

const char *readDir(Dir *dir) {
  if (dir == nullptr || dir->next >= dir->entries.size()) {
    return nullptr;
  }
  return dir->entries[dir->next++].name.c_str();
}

void rewindDir(Dir *dir) {
  if (dir != nullptr) {
    dir->next = 0;
  }
}

Bool closeDir(Dir *dir) {
  if (dir == nullptr) {
    return FALSE;
  }
  delete dir;
  return TRUE;
}

File *openFile(UdfImage *image, Dir *dir, const char *name) {
  if (image == nullptr || dir == nullptr || name == nullptr) {
    return nullptr;
  }
  return abiGuard(static_cast<File *>(nullptr), [&]() -> File * {
    const Entry *e = findEntry(dir->entries, name);
    if (e == nullptr || e->isDirectory) {
      return nullptr;
    }
    auto file = std::make_unique<File>();
    file->image = image;
    if (!image->volume->loadNode(e->icb, file->node) ||
        file->node.isDirectory()) {
      return nullptr;
    }
    return file.release();
  });
}

Bool readFile(File *file, char **contents, size_t *length) {
  if (file == nullptr || contents == nullptr) {
    return FALSE;
  }
  return abiGuard(Bool(FALSE), [&]() -> Bool {
    std::string data;
    if (!file->image->volume->readData(file->node, kMaxFileBytes, data)) {
      return FALSE;
    }
    auto *buffer = static_cast<char *>(checkedMalloc(data.size() + 1));
    std::memcpy(buffer, data.data(), data.size());
    buffer[data.size()] = '\0';
    *contents = buffer;
    if (length != nullptr) {
      *length = data.size();
    }
    return TRUE;
  });
}

void closeFile(File *file) { delete file; }

uint64_t bytesRead(const UdfImage *image) {
  return image != nullptr ? image->volume->bytesRead() : 0;
}

}  // namespace gp::udf
