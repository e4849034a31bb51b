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
// record ends its listing. Failures are reported as null or FALSE.
#pragma once

#include <cstddef>
#include <cstdint>

#include "guestprep/types.h"

extern "C" {
struct UdfImage;
}

namespace gp::udf {

struct Dir;
struct File;

// Null when the file is not a readable UDF image.
UdfImage *open(const char *path);
void close(UdfImage *image);

// `start` null means the root. Null when the path is not a directory.
Dir *openDir(UdfImage *image, Dir *start, const char *path);
// The next entry name (valid until the next call on `dir`), null at the end.
const char *readDir(Dir *dir);
void rewindDir(Dir *dir);
Bool closeDir(Dir *dir);

// Null when `name` is not an entry of `dir`, or is a directory.
File *openFile(UdfImage *image, Dir *dir, const char *name);
// The whole file as a malloc'ed buffer followed by a NUL byte.
Bool readFile(File *file, char **contents, size_t *length);
void closeFile(File *file);

// Bytes read from the image file since it was opened (benchmarks).
uint64_t bytesRead(const UdfImage *image);

}  // namespace gp::udf
