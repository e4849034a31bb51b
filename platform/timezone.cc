// The host's time zone in Windows terms, from the shipped zone tables.
#include "platform/timezone.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/fatal.h"
#include "platform/hostio.h"
#include "platform/strutil.h"

namespace gp::tz {
namespace {

#include "timezone_data.inc"

struct Tables {
  std::map<std::string, std::string, std::less<>> windowsByZone;
  std::map<std::string, int, std::less<>> indexByWindows;
  std::map<std::string, std::string, std::less<>> aliases;
};

std::string_view trim(std::string_view s) {
  size_t b = s.find_first_not_of(" \t\r");
  if (b == std::string_view::npos) {
    return {};
  }
  size_t e = s.find_last_not_of(" \t\r");
  return s.substr(b, e - b + 1);
}

// Calls fn(first, second) for every "first<TAB>second" line that is not a
// comment.
template <typename Fn>
void forEachPair(std::string_view text, Fn fn) {
  str::Tokenizer lines(text, "\n");
  std::string_view line;
  while (lines.next(line)) {
    size_t tab = line.find('\t');
    if (line[0] == '#' || tab == std::string_view::npos) {
      continue;
    }
    fn(trim(line.substr(0, tab)), trim(line.substr(tab + 1)));
  }
}

Tables buildTables() {
  Tables t;
  forEachPair(
      kWindowsZonesText, [&](std::string_view windows, std::string_view zones) {
        str::Tokenizer list(zones, ", ");
        std::string_view zone;
        while (list.next(zone)) {
          t.windowsByZone.emplace(std::string(zone), std::string(windows));
        }
      });
  forEachPair(
      kWindowsIndexText, [&](std::string_view index, std::string_view windows) {
        t.indexByWindows.emplace(std::string(windows),
                                 static_cast<int>(str::parseLong(index)));
      });
  forEachPair(kZoneAliasesText,
              [&](std::string_view alias, std::string_view zone) {
                t.aliases.emplace(std::string(alias), std::string(zone));
              });
  return t;
}

const Tables &tables() {
  static const Tables t = buildTables();
  return t;
}

// The zone name in a path such as "/usr/share/zoneinfo/Europe/Berlin" or
// "../usr/share/zoneinfo/posix/Europe/Berlin"; the text itself when it
// holds no "zoneinfo/".
std::string_view zoneFromPath(std::string_view path) {
  static constexpr std::string_view kDir = "zoneinfo/";
  size_t at = path.rfind(kDir);
  if (at == std::string_view::npos) {
    return path;
  }
  std::string_view zone = path.substr(at + kDir.size());
  for (std::string_view sub : {"posix/", "right/"}) {
    if (str::startsWith(zone, sub)) {
      zone.remove_prefix(sub.size());
    }
  }
  return zone;
}

// The first line of a small regular file; "" when it cannot be read.
std::string firstLineOf(const char *path) {
  std::string text;
  if (!readWholeFile(path, text, 4096)) {
    return {};
  }
  return std::string(trim(std::string_view(text).substr(0, text.find('\n'))));
}

struct Override {
  bool active = false;
  int index = -1;
  std::string name;
  bool hasName = false;
};

Override &localOverride() {
  static Override o;
  return o;
}

}  // namespace

HostZoneSources realHostZoneSources() {
  return {std::getenv("TZ"), "/etc/localtime", "/etc/timezone"};
}

std::string hostZoneName(const HostZoneSources &sources) {
  if (sources.tz != nullptr && sources.tz[0] != '\0') {
    std::string_view tz = sources.tz;
    if (tz[0] == ':') {
      tz.remove_prefix(1);
    }
    return std::string(zoneFromPath(tz));
  }
  if (sources.localtimeLink != nullptr) {
    char target[1024];
    ssize_t n = readlink(sources.localtimeLink, target, sizeof target - 1);
    if (n > 0) {
      std::string_view link(target, static_cast<size_t>(n));
      if (link.find("zoneinfo/") != std::string_view::npos) {
        return std::string(zoneFromPath(link));
      }
    }
  }
  if (sources.timezoneFile != nullptr) {
    return firstLineOf(sources.timezoneFile);
  }
  return {};
}

WindowsZone windowsZoneFor(std::string_view ianaName) {
  const Tables &t = tables();
  auto alias = t.aliases.find(ianaName);
  if (alias != t.aliases.end()) {
    ianaName = alias->second;
  }
  WindowsZone out;
  auto it = t.windowsByZone.find(ianaName);
  if (it != t.windowsByZone.end()) {
    out.name = it->second;
    out.index = windowsIndexFor(out.name);
  }
  return out;
}

int windowsIndexFor(std::string_view windowsName) {
  const Tables &t = tables();
  auto it = t.indexByWindows.find(windowsName);
  return it == t.indexByWindows.end() ? -1 : it->second;
}

std::vector<std::string> knownZoneNames() {
  const Tables &t = tables();
  std::vector<std::string> out;
  for (const auto &z : t.windowsByZone) {
    out.push_back(z.first);
  }
  for (const auto &a : t.aliases) {
    out.push_back(a.first);
  }
  return out;
}

int localWindowsTimeZone(char **name) {
  const Override &o = localOverride();
  WindowsZone zone;
  if (o.active) {
    zone.index = o.index;
    zone.name = o.name;
  } else {
    zone = windowsZoneFor(hostZoneName(realHostZoneSources()));
  }
  if (name != nullptr) {
    bool known = o.active ? o.hasName : !zone.name.empty();
    *name = known ? heapCopy(zone.name) : nullptr;
  }
  return zone.index;
}

ScopedLocalZone::ScopedLocalZone(int index, const char *name) {
  Override &o = localOverride();
  o.active = true;
  o.index = index;
  o.hasName = name != nullptr;
  o.name = name != nullptr ? name : "";
}

ScopedLocalZone::~ScopedLocalZone() { localOverride() = Override(); }

}  // namespace gp::tz
