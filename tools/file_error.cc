// Naming the file behind a failure: the library says only that an open or a
// read failed, so the command line looks at the file itself to tell the
// user why, the way every Unix tool does.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/cli.h"

namespace gp::cli {

void reportFileError(const std::string &path, const std::string &reason) {
  std::fprintf(stderr, "guestprep: %s: %s\n", path.c_str(), reason.c_str());
}

std::string readProblem(const std::string &path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    return std::strerror(errno);
  }
  if (S_ISDIR(st.st_mode)) {
    return std::strerror(EISDIR);
  }
  if (!S_ISREG(st.st_mode) && !S_ISBLK(st.st_mode)) {
    return "not a regular file";
  }
  // Non-blocking, in case the file was swapped for a FIFO since the stat.
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) {
    return std::strerror(errno);
  }
  char byte;
  ssize_t n = ::pread(fd, &byte, 1, 0);
  int readErrno = errno;
  ::close(fd);
  return n < 0 ? std::strerror(readErrno) : "";
}

std::string directoryProblem(const std::string &path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    return std::strerror(errno);
  }
  if (!S_ISDIR(st.st_mode)) {
    return std::strerror(ENOTDIR);
  }
  if (::access(path.c_str(), W_OK | X_OK) != 0) {
    return std::strerror(errno);
  }
  return "";
}

void reportUnreadable(const std::string &path, const std::string &fallback) {
  std::string reason = readProblem(path);
  reportFileError(path, reason.empty() ? fallback : reason);
}

}  // namespace gp::cli
