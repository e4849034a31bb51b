// The private directory that prepareInstall() makes its products in, so
// that the output directory receives all of them or none.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include "lib/medium/prepare_steps.h"
#include "platform/hostio.h"

namespace gp::medium {
namespace {

bool isDirectory(const std::string &path) {
  struct stat st;
  return hostOps().stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::string &path) {
  struct stat st;
  return hostOps().stat(path.c_str(), &st) == 0;
}

// The missing directories of `path`, innermost first.
std::vector<std::string> missingDirectories(std::string path) {
  std::vector<std::string> missing;
  while (!path.empty() && path != "/" && path != "." && !exists(path)) {
    missing.push_back(path);
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) {
      break;
    }
    path.erase(slash == 0 ? 1 : slash);
  }
  return missing;
}

std::string systemError(const std::string &path) {
  return path + ": " + std::strerror(errno);
}

}  // namespace

Staging::~Staging() {
  if (!dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
  if (!committed_) {
    // Only the directories this run made, and only while they are empty.
    for (const std::string &dir : createdDirs_) {
      hostOps().rmdir(dir.c_str());
    }
  }
}

bool Staging::begin(const std::string &outDir, std::string &error) {
  outDir_ = outDir;
  createdDirs_ = missingDirectories(outDir);
  if (!makeDirectories(outDir) || !isDirectory(outDir)) {
    error = systemError(outDir);
    return false;
  }
  static unsigned counter = 0;
  const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  for (int attempt = 0; attempt < 100; ++attempt) {
    unsigned long seed = static_cast<unsigned long>(::getpid()) * 7919u +
                         static_cast<unsigned long>(hostOps().time(nullptr)) +
                         ++counter * 104729u;
    std::string name = ".guestprep-";
    for (int i = 0; i < 6; ++i, seed /= 36) {
      name += digits[seed % 36];
    }
    std::string candidate = joinPath(outDir, name);
    if (hostOps().mkdir(candidate.c_str(), 0700) == 0) {
      dir_ = candidate;
      return true;
    }
    if (errno != EEXIST) {
      error = systemError(outDir);
      return false;
    }
  }
  error = outDir + ": no private directory could be made in it";
  return false;
}

std::string Staging::path(const std::string &name) const {
  return joinPath(dir_, name);
}

std::string Staging::finalPath(const std::string &name) const {
  return joinPath(outDir_, name);
}

bool Staging::commit(std::string &error) {
  for (size_t i = 0; i < kept_.size(); ++i) {
    if (hostOps().rename(path(kept_[i]).c_str(), finalPath(kept_[i]).c_str()) !=
        0) {
      error = systemError(finalPath(kept_[i]));
      while (i-- > 0) {
        hostOps().unlink(finalPath(kept_[i]).c_str());
      }
      return false;
    }
  }
  committed_ = true;
  return true;
}

bool writeProduct(const std::string &path, const std::string &text,
                  std::string &error) {
  UniqueFd fd = openFile(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
  if (!fd.valid() || !writeFull(fd.get(), text.data(), text.size()) ||
      hostOps().fsync(fd.get()) != 0 || fd.reset() != 0) {
    error = systemError(path);
    return false;
  }
  return true;
}

}  // namespace gp::medium
