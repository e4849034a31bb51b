/* The medium description header from plain C99. */
#include <errno.h>
#include <stdlib.h>

#include "guestprep/medium.h"

int main(void) {
  char *doc = Guestprep_DescribeMedium("/nonexistent/image.iso");
  if (doc != NULL) {
    free(doc);
    return 1;
  }
  return errno == ENOENT ? 0 : 1;
}
