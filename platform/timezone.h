// The host's time zone as Windows names it: the zone's Windows name and the
// index number that the text-mode Windows installer takes.
//
// The host zone is the TZ variable when it is set and not empty, else the
// target of the /etc/localtime link, else the first line of /etc/timezone.
// The zone is mapped through the shipped table of IANA zones by Windows
// zone (data/timezones/), which also knows the older and newer names of
// renamed zones.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gp::tz {

struct WindowsZone {
  std::string name;  // empty when the zone is unknown
  int index = -1;    // negative when Windows has no index for it
};

// Where the host's zone is read from (tests point these elsewhere).
struct HostZoneSources {
  const char *tz;             // the TZ value, or null when unset
  const char *localtimeLink;  // normally "/etc/localtime"
  const char *timezoneFile;   // normally "/etc/timezone"
};

HostZoneSources realHostZoneSources();

// The IANA name of the host's zone, or "" when none of the sources names
// one. A TZ that is set and not empty decides alone, even when it names no
// known zone.
std::string hostZoneName(const HostZoneSources &sources);

// The Windows zone of an IANA zone name (or one of its other names).
WindowsZone windowsZoneFor(std::string_view ianaName);

// The Windows index of a Windows zone name, or -1.
int windowsIndexFor(std::string_view windowsName);

// Every IANA zone name the shipped table maps, aliases included.
std::vector<std::string> knownZoneNames();

// The host's zone as a Windows index (negative when unknown); *name gets
// its Windows name as a malloc'ed string, or null when unknown. The
// answer-file writers ask this.
int localWindowsTimeZone(char **name);

// Replaces the answer of localWindowsTimeZone() for its lifetime (tests).
class ScopedLocalZone {
 public:
  ScopedLocalZone(int index, const char *name);
  ~ScopedLocalZone();
  ScopedLocalZone(const ScopedLocalZone &) = delete;
  ScopedLocalZone &operator=(const ScopedLocalZone &) = delete;
};

}  // namespace gp::tz
