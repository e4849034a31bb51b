// The mass-storage driver that a driver description file (txtsetup.oem)
// offers, as winnt.sif names it in "MassStorageDrivers".
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace gp::autoinstall {

// A txtsetup.oem larger than this is not read: real ones are a few KiB.
constexpr size_t kMaxTxtsetupOemSize = 1u << 20;

// The description of the first known driver key found in `text`: the text
// from the first double quote after the key through the next one, quotes
// included. The text ends at its first NUL. Nothing when no key is
// followed by two quotes.
std::optional<std::string> oemDriverDescription(std::string_view text);

}  // namespace gp::autoinstall
