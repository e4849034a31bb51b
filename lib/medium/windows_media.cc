// Windows installation media: the editions in sources/install.wim (or
// install.esd) and the UI language in sources/lang.ini.
#include "lib/medium/description.h"
#include "lib/medium/treeinfo.h"
#include "lib/medium/wim.h"
#include "platform/strutil.h"

namespace gp::medium {
namespace {

std::vector<Edition> readEditions(MediumFiles &files, const std::string &wim,
                                  uint64_t size, std::string &language) {
  std::string header;
  WimXmlLocation xml;
  std::string text;
  if (size < kWimHeaderSize ||
      !files.readRange(wim, 0, kWimHeaderSize, false, header) ||
      !wimXmlLocation(ByteView(std::string_view(header)), size, xml) ||
      !files.readRange(wim, xml.offset, xml.size, true, text)) {
    return {};
  }
  return parseWimXml(text, language);
}

// The first language of [Available UI Languages], spelled as written
// ("en-US").
std::string langIniLanguage(MediumFiles &files) {
  std::optional<std::string> text = files.read("sources/lang.ini", 64 * 1024);
  if (!text) {
    return "";
  }
  bool inSection = false;
  size_t pos = 0;
  std::string_view line;
  while (str::nextToken(*text, pos, "\r\n", line)) {
    std::string_view t = line.substr(0, line.find('='));
    while (!t.empty() && (t.front() == ' ' || t.front() == '\t')) {
      t.remove_prefix(1);
    }
    while (!t.empty() && (t.back() == ' ' || t.back() == '\t')) {
      t.remove_suffix(1);
    }
    if (!t.empty() && t.front() == '[') {
      inSection = str::equalsCaseless(t, "[Available UI Languages]");
    } else if (inSection && !t.empty() && t.front() != ';' &&
               line.find('=') != std::string_view::npos) {
      return std::string(t);
    }
  }
  return "";
}

std::string releaseName(const std::string &id) {
  static const struct {
    const char *id, *name;
  } kNames[] = {{"win8.1", "Windows 8.1"},
                {"win10", "Windows 10"},
                {"win11", "Windows 11"},
                {"win2k12r2", "Windows Server 2012 R2"},
                {"win2k16", "Windows Server 2016"},
                {"win2k19", "Windows Server 2019"},
                {"win2k22", "Windows Server 2022"},
                {"win2k25", "Windows Server 2025"}};
  for (const auto &n : kNames) {
    if (id == n.id) {
      return n.name;
    }
  }
  return "Windows";
}

}  // namespace

bool describeWindows(MediumFiles &files, Description &out) {
  std::string wim;
  std::optional<uint64_t> size;
  for (const char *p : {"sources/install.wim", "sources/install.esd"}) {
    if ((size = files.sizeOf(p))) {
      wim = p;
      break;
    }
  }
  if (!size) {
    return false;
  }
  if (std::optional<FoundFile> f = files.find(wim)) {
    wim = f->path;  // as the medium spells it
  }
  out.cite(wim);
  std::string xmlLanguage;
  out.editions = readEditions(files, wim, *size, xmlLanguage);
  std::string language = langIniLanguage(files);
  if (!language.empty()) {
    out.cite("sources/lang.ini");
    out.language = language;
  } else if (!xmlLanguage.empty()) {
    out.language = xmlLanguage;
  }
  // The release follows the build; a server edition makes it a server
  // disc (NAME is not trusted: early Windows 11 images say Windows 10).
  const Edition *basis = nullptr;
  for (const Edition &e : out.editions) {
    if (basis == nullptr ||
        (!str::startsWithCaseless(basis->installationType, "Server") &&
         str::startsWithCaseless(e.installationType, "Server"))) {
      basis = &e;
    }
  }
  OsFacts os;
  os.distro = "win";
  os.family = "windows";
  os.installer = "windows-setup";
  if (basis != nullptr) {
    os.id = windowsId(*basis);
    os.arch = basis->arch;
    os.version = basis->version;
  }
  if (basis == nullptr) {
    // No readable install image: sources/idwbinfo.txt still tells the
    // architecture ("BuildArch=amd64").
    if (std::optional<std::string> info =
            files.read("sources/idwbinfo.txt", 4096)) {
      IniSections ini = parseIni(*info);
      auto s = ini.find("buildinfo");
      if (s != ini.end() && s->second.count("buildarch")) {
        out.cite("sources/idwbinfo.txt");
        os.arch = normalArch(s->second["buildarch"]);
      }
    }
  }
  os.name = releaseName(os.id);
  if (os.id.empty()) {
    os.id = "win";
  }
  out.os = os;
  return true;
}

}  // namespace gp::medium
