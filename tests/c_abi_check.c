/* Every public header, compiled as C99 and linked against the shared
 * library: the ABI must be usable from plain C. */
#include <stdio.h>
#include <stdlib.h>

#include "guestprep/autoinstall.h"
#include "guestprep/guess.h"
#include "guestprep/iniutil.h"
#include "guestprep/types.h"

int main(void) {
  GuessInfo info;
  Bool b = FALSE;
  const char *name = Guess_GetSubString(GUESS_VERSION_DUMMY_LAST);
  (void)info;
  (void)b;
  int32_t number = 0;
  if (IniUtil_GetIniFileInt("/nonexistent/file.ini", "s", "k", &number)) {
    return 1;
  }
  if (SUB_NAMES[21] != name) {
    return 1;
  }
  puts(name);
  return 0;
}
