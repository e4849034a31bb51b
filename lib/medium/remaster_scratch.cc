// The scratch area of a remaster and the shell commands it runs: every
// external tool goes through the host seam, every argument quoted.
#include <unistd.h>

#include <cerrno>

#include "lib/medium/remaster_internal.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::medium {

std::string shellWord(std::string_view s) { return str::shellSingleQuoted(s); }

ScratchArea::~ScratchArea() {
  for (const std::string &f : files_) {
    hostOps().unlink(f.c_str());
  }
  if (!dir_.empty()) {
    hostOps().rmdir(dir_.c_str());
  }
}

bool ScratchArea::create() {
  std::string base = userTempDirectory();
  if (base.empty()) {
    errno = errno == 0 ? EACCES : errno;
    return false;
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string dir =
        joinPath(base, "remaster-" + std::to_string(::getpid()) + "-" +
                           std::to_string(hostOps().rand() % 1000000));
    if (hostOps().mkdir(dir.c_str(), 0700) == 0) {
      dir_ = dir;
      return true;
    }
    if (errno != EEXIST) {
      return false;
    }
  }
  return false;
}

std::string ScratchArea::file(const std::string &name) {
  std::string path = joinPath(dir_, name);
  files_.push_back(path);
  return path;
}

bool ScratchArea::write(const std::string &path, std::string_view data) {
  UniqueFd fd = openFile(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (!fd.valid() || !writeFull(fd.get(), data.data(), data.size())) {
    return false;
  }
  return fd.reset() == 0;
}

bool runTool(const std::string &command, ScratchArea &scratch,
             std::string *output) {
  // A NUL byte (from a name on a hostile disc) would cut the command
  // short, quotes and all.
  if (command.find('\0') != std::string::npos) {
    if (output != nullptr) {
      *output = "a name holds a NUL byte";
    }
    return false;
  }
  std::string log =
      scratch.file("tool-" + std::to_string(hostOps().rand()) + ".log");
  std::string full =
      "(LC_ALL=C MTOOLS_SKIP_CHECK=1 && export LC_ALL "
      "MTOOLS_SKIP_CHECK && " +
      command + ") >" + shellWord(log) + " 2>&1 </dev/null";
  int status = hostOps().system(full.c_str());
  std::string text;
  readWholeFile(log.c_str(), text, 16u << 20);
  hostOps().unlink(log.c_str());
  if (output != nullptr) {
    *output = text;
  }
  if (status != 0 && output != nullptr && text.empty()) {
    *output = "exit status " + std::to_string(status);
  }
  return status == 0;
}

}  // namespace gp::medium
