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

/*
 * Writes the answer file of a Linux guest into outDir (created with its
 * parents when missing): "ks.cfg", "custom/preseed.cfg", "autoinst.xml" or
 * "auto_i~1.cfg", by the installer kind of osName. password and
 * rootPassword are plain text; the files hold their MD5-crypt hashes
 * (Mandriva's holds them as they are). productKey may be NULL or empty.
 * powerOff TRUE powers the guest off after installing, FALSE reboots it.
 * Returns TRUE when the whole file was written; FALSE, with nothing logged,
 * for a null argument, a guest without an answer file, or any file error.
 * An existing file is overwritten from its start without being emptied.
 */
GUESTPREP_API Bool AutoInstall_PrepareAnswerFileEx_Linux(
    const char *osName, GuessVersion subVersion, const char *outDir,
    const char *userName, const char *fullName, const char *password,
    const char *rootPassword, const char *productKey, Bool powerOff);

/* ---- Linux boot media ---- */

/* ---- Windows answer files ---- */

/* ---- Windows boot floppy ---- */

/* ---- Windows product names ---- */

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_AUTOINSTALL_H */
