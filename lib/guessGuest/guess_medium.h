// The one interface that the Guess_ directory and file operations use over
// the ISO 9660 and UDF readers. Only this layer looks at a medium's kind.
#pragma once

#include <memory>

#include "lib/guessGuest/guess_internal.h"
#include "platform/imageerror.h"

// One opened directory of a medium, the handle of the Guess_ operations.
struct GuessDir {
  virtual ~GuessDir() = default;
  // The next entry's name, valid until the next call; IMG_END after the
  // last one.
  virtual gp::img::Error next(const char *&name) = 0;
  virtual gp::img::Error rewind() = 0;
  // Looks `name` up as a file of this directory, whatever the listing's
  // position, and reads it whole into `contents` unless that is null.
  virtual gp::img::Error lookup(const char *name,
                                gp::guess::FileText *contents) = 0;
};

namespace gp::guess {

using img::Error;

// Opens the image as UDF, else as ISO 9660, setting the medium's kind and
// reader handle.
Error openMedium(const char *imagePath, GuessMedium &medium);
void closeMedium(GuessMedium &medium);
// Whether the medium made its readers do more work than one identification
// may (ISO 9660 and UDF budgets, and all bytes read): it counts as
// unreadable.
bool mediumOverBudget(const GuessMedium &medium);

// Opens the directory `path` exactly as given.
Error openMediumDir(GuessMedium &medium, const char *path,
                    std::unique_ptr<GuessDir> &dir);

}  // namespace gp::guess
