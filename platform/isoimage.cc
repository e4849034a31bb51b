// Placeholder until the reader lands.
#include "platform/isoimage.h"

namespace gp::iso {
uint32_t listFormats(const char *) { return 0; }
int open(const char *, uint32_t, uint32_t, IsoImage **image) {
  *image = nullptr;
  return ISO_ERR_FORMAT;
}
void close(IsoImage *) {}
uint32_t activeFormat(const IsoImage *) { return 0; }
int openDir(IsoImage *, const char *, Dir **) { return ISO_ERR_ARG; }
int readDir(IsoImage *, Dir *, Entry *) { return ISO_ERR_ARG; }
int rewindDir(IsoImage *, Dir *) { return ISO_ERR_ARG; }
int closeDir(IsoImage *, Dir *) { return ISO_ERR_ARG; }
int openFile(IsoImage *, const Entry *, File **) { return ISO_ERR_ARG; }
int readFile(IsoImage *, File *, void *, size_t *) { return ISO_ERR_ARG; }
void closeFile(IsoImage *, File *) {}
int volumeId(IsoImage *, char **) { return ISO_ERR_ARG; }
int extractFile(IsoImage *, const char *, const char *) { return ISO_ERR_ARG; }
int extractDir(IsoImage *, const char *, const char *) { return ISO_ERR_ARG; }
uint64_t bytesRead(const IsoImage *) { return 0; }
}  // namespace gp::iso
