// Turbolinux detection: its media open their root "README" with the name.
#include "lib/guessGuest/guess_internal.h"
#include "platform/strutil.h"

using namespace gp;
using namespace gp::guess;

GP_EXPORT Bool Guess_TurboLinux(GuessMedium *medium, GuessInfo *info) {
  return runDetector(medium, info, [&]() -> Outcome {
    FileText readme = readFileName(medium, "README");
    if (!str::startsWith(readme.text(), "Turbolinux")) {
      return Outcome::NotRecognised;
    }
    return recognise(info, "turbolinux", GUESS_VERSION_UNKNOWN);
  });
}
