#include "support/fixtures.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace gp::test {
namespace {

uint64_t fnv1a(uint64_t h, std::string_view data) {
  for (unsigned char c : data) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

std::string cacheDir() {
  std::string dir = std::string(GP_BINARY_DIR) + "/fixtures";
  fs::create_directories(dir);
  return dir;
}

const char *flavorName(IsoFlavor flavor) {
  switch (flavor) {
    case IsoFlavor::Primary: return "primary";
    case IsoFlavor::Joliet: return "joliet";
    case IsoFlavor::RockRidge: return "rr";
    case IsoFlavor::JolietRockRidge: return "jrr";
  }
  return "unknown";
}

std::string mastering(IsoFlavor flavor, const std::string &out,
                      const std::string &dir) {
  const std::string fixed =
      " -V TESTVOL --modification-date=2020010100000000 ";
  switch (flavor) {
    case IsoFlavor::Primary:
      return "genisoimage -quiet -o " + shellQuote(out) + " " +
             shellQuote(dir);
    case IsoFlavor::Joliet:
      return "genisoimage -quiet -J -o " + shellQuote(out) + " " +
             shellQuote(dir);
    case IsoFlavor::RockRidge:
      return "xorriso -as mkisofs -quiet -R" + fixed + "-o " +
             shellQuote(out) + " " + shellQuote(dir);
    case IsoFlavor::JolietRockRidge:
      return "xorriso -as mkisofs -quiet -J -R" + fixed + "-o " +
             shellQuote(out) + " " + shellQuote(dir);
  }
  return {};
}

}  // namespace

std::string sourcePath(std::string_view relative) {
  return std::string(GP_SOURCE_DIR) + "/" + std::string(relative);
}

TempDir::TempDir() {
  std::string tmpl = (fs::temp_directory_path() / "gptest-XXXXXX").string();
  if (::mkdtemp(tmpl.data()) == nullptr) {
    throw std::runtime_error("mkdtemp failed");
  }
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only directories behind; make them writable.
  for (auto it = fs::recursive_directory_iterator(path_, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec)) {
      fs::permissions(it->path(), fs::perms::owner_all,
                      fs::perm_options::add, ec);
    }
  }
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

std::string TempDir::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

void writeFile(const std::string &path, std::string_view content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out) {
    throw std::runtime_error("cannot write " + path);
  }
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool fileExists(const std::string &path) {
  std::error_code ec;
  return fs::exists(path, ec);
}

int runCommand(const std::string &command, std::string *output) {
  FILE *pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return -1;
  }
  std::array<char, 4096> buf;
  size_t n;
  while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) {
    if (output != nullptr) {
      output->append(buf.data(), n);
    }
  }
  int status = ::pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string shellQuote(std::string_view s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'') {
      out += "'\\''";
    } else {
      out += c;
    }
  }
  return out + "'";
}

void writeTree(const std::string &root, const FileTree &files) {
  fs::create_directories(root);
  for (const auto &[name, content] : files) {
    if (!name.empty() && name.back() == '/') {
      fs::create_directories(root + "/" + name);
    } else {
      writeFile(root + "/" + name, content);
    }
  }
}

std::string isoFromTree(const FileTree &files, IsoFlavor flavor) {
  uint64_t h = 1469598103934665603ull;
  for (const auto &[name, content] : files) {
    h = fnv1a(h, name);
    h = fnv1a(h, std::string_view("\0", 1));
    h = fnv1a(h, content);
    h = fnv1a(h, std::string_view("\1", 1));
  }
  char key[32];
  std::snprintf(key, sizeof key, "%016llx", static_cast<unsigned long long>(h));
  std::string out = cacheDir() + "/tree-" + key + "-" + flavorName(flavor) +
                    ".iso";
  if (fileExists(out)) {
    return out;
  }
  TempDir tree;
  writeTree(tree.path() + "/root", files);
  std::string tmp = out + ".tmp" + std::to_string(::getpid());
  std::string cmd = mastering(flavor, tmp, tree.path() + "/root") + " 2>&1";
  // The mastering tool has been seen to fail once, without a trace, on a
  // loaded CI machine; a second attempt tells a passing hiccup from a real
  // fault, and what the tool said is kept for the report either way.
  std::string said;
  for (int attempt = 1; attempt <= 3; ++attempt) {
    std::string output;
    int rc = runCommand(cmd, &output);
    if (rc == 0) {
      fs::rename(tmp, out);  // atomic: parallel tests may race to build it
      return out;
    }
    said += "attempt " + std::to_string(attempt) + " exit " +
            std::to_string(rc) + ": " + output + "\n";
    std::fprintf(stderr, "fixture: %s failed (exit %d): %s\n", cmd.c_str(),
                 rc, output.c_str());
    std::error_code ec;
    fs::remove(tmp, ec);
    ::usleep(200000 * attempt);  // a machine short of processes recovers
  }
  throw std::runtime_error("mastering failed: " + cmd + "\n" + said);
}

std::string isoFromDirectory(const std::string &dir, IsoFlavor flavor) {
  FileTree files;
  for (const auto &entry : fs::recursive_directory_iterator(dir)) {
    std::string rel = fs::relative(entry.path(), dir).string();
    if (entry.is_directory()) {
      files[rel + "/"] = "";
    } else if (entry.is_regular_file()) {
      files[rel] = readFile(entry.path().string());
    }
  }
  return isoFromTree(files, flavor);
}

}  // namespace gp::test
