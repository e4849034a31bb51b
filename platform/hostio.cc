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
    realOpen,  ::close,  ::read,      ::pread,  ::write,   ::pwrite, realFstat,
    realStat,  ::fsync,  ::ftruncate, ::rename, ::unlink,  ::mkdir,  ::rmdir,
    ::mkstemp, ::fchmod, ::fchown,    realTime, realSrand, realRand, realSystem,
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

UniqueFd openUntrustedFile(const char *path, int flags, mode_t mode,
                           struct stat *st, bool allowBlockDevice) {
  UniqueFd fd = openFile(path, flags | O_NONBLOCK | O_NOCTTY, mode);
  if (!fd.valid()) {
    return fd;
  }
  struct stat own;
  struct stat &status = st != nullptr ? *st : own;
  int error = 0;
  if (hostOps().fstat(fd.get(), &status) != 0) {
    error = errno;
  } else if (!S_ISREG(status.st_mode) &&
             !(allowBlockDevice && S_ISBLK(status.st_mode))) {
    error = EINVAL;
  } else if ((flags & O_NONBLOCK) == 0) {
    int current = ::fcntl(fd.get(), F_GETFL);
    if (current < 0 || ::fcntl(fd.get(), F_SETFL, current & ~O_NONBLOCK) != 0) {
      error = errno;
    }
  }
  if (error != 0) {
    fd.reset();
    errno = error;
  }
  return fd;
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
  struct stat st;
  UniqueFd fd = openUntrustedFile(path, O_RDONLY, 0, &st);
  if (!fd.valid() || static_cast<unsigned long long>(st.st_size) > maxSize) {
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

FileReplacement::~FileReplacement() { discard(); }

void FileReplacement::discard() {
  fd_.reset();
  if (!tmpPath_.empty()) {
    hostOps().unlink(tmpPath_.c_str());
    tmpPath_.clear();
  }
}

bool FileReplacement::begin(const std::string &path, mode_t newMode) {
  discard();
  // Resolve a symbolic link so the link stays a link and its target is
  // rewritten.
  target_ = path;
  if (char *real = ::realpath(path.c_str(), nullptr)) {
    target_ = real;
    std::free(real);
  }
  mode_ = newMode;
  struct stat st;
  targetExists_ = hostOps().stat(target_.c_str(), &st) == 0;
  if (targetExists_) {
    mode_ = st.st_mode & 07777;
    owner_ = st.st_uid;
    group_ = st.st_gid;
  }
  std::string::size_type slash = target_.rfind('/');
  dir_ = slash == std::string::npos ? "." : target_.substr(0, slash);
  std::vector<char> tmpl(dir_.begin(), dir_.end());
  const char suffix[] = "/.guestprep-XXXXXX";
  tmpl.insert(tmpl.end(), suffix, suffix + sizeof suffix);
  fd_.reset(hostOps().mkstemp(tmpl.data()));
  if (!fd_.valid()) {
    return false;
  }
  tmpPath_ = tmpl.data();
  return true;
}

bool FileReplacement::keepOwner() {
  if (!targetExists_) {
    return true;
  }
  struct stat st;
  if (hostOps().fstat(fd_.get(), &st) != 0) {
    return false;
  }
  if ((st.st_uid == owner_ && st.st_gid == group_) ||
      hostOps().fchown(fd_.get(), owner_, group_) == 0) {
    return true;
  }
  // The caller's own file keeps its owner, only not a group the caller is
  // not in. Anybody else's file would become the caller's: refused.
  return st.st_uid == owner_;
}

bool FileReplacement::commit() {
  if (!fd_.valid()) {
    errno = EBADF;
    return false;
  }
  // The owner first: changing it may clear the set-user-ID bits.
  bool ok = keepOwner() && hostOps().fchmod(fd_.get(), mode_) == 0 &&
            hostOps().fsync(fd_.get()) == 0;
  ok = (fd_.reset() == 0) && ok;
  if (ok && hostOps().rename(tmpPath_.c_str(), target_.c_str()) == 0) {
    tmpPath_.clear();
    // The rename itself must survive a crash too. The new content is
    // already in place, so a directory that cannot be synced is no failure.
    UniqueFd dirFd = openFile(dir_.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd.valid()) {
      hostOps().fsync(dirFd.get());
    }
    return true;
  }
  int saved = errno;
  discard();
  errno = saved;
  return false;
}

bool replaceFileAtomically(const std::string &path, std::string_view data,
                           mode_t newMode) {
  FileReplacement replacement;
  return replacement.begin(path, newMode) &&
         writeFull(replacement.fd(), data.data(), data.size()) &&
         replacement.commit();
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
