// UdfImage: a reader for UDF images.
#pragma once

#include <cstddef>

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

File *openFile(UdfImage *image, Dir *dir, const char *name);
// The whole file as a malloc'ed buffer followed by a NUL byte.
Bool readFile(File *file, char **contents, size_t *length);
void closeFile(File *file);

}  // namespace gp::udf
