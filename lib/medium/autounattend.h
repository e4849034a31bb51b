// The Autounattend.xml writer's core: the template's text filled from the
// entries. writeAutounattend() reads the template and calls it; the fuzz
// target feeds it templates of its own.
#pragma once

#include <string>

#include "lib/medium/install_entries.h"

namespace gp::medium {

bool fillAutounattend(const std::string &templateText, const Described &disc,
                      const InstallEntries &entries, Answer &out,
                      std::string &error);

}  // namespace gp::medium
