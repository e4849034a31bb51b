#include "lib/guestInstall/autoinstall_hostfiles.h"

#include <dirent.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/abi.h"
#include "platform/hostio.h"

namespace gp::autoinstall {
namespace {

constexpr size_t kCopyChunk = 1u << 20;
// Deeper staging trees are not ours; deletion stops there.
constexpr int kMaxRemoveDepth = 64;
constexpr size_t kMaxRemoveEntries = 100000;

// Owner of an open directory stream.
struct DirCloser {
  void operator()(DIR *dir) const { ::closedir(dir); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;

// Opens a directory for listing; with `noFollow` a link in its place is
// refused.
UniqueDir openHostDir(const std::string &path, bool noFollow) {
  int flags = O_RDONLY | O_DIRECTORY | O_NONBLOCK | (noFollow ? O_NOFOLLOW : 0);
  UniqueFd fd = openFile(path.c_str(), flags);
  if (!fd.valid()) {
    return nullptr;
  }
  DIR *dir = ::fdopendir(fd.get());
  if (dir == nullptr) {
    return nullptr;
  }
  fd.release();  // the stream owns it now
  return UniqueDir(dir);
}

bool isDotOrDotDot(const char *name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

std::string canonical(const std::string &path) {
  MallocPtr<char> real(::realpath(path.c_str(), nullptr));
  return real ? std::string(real.get()) : std::string();
}

// Whether the path is a directory itself, not a link to one.
bool isRealDirectory(const std::string &path) {
  UniqueFd fd = openFile(path.c_str(), O_PATH | O_NOFOLLOW);
  struct stat st;
  return fd.valid() && hostOps().fstat(fd.get(), &st) == 0 &&
         S_ISDIR(st.st_mode);
}

bool removeTree(const std::string &path, int depth, size_t &budget) {
  if (!isRealDirectory(path)) {
    return hostOps().unlink(path.c_str()) == 0 || errno == ENOENT;
  }
  if (depth >= kMaxRemoveDepth) {
    return false;
  }
  bool ok = true;
  {
    UniqueDir dir = openHostDir(path, true);
    if (!dir) {
      return false;
    }
    std::vector<std::string> names;
    while (struct dirent *e = ::readdir(dir.get())) {
      if (!isDotOrDotDot(e->d_name)) {
        names.emplace_back(e->d_name);
      }
    }
    for (const std::string &name : names) {
      if (budget == 0) {
        return false;
      }
      --budget;
      ok = removeTree(joinPath(path, name), depth + 1, budget) && ok;
    }
  }
  return hostOps().rmdir(path.c_str()) == 0 && ok;
}

}  // namespace

bool copyHostFile(const std::string &from, const std::string &to) {
  UniqueFd in = openFile(from.c_str(), O_RDONLY | O_NONBLOCK);
  struct stat st;
  if (!in.valid() || hostOps().fstat(in.get(), &st) != 0 ||
      !S_ISREG(st.st_mode)) {
    return false;
  }
  std::vector<char> temp(to.begin(), to.end());
  const char suffix[] = ".XXXXXX";
  temp.insert(temp.end(), suffix, suffix + sizeof suffix);
  UniqueFd out(hostOps().mkstemp(temp.data()));
  if (!out.valid()) {
    return false;
  }
  std::vector<char> buffer(kCopyChunk);
  bool ok = true;
  for (;;) {
    ssize_t n = hostOps().read(in.get(), buffer.data(), buffer.size());
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      ok = n == 0;
      break;
    }
    if (!writeFull(out.get(), buffer.data(), static_cast<size_t>(n))) {
      ok = false;
      break;
    }
  }
  ok = ok && hostOps().fchmod(out.get(), st.st_mode & 07777) == 0;
  ok = out.reset() == 0 && ok;
  ok = ok && hostOps().rename(temp.data(), to.c_str()) == 0;
  if (!ok) {
    hostOps().unlink(temp.data());
  }
  return ok;
}

bool hostRegularFileExists(const std::string &path) {
  struct stat st;
  return hostOps().stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

void removeSpecialFile(const std::string &path) {
  UniqueFd fd = openFile(path.c_str(), O_PATH | O_NOFOLLOW);
  struct stat st;
  if (fd.valid() && hostOps().fstat(fd.get(), &st) == 0 &&
      !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
    hostOps().unlink(path.c_str());
  }
}

bool listHostDirectory(const std::string &dir, size_t limit,
                       std::vector<HostDirEntry> &entries) {
  entries.clear();
  UniqueDir stream = openHostDir(dir, false);
  if (!stream) {
    return false;
  }
  while (struct dirent *e = ::readdir(stream.get())) {
    if (isDotOrDotDot(e->d_name)) {
      continue;
    }
    if (entries.size() == limit) {
      return false;
    }
    entries.push_back({e->d_name, e->d_type != DT_REG});
  }
  return true;
}

bool hostPathInside(const std::string &root, const std::string &path) {
  std::string realRoot = canonical(root);
  std::string realPath = canonical(path);
  if (realRoot.empty() || realPath.empty()) {
    return false;
  }
  if (realRoot == "/") {
    return true;
  }
  return realPath == realRoot ||
         (realPath.compare(0, realRoot.size(), realRoot) == 0 &&
          realPath[realRoot.size()] == '/');
}

bool removeHostTree(const std::string &path) {
  // Whatever the caller named, never the whole file system.
  if (canonical(path) == "/") {
    return false;
  }
  size_t budget = kMaxRemoveEntries;
  return removeTree(path, 0, budget);
}

}  // namespace gp::autoinstall
