/*
 * A host program using the installed library: identifies the guest OS on
 * each installation image named on the command line and tells whether the
 * library can prepare an unattended installation of it.
 *
 *   cc consumer.c $(pkg-config --cflags --libs guestprep) -o consumer
 *   ./consumer IMAGE...
 */
#include <guestprep/autoinstall.h>
#include <guestprep/guess.h>
#include <stdio.h>

int main(int argc, char **argv) {
  int status = 0;
  int i;
  for (i = 1; i < argc; ++i) {
    GuessInfo info;
    int rc = Guess_Guest(argv[i], 0, &info);
    if (rc == GUESS_OPEN_FAILED) {
      fprintf(stderr, "consumer: %s: cannot open the image\n", argv[i]);
      status = 2;
    } else if (rc == GUESS_NOT_FOUND || info.osName == NULL) {
      printf("%s: unknown guest\n", argv[i]);
      status = status == 0 ? 1 : status;
    } else {
      printf(
          "%s: %s %s (%s), unattended installation %s\n", argv[i], info.osName,
          info.versionString, Guess_GetSubString((GuessVersion)info.subVersion),
          AutoInstall_IsSupportedGuest(&info) ? "supported" : "not supported");
    }
  }
  return status;
}
