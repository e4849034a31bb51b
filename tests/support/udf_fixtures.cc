#include "support/udf_fixtures.h"

#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>

namespace fs = std::filesystem;

namespace gp::test {
namespace {

// The image of `files` in the given flavour. `make` returns the command
// that writes it to a temporary path, renamed into place afterwards, so
// that tests racing to build one fixture never see a half-written image.
std::string cached(
    const FileTree &files, const std::string &flavor,
    const std::function<std::string(const std::string &)> &make) {
  std::string all;
  for (const auto &[name, content] : files) all += name + '\0' + content + '\1';
  std::string dir = std::string(GP_BINARY_DIR) + "/fixtures";
  std::string out = dir + "/udf-" +
                    std::to_string(std::hash<std::string>{}(all)) + "-" +
                    flavor + ".img";
  if (fileExists(out)) return out;
  fs::create_directories(dir);
  std::string tmp = out + ".tmp" + std::to_string(::getpid());
  std::string cmd = make(tmp) + " >/dev/null 2>&1";
  if (runCommand(cmd) != 0) throw std::runtime_error("fixture failed: " + cmd);
  fs::rename(tmp, out);
  return out;
}

// The tree written out for the maker of `tmp`, quoted for the shell.
std::string treeFor(const FileTree &files, const std::string &tmp) {
  static TempDir scratch;
  std::string root = scratch / fs::path(tmp).filename().string();
  fs::remove_all(root);
  writeTree(root, files);
  return shellQuote(root);
}

const char kPycdlibScript[] = R"(
import io, os, sys, pycdlib
root, out = sys.argv[1:3]
iso = pycdlib.PyCdlib()
iso.new(udf='2.60', interchange_level=4)
for dirpath, dirs, files in os.walk(root):
    dirs.sort()
    rel = dirpath[len(root):]
    for d in dirs:
        iso.add_directory(udf_path=rel + '/' + d)
    for f in sorted(files):
        data = open(os.path.join(dirpath, f), 'rb').read()
        iso.add_fp(io.BytesIO(data), len(data), udf_path=rel + '/' + f)
iso.write(out)
)";

}  // namespace

std::string udfBridgeFromTree(const FileTree &files) {
  return cached(files, "genisoimage", [&](const std::string &tmp) {
    return "genisoimage -quiet -input-charset utf-8 -udf -J -R -V TESTVOL -o " +
           shellQuote(tmp) + " " + treeFor(files, tmp);
  });
}

std::string pycdlibUdfFromTree(const FileTree &files) {
  return cached(files, "pycdlib-udf", [&](const std::string &tmp) {
    return "/usr/bin/python3 -c " + shellQuote(kPycdlibScript) + " " +
           treeFor(files, tmp) + " " + shellQuote(tmp);
  });
}

std::string mkudffsImage(const std::string &options) {
  return cached({{options, ""}}, "mkudffs", [&](const std::string &tmp) {
    return "mkudffs " + options + " --label=Test --new-file " +
           shellQuote(tmp) + " 2048";
  });
}

}  // namespace gp::test
