// The IsoImage operations: image, directory and file handles, and copying
// files out of the image.
#include "platform/isoimage.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/fatal.h"
#include "platform/isoimage_internal.h"
#include "platform/strutil.h"

namespace gp::iso {
namespace {

using rec::kSectorSize;

// Extraction copies kernels and RAM disks of tens of megabytes; larger
// chunks halve its time against 64 KiB ones.
constexpr size_t kExtractChunk = 1u << 20;

uint64_t caselessHash(std::string_view name) {
  uint64_t hash = 14695981039346656037u;  // FNV-1a
  for (char c : name) {
    hash = (hash ^ static_cast<uint8_t>(str::toLower(c))) * 1099511628211u;
  }
  return hash;
}

// The bucket of `name`: the one holding its entries, or the empty one
// where they would go.
std::pair<size_t, size_t> &bucketOf(Listing &listing, std::string_view name) {
  size_t mask = listing.buckets.size() - 1;
  for (size_t b = caselessHash(name) & mask;; b = (b + 1) & mask) {
    auto &bucket = listing.buckets[b];
    if (bucket.first == kNoItem ||
        str::equalsCaseless(listing.items[bucket.first].name, name)) {
      return bucket;
    }
  }
}

void buildIndex(Listing &listing) {
  size_t size = 1;
  while (size < 2 * listing.items.size()) {
    size *= 2;
  }
  listing.buckets.assign(size, {kNoItem, kNoItem});
  listing.sameName.assign(listing.items.size(), kNoItem);
  for (size_t i = 0; i < listing.items.size(); ++i) {
    auto &bucket = bucketOf(listing, listing.items[i].name);
    if (bucket.first == kNoItem) {
      bucket.first = i;
    } else {
      listing.sameName[bucket.second] = i;
    }
    bucket.second = i;
  }
}

// The first item of a listing named `name`, exactly or without regard to
// ASCII case; long listings get an index on first use, so that lookups in
// a huge directory stay cheap.
const Item *findInListing(Listing &listing, std::string_view name,
                          bool caseless) {
  constexpr size_t kIndexFrom = 64;
  auto matches = [&](const Item &item) {
    return caseless ? str::equalsCaseless(item.name, name) : item.name == name;
  };
  if (listing.items.size() < kIndexFrom) {
    for (const Item &item : listing.items) {
      if (matches(item)) {
        return &item;
      }
    }
    return nullptr;
  }
  if (listing.buckets.empty()) {
    buildIndex(listing);
  }
  for (size_t i = bucketOf(listing, name).first; i != kNoItem;
       i = listing.sameName[i]) {
    if (matches(listing.items[i])) {
      return &listing.items[i];
    }
  }
  return nullptr;
}

// The item named `name` in the directory that `dir` walks; not found is
// how the listing ended when that was an error.
Result findIn(IsoImage &image, Dir &dir, std::string_view name, bool caseless,
              const Item *&item) {
  Listing &listing = listingOf(image, dir);
  item = findInListing(listing, name, caseless);
  if (item != nullptr) {
    return ISO_OK;
  }
  return listing.end == ISO_END ? ISO_ERR_NOT_FOUND : listing.end;
}

// Walks `path` from the root; each component must name a directory.
Result walkPath(IsoImage &image, std::string_view path, Dir &dir) {
  if (path.size() > kMaxPathLength) {
    return ISO_ERR_NOT_FOUND;
  }
  Result rc = startDir(image, image.root.extent, image.root.size, dir);
  size_t components = 0;
  while (rc == ISO_OK) {
    size_t start = path.find_first_not_of('/');
    if (start == std::string_view::npos) {
      return ISO_OK;
    }
    path.remove_prefix(start);
    std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    if (++components > kMaxPathComponents) {
      return ISO_ERR_NOT_FOUND;
    }
    const Item *item = nullptr;
    rc = findIn(image, dir, component, false, item);
    if (rc == ISO_OK) {
      if (!item->isDirectory) {
        return ISO_ERR_NOT_DIR;
      }
      if (item->size > kMaxDirectoryBytes) {
        return ISO_ERR_FORMAT;
      }
      rc =
          startDir(image, item->extent, static_cast<uint32_t>(item->size), dir);
    }
  }
  return rc;
}

// Finds the entry `isoPath` names (its last component in its directory).
Result findItem(IsoImage &image, std::string_view isoPath, Item &found) {
  size_t slash = isoPath.rfind('/');
  std::string_view dirPath = slash == std::string_view::npos
                                 ? std::string_view()
                                 : isoPath.substr(0, slash);
  std::string_view name =
      slash == std::string_view::npos ? isoPath : isoPath.substr(slash + 1);
  if (name.empty()) {
    return ISO_ERR_NOT_FOUND;
  }
  Dir dir;
  const Item *item = nullptr;
  Result rc = walkPath(image, dirPath, dir);
  if (rc == ISO_OK) {
    rc = findIn(image, dir, name, false, item);
  }
  if (rc == ISO_OK) {
    found = *item;
  }
  return rc;
}

// The public entry for an item; a multi-extent file's extents are kept
// so that openFile can follow it.
void fillEntry(IsoImage &image, const Item &item, Entry &entry) {
  if (item.extents.size() > 1 &&
      image.multiExtent.size() < kMaxMultiExtentFiles) {
    image.multiExtent[item.extent] = item.extents;
  }
  std::memset(&entry, 0, sizeof entry);
  std::memcpy(entry.name, item.name.data(), item.name.size());
  entry.extent = item.extent;
  entry.size = item.size;
  entry.isDirectory = item.isDirectory;
}

Result openExtents(const IsoImage &image, std::vector<Extent> extents,
                   std::unique_ptr<File> &file) {
  for (const Extent &e : extents) {
    if (e.size != 0 && !inImage(image, e.block, e.size)) {
      return ISO_ERR_FORMAT;
    }
  }
  file = std::make_unique<File>();
  file->extents = std::move(extents);
  return ISO_OK;
}

// Delivers up to `room` bytes, never crossing a sector boundary.
Result readChunk(IsoImage &image, File &file, void *buffer, size_t &length) {
  size_t room = length;
  length = 0;
  while (file.index < file.extents.size() &&
         file.offset >= file.extents[file.index].size) {
    ++file.index;
    file.offset = 0;
  }
  if (file.index == file.extents.size()) {
    return ISO_END;
  }
  const Extent &e = file.extents[file.index];
  uint64_t toSectorEnd = kSectorSize - file.offset % kSectorSize;
  uint64_t chunk =
      std::min<uint64_t>({room, e.size - file.offset, toSectorEnd});
  if (room > kSectorSize) {
    // Bulk copies may take whole sectors at once.
    chunk = std::min<uint64_t>(room, e.size - file.offset);
  }
  uint64_t offset = uint64_t{e.block} * kSectorSize + file.offset;
  if (!readBytes(image, offset, buffer, static_cast<size_t>(chunk))) {
    return ISO_ERR_IO;
  }
  file.offset += chunk;
  length = static_cast<size_t>(chunk);
  return ISO_OK;
}

// Copies an item to a host path through a temporary file beside it, so an
// existing file is replaced only by a complete copy.
Result copyToHost(IsoImage &image, const Item &item,
                  const std::string &hostPath) {
  std::unique_ptr<File> file;
  Result rc = openExtents(image, item.extents, file);
  if (rc != ISO_OK) {
    return rc;
  }
  std::string temp = hostPath + ".XXXXXX";
  UniqueFd out(hostOps().mkstemp(temp.data()));
  if (!out.valid()) {
    return ISO_ERR_HOST;
  }
  std::vector<uint8_t> buffer(kExtractChunk);
  for (;;) {
    size_t length = buffer.size();
    rc = readChunk(image, *file, buffer.data(), length);
    if (rc != ISO_OK) {
      break;
    }
    if (!writeFull(out.get(), buffer.data(), length)) {
      rc = ISO_ERR_HOST;
      break;
    }
  }
  if (rc == ISO_END) {
    rc = ISO_OK;
    if (hostOps().fchmod(out.get(), 0644) != 0 || out.reset() != 0 ||
        hostOps().rename(temp.c_str(), hostPath.c_str()) != 0) {
      rc = ISO_ERR_HOST;
    }
  }
  if (rc != ISO_OK) {
    out.reset();
    hostOps().unlink(temp.c_str());
  }
  return rc;
}

Result openImage(const char *path, uint32_t formats, uint32_t flags,
                 IsoImage **image) {
  if (image == nullptr) {
    return ISO_ERR_ARG;
  }
  *image = nullptr;
  if (path == nullptr || flags != 0) {
    return ISO_ERR_ARG;
  }
  auto handle = std::make_unique<IsoImage>();
  uint32_t present = 0;
  rec::Record jolietRoot;
  Result rc = probe(path, *handle, present, jolietRoot);
  if (rc != ISO_OK) {
    return rc;
  }
  uint32_t usable = present & formats;
  if ((usable & FORMAT_ROCKRIDGE) != 0) {
    handle->format = FORMAT_ROCKRIDGE;
  } else if ((usable & FORMAT_JOLIET) != 0) {
    handle->format = FORMAT_JOLIET;
    handle->root = jolietRoot;
  } else {
    handle->format = FORMAT_ISO9660;
  }
  *image = handle.release();
  return ISO_OK;
}

}  // namespace

uint32_t listFormats(const char *path) {
  if (path == nullptr) {
    return 0;
  }
  auto image = std::make_unique<IsoImage>();  // its sector cache is large
  uint32_t formats = 0;
  rec::Record jolietRoot;
  probe(path, *image, formats, jolietRoot);
  return formats;
}

Result open(const char *path, uint32_t formats, uint32_t flags,
            IsoImage **image) {
  return openImage(path, formats, flags, image);
}

void close(IsoImage *image) { delete image; }

uint32_t activeFormat(const IsoImage *image) {
  return image == nullptr ? 0 : image->format;
}

Result openDir(IsoImage *image, const char *path, Dir **dir) {
  if (dir != nullptr) {
    *dir = nullptr;
  }
  if (image == nullptr || path == nullptr || dir == nullptr) {
    return ISO_ERR_ARG;
  }
  auto handle = std::make_unique<Dir>();
  Result rc = walkPath(*image, path, *handle);
  if (rc == ISO_OK) {
    *dir = handle.release();
  }
  return rc;
}

Result readDir(IsoImage *image, Dir *dir, Entry *entry) {
  if (image == nullptr || dir == nullptr || entry == nullptr) {
    return ISO_ERR_ARG;
  }
  const Item *item = nullptr;
  Result rc = nextItem(*image, *dir, item);
  if (rc == ISO_OK) {
    fillEntry(*image, *item, *entry);
  }
  return rc;
}

Result rewindDir(IsoImage *image, Dir *dir) {
  if (image == nullptr || dir == nullptr) {
    return ISO_ERR_ARG;
  }
  dir->next = 0;
  return ISO_OK;
}

Result closeDir(IsoImage *image, Dir *dir) {
  if (image == nullptr || dir == nullptr) {
    return ISO_ERR_ARG;
  }
  delete dir;
  return ISO_OK;
}

Result openFile(IsoImage *image, const Entry *entry, File **file) {
  if (file != nullptr) {
    *file = nullptr;
  }
  if (image == nullptr || entry == nullptr || file == nullptr) {
    return ISO_ERR_ARG;
  }
  if (entry->isDirectory) {
    return ISO_ERR_IS_DIR;
  }
  std::vector<Extent> extents;
  auto known = image->multiExtent.find(entry->extent);
  uint64_t knownSize = 0;
  if (known != image->multiExtent.end()) {
    for (const Extent &e : known->second) {
      knownSize += e.size;
    }
  }
  if (knownSize == entry->size && known != image->multiExtent.end()) {
    extents = known->second;
  } else {
    extents.push_back(Extent{entry->extent, entry->size});
  }
  std::unique_ptr<File> handle;
  Result rc = openExtents(*image, std::move(extents), handle);
  if (rc == ISO_OK) {
    *file = handle.release();
  }
  return rc;
}

Result readFile(IsoImage *image, File *file, void *buffer, size_t *length) {
  if (image == nullptr || file == nullptr || buffer == nullptr ||
      length == nullptr || *length == 0) {
    return ISO_ERR_ARG;
  }
  if (*length > kSectorSize) {
    *length = kSectorSize;
  }
  return readChunk(*image, *file, buffer, *length);
}

void closeFile(IsoImage *, File *file) { delete file; }

Result volumeId(IsoImage *image, char **id) {
  if (image == nullptr || id == nullptr) {
    return ISO_ERR_ARG;
  }
  *id = heapCopy(image->volumeId);
  return ISO_OK;
}

Result extractFile(IsoImage *image, const char *isoPath, const char *hostPath) {
  if (image == nullptr || isoPath == nullptr || hostPath == nullptr) {
    return ISO_ERR_ARG;
  }
  Item item;
  Result rc = findItem(*image, isoPath, item);
  if (rc != ISO_OK) {
    return rc;
  }
  if (item.isDirectory) {
    return ISO_ERR_IS_DIR;
  }
  return copyToHost(*image, item, hostPath);
}

Result extractDir(IsoImage *image, const char *isoPath, const char *hostDir) {
  if (image == nullptr || isoPath == nullptr || hostDir == nullptr) {
    return ISO_ERR_ARG;
  }
  struct stat st;
  if (hostOps().stat(hostDir, &st) != 0 || !S_ISDIR(st.st_mode)) {
    return ISO_ERR_HOST;
  }
  Dir dir;
  Result rc = walkPath(*image, isoPath, dir);
  while (rc == ISO_OK) {
    const Item *item = nullptr;
    rc = nextItem(*image, dir, item);
    if (rc == ISO_OK && item->isRegular) {
      rc = copyToHost(*image, *item, joinPath(hostDir, item->name));
    }
  }
  return rc == ISO_END ? ISO_OK : rc;
}

Result findEntryCaseless(IsoImage *image, const char *path, const char *name,
                         Entry *entry) {
  if (image == nullptr || path == nullptr || name == nullptr ||
      entry == nullptr) {
    return ISO_ERR_ARG;
  }
  Dir dir;
  const Item *item = nullptr;
  Result rc = walkPath(*image, path, dir);
  if (rc == ISO_OK) {
    rc = findIn(*image, dir, name, true, item);
  }
  if (rc == ISO_OK) {
    fillEntry(*image, *item, *entry);
  }
  return rc;
}

bool overBudget(const IsoImage *image) {
  return image != nullptr && image->overBudget;
}

uint64_t bytesRead(const IsoImage *image) {
  return image == nullptr ? 0 : image->bytesRead;
}

}  // namespace gp::iso
