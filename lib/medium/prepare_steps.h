// The pieces of prepareInstall(): the private directory that the products
// are made in before they move into the output directory, and the two
// paths.
#pragma once

#include <string>
#include <vector>

#include "lib/medium/prepare_install.h"

namespace gp::medium {

// A private directory ".guestprep-XXXXXX" inside the output directory.
// Products are made in it and named with keep(); commit() moves them into
// the output directory. Whatever happens, the directory goes when the
// object does, and without a commit an output directory that begin()
// created goes too.
class Staging {
 public:
  Staging() = default;
  ~Staging();
  Staging(const Staging &) = delete;
  Staging &operator=(const Staging &) = delete;

  // Creates the output directory when missing and the private one in it.
  bool begin(const std::string &outDir, std::string &error);
  // The private directory, and a path inside it.
  const std::string &directory() const { return dir_; }
  std::string path(const std::string &name) const;
  // Where a kept product ends up.
  std::string finalPath(const std::string &name) const;
  // Marks `name` (a file of the private directory) as a product.
  void keep(const std::string &name) { kept_.push_back(name); }
  const std::vector<std::string> &kept() const { return kept_; }
  // Moves every product into place; on failure the products moved so far
  // are removed again and `error` names the one that could not be moved.
  bool commit(std::string &error);

 private:
  std::string outDir_;
  std::string dir_;
  std::vector<std::string> createdDirs_;  // innermost first
  std::vector<std::string> kept_;
  bool committed_ = false;
};

// The classic path for a guest that identification found and the rules
// support.
PrepareStatus prepareClassic(const PrepareRequest &request,
                             const GuessInfo &guess, Staging &staging,
                             PrepareResult &result, std::string &error,
                             const ProgressFn &progress);

// The path of today's installers.
PrepareStatus prepareModern(const PrepareRequest &request,
                            const Described &disc, Staging &staging,
                            PrepareResult &result, std::string &error,
                            const ProgressFn &progress);

// Writes `text` to `path` (a new file of the private directory).
bool writeProduct(const std::string &path, const std::string &text,
                  std::string &error);

}  // namespace gp::medium
