/* The floppy transfer functions from plain C99: declared, linkable, and
 * refusing a missing image. */
#include <stdio.h>

#include "guestprep/autoinstall.h"

int main(void) {
  FatHandle none = NULL;
  Bool (*get)(FatHandle, const char *, const char *) = GetFileFromFloppyImg;
  Bool (*add)(FatHandle, const char *, const char *) = AddFileToFloppyImg;
  if (get(none, "a.txt", "/nonexistent/a.txt") != FALSE ||
      add(none, "/nonexistent/a.txt", "a.txt") != FALSE ||
      AutoInstall_AddFileToFloppyImg("/nonexistent/a.txt", "a.txt",
                                     "/nonexistent") != FALSE) {
    return 1;
  }
  puts("floppy transfer: ok");
  return 0;
}
