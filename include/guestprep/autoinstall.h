/*
 * Unattended installation: support decisions and limits, input validation,
 * answer files, and the floppy or ISO boot media that carry them.
 */
#ifndef GUESTPREP_AUTOINSTALL_H
#define GUESTPREP_AUTOINSTALL_H

#include "guestprep/guess.h"
#include "guestprep/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Installation configuration and guest families ---- */

/* ---- User input validation ---- */

/* ---- Floppy image file transfer ---- */

/* An open volume, directory or file of a FAT floppy image; NULL is none. */
typedef struct FatObject *FatHandle;

/* Copies the file `name` of the open image directory `dir` to the host
 * file `hostPath` (created or emptied). */
GUESTPREP_API Bool GetFileFromFloppyImg(FatHandle dir, const char *name,
                                        const char *hostPath);

/* Copies the host file `hostPath` into the open image directory `dir` under
 * `name`. An existing file is overwritten from its start and keeps any
 * bytes beyond the new length. */
GUESTPREP_API Bool AddFileToFloppyImg(FatHandle dir, const char *hostPath,
                                      const char *name);

/* Adds the host file `hostPath` as `name` to the root directory of the
 * floppy image "autoinst.flp" in `workDir`. */
GUESTPREP_API Bool AutoInstall_AddFileToFloppyImg(const char *hostPath,
                                                  const char *name,
                                                  const char *workDir);

/* ---- Linux answer files ---- */

/* ---- Linux boot media ---- */

/* ---- Windows answer files ---- */

/* ---- Windows boot floppy ---- */

/* ---- Windows product names ---- */

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_AUTOINSTALL_H */
