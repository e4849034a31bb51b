/* Every public header, compiled as C99 and linked against the shared
 * library: the ABI must be usable from plain C. */
#include <stdio.h>
#include <stdlib.h>

#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "guestprep/types.h"

int main(void) {
  GuessInfo info;
  Bool b = FALSE;
  const char *name = Guess_GetSubString(GUESS_VERSION_DUMMY_LAST);
  AutoInstallConfigInfo config;
  char *pretty;
  (void)info;
  (void)b;
  if (SUB_NAMES[21] != name) {
    return 1;
  }
  info.osName = "winXPPro";
  info.versionString[0] = '\0';
  if (!AutoInstall_GetInstallConfigInfo("windows", &info, &config) ||
      config.reservedNames[0].isPrefix != 1 ||
      AutoInstall_ValidateName("windows", &info, "a?", NULL) !=
          AUTOINSTALL_BAD_WINDOWS_NAME) {
    return 1;
  }
  pretty = AutoInstall_GetPrettyWindowsName("Windows 7 HOMEPREMIUMN");
  puts(pretty);
  free(pretty);
  puts(name);
  return 0;
}
