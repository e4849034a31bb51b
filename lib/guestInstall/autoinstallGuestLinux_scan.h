// The scan shared by AutoInstall_ScanDisk and AutoInstall_ScanISO: find the
// disc's isolinux configuration, parse it, copy the boot files into the
// staging directory and write the configuration that boots the installer
// with the answer-file arguments. A disc is a host directory or an image;
// each kind implements IsolinuxDisc.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace gp::autoinstall {

// Paths on a disc are "/"-separated, from the disc's root, without a
// leading "/"; "" is the root.
class IsolinuxDisc {
 public:
  virtual ~IsolinuxDisc() = default;

  // The directory that the search for "isolinux.cfg" starts from, as the
  // log names it.
  virtual std::string searchRoot() const = 0;

  // Depth-first search for an entry named "isolinux.cfg" (any case); each
  // directory is searched before the next entry. Bounded in depth and in
  // entries; a directory is never searched twice.
  virtual bool findConfig(std::string &path) = 0;

  enum class Read { Ok, OpenFailed, ReadFailed };
  // Up to `room` bytes of a regular file.
  virtual Read readText(const std::string &path, size_t room,
                        std::string &text) = 0;

  // The names of a directory's entries, in directory order.
  virtual std::vector<std::string> listNames(const std::string &dir) = 0;

  enum class Copy { Ok, Missing, Failed, Outside };
  // Copies a regular file of the disc to a host path.
  virtual Copy copyOut(const std::string &path,
                       const std::string &hostPath) = 0;

  // How the log names a disc path.
  virtual std::string describe(const std::string &path) const = 0;
};

struct ScanRequest {
  const char *function;         // the exported function, for the log
  bool logFailures;             // log every failure, not only refusals
  const char *outDir;           // the staging directory
  const char *osName;           // selects the answer-file arguments
  const char *isolinuxBinPath;  // host file, or null: take the disc's
};

// Bounds of the search for the configuration.
inline constexpr int kMaxSearchDepth = 32;
inline constexpr size_t kMaxSearchEntries = 100000;

bool scanIsolinuxDisc(IsolinuxDisc &disc, const ScanRequest &request);

}  // namespace gp::autoinstall
