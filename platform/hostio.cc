#include "platform/hostio.h"

#include <cerrno>
#include <cstdlib>
#include <vector>

namespace gp {
namespace {

int realOpen(const char *path, int flags, mode_t mode) {
  return ::open(path, flags | O_CLOEXEC, mode);
}
int realStat(const char *path, struct stat *st) { return ::stat(path, st); }
int realFstat(int fd, struct stat *st) { return ::fstat(fd, st); }
int realRand() { return std::rand(); }
void realSrand(unsigned seed) { std::srand(seed); }
int realSystem(const char *command) { return std::system(command); }
time_t realTime(time_t *out) { return ::time(out); }

const HostOps kReal = {
    realOpen, ::close,   ::read,    ::pread,  ::write,
    ::pwrite, realFstat, realStat,  ::fsync,  ::ftruncate,
    ::rename, ::unlink,  ::mkdir,   ::rmdir,  ::mkstemp,
    ::fchmod, realTime,  realSrand, realRand, realSystem,
};

}  // namespace

HostOps &hostOps() {
  static HostOps ops = kReal;
  return ops;
}

const HostOps &realHostOps() { return kReal; }

int UniqueFd::reset(int fd) {
  int result = 0;
  if (fd_ >= 0) {
    result = hostOps().close(fd_);
  }
  fd_ = fd;
  return result;
}

UniqueFd openFile(const char *path, int flags, mode_t mode) {
  int fd;
  do {
    fd = hostOps().open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return UniqueFd(fd);
}

ssize_t preadFull(int fd, void *buf, size_t count, off_t offset) {
  size_t done = 0;
  auto *p = static_cast<unsigned char *>(buf);
  while (done < count) {
    ssize_t n = hostOps().pread(fd, p + done, count - done,
                                offset + static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return -1;
    }
    if (n == 0) {
      break;
    }
    done += static_cast<size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

namespace {

// Retries short writes and EINTR; `put` writes at the given progress.
template <typename Put>
bool writeAll(const void *buf, size_t count, Put &&put) {
  const auto *p = static_cast<const unsigned char *>(buf);
  size_t done = 0;
  while (done < count) {
    ssize_t n = put(p + done, count - done, done);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (n == 0) {
      errno = EIO;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

bool writeFull(int fd, const void *buf, size_t count) {
  return writeAll(buf, count, [&](const void *p, size_t n, size_t) {
    return hostOps().write(fd, p, n);
  });
}

bool pwriteFull(int fd, const void *buf, size_t count, off_t offset) {
  return writeAll(buf, count, [&](const void *p, size_t n, size_t done) {
    return hostOps().pwrite(fd, p, n, offset + static_cast<off_t>(done));
  });
}

bool readWholeFile(const char *path, std::string &out, size_t maxSize) {
  UniqueFd fd = openFile(path, O_RDONLY);
  if (!fd.valid()) {
    return false;
  }
  struct stat st;
  if (hostOps().fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<unsigned long long>(st.st_size) > maxSize) {
    return false;
  }
  std::string data;
  char chunk[65536];
  for (;;) {
    ssize_t n = hostOps().read(fd.get(), chunk, sizeof chunk);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    if (n == 0) {
      break;
    }
    if (data.size() + static_cast<size_t>(n) > maxSize) {
      return false;
    }
    data.append(chunk, static_cast<size_t>(n));
  }
  out.swap(data);
  return true;
}

bool replaceFileAtomically(const std::string &path, std::string_view data,
                           mode_t newMode, ReplaceFailure *failure) {
  ReplaceFailure ignored;
  ReplaceFailure &stage = failure != nullptr ? *failure : ignored;
  stage = ReplaceFailure::kCreate;
  // Resolve a symbolic link so the link stays a link and its target is
  // rewritten.
  std::string target = path;
  if (char *real = ::realpath(path.c_str(), nullptr)) {
    target = real;
    std::free(real);
  }
  mode_t mode = newMode;
  struct stat st;
  if (hostOps().stat(target.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
  }
  std::string::size_type slash = target.rfind('/');
  std::string dir = slash == std::string::npos ? "." : target.substr(0, slash);
  std::vector<char> tmpl(dir.begin(), dir.end());
  const char suffix[] = "/.guestprep-XXXXXX";
  tmpl.insert(tmpl.end(), suffix, suffix + sizeof suffix);
  UniqueFd fd(hostOps().mkstemp(tmpl.data()));
  if (!fd.valid()) {
    return false;
  }
  const char *tmpPath = tmpl.data();
  stage = ReplaceFailure::kWrite;
  bool ok = writeFull(fd.get(), data.data(), data.size()) &&
            hostOps().fchmod(fd.get(), mode) == 0 &&
            hostOps().fsync(fd.get()) == 0;
  ok = (fd.reset() == 0) && ok;
  if (ok && hostOps().rename(tmpPath, target.c_str()) == 0) {
    // The rename itself must survive a crash too. The new content is
    // already in place, so a directory that cannot be synced is no failure.
    UniqueFd dirFd = openFile(dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd.valid()) {
      hostOps().fsync(dirFd.get());
    }
    stage = ReplaceFailure::kNone;
    return true;
  }
  int saved = errno;
  hostOps().unlink(tmpPath);
  errno = saved;
  return false;
}

std::string userTempDirectory() {
  const char *base = std::getenv("TMPDIR");
  if (base == nullptr || base[0] != '/') {
    base = "/tmp";
  }
  uid_t uid = ::getuid();
  std::string dir = joinPath(base, "guestprep-" + std::to_string(uid));
  if (hostOps().mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
    return std::string();
  }
  // lstat: a link planted by another user must not redirect our files.
  struct stat st;
  if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) ||
      st.st_uid != uid || (st.st_mode & 077) != 0) {
    return std::string();
  }
  return dir;
}

bool makeDirectories(const std::string &path, mode_t mode) {
  if (path.empty()) {
    return false;
  }
  struct stat st;
  if (hostOps().stat(path.c_str(), &st) == 0) {
    return S_ISDIR(st.st_mode);
  }
  std::string::size_type slash = path.find_last_not_of('/');
  slash = slash == std::string::npos ? slash : path.rfind('/', slash);
  if (slash != std::string::npos && slash > 0) {
    if (!makeDirectories(path.substr(0, slash), mode)) {
      return false;
    }
  }
  if (hostOps().mkdir(path.c_str(), mode) == 0) {
    return true;
  }
  return errno == EEXIST && hostOps().stat(path.c_str(), &st) == 0 &&
         S_ISDIR(st.st_mode);
}

std::string joinPath(std::string_view dir, std::string_view name) {
  std::string out(dir);
  if (!out.empty() && out.back() != '/') {
    out.push_back('/');
  }
  while (!name.empty() && name.front() == '/') {
    name.remove_prefix(1);
  }
  out.append(name);
  return out;
}

}  // namespace gp
