// The disks of a machine: which disk files are current, and single keys of
// a disk's descriptor.
//
// Format
// ------
// The machine's configuration file (the dictionary syntax of
// platform/configdict.h) names its current disks with the keys
// "disk0.path", "disk1.path", ...:
//
//     guestOS = "ubuntu-64"
//     disk0.path = "system.vdisk"
//     disk1.path = "/srv/disks/data.vdisk"
//
// Disks are listed in the numeric order of their index (disk2 before
// disk10); the index is one to nine decimal digits. A relative path
// resolves against the directory of the configuration file. A path with a
// ".." component is never listed: a disk cannot climb out of the
// directories the configuration names. An empty path is not listed either.
//
// A disk file is a text descriptor in the same dictionary syntax, for
// example
//
//     format = "vdisk"
//     capacity = 41943040
//     toolsVersion = 9230
//
// A descriptor that is missing, not a regular file, larger than
// kMaxDescriptorSize bytes, or not valid dictionary text does not open.
//
// Limits: a configuration that names more than kMaxDisks disks does not
// list (no real machine has that many), and a configuration file that does
// not exist or cannot be loaded does not list either.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "platform/configdict.h"

namespace gp::disks {

inline constexpr size_t kMaxDisks = 64;
inline constexpr size_t kMaxDescriptorSize = 64u << 10;

// The current disks' paths in index order; false when the configuration
// file cannot be loaded or names too many disks.
bool listCurrentDisks(const char *configPath, std::vector<std::string> *paths);

// One opened disk descriptor.
class VirtualDisk {
 public:
  // Reads the descriptor at `path`; false when it does not open (above).
  bool open(const std::string &path);
  // The value of one descriptor key, or nothing when it is absent or the
  // disk is not open.
  std::optional<std::string> getDescriptorKey(const char *key) const;

 private:
  ConfigDict descriptor_;
  bool open_ = false;
};

}  // namespace gp::disks
