// The two families of `guestprep prepare`: each takes the arguments that
// follow its family word.
#pragma once

#include "tools/cli.h"

namespace gp::cli {

int prepareLinux(const Args &args);
int prepareWindows(const Args &args);

}  // namespace gp::cli
