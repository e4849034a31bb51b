// Placeholder until the UDF reader lands: no image opens as UDF, so every
// medium is read as ISO 9660.
#include "platform/udfimage.h"

namespace gp::udf {

UdfImage *open(const char *) { return nullptr; }
void close(UdfImage *) {}
Dir *openDir(UdfImage *, Dir *, const char *) { return nullptr; }
const char *readDir(Dir *) { return nullptr; }
void rewindDir(Dir *) {}
Bool closeDir(Dir *) { return FALSE; }
File *openFile(UdfImage *, Dir *, const char *) { return nullptr; }
Bool readFile(File *, char **, size_t *) { return FALSE; }
void closeFile(File *) {}

}  // namespace gp::udf
