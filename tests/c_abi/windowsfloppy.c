/* The Windows boot floppy functions from plain C99: declared, linkable,
 * refusing missing directories and ignoring a missing driver file. */
#include <stdio.h>

#include "guestprep/autoinstall.h"

int main(void) {
  Bool (*make)(const char *, const char *, const char *, const char *,
               const char *, const char *) = AutoInstall_MakeFloppyImg;
  void (*oem)(const char *, const char *) = WriteOEMDriverInfo;
  if (make(NULL, NULL, NULL, NULL, "/nonexistent", "/nonexistent") != FALSE ||
      make(NULL, "/nonexistent", NULL, NULL, NULL, "/nonexistent") != FALSE) {
    return 1;
  }
  oem("/nonexistent/txtsetup.oem", "/nonexistent/winnt.sif");
  oem(NULL, NULL);
  puts("windows floppy: ok");
  return 0;
}
