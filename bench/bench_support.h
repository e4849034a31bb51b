// Shared by the benchmarks: fixture files in the build tree and a count of
// the bytes read from images through the host seam.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/hostio.h"

namespace gp::bench {

// Where benchmark fixtures are built, once per build tree.
inline std::filesystem::path fixtureDir() {
  return std::filesystem::path(GP_BINARY_DIR) / "bench-fixtures";
}

inline void writeText(const std::filesystem::path &path,
                      const std::string &text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

// Counts every byte that pread delivers while it is alive.
class ReadCounter {
 public:
  ReadCounter() : scoped_(withCounting()) { bytes() = 0; }
  uint64_t total() const { return bytes(); }

 private:
  static uint64_t &bytes() {
    static uint64_t count = 0;
    return count;
  }
  static ssize_t countingPread(int fd, void *buf, size_t n, off_t offset) {
    ssize_t got = realHostOps().pread(fd, buf, n, offset);
    if (got > 0) {
      bytes() += static_cast<uint64_t>(got);
    }
    return got;
  }
  static HostOps withCounting() {
    HostOps ops = hostOps();
    ops.pread = countingPread;
    return ops;
  }
  ScopedHostOps scoped_;
};

}  // namespace gp::bench
