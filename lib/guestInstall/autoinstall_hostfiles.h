// Host files for the boot media and floppies: copying, listing directories and
// deleting the staging tree, all through the host I/O seam, none of it
// opening a path in a way that blocks.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace gp::autoinstall {

// Copies the regular file `from` to `to` through a temporary file beside
// `to`: `to` is replaced only by a complete copy, and a link at `to` is
// replaced, never followed. The copy keeps the permission bits of `from`.
bool copyHostFile(const std::string &from, const std::string &to);

// True when `path` names an existing regular file (links followed).
bool hostRegularFileExists(const std::string &path);

// Removes a symbolic link, FIFO, socket or device at `path` (not followed),
// so that a file written there next lands in its directory and cannot
// block. A regular file or a directory stays.
void removeSpecialFile(const std::string &path);

struct HostDirEntry {
  std::string name;
  bool mayBeDirectory;  // false only when the entry is known to be a file
};

// The entries of a directory in their order, without "." and "..". False
// when the directory cannot be listed or holds more than `limit` entries.
bool listHostDirectory(const std::string &dir, size_t limit,
                       std::vector<HostDirEntry> &entries);

// True when `path` resolves (links followed) to `root` or a path below it.
bool hostPathInside(const std::string &root, const std::string &path);

// Deletes the tree at `path` without following any symbolic link: a link
// is removed itself, its target stays. The root directory is never
// deleted. True when nothing is left.
bool removeHostTree(const std::string &path);

}  // namespace gp::autoinstall
