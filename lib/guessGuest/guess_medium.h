// The one interface that the Guess_ directory and file operations use over
// the ISO 9660 and UDF readers. Only this layer looks at a medium's kind.
#pragma once

#include <memory>

#include "lib/guessGuest/guess_internal.h"
#include "platform/imageerror.h"

namespace gp::guess {

using img::Error;

// One opened directory of a medium.
class MediumDir {
 public:
  virtual ~MediumDir() = default;
  // The next entry's name, valid until the next call; IMG_END after the
  // last one.
  virtual Error next(const char *&name) = 0;
  virtual Error rewind() = 0;
  // Looks `name` up as a file of this directory, whatever the listing's
  // position, and reads it whole into `contents` unless that is null.
  virtual Error lookup(const char *name, FileText *contents) = 0;
};

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
                    std::unique_ptr<MediumDir> &dir);

}  // namespace gp::guess
