// UdfImage: a reader for UDF images (revisions 1.02 to 2.60), including
// the UDF side of UDF/ISO 9660 bridge images.
//
// The reader opens the image file and reads blocks on demand through the
// host seam; it never loads the whole image. It follows type 1 (and
// sparable) partition maps, the metadata partition of UDF 2.50 and later
// and the virtual partition of write-once media, file entries and extended file
// entries with short, long, extended or embedded allocation descriptors, and
// converts OSTA compressed Unicode names to UTF-8.
//
// Name matching is caseless for ASCII letters: an entry whose name equals
// the wanted one exactly is preferred, otherwise the first entry that
// differs from it only in ASCII case is taken. Paths are "/" separated and
// taken from the starting directory; "" and "/" name that directory.
//
// Everything read from the image is untrusted. Descriptor tags must carry
// the expected identifier, a correct checksum and, where they declare one,
// a correct CRC; anything else is treated as absent. Extents are checked
// against their partition and the image, allocation descriptor chains and
// indirect entries are bounded and must not revisit a block, directories
// are read up to 4 MiB and files up to 64 MiB. A malformed directory
// record ends its listing.
//
// Every operation returns one of the shared image results (imageerror.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/imageerror.h"

extern "C" {
struct UdfImage;
}

namespace gp::udf {

struct Dir;
struct File;

using img::Error;

// IMG_ERR_FORMAT when the file is not a readable UDF image.
Error open(const char *path, UdfImage **image);
void close(UdfImage *image);

// `start` null means the root. IMG_ERR_NOT_FOUND when a component is
// missing, IMG_ERR_NOT_DIR when one is not a directory.
Error openDir(UdfImage *image, Dir *start, const char *path, Dir **dir);
// The next entry name (valid until the next call on `dir`); IMG_END after
// the last one.
Error readDir(Dir *dir, const char **name);
Error rewindDir(Dir *dir);
Error closeDir(Dir *dir);

// IMG_ERR_NOT_FOUND when `name` is not an entry of `dir`, IMG_ERR_IS_DIR
// when it is a directory.
Error openFile(UdfImage *image, Dir *dir, const char *name, File **file);
// The whole file as a malloc'ed buffer followed by a NUL byte.
Error readFile(File *file, char **contents, size_t *length);
void closeFile(File *file);
// The file's size in bytes.
uint64_t fileSize(const File *file);
// `length` bytes of the file from `offset`, for files too large to read
// whole; IMG_ERR_FORMAT when the range passes the end of the file or
// leaves the image.
Error readFileRange(File *file, uint64_t offset, size_t length,
                    std::string &out);

// Whether listing directories has used up the work one open may do; from
// then on directories fail to open with IMG_ERR_BUDGET.
bool overBudget(const UdfImage *image);

// Bytes read from the image file since it was opened (benchmarks).
uint64_t bytesRead(const UdfImage *image);

}  // namespace gp::udf
