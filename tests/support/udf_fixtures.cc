#include "support/udf_fixtures.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "platform/udf_descriptors.h"

namespace fs = std::filesystem;

namespace gp::test {
namespace {

std::string treeKey(const FileTree &files, std::string_view flavor) {
  uint64_t h = 1469598103934665603ull;
  auto mix = [&](std::string_view data) {
    for (unsigned char c : data) {
      h = (h ^ c) * 1099511628211ull;
    }
  };
  for (const auto &[name, content] : files) {
    mix(name);
    mix(std::string_view("\0", 1));
    mix(content);
    mix(std::string_view("\1", 1));
  }
  char key[32];
  std::snprintf(key, sizeof key, "%016llx", static_cast<unsigned long long>(h));
  std::string dir = std::string(GP_BINARY_DIR) + "/fixtures";
  fs::create_directories(dir);
  return dir + "/udf-" + key + "-" + std::string(flavor) + ".img";
}

// Runs `make` with a temporary output path and renames the result into
// place, so that parallel tests racing to build one fixture never see a
// half-written image.
template <typename Make>
std::string cached(const std::string &out, Make &&make) {
  if (fileExists(out)) {
    return out;
  }
  std::string tmp = out + ".tmp" + std::to_string(::getpid());
  std::string cmd = make(tmp) + " >/dev/null 2>&1";
  if (runCommand(cmd) != 0) {
    throw std::runtime_error("fixture failed: " + cmd);
  }
  fs::rename(tmp, out);
  return out;
}

const char kPycdlibScript[] = R"(
import io, os, sys, pycdlib
root, out, udf_only = sys.argv[1], sys.argv[2], sys.argv[3] == '1'
iso = pycdlib.PyCdlib()
iso.new(udf='2.60', interchange_level=4)
iso_of = {'': ''}
n = 0
for dirpath, dirs, files in os.walk(root):
    dirs.sort()
    rel = os.path.relpath(dirpath, root)
    rel = '' if rel == '.' else rel
    for d in dirs:
        n += 1
        r = rel + '/' + d if rel else d
        iso_of[r] = iso_of[rel] + '/D%d' % n
        if udf_only:
            iso.add_directory(udf_path='/' + r)
        else:
            iso.add_directory(iso_of[r], udf_path='/' + r)
    for f in sorted(files):
        n += 1
        r = rel + '/' + f if rel else f
        data = open(os.path.join(dirpath, f), 'rb').read()
        iso_path = None if udf_only else iso_of[rel] + '/F%d.;1' % n
        iso.add_fp(io.BytesIO(data), len(data), iso_path, udf_path='/' + r)
iso.write(out)
)";

}  // namespace

std::string udfBridgeFromTree(const FileTree &files) {
  return cached(treeKey(files, "genisoimage"), [&](const std::string &tmp) {
    static TempDir scratch;
    std::string root = scratch / fs::path(tmp).filename().string();
    fs::remove_all(root);
    writeTree(root, files);
    return "genisoimage -quiet -input-charset utf-8 -udf -J -R -V TESTVOL -o " +
           shellQuote(tmp) + " " + shellQuote(root);
  });
}

std::string pycdlibUdfFromTree(const FileTree &files, bool udfOnly) {
  return cached(treeKey(files, udfOnly ? "pycdlib-udf" : "pycdlib"),
                [&](const std::string &tmp) {
                  static TempDir scratch;
                  std::string root =
                      scratch / fs::path(tmp).filename().string();
                  fs::remove_all(root);
                  writeTree(root, files);
                  writeFile(scratch / "make.py", kPycdlibScript);
                  return "/usr/bin/python3 " + shellQuote(scratch / "make.py") +
                         " " + shellQuote(root) + " " + shellQuote(tmp) +
                         (udfOnly ? " 1" : " 0");
                });
}

std::string mkudffsImage(const std::string &revision, unsigned blockSize,
                         const std::string &media) {
  FileTree none;
  std::string flavor =
      "mkudffs-" + media + "-" + revision + "-" + std::to_string(blockSize);
  return cached(treeKey(none, flavor), [&](const std::string &tmp) {
    return "mkudffs --media-type=" + media + " --udfrev=" + revision +
           " --blocksize=" + std::to_string(blockSize) + " --label=Rev" +
           revision + " --new-file " + shellQuote(tmp) + " 2048";
  });
}

std::string loadImage(const std::string &path) { return readFile(path); }

void saveImage(const std::string &path, const std::string &bytes) {
  writeFile(path, bytes);
}

uint16_t get16(const std::string &b, size_t at) {
  return static_cast<uint16_t>(static_cast<uint8_t>(b[at]) |
                               static_cast<uint8_t>(b[at + 1]) << 8);
}
uint32_t get32(const std::string &b, size_t at) {
  return get16(b, at) | static_cast<uint32_t>(get16(b, at + 2)) << 16;
}
uint64_t get64(const std::string &b, size_t at) {
  return get32(b, at) | static_cast<uint64_t>(get32(b, at + 4)) << 32;
}
void put16(std::string &b, size_t at, uint16_t v) {
  b[at] = static_cast<char>(v & 0xFF);
  b[at + 1] = static_cast<char>(v >> 8);
}
void put32(std::string &b, size_t at, uint32_t v) {
  put16(b, at, static_cast<uint16_t>(v));
  put16(b, at + 2, static_cast<uint16_t>(v >> 16));
}
void put64(std::string &b, size_t at, uint64_t v) {
  put32(b, at, static_cast<uint32_t>(v));
  put32(b, at + 4, static_cast<uint32_t>(v >> 32));
}

void resealTag(std::string &image, size_t offset, size_t crcLength) {
  put16(image, offset + 10, static_cast<uint16_t>(crcLength));
  put16(image, offset + 8,
        udf::disc::crc16(
            reinterpret_cast<const uint8_t *>(image.data()) + offset + 16,
            crcLength));
  uint8_t sum = 0;
  for (size_t i = 0; i < 16; ++i) {
    if (i != 4) {
      sum = static_cast<uint8_t>(sum + static_cast<uint8_t>(image[offset + i]));
    }
  }
  image[offset + 4] = static_cast<char>(sum);
}

size_t findDescriptor(const std::string &image, uint16_t id, size_t from) {
  for (size_t at = from; at + 2048 <= image.size(); at += 2048) {
    udf::disc::Bytes b(reinterpret_cast<const uint8_t *>(image.data()) + at,
                       2048);
    if (udf::disc::validTag(b, id)) {
      return at;
    }
  }
  return std::string::npos;
}

size_t findFileEntryBySize(const std::string &image, uint64_t length) {
  for (uint16_t id : {uint16_t{261}, uint16_t{266}}) {
    for (size_t at = findDescriptor(image, id); at != std::string::npos;
         at = findDescriptor(image, id, at + 2048)) {
      if (get64(image, at + 56) == length) {
        return at;
      }
    }
  }
  return std::string::npos;
}

}  // namespace gp::test
