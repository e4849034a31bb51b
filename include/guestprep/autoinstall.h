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

/* ---- Linux boot media ---- */

/* ---- Windows answer files ---- */

/* ---- Windows boot floppy ---- */

/* ---- Windows product names ---- */

#ifdef __cplusplus
}
#endif

#endif /* GUESTPREP_AUTOINSTALL_H */
