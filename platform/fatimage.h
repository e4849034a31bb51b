// FatImage: FAT12 floppy images, read and written in place.
//
// A volume is loaded into memory when it is opened (a floppy is small) and
// changed there; the changed sectors are written back to the image file in
// a few large writes when a file handle or the volume is closed, so every
// write has reached the image file once the close returns.
//
// Every image is untrusted: the boot sector's geometry is checked before
// anything is derived from it, every cluster chain is walked with a bound
// and checked against the volume, and a directory entry whose size is
// larger than its chain makes the file unreadable instead of being
// followed. Nothing is ever written outside the volume's own sectors.
//
// Handles are opaque pointers (NULL is none). A volume stays alive until
// its last directory and file handle are closed, so closing in any order is
// safe; every handle must be closed exactly once.
//
// Names are UTF-8. A name that fits 8.3 is stored as one short entry, its
// lower-case look kept with the case bits of the entry ("preseed.cfg"); any
// other name gets long-name entries and a generated short alias. Names are
// matched without regard to ASCII case, against the long and short names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/imageerror.h"

extern "C" {
struct FatObject;
typedef struct FatObject *FatHandle;
}

namespace gp::fat {

// The shared image results, under the names this service has always used.
using Error = img::Error;
inline constexpr Error FAT_OK = img::IMG_OK, FAT_ERR_ARG = img::IMG_ERR_ARG,
                       FAT_ERR_NOT_FOUND = img::IMG_ERR_NOT_FOUND,
                       FAT_ERR_DISK_FULL = img::IMG_ERR_DISK_FULL,
                       FAT_ERR_DIR_FULL = img::IMG_ERR_DIR_FULL,
                       FAT_ERR_BAD_IMAGE = img::IMG_ERR_FORMAT,
                       FAT_ERR_IO = img::IMG_ERR_IO,
                       FAT_ERR_EXISTS = img::IMG_ERR_EXISTS,
                       FAT_ERR_BAD_NAME = img::IMG_ERR_BAD_NAME,
                       FAT_ERR_READ_ONLY = img::IMG_ERR_READ_ONLY,
                       FAT_ERR_IS_DIR = img::IMG_ERR_IS_DIR,
                       FAT_ERR_NOT_DIR = img::IMG_ERR_NOT_DIR,
                       FAT_ERR_UNSUPPORTED = img::IMG_ERR_UNSUPPORTED,
                       FAT_ERR_TOO_LARGE = img::IMG_ERR_TOO_LARGE;
using img::errorText;

// The file-system kind that skipVolumeBoot() accepts.
constexpr int FAT_FILE_SYSTEM = 1;

// Creates (or replaces) the image file at `path` with a new, empty
// 1.44 MB volume: 2880 sectors of 512 bytes, two FAT copies and a
// 224-entry root directory. `writable` keeps the new volume open for
// writing (else read only).
Error formatVolume(const char *path, int writable, FatHandle *volume);

// Opens an existing image; `writable` is 1 to allow changes, 0 for
// reading only.
Error openVolume(const char *path, int writable, FatHandle *volume);

// Moves past the volume's boot area to its file system, which must be of
// `kind` FAT_FILE_SYSTEM.
Error skipVolumeBoot(FatHandle volume, int kind);

Error openRootDirectory(FatHandle volume, FatHandle *dir);

// Opens the subdirectory `name` of `dir`.
Error openDirectory(FatHandle dir, const char *name, FatHandle *subdir);

// The number of entry slots of the directory (224 for a new root), or -1
// for a bad handle or a directory whose chain is broken. Each slot is
// asked for with catalogEntry(); not every slot holds a visible entry.
int64_t entryCount(FatHandle dir);

// The entry at slot `index`. `*present` is set to 1 for a visible file or
// directory and to 0 for a free slot, a long-name piece, the volume label
// and the "." and ".." entries. `*name` (malloc'ed, long name if there is
// one) is set only for a present entry, NULL otherwise. Any output may be
// NULL when not wanted.
Error catalogEntry(FatHandle dir, int64_t index, uint8_t *present, char **name,
                   uint8_t *isDirectory, uint64_t *size, uint8_t *attributes);

// Opens an existing file of `dir`; FAT_ERR_NOT_FOUND when there is none.
Error openFile(FatHandle dir, const char *name, FatHandle *file);

// Creates an empty file in `dir`; FAT_ERR_EXISTS when the name is taken.
Error createFile(FatHandle dir, const char *name, FatHandle *file);

Error fileSize(FatHandle file, uint64_t *size);

// Reads up to `length` bytes at `offset`; `*done` 0 means end of file.
Error readFile(FatHandle file, uint32_t offset, void *buffer, uint32_t length,
               uint32_t *done);

// Writes `length` bytes at `offset`, growing the file (a gap before
// `offset` reads as zeros). All or nothing: on failure nothing changed.
Error writeFile(FatHandle file, uint32_t offset, const void *buffer,
                uint32_t length, uint32_t *done);

// Writes back what changed and releases the handle. The result tells
// whether the write-back reached the image file; the handle is released
// either way.
Error close(FatHandle handle);

// Free bytes of the volume of any handle (0 for a bad handle).
uint64_t freeBytes(FatHandle handle);

// Owner of a handle: closes it on every path. closeNow() closes early and
// returns the close result, where a failed write-back of the volume shows.
class UniqueHandle {
 public:
  UniqueHandle() = default;
  ~UniqueHandle() { closeNow(); }
  UniqueHandle(const UniqueHandle &) = delete;
  UniqueHandle &operator=(const UniqueHandle &) = delete;
  FatHandle *out() { return &handle_; }
  FatHandle get() const { return handle_; }
  Error closeNow() {
    Error err = FAT_OK;
    if (handle_ != nullptr) {
      err = close(handle_);
      handle_ = nullptr;
    }
    return err;
  }

 private:
  FatHandle handle_ = nullptr;
};

}  // namespace gp::fat
