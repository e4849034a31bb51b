/* The identification header from plain C99. */
#include <stdio.h>

#include "guestprep/guess.h"
#include "guestprep/types.h"

int main(void) {
  GuessInfo info;
  Bool b = FALSE;
  const char *name = Guess_GetSubString(GUESS_VERSION_DUMMY_LAST);
  (void)info;
  (void)b;
  if (SUB_NAMES[21] != name) {
    return 1;
  }
  return 0;
}
