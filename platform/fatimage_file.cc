// Files of the FAT image service: open, create, read and write at an
// offset, growing the cluster chain as the file grows.
#include <algorithm>
#include <cstring>

#include "platform/fatimage.h"
#include "platform/fatimage_internal.h"

namespace gp::fat {
namespace {

bool isFileHandle(FatHandle h) {
  return h != nullptr && h->kind == FatObject::Kind::File && h->file;
}

FatHandle newFileHandle(const std::shared_ptr<Volume> &vol,
                        std::shared_ptr<FileNode> node) {
  auto *h = new FatObject(FatObject::Kind::File, vol);
  h->file = std::move(node);
  return h;
}

// Calls fn(imageOffset, length, bufferOffset) for each piece of the byte
// range [pos, pos + length) of the file, cluster by cluster.
template <typename Fn>
void forEachPiece(Volume &vol, const FileNode &node, uint32_t pos,
                  uint32_t length, Fn fn) {
  const uint32_t cb = vol.geo.clusterBytes();
  uint32_t done = 0;
  while (done < length) {
    uint32_t at = pos + done;
    uint32_t within = at % cb;
    uint32_t n = std::min(length - done, cb - within);
    fn(vol.clusterOffset(node.clusters[at / cb]) + within, n, done);
    done += n;
  }
}

void updateEntry(Volume &vol, const FileNode &node) {
  uint8_t *e = vol.at(node.entryOffset);
  uint32_t first = node.clusters.empty() ? 0 : node.clusters.front();
  e[11] |= kAttrArchive;
  e[20] = e[21] = 0;
  put16(e + 26, first);
  put32(e + 28, node.size);
  uint16_t date, time;
  fatTimestamp(date, time);
  put16(e + 22, time);
  put16(e + 24, date);
  put16(e + 18, date);
  vol.markDirty(node.entryOffset, kDirEntrySize);
}

}  // namespace

Error openFile(FatHandle dir, const char *name, FatHandle *file) {
  if (file == nullptr) {
    return FAT_ERR_ARG;
  }
  *file = nullptr;
  if (dir == nullptr || dir->kind != FatObject::Kind::Dir || name == nullptr) {
    return FAT_ERR_ARG;
  }
  Found found;
  Error err = findEntry(*dir, name, found);
  if (err != FAT_OK) {
    return err;
  }
  if (found.attributes & kAttrDirectory) {
    return FAT_ERR_IS_DIR;
  }
  Volume &vol = *dir->volume;
  if (auto shared = vol.openFiles[found.entryOffset].lock()) {
    *file = newFileHandle(dir->volume, std::move(shared));
    return FAT_OK;
  }
  auto node = std::make_shared<FileNode>();
  node->entryOffset = found.entryOffset;
  const uint8_t *e = vol.at(found.entryOffset);
  node->size = entrySize(e);
  uint32_t first = entryFirstCluster(e);
  if ((err = vol.chain(first, node->clusters)) != FAT_OK) {
    return err;
  }
  // A size that the chain cannot hold would read past the file's data.
  if (node->size > uint64_t{node->clusters.size()} * vol.geo.clusterBytes()) {
    return FAT_ERR_BAD_IMAGE;
  }
  vol.openFiles[found.entryOffset] = node;
  *file = newFileHandle(dir->volume, std::move(node));
  return FAT_OK;
}

Error createFile(FatHandle dir, const char *name, FatHandle *file) {
  if (file == nullptr) {
    return FAT_ERR_ARG;
  }
  *file = nullptr;
  if (dir == nullptr || dir->kind != FatObject::Kind::Dir || name == nullptr) {
    return FAT_ERR_ARG;
  }
  uint32_t entryOffset = 0;
  Error err = addEntry(*dir, name, kAttrArchive, entryOffset);
  if (err != FAT_OK) {
    return err;
  }
  auto node = std::make_shared<FileNode>();
  node->entryOffset = entryOffset;
  dir->volume->openFiles[entryOffset] = node;
  *file = newFileHandle(dir->volume, std::move(node));
  return FAT_OK;
}

Error fileSize(FatHandle file, uint64_t *size) {
  if (size != nullptr) {
    *size = 0;
  }
  if (!isFileHandle(file) || size == nullptr) {
    return FAT_ERR_ARG;
  }
  *size = file->file->size;
  return FAT_OK;
}

Error readFile(FatHandle file, uint32_t offset, void *buffer, uint32_t length,
               uint32_t *done) {
  if (done != nullptr) {
    *done = 0;
  }
  if (!isFileHandle(file) || done == nullptr ||
      (buffer == nullptr && length > 0)) {
    return FAT_ERR_ARG;
  }
  const FileNode &node = *file->file;
  if (offset >= node.size) {
    return FAT_OK;
  }
  uint32_t n = std::min(length, node.size - offset);
  Volume &vol = *file->volume;
  auto *out = static_cast<uint8_t *>(buffer);
  forEachPiece(vol, node, offset, n,
               [&](uint32_t at, uint32_t len, uint32_t pos) {
                 std::memcpy(out + pos, vol.at(at), len);
               });
  *done = n;
  return FAT_OK;
}

Error writeFile(FatHandle file, uint32_t offset, const void *buffer,
                uint32_t length, uint32_t *done) {
  if (done != nullptr) {
    *done = 0;
  }
  if (!isFileHandle(file) || done == nullptr ||
      (buffer == nullptr && length > 0)) {
    return FAT_ERR_ARG;
  }
  Volume &vol = *file->volume;
  if (!vol.writable) {
    return FAT_ERR_READ_ONLY;
  }
  if (length == 0) {
    return FAT_OK;
  }
  uint64_t end = uint64_t{offset} + length;
  if (end > UINT32_MAX) {
    return FAT_ERR_TOO_LARGE;
  }
  FileNode &node = *file->file;
  const uint32_t cb = vol.geo.clusterBytes();
  uint64_t needed = (end + cb - 1) / cb;
  if (needed > node.clusters.size()) {
    Error err = vol.grow(node.clusters,
                         static_cast<uint32_t>(needed - node.clusters.size()));
    if (err != FAT_OK) {
      return err;
    }
  }
  // A gap before the write reads as zeros, whatever the slack held.
  if (offset > node.size) {
    forEachPiece(vol, node, node.size, offset - node.size,
                 [&](uint32_t at, uint32_t len, uint32_t) {
                   std::memset(vol.at(at), 0, len);
                   vol.markDirty(at, len);
                 });
  }
  const auto *in = static_cast<const uint8_t *>(buffer);
  forEachPiece(vol, node, offset, length,
               [&](uint32_t at, uint32_t len, uint32_t pos) {
                 std::memcpy(vol.at(at), in + pos, len);
                 vol.markDirty(at, len);
               });
  node.size = std::max(node.size, static_cast<uint32_t>(end));
  updateEntry(vol, node);
  *done = length;
  return FAT_OK;
}

}  // namespace gp::fat
