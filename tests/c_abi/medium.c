/* The medium header from plain C99. */
#include "guestprep/medium.h"

#include <errno.h>
#include <stdlib.h>

int main(void) {
  char *message = NULL;
  int rc;
  char *doc = Guestprep_DescribeMedium("/nonexistent/image.iso");
  if (doc != NULL) {
    free(doc);
    return 1;
  }
  if (errno != ENOENT) {
    return 1;
  }
  rc = Guestprep_RemasterMedium("/nonexistent/image.iso",
                                "/nonexistent/answer.cfg",
                                "/nonexistent/out.iso", &message);
  if (rc != GUESTPREP_REMASTER_BAD_ARGUMENTS || message == NULL) {
    free(message);
    return 1;
  }
  free(message);
  return 0;
}
