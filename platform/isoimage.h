// IsoImage: a reader for ISO 9660 images with the Joliet and Rock Ridge
// extensions.
//
// The reader opens the image file and reads sectors on demand with pread;
// it never loads the whole image. Every structure read from the image is
// untrusted: extents are checked against the image size, directory walks
// are bounded in depth and entry count, and malformed records end a
// listing with an error instead of being followed.
//
// Result codes: ISO_OK (0) success, ISO_END (5) end of a directory or
// file, any other value an error.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
struct IsoImage;
}

namespace gp::iso {

enum Result : int {
  ISO_OK = 0,
  ISO_ERR_IO = 1,        // the image file could not be read
  ISO_ERR_FORMAT = 2,    // not ISO 9660, or a malformed structure
  ISO_ERR_NOT_FOUND = 3, // no such path
  ISO_ERR_NOT_DIR = 4,   // a directory was wanted
  ISO_END = 5,           // end of a directory listing or of a file
  ISO_ERR_IS_DIR = 6,    // a file was wanted
  ISO_ERR_ARG = 7,       // a null or invalid argument
  ISO_ERR_HOST = 8,      // writing to the host failed
};

// Name formats, a bit mask.
enum Format : uint32_t {
  FORMAT_ISO9660 = 1,   // primary names (";1" and a trailing "." removed)
  FORMAT_JOLIET = 2,
  FORMAT_ROCKRIDGE = 4,
};

// One directory entry. `name` comes first and is NUL-terminated UTF-8.
struct Entry {
  char name[256];
  uint32_t extent;    // first logical block of the data
  uint64_t size;      // bytes (sum of all extents of a multi-extent file)
  bool isDirectory;
};

struct Dir;
struct File;

// The formats present in the image at `path`; 0 when it is not ISO 9660.
uint32_t listFormats(const char *path);

// Opens the image with the richest requested format present (Rock Ridge,
// then Joliet), falling back to primary names. flags must be 0.
int open(const char *path, uint32_t formats, uint32_t flags,
         IsoImage **image);
void close(IsoImage *image);

// The format actually in use.
uint32_t activeFormat(const IsoImage *image);

// Directories: `path` is taken from the root, "/" separated; "" and "/" are
// the root. Names are matched exactly as the active format shows them.
int openDir(IsoImage *image, const char *path, Dir **dir);
int readDir(IsoImage *image, Dir *dir, Entry *entry);  // ISO_OK or ISO_END
int rewindDir(IsoImage *image, Dir *dir);
int closeDir(IsoImage *image, Dir *dir);

// Files, opened from an entry that readDir returned.
int openFile(IsoImage *image, const Entry *entry, File **file);
// `*length` holds the buffer's room on entry and the bytes delivered on
// return; ISO_END (with *length 0) at end of file. At most one sector is
// delivered per call.
int readFile(IsoImage *image, File *file, void *buffer, size_t *length);
void closeFile(IsoImage *image, File *file);

// The primary volume identifier without trailing blanks, malloc'ed.
int volumeId(IsoImage *image, char **id);

// Copies one file of the image to a host path (created or truncated).
int extractFile(IsoImage *image, const char *isoPath, const char *hostPath);

// Copies the regular files of one image directory (not its
// subdirectories) into an existing host directory.
int extractDir(IsoImage *image, const char *isoPath, const char *hostDir);

// Bytes read from the image file since it was opened (benchmarks).
uint64_t bytesRead(const IsoImage *image);

}  // namespace gp::iso
