// Where the answer-file templates of today's installers are found: below
// the caller's template directory when the entries name one, else below
// $GUESTPREP_TEMPLATEDIR, else where `cmake --install` puts them; each
// installer has its own subdirectory ("windows-setup/autounattend.xml").
#pragma once

#include <string>

namespace gp::medium {

// The template directory in force for `entriesDir` (empty: the default).
std::string templateRoot(const std::string &entriesDir);

// Reads `<root>/<installer>/<file>` into `text`; false with a reason for
// the user in `error` when it cannot be read.
bool readAnswerTemplate(const std::string &entriesDir,
                        const std::string &installer, const std::string &file,
                        std::string &text, std::string &error);

}  // namespace gp::medium
