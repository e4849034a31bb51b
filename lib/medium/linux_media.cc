// Linux installation media: the Red Hat family and Fedora, SUSE, Debian,
// Ubuntu and Kali, told apart by the marker files their tools write.
#include <string_view>

#include "lib/medium/description.h"
#include "lib/medium/treeinfo.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr size_t kMarkerBytes = 64 * 1024;

struct Distro {
  const char *match;   // lower-case text the name (or short name) contains
  const char *distro;  // the OS database's distro name
};

// Longer names first: "centos stream" before "centos".
constexpr Distro kRedHatNames[] = {
    {"centos stream", "centos-stream"},
    {"centos-stream", "centos-stream"},
    {"centos", "centos"},
    {"red hat enterprise linux", "rhel"},
    {"rhel", "rhel"},
    {"rocky", "rocky"},
    {"almalinux", "almalinux"},
    {"oracle linux", "ol"},
    {"ol", "ol"},
    {"fedora", "fedora"},
};

const char *redHatDistro(const TreeInfo &info) {
  std::string name = toLower(info.name);
  std::string shortName = toLower(info.shortName);
  for (const Distro &d : kRedHatNames) {
    if (contains(name, d.match) || shortName == d.match) {
      return d.distro;
    }
  }
  return nullptr;
}

// The leading numbers of a version: "9.3.0" -> {9, 3}, "9" -> {9, -1}.
void majorMinor(std::string_view version, long &major, long &minor) {
  major = minor = -1;
  size_t pos = 0;
  auto number = [&](long &out) {
    size_t start = pos;
    while (pos < version.size() && version[pos] >= '0' && version[pos] <= '9' &&
           pos - start < 6) {
      ++pos;
    }
    if (pos > start) {
      out = parseLong(version.substr(start, pos - start));
    }
  };
  number(major);
  if (pos < version.size() && version[pos] == '.') {
    ++pos;
    number(minor);
  }
}

// The OS database writes major.minor for most of the family, the major
// release alone for Fedora, CentOS 8 and CentOS Stream, and centos7.0 for
// every CentOS 7.
std::string redHatId(const std::string &distro, const std::string &version) {
  long major = 0, minor = 0;
  majorMinor(version, major, minor);
  if (distro == "fedora" && toLower(version) == "rawhide") {
    return "fedora-rawhide";
  }
  if (major < 0) {
    return distro;
  }
  std::string m = std::to_string(major);
  std::string mm = m + "." + std::to_string(minor < 0 ? 0 : minor);
  if (distro == "fedora" || distro == "centos-stream") {
    return distro + m;
  }
  if (distro == "centos") {
    return major == 7 ? "centos7.0" : major >= 8 ? "centos" + m : "centos" + mm;
  }
  return distro + mm;
}

}  // namespace

std::string normalArch(std::string_view arch) {
  std::string a = toLower(arch);
  if (a == "amd64" || a == "x86-64" || a == "x64") {
    return "x86_64";
  }
  if (a == "i386" || a == "i486" || a == "i586" || a == "x86") {
    return "i686";
  }
  if (a == "arm64") {
    return "aarch64";
  }
  if (a == "ppc64el") {
    return "ppc64le";
  }
  return a;
}

bool describeRedHat(MediumFiles &files, Description &out) {
  std::optional<std::string> text = files.read(".treeinfo", kMarkerBytes);
  if (!text) {
    return false;
  }
  TreeInfo info = readTreeInfo(*text);
  const char *distro = redHatDistro(info);
  if (distro == nullptr) {
    return false;
  }
  out.cite(".treeinfo");
  OsFacts os;
  os.distro = distro;
  os.family = "linux";
  os.name = info.name;
  os.version = info.version;
  os.arch = normalArch(info.arch);
  // .discinfo (timestamp, release, architecture) fills what is missing.
  if (std::optional<std::string> disc = files.read(".discinfo", 4096)) {
    out.cite(".discinfo");
    size_t pos = 0;
    std::string_view lines(*disc);
    std::string_view field[3];
    for (auto &f : field) {
      size_t end = lines.find('\n', pos);
      if (end == std::string_view::npos) {
        end = lines.size();
      }
      f = pos < lines.size() ? lines.substr(pos, end - pos) : "";
      pos = end + 1;
    }
    if (os.arch.empty()) {
      os.arch = normalArch(field[2]);
    }
  }
  os.id = redHatId(os.distro, os.version);
  os.installer = "anaconda";
  out.os = os;
  return true;
}

bool describeSuse(MediumFiles &files, Description &out) {
  (void)files;
  (void)out;
  return false;
}

bool describeDebian(MediumFiles &files, Description &out) {
  (void)files;
  (void)out;
  return false;
}

bool describeWindows(MediumFiles &files, Description &out) {
  (void)files;
  (void)out;
  return false;
}

}  // namespace gp::medium
