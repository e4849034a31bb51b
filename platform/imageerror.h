// The results of the image readers (ISO 9660, UDF) and of the FAT image
// service: one set of values, so that a caller handles every file system
// the same way.
#pragma once

namespace gp::img {

enum Error : int {
  IMG_OK = 0,
  IMG_ERR_IO = 1,            // the image file could not be read or written
  IMG_ERR_FORMAT = 2,        // not the expected file system, or malformed
  IMG_ERR_NOT_FOUND = 3,     // no such name or path, or no such image file
  IMG_ERR_NOT_DIR = 4,       // a directory was wanted
  IMG_END = 5,               // end of a directory listing or of a file
  IMG_ERR_IS_DIR = 6,        // a file was wanted
  IMG_ERR_ARG = 7,           // null, wrong kind of handle, bad argument
  IMG_ERR_HOST = 8,          // writing to the host failed
  IMG_ERR_DISK_FULL = 9,     // no free cluster left
  IMG_ERR_DIR_FULL = 10,     // no free slot left in the (root) directory
  IMG_ERR_EXISTS = 11,       // create: the name is taken
  IMG_ERR_BAD_NAME = 12,     // not a valid file name
  IMG_ERR_READ_ONLY = 13,    // the volume was opened for reading only
  IMG_ERR_UNSUPPORTED = 14,  // another file system, or a volume too large
  IMG_ERR_TOO_LARGE = 15,    // the file would pass the format's limit
  IMG_ERR_BUDGET = 16,       // the image made the reader do too much work
};

// Short English text for a value ("disk full").
const char *errorText(Error err);

}  // namespace gp::img
