// Shared by the benchmarks: fixture files in the build tree and a count of
// the bytes read from images through the host seam.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

// A host manifest, AVR file and guest manifest of `components` components
// each, with versions that give every component a different status.
struct ManifestTexts {
  std::string host, avr, guest;
};
inline ManifestTexts manifestTexts(int components) {
  ManifestTexts t{"monolithic.version = \"8.3.2.4610\"\n",
                  "monolithic.version = \"8.0\"\n",
                  "monolithic.version = \"8.2.0.100\"\n"};
  for (int i = 0; i < components; ++i) {
    std::string n = "component" + std::to_string(i);
    t.host += n + ".version = \"" + std::to_string(i % 7 + 1) + ".4.2.1000\"\n";
    t.avr += n + ".version = \"1.0\"\n" + n + ".version_max = \"9.9\"\n" + n +
             ".version_illegal = \"1.1, 2.2#2, 3.3.3\"\n";
    t.guest += n + ".version = \"" + std::to_string(i % 5 + 1) + ".4.2.77\"\n" +
               n + ".installed = \"TRUE\"\n";
  }
  return t;
}

// Masters `tree` into `image` with xorriso's mkisofs emulation and
// `options`, then extends it to `size` bytes as a sparse file; exits when
// either step fails.
inline void masterSparseImage(const std::string &options,
                              const std::filesystem::path &tree,
                              const std::filesystem::path &image,
                              uintmax_t size) {
  std::string cmd = "xorriso -as mkisofs -quiet " + options + " -o '" +
                    image.string() + "' '" + tree.string() +
                    "' >/dev/null 2>&1 && truncate -s " + std::to_string(size) +
                    " '" + image.string() + "'";
  if (std::system(cmd.c_str()) != 0) {
    std::fprintf(stderr, "cannot build %s\n", image.c_str());
    std::exit(1);
  }
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
