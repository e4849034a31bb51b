// A small kickstart checker for tests: the sections are closed, and no
// command or option that the target release removed is used, from the
// installers' documented lists of removed commands.
#pragma once

#include <string>
#include <vector>

namespace gp::test {

struct KickstartTarget {
  bool fedora = false;
  long major = 0;  // the EL or Fedora release
};

// The problems found, one sentence each; empty when the file is fine.
std::vector<std::string> checkKickstart(const std::string &text,
                                        const KickstartTarget &target);

}  // namespace gp::test
