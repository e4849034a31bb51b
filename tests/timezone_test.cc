// The host time zone in Windows terms: the shipped tables, renamed zones,
// and where the host's zone is read from.
#include "platform/timezone.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "support/fixtures.h"

namespace gp::tz {
namespace {

TEST(TimeZone, KnownZonesGiveWindowsNameAndIndex) {
  struct {
    const char *zone;
    const char *windows;
    int index;
  } const rows[] = {
      {"Asia/Tokyo", "Tokyo Standard Time", 235},
      {"Europe/Berlin", "W. Europe Standard Time", 110},
      {"America/Los_Angeles", "Pacific Standard Time", 4},
      {"Asia/Kolkata", "India Standard Time", 190},
      {"Asia/Calcutta", "India Standard Time", 190},
      {"Europe/London", "GMT Standard Time", 85},
      {"Europe/Kyiv", "FLE Standard Time", 125},
      {"Europe/Kiev", "FLE Standard Time", 125},
      {"America/Nuuk", "Greenland Standard Time", 73},
      {"America/Mexico_City", "Central Standard Time (Mexico)", 30},
      {"US/Eastern", "Eastern Standard Time", 35},
      {"UTC", "UTC", -1},  // Windows gave UTC no index
      {"America/Whitehorse", "Yukon Standard Time", -1},
      {"Mars/Olympus_Mons", "", -1},
      {"", "", -1},
      {"asia/tokyo", "", -1},  // zone names are case-sensitive
  };
  for (const auto &r : rows) {
    WindowsZone z = windowsZoneFor(r.zone);
    EXPECT_EQ(z.name, r.windows) << r.zone;
    EXPECT_EQ(z.index, r.index) << r.zone;
  }
}

TEST(TimeZone, EveryShippedZoneMapsAndEveryHostZoneIsKnown) {
  std::set<std::string> known;
  for (const std::string &zone : knownZoneNames()) {
    EXPECT_FALSE(windowsZoneFor(zone).name.empty()) << zone;
    known.insert(zone);
  }
  EXPECT_GT(known.size(), 500u);
  // The zones of the host's time zone database; those newer than the
  // table, or without any Windows zone, are the only ones it may lack.
  std::ifstream tab("/usr/share/zoneinfo/zone1970.tab");
  if (!tab) {
    GTEST_SKIP() << "no zone1970.tab on this host";
  }
  const std::set<std::string> gaps = {"Antarctica/Troll", "America/Coyhaique"};
  std::string line;
  while (std::getline(tab, line)) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    std::istringstream fields(line);
    std::string codes, coords, zone;
    std::getline(fields, codes, '\t');
    std::getline(fields, coords, '\t');
    std::getline(fields, zone, '\t');
    EXPECT_TRUE(known.count(zone) != 0 || gaps.count(zone) != 0) << zone;
  }
}

class HostZone : public ::testing::Test {
 protected:
  test::TempDir dir;
  std::string link = dir / "localtime";
  std::string file = dir / "timezone";
  HostZoneSources sources(const char *tzValue) {
    return {tzValue, link.c_str(), file.c_str()};
  }
};

TEST_F(HostZone, TzDecidesWheneverItIsSetAndNotEmpty) {
  ASSERT_EQ(0, symlink("/usr/share/zoneinfo/Europe/London", link.c_str()));
  test::writeFile(file, "Asia/Kolkata\n");
  EXPECT_EQ(hostZoneName(sources("Europe/Berlin")), "Europe/Berlin");
  EXPECT_EQ(hostZoneName(sources(":Asia/Tokyo")), "Asia/Tokyo");
  EXPECT_EQ(hostZoneName(sources("/usr/share/zoneinfo/posix/Asia/Tokyo")),
            "Asia/Tokyo");
  // A zone that does not exist is not looked for elsewhere.
  EXPECT_EQ(hostZoneName(sources("Nowhere/Land")), "Nowhere/Land");
  EXPECT_EQ(windowsZoneFor(hostZoneName(sources("Nowhere/Land"))).index, -1);
  // Unset or empty: the link.
  EXPECT_EQ(hostZoneName(sources(nullptr)), "Europe/London");
  EXPECT_EQ(hostZoneName(sources("")), "Europe/London");
}

TEST_F(HostZone, WithoutTheLinkTheTimezoneFileAndThenNothing) {
  test::writeFile(file, "  Asia/Kolkata  \nrest\n");
  EXPECT_EQ(hostZoneName(sources(nullptr)), "Asia/Kolkata");
  // A regular file at the link's place is no link.
  test::writeFile(link, "TZif");
  EXPECT_EQ(hostZoneName(sources(nullptr)), "Asia/Kolkata");
  unlink(file.c_str());
  EXPECT_EQ(hostZoneName(sources(nullptr)), "");
  // A FIFO is not waited on.
  ASSERT_EQ(0, mkfifo(file.c_str(), 0600));
  EXPECT_EQ(hostZoneName(sources(nullptr)), "");
}

}  // namespace
}  // namespace gp::tz
