/* The Linux boot media functions from plain C99: declared, linkable, and
 * refusing null arguments without running anything. */
#include <stdio.h>

#include "guestprep/autoinstall.h"

int main(void) {
  Bool (*scanIso)(const char *, const char *, const char *, const char *) =
      AutoInstall_ScanISO;
  Bool (*scanDisk)(const char *, const char *, const char *, const char *) =
      AutoInstall_ScanDisk;
  if (scanIso(NULL, NULL, "ubuntu", NULL) != FALSE ||
      scanDisk("/nonexistent", NULL, "ubuntu", NULL) != FALSE ||
      AutoInstall_MasterISO(NULL, "xorrisofs", "/nonexistent") != FALSE ||
      AutoInstall_MakeFloppyImg_Linux(NULL, NULL, NULL, "rhel5") != TRUE ||
      AutoInstall_AddTools_Linux(NULL, "/nonexistent") != FALSE) {
    return 1;
  }
  puts("linux boot media: ok");
  return 0;
}
