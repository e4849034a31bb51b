// INI-style marker files, decoded from untrusted text.
#include "lib/medium/treeinfo.h"

#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr size_t kMaxLines = 4096;

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
    s.remove_prefix(1);
  }
  while (!s.empty() &&
         (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
    s.remove_suffix(1);
  }
  return s;
}

const std::string *value(const IniSections &ini, const char *section,
                         const char *key) {
  auto s = ini.find(section);
  if (s == ini.end()) {
    return nullptr;
  }
  auto k = s->second.find(key);
  return k == s->second.end() || k->second.empty() ? nullptr : &k->second;
}

// The first of the sections that holds `key`.
std::string pick(const IniSections &ini, const char *key,
                 std::initializer_list<const char *> sections) {
  for (const char *section : sections) {
    if (const std::string *v = value(ini, section, key)) {
      return *v;
    }
  }
  return {};
}

}  // namespace

IniSections parseIni(std::string_view text) {
  IniSections out;
  std::string section;
  size_t pos = 0;
  for (size_t lines = 0; pos < text.size() && lines < kMaxLines; ++lines) {
    size_t end = text.find('\n', pos);
    if (end == std::string_view::npos) {
      end = text.size();
    }
    std::string_view line = trim(text.substr(pos, end - pos));
    pos = end + 1;
    if (line.empty() || line[0] == '#' || line[0] == ';') {
      continue;
    }
    if (line.front() == '[' && line.back() == ']' && line.size() >= 2) {
      section = toLower(trim(line.substr(1, line.size() - 2)));
      continue;
    }
    size_t eq = line.find('=');
    if (eq == std::string_view::npos || section.empty()) {
      continue;
    }
    std::string key = toLower(trim(line.substr(0, eq)));
    if (!key.empty()) {
      out[section].emplace(key, std::string(trim(line.substr(eq + 1))));
    }
  }
  return out;
}

TreeInfo readTreeInfo(std::string_view text) {
  IniSections ini = parseIni(text);
  TreeInfo info;
  // productmd 1.x writes [release]; its compat section [general] carries
  // the family; header 0.3 files write [product].
  info.name = pick(ini, "name", {"release", "product"});
  if (info.name.empty()) {
    info.name = pick(ini, "family", {"general"});
  }
  info.shortName = pick(ini, "short", {"release", "product"});
  info.version = pick(ini, "version", {"release", "product", "general"});
  info.arch = pick(ini, "arch", {"tree", "general"});
  return info;
}

}  // namespace gp::medium
