// Helpers for tests: temporary directories, file trees, and installation
// images built with the real mastering tools and cached in the build tree.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace gp::test {

// An absolute path below the source tree, e.g. sourcePath("tests/data").
std::string sourcePath(std::string_view relative);

// A fresh directory removed with its contents on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string operator/(std::string_view name) const;

 private:
  std::string path_;
};

// Writes a file, creating parent directories.
void writeFile(const std::string &path, std::string_view content);
std::string readFile(const std::string &path);
bool fileExists(const std::string &path);

// Runs a shell command; returns its exit status, and its standard output
// when `output` is given.
int runCommand(const std::string &command, std::string *output = nullptr);

// Quotes a string for /bin/sh.
std::string shellQuote(std::string_view s);

// Relative path -> content. A key ending in "/" makes an empty directory.
using FileTree = std::map<std::string, std::string>;

void writeTree(const std::string &root, const FileTree &files);

enum class IsoFlavor {
  Primary,       // genisoimage, ISO level 1: upper-case 8.3 names only
  Joliet,        // genisoimage -J
  RockRidge,     // xorriso -R
  JolietRockRidge,  // xorriso -J -R, as most installation media
};

// Builds (or reuses from the build tree's cache) an image of the tree.
// Dates are fixed so the same tree gives the same bytes.
std::string isoFromTree(const FileTree &files, IsoFlavor flavor);

// Same for a directory that already exists on disk.
std::string isoFromDirectory(const std::string &dir, IsoFlavor flavor);

}  // namespace gp::test
