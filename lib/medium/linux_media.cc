// Linux installation media: the Red Hat family and Fedora, SUSE, Debian,
// Ubuntu and Kali, told apart by the marker files their tools write.
#include <string_view>
#include <vector>

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

// A DVD has the repositories that .treeinfo's variants name (BaseOS and
// AppStream since EL 8), or one at its root (Fedora, EL 7); a boot disc
// has none of them.
bool carriesRepositories(MediumFiles &files, std::string_view treeinfo) {
  std::vector<std::string> dirs = {""};
  for (const auto &[section, keys] : parseIni(treeinfo)) {
    auto repo = keys.find("repository");
    if (startsWith(section, "variant-") && repo != keys.end() &&
        repo->second != "." && dirs.size() < 16) {
      dirs.push_back(repo->second + "/");
    }
  }
  for (const std::string &dir : dirs) {
    std::string marker = dir + "repodata/repomd.xml";
    if (files.exists(marker)) {
      return true;
    }
  }
  return false;
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
  out.packageRepositories = carriesRepositories(files, *text);
  return true;
}

namespace {

// "15 SP4", "15.4", "15.4-0" -> {15, 4}; a missing service pack is 0.
void suseRelease(std::string_view version, long &major, long &sp) {
  majorMinor(version, major, sp);
  std::string lower = toLower(version);
  size_t at = lower.find("sp");
  if (at != std::string::npos) {
    long unused = 0;
    majorMinor(std::string_view(lower).substr(at + 2), sp, unused);
  }
  if (sp < 0) {
    sp = 0;
  }
}

void suseFacts(OsFacts &os, bool enterprise, bool tumbleweed) {
  long major = 0, sp = 0;
  suseRelease(os.version, major, sp);
  os.family = "linux";
  if (tumbleweed) {
    os.distro = "opensuse";
    os.id = "opensusetumbleweed";
  } else if (!enterprise) {
    os.distro = "opensuse";
    os.id = "opensuse" + std::to_string(major) + "." + std::to_string(sp);
  } else {
    // The OS database names SLE 15 and later "sle", SLE 12 "sles".
    os.distro = major >= 15 ? "sle" : "sles";
    os.id = os.distro + std::to_string(major) +
            (sp > 0 ? "sp" + std::to_string(sp) : "");
  }
  os.installer = major >= 16 ? "agama" : "yast";
}

std::string suseArch(MediumFiles &files) {
  for (const char *arch : {"x86_64", "aarch64", "ppc64le", "s390x", "i386"}) {
    if (files.exists(std::string("boot/") + arch)) {
      return normalArch(arch);
    }
  }
  return "";
}

std::string firstLine(std::string_view text) {
  size_t end = text.find_first_of("\r\n");
  return std::string(text.substr(0, end));
}

}  // namespace

bool describeSuse(MediumFiles &files, Description &out) {
  OsFacts os;
  bool enterprise = false, tumbleweed = false;
  if (std::optional<std::string> text = files.read(".treeinfo", kMarkerBytes)) {
    TreeInfo info = readTreeInfo(*text);
    std::string name = toLower(info.name);
    if (contains(name, "suse") ||
        toLower(info.shortName).rfind("sle", 0) == 0) {
      out.cite(".treeinfo");
      os.name = info.name;
      os.version = info.version;
      os.arch = normalArch(info.arch);
      enterprise = !contains(name, "opensuse");
      tumbleweed = contains(name, "tumbleweed");
    }
  }
  if (os.name.empty()) {
    if (std::optional<std::string> text =
            files.read("media.1/products", kMarkerBytes)) {
      // "/ SLES15-SP4 15.4-0": the product's directory, name and version.
      std::string line = firstLine(*text);
      size_t pos = 0;
      std::string_view dir, product, version;
      nextToken(line, pos, " \t", dir);
      nextToken(line, pos, " \t", product);
      nextToken(line, pos, " \t", version);
      std::string lower = toLower(product);
      if (startsWith(lower, "sle") || contains(lower, "opensuse")) {
        out.cite("media.1/products");
        os.name = std::string(product);
        os.version = std::string(version);
        enterprise = startsWith(lower, "sle");
        tumbleweed = contains(lower, "tumbleweed") ||
                     (!enterprise && version.size() >= 8);  // a snapshot date
      }
    }
  }
  if (os.name.empty()) {
    if (std::optional<std::string> text = files.read("content", kMarkerBytes)) {
      // SLE 12: "LABEL SUSE Linux Enterprise Server 12 SP5", "VERSION 12.5".
      std::string label, version, arch;
      size_t pos = 0;
      std::string_view line;
      while (nextToken(*text, pos, "\r\n", line)) {
        size_t space = line.find_first_of(" \t");
        std::string_view key = line.substr(0, space);
        std::string_view rest =
            space == std::string_view::npos ? "" : line.substr(space + 1);
        while (!rest.empty() && (rest[0] == ' ' || rest[0] == '\t')) {
          rest.remove_prefix(1);
        }
        if (key == "LABEL") label = std::string(rest);
        if (key == "VERSION") version = std::string(rest);
        if (key == "BASEARCHS")
          arch = firstLine(rest.substr(0, rest.find(' ')));
      }
      if (contains(toLower(label), "suse")) {
        out.cite("content");
        os.name = label;
        os.version = version;
        os.arch = normalArch(arch);
        enterprise = !contains(toLower(label), "opensuse");
      }
    }
  }
  if (os.name.empty()) {
    return false;
  }
  if (os.arch.empty()) {
    os.arch = suseArch(files);
  }
  suseFacts(os, enterprise, tumbleweed);
  out.os = os;
  return true;
}

