// IsoImage: a reader for ISO 9660 images with the Joliet and Rock Ridge
// extensions.
//
// The reader opens the image file and reads sectors on demand with pread;
// it never loads the whole image. Every structure read from the image is
// untrusted: extents are checked against the image size, directory walks
// are bounded in depth and entry count, and malformed records end a
// listing with an error instead of being followed.
//
// Every operation returns one of the shared image results (imageerror.h):
// ISO_OK success, ISO_END end of a directory or file, anything else an
// error.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/imageerror.h"

extern "C" {
struct IsoImage;
}

namespace gp::iso {

// The shared image results, under the names this reader has always used.
using Result = img::Error;
inline constexpr Result ISO_OK = img::IMG_OK, ISO_ERR_IO = img::IMG_ERR_IO,
                        ISO_ERR_FORMAT = img::IMG_ERR_FORMAT,
                        ISO_ERR_NOT_FOUND = img::IMG_ERR_NOT_FOUND,
                        ISO_ERR_NOT_DIR = img::IMG_ERR_NOT_DIR,
                        ISO_END = img::IMG_END,
                        ISO_ERR_IS_DIR = img::IMG_ERR_IS_DIR,
                        ISO_ERR_ARG = img::IMG_ERR_ARG,
                        ISO_ERR_HOST = img::IMG_ERR_HOST,
                        ISO_ERR_BUDGET = img::IMG_ERR_BUDGET;

// Name formats, a bit mask.
enum Format : uint32_t {
  FORMAT_ISO9660 = 1,  // primary names (";1" and a trailing "." removed)
  FORMAT_JOLIET = 2,
  FORMAT_ROCKRIDGE = 4,
};

// One directory entry. `name` comes first and is NUL-terminated UTF-8.
struct Entry {
  char name[256];
  uint32_t extent;  // first logical block of the data
  uint64_t size;    // bytes (sum of all extents of a multi-extent file)
  bool isDirectory;
};

struct Dir;
struct File;

// The formats present in the image at `path`; 0 when it is not ISO 9660.
uint32_t listFormats(const char *path);

// Opens the image with the richest requested format present (Rock Ridge,
// then Joliet), falling back to primary names. flags must be 0.
Result open(const char *path, uint32_t formats, uint32_t flags,
            IsoImage **image);
void close(IsoImage *image);

// The format actually in use.
uint32_t activeFormat(const IsoImage *image);

// Directories: `path` is taken from the root, "/" separated; "" and "/" are
// the root. Names are matched exactly as the active format shows them.
Result openDir(IsoImage *image, const char *path, Dir **dir);
Result readDir(IsoImage *image, Dir *dir, Entry *entry);  // ISO_OK or ISO_END
Result rewindDir(IsoImage *image, Dir *dir);
Result closeDir(IsoImage *image, Dir *dir);

// Files, opened from an entry that readDir returned.
Result openFile(IsoImage *image, const Entry *entry, File **file);
// `*length` holds the buffer's room on entry and the bytes delivered on
// return; ISO_END (with *length 0) at end of file. At most one sector is
// delivered per call.
Result readFile(IsoImage *image, File *file, void *buffer, size_t *length);
void closeFile(IsoImage *image, File *file);

// The primary volume identifier without trailing blanks, malloc'ed.
Result volumeId(IsoImage *image, char **id);

// Copies one file of the image to a host path (created or truncated).
Result extractFile(IsoImage *image, const char *isoPath, const char *hostPath);

// Copies the regular files of one image directory (not its
// subdirectories) into an existing host directory.
Result extractDir(IsoImage *image, const char *isoPath, const char *hostDir);

// The first entry of the directory `path` whose name equals `name` without
// regard to ASCII case; ISO_ERR_NOT_FOUND when there is none. Repeated
// lookups in one directory cost little: its listing is kept.
Result findEntryCaseless(IsoImage *image, const char *path, const char *name,
                         Entry *entry);

// Whether the image has used up the work one open may do; from then on
// its reads fail with ISO_ERR_BUDGET.
bool overBudget(const IsoImage *image);

// Bytes read from the image file since it was opened (benchmarks).
uint64_t bytesRead(const IsoImage *image);

}  // namespace gp::iso
