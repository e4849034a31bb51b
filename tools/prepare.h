// The forms of `guestprep prepare`: each family takes the arguments that
// follow its family word; the bare form takes them all.
#pragma once

#include "tools/cli.h"

namespace gp::cli {

int prepareLinux(const Args &args);
int prepareWindows(const Args &args);
// A bare `prepare IMAGE`: the family and installer come from the disc.
int prepareAny(const Args &args);

}  // namespace gp::cli