namespace {

constexpr const char *kArches[] = {"amd64",   "x86_64",  "i386",  "arm64",
                                   "aarch64", "ppc64el", "s390x", "riscv64"};

}  // namespace

bool describeDebian(MediumFiles &files, Description &out) {
  std::optional<std::string> text = files.read(".disk/info", 4096);
  if (!text) {
    return false;
  }
  // "Debian GNU/Linux 12.5.0 "Bookworm" - Official amd64 DVD Binary-1 ...",
  // "Ubuntu-Server 24.04 LTS "Noble Numbat" - Release amd64 (20240423)".
  std::string line = firstLine(*text);
  std::string lower = toLower(line);
  OsFacts os;
  os.family = "linux";
  size_t quote = line.find('"');
  std::string head = line.substr(0, quote);
  // The name runs up to the first word that starts with a digit; the
  // version is that word.
  size_t pos = 0;
  std::string_view word;
  while (nextToken(head, pos, " \t", word)) {
    if (!word.empty() && word[0] >= '0' && word[0] <= '9') {
      os.version = std::string(word);
      break;
    }
    if (toLower(word) == "kali-rolling") {
      os.version = std::string(word);
      break;
    }
    os.name += (os.name.empty() ? "" : " ") + std::string(word);
  }
  pos = 0;
  while (nextToken(line, pos, " \t()", word)) {
    for (const char *arch : kArches) {
      if (word == arch && os.arch.empty()) {
        os.arch = normalArch(arch);
      }
    }
  }
  long major = 0, minor = 0;
  majorMinor(os.version, major, minor);
  if (contains(lower, "kali")) {
    os.distro = "kali";
    os.id = "kali-rolling";
  } else if (startsWith(lower, "ubuntu")) {
    os.distro = "ubuntu";
    os.id = "ubuntu" + std::to_string(major) + "." + (minor < 10 ? "0" : "") +
            std::to_string(minor < 0 ? 0 : minor);
  } else if (startsWith(lower, "debian")) {
    os.distro = "debian";
    os.id = major > 0 ? "debian" + std::to_string(major) : "debiantesting";
  } else {
    return false;
  }
  out.cite(".disk/info");
  bool installDir = false;
  for (const FoundFile &f : files.list("", 256)) {
    std::string name = toLower(f.path);
    if (f.isDirectory && startsWith(name, "install")) {
      installDir = true;
      out.cite(f.path + "/");
      break;
    }
  }
  if (files.exists("casper")) {
    out.cite("casper/");
    os.installer = contains(lower, "server") ? "subiquity" : "live";
  } else if (files.exists("live") && !installDir) {
    out.cite("live/");
    os.installer = "live";
  } else if (installDir) {
    os.installer = "debian-installer";
  }
  out.os = os;
  return true;
}

}  // namespace gp::medium
