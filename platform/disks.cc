#include "platform/disks.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "platform/hostio.h"
#include "platform/msgcatalog.h"

namespace gp::disks {
namespace {

// The index N of a "diskN.path" key.
std::optional<uint32_t> diskIndex(std::string_view key) {
  constexpr std::string_view kPrefix = "disk", kSuffix = ".path";
  if (key.size() <= kPrefix.size() + kSuffix.size() ||
      key.substr(0, kPrefix.size()) != kPrefix ||
      key.substr(key.size() - kSuffix.size()) != kSuffix) {
    return std::nullopt;
  }
  std::string_view digits =
      key.substr(kPrefix.size(), key.size() - kPrefix.size() - kSuffix.size());
  if (digits.size() > 9) {
    return std::nullopt;
  }
  uint32_t n = 0;
  for (char c : digits) {
    if (c < '0' || c > '9') {
      return std::nullopt;
    }
    n = n * 10 + static_cast<uint32_t>(c - '0');
  }
  return n;
}

bool climbsOut(std::string_view path) {
  size_t pos = 0;
  while (pos <= path.size()) {
    size_t slash = path.find('/', pos);
    if (slash == std::string_view::npos) {
      slash = path.size();
    }
    if (path.substr(pos, slash - pos) == "..") {
      return true;
    }
    pos = slash + 1;
  }
  return false;
}

}  // namespace

bool listCurrentDisks(const char *configPath, std::vector<std::string> *paths) {
  paths->clear();
  ConfigDict config;
  if (!config.loadFile(configPath)) {
    msg::takePending();  // the listing reports no reasons
    return false;
  }
  std::vector<std::pair<uint32_t, std::string>> found;
  bool tooMany = false;
  config.iterate([&](const char *name, const char *value) {
    std::optional<uint32_t> index = diskIndex(name);
    if (!index || *value == '\0' || climbsOut(value)) {
      return;
    }
    if (found.size() == kMaxDisks) {
      tooMany = true;
      return;
    }
    found.emplace_back(*index, value);
  });
  if (tooMany) {
    return false;
  }
  std::sort(found.begin(), found.end(),
            [](const auto &a, const auto &b) { return a.first < b.first; });
  std::string_view pathView(configPath);
  size_t slash = pathView.rfind('/');
  std::string_view dir = slash == std::string_view::npos
                             ? std::string_view()
                             : pathView.substr(0, slash + 1);
  for (auto &[index, path] : found) {
    paths->push_back(path[0] == '/' || dir.empty() ? path
                                                   : joinPath(dir, path));
  }
  return true;
}

bool VirtualDisk::open(const std::string &path) {
  open_ = false;
  descriptor_ = ConfigDict();
  struct stat st;
  std::string text;
  // The size is checked before reading, so that a FIFO or a huge file is
  // never opened.
  if (hostOps().stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) ||
      static_cast<unsigned long long>(st.st_size) > kMaxDescriptorSize ||
      !readWholeFile(path.c_str(), text, kMaxDescriptorSize)) {
    return false;
  }
  if (!descriptor_.loadBuffer(text, path)) {
    msg::takePending();
    descriptor_ = ConfigDict();
    return false;
  }
  open_ = true;
  return true;
}

std::optional<std::string> VirtualDisk::getDescriptorKey(
    const char *key) const {
  const char *value = open_ ? descriptor_.get(key) : nullptr;
  if (value == nullptr) {
    return std::nullopt;
  }
  return std::string(value);
}

}  // namespace gp::disks
