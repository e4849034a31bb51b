/* The medium header from plain C99. */
#include "guestprep/medium.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
  char *message = NULL;
  int rc;
  char *doc = Guestprep_DescribeMedium("/nonexistent/image.iso");
  char *prepared;
  int ok;
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
  /* A refusal is a JSON document too, with the status a command exits
   * with. */
  prepared = Guestprep_PrepareInstall("/nonexistent/image.iso", "{}",
                                      "/nonexistent/out");
  ok = prepared != NULL && strstr(prepared, "\"error\"") != NULL &&
       strstr(prepared, "\"status\":2") != NULL;
  free(prepared);
  return ok ? 0 : 1;
}
