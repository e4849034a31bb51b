#include "platform/imageerror.h"

namespace gp::img {

const char *errorText(Error err) {
  static const char *const kTexts[] = {
      "success",
      "I/O error",
      "bad image",
      "not found",
      "not a directory",
      "end of data",
      "is a directory",
      "invalid argument",
      "cannot write to the host",
      "disk full",
      "directory full",
      "name exists",
      "invalid name",
      "read-only volume",
      "unsupported file system",
      "file too large",
      "image too costly to read",
  };
  auto index = static_cast<unsigned>(err);
  return index < sizeof kTexts / sizeof kTexts[0] ? kTexts[index]
                                                  : "unknown error";
}

}  // namespace gp::img
