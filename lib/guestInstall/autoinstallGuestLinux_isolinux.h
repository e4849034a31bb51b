// isolinux boot configurations of Linux installation discs: the parser that
// finds the first complete boot entry, and the configuration that boots
// that entry at once with the answer-file arguments.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "lib/guestInstall/autoinstallGuestLinux.h"

namespace gp::autoinstall {

// A configuration file is read into a buffer of this size and parsed as a
// text of at most kIsolinuxTextRoom - 1 bytes; the rewritten configuration
// must fit the same room.
inline constexpr size_t kIsolinuxTextRoom = 4096;
// The arguments of one append line are copied into a buffer of this size.
inline constexpr size_t kIsolinuxAppendRoom = 511;

struct IsolinuxBootEntry {
  std::string kernel;  // the text after "kernel "
  std::string initrd;  // the text after "initrd=" in the append line
  std::string append;  // the other append arguments, each followed by " "
};

// Parses one configuration text. Only the text before the first NUL byte
// counts. True when the first complete entry (a kernel line and an append
// line with "initrd=") was found; `entry` holds it then. A text longer than
// kIsolinuxTextRoom - 1 bytes, or an entry's append line longer than
// kIsolinuxAppendRoom - 1, is refused: false.
bool parseIsolinuxConfig(std::string_view text, IsolinuxBootEntry &entry);

// The last component of a "/"-separated path.
std::string_view isolinuxBaseName(std::string_view path);

// The configuration that boots `entry` from the "isolinux" directory of
// the new disc with the answer-file arguments of `kind` (not NONE). The
// Red Hat installer would still ask for its source with "askmethod", so
// that argument is dropped for it. False when the text would not fit
// kIsolinuxTextRoom - 1 bytes.
bool rewriteIsolinuxConfig(const IsolinuxBootEntry &entry,
                           AutoInstallLinuxKind kind, std::string &out);

}  // namespace gp::autoinstall
