/*
 * Describing installation media.
 *
 * Guestprep_DescribeMedium() reads the marker files, the boot catalog and,
 * on Windows media, the XML of the install image of an ISO 9660 or UDF
 * image, and returns what it found as one UTF-8 JSON document (its fields
 * are listed in docs/medium.md). It reads at most a few MiB whatever the
 * size of the image.
 */
#ifndef GUESTPREP_MEDIUM_H
#define GUESTPREP_MEDIUM_H

#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* A malloc'ed, NUL-terminated JSON document describing the image, released
 * by the caller with free(). NULL with errno set when the image cannot be
 * opened or read (EINVAL when it is neither ISO 9660 nor UDF). */
GUESTPREP_API char *Guestprep_DescribeMedium(const char *imagePath);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_MEDIUM_H */
