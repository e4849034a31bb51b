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
