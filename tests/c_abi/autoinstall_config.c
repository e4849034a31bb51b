/* The installation limits, validation and product names from plain C99. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "guestprep/autoinstall.h"

int main(void) {
  GuessInfo info;
  AutoInstallConfigInfo config;
  char *message = NULL;
  char *pretty;
  int ok;

  memset(&info, 0, sizeof info);
  info.osName = "winXPPro";
  if (!AutoInstall_GetInstallConfigInfo("windows", &info, &config) ||
      config.maxNameLength != 50 || config.reservedNames[0].isPrefix != 1 ||
      config.guestFlags[1] != 1) {
    return 1;
  }
  if (AutoInstall_ValidateName("windows", &info, "a?", &message) !=
          AUTOINSTALL_BAD_WINDOWS_NAME ||
      message == NULL) {
    return 1;
  }
  free(message);
  pretty = AutoInstall_GetPrettyWindowsName("Windows 7 HOMEPREMIUMN");
  ok = pretty != NULL && strcmp(pretty, "Windows 7 Home Premium N") == 0;
  free(pretty);
  return ok ? 0 : 1;
}
