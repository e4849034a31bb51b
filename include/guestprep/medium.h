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

/* The status of Guestprep_RemasterMedium(). */
#define GUESTPREP_REMASTER_OK 0
#define GUESTPREP_REMASTER_NO_INSTALLER_BOOT 1 /* nothing is written */
#define GUESTPREP_REMASTER_BAD_ARGUMENTS                             \
  2                                 /* a missing answer file, or the \
                                       output naming the input */
#define GUESTPREP_REMASTER_FAILED 3 /* reading, rewriting or writing failed */

/* Writes outPath, a copy of the installation disc imagePath whose own
 * installer reads the answer file answerFilePath unattended: the answer
 * file is placed where the installer (as Guestprep_DescribeMedium() names
 * it) reads it, and the boot menus (isolinux, GRUB, the GRUB menu inside
 * the EFI image) start the installer with the arguments that make it do so,
 * after 5 seconds. The El Torito entries, the signed EFI binaries, the
 * hybrid MBR/GPT, an appended EFI partition and the volume id are kept. The
 * mastering tool (xorriso) and mtools must be on PATH. With
 * SOURCE_DATE_EPOCH set, the same inputs give the same bytes.
 *
 * Returns 0 on success. On failure it returns one of the numbers above,
 * leaves nothing at outPath and, when errorMessage is not NULL, sets
 * *errorMessage to a malloc'ed reason naming the file concerned (freed by
 * the caller with free()). The input is never modified. */
GUESTPREP_API int Guestprep_RemasterMedium(const char *imagePath,
                                           const char *answerFilePath,
                                           const char *outPath,
                                           char **errorMessage);

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_MEDIUM_H */
