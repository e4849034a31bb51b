// The seam between the library and the host operating system. Every file,
// directory, clock, random and shell access of the library goes through
// hostOps(), so that tests can make a read short, a write fail with ENOSPC
// or a rename fail, and check that nothing is lost.
//
// The functions follow their POSIX namesakes: -1 and errno on failure.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <ctime>
#include <string>
#include <string_view>

namespace gp {

struct HostOps {
  int (*open)(const char *path, int flags, mode_t mode);
  int (*close)(int fd);
  ssize_t (*read)(int fd, void *buf, size_t count);
  ssize_t (*pread)(int fd, void *buf, size_t count, off_t offset);
  ssize_t (*write)(int fd, const void *buf, size_t count);
  ssize_t (*pwrite)(int fd, const void *buf, size_t count, off_t offset);
  int (*fstat)(int fd, struct stat *st);
  int (*stat)(const char *path, struct stat *st);
  int (*fsync)(int fd);
  int (*ftruncate)(int fd, off_t length);
  int (*rename)(const char *from, const char *to);
  int (*unlink)(const char *path);
  int (*mkdir)(const char *path, mode_t mode);
  int (*rmdir)(const char *path);
  int (*mkstemp)(char *templ);
  int (*fchmod)(int fd, mode_t mode);
  int (*fchown)(int fd, uid_t owner, gid_t group);
  time_t (*time)(time_t *out);
  void (*srand)(unsigned seed);
  int (*rand)();
  int (*system)(const char *command);
};

// The operations in force. Tests replace members through ScopedHostOps.
HostOps &hostOps();

// The real operations.
const HostOps &realHostOps();

// Installs a modified copy of the operations for its lifetime (tests).
class ScopedHostOps {
 public:
  explicit ScopedHostOps(const HostOps &ops) : saved_(hostOps()) {
    hostOps() = ops;
  }
  ~ScopedHostOps() { hostOps() = saved_; }
  ScopedHostOps(const ScopedHostOps &) = delete;
  ScopedHostOps &operator=(const ScopedHostOps &) = delete;

 private:
  HostOps saved_;
};

// Owner of a file descriptor.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
  UniqueFd &operator=(UniqueFd &&other) noexcept {
    if (this != &other) {
      reset(other.release());
    }
    return *this;
  }
  UniqueFd(const UniqueFd &) = delete;
  UniqueFd &operator=(const UniqueFd &) = delete;

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes the descriptor; returns the close result (0 when none was open).
  int reset(int fd = -1);

 private:
  int fd_ = -1;
};

// Opens through the seam, retrying on EINTR.
UniqueFd openFile(const char *path, int flags, mode_t mode = 0);

// Opens a path that a caller named, for reading or writing, without ever
// waiting in open(): the path may name a FIFO, which would wait for a
// writer for ever, or a terminal or other device. It is opened non-blocking
// and checked with fstat() before it is used; only a regular file (and a
// block device when `allowBlockDevice`) is kept, and is then switched back
// to blocking reads and writes. Anything else (a FIFO, a socket, a character
// device, a directory) fails at once with errno EINVAL; other failures keep
// open()'s errno. `st`, when given, receives the file's status.
UniqueFd openUntrustedFile(const char *path, int flags, mode_t mode = 0,
                           struct stat *st = nullptr,
                           bool allowBlockDevice = false);

// Reads exactly `count` bytes at `offset` unless the file ends first;
// returns the bytes read or -1 on error. Retries short reads and EINTR.
ssize_t preadFull(int fd, void *buf, size_t count, off_t offset);

// Writes all of `buf`; false on error (errno set).
bool writeFull(int fd, const void *buf, size_t count);
bool pwriteFull(int fd, const void *buf, size_t count, off_t offset);

// Reads a whole regular file of at most maxSize bytes; false on any error,
// on a non-regular file, or when the file is larger than maxSize.
bool readWholeFile(const char *path, std::string &out,
                   size_t maxSize = 64u << 20);

// A new version of a file, written into a temporary file in the target's
// directory and put in the target's place by commit(), so that a reader
// sees either the old content or the whole new one. An existing target
// keeps its permission bits, owner and group (newMode, and the caller's
// owner, for a new file); a link is resolved, so the link stays a link and
// its target is replaced. When the owner or group cannot be kept (a file
// the caller does not own), the replacement is refused and the target left
// as it was. Until commit() succeeds nothing of the target changes; a
// replacement dropped without commit() removes its temporary file.
class FileReplacement {
 public:
  FileReplacement() = default;
  ~FileReplacement();
  FileReplacement(const FileReplacement &) = delete;
  FileReplacement &operator=(const FileReplacement &) = delete;

  // Creates the temporary file; false (errno set) when it cannot be made.
  bool begin(const std::string &path, mode_t newMode = 0644);
  // The temporary file, to write the new content into.
  int fd() const { return fd_.get(); }
  // Gives the new file the target's owner, group and mode, flushes it and
  // renames it over the target. False (errno set) on any failure, with the
  // target untouched and the temporary file removed.
  bool commit();

 private:
  void discard();
  bool keepOwner();

  std::string target_;
  std::string dir_;
  std::string tmpPath_;
  UniqueFd fd_;
  mode_t mode_ = 0;
  bool targetExists_ = false;
  uid_t owner_ = 0;
  gid_t group_ = 0;
};

// Writes `data` to `path` atomically through a FileReplacement.
bool replaceFileAtomically(const std::string &path, std::string_view data,
                           mode_t newMode = 0644);

// Creates a directory and its missing parents; true if it exists afterwards.
bool makeDirectories(const std::string &path, mode_t mode = 0755);

// Joins two path pieces with one "/".
std::string joinPath(std::string_view dir, std::string_view name);

}  // namespace gp
