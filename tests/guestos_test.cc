// The guest OS table: every identifier the detectors report is known, with
// the right tools image, and the Windows facts the answer files rely on.
#include "platform/guestos.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "platform/strutil.h"

namespace gp::guestos {
namespace {

// Every identifier the detectors can report, by tools image ("" for none).
const struct {
  const char *image;
  const char *names;
} kDetected[] = {
    {"windows.iso",
     "winNetStandard winNetEnterprise winNetWeb winNetStandard-64 "
     "winNetEnterprise-64 winNetBusiness win2000Pro win2000Serv win2000AdvServ "
     "winNT winXPPro winXPPro-64 winXPHome winvista winvista-64 longhorn "
     "longhorn-64 windows7 windows7-64 windows7srv-64 windows8 windows8-64 "
     "windows8srv-64"},
    {"winPre2k.iso", "win98 win95 winMe"},
    {"linux.iso",
     "rhel3 rhel3-64 rhel4 rhel4-64 rhel5 rhel5-64 rhel6 rhel6-64 centos "
     "centos-64 asianux3 asianux3-64 oraclelinux oraclelinux-64 fedora "
     "fedora-64 rhel2 redhat mandrake mandriva mandriva-64 debian4 debian4-64 "
     "debian5 debian5-64 debian7 debian7-64 ubuntu ubuntu-64 suse suse-64 "
     "opensuse opensuse-64 sles sles-64 sles10 sles10-64 sles11 sles11-64 "
     "sjds nld9 turbolinux"},
    {"solaris.iso", "solaris7 solaris8 solaris9 solaris10 solaris10-64"},
    {"netware.iso", "netware6 netware5"},
    {"freebsd.iso", "freeBSD freeBSD-64"},
    {"",
     "ztkernel ztkernel5 darwin11 darwin11-64 darwin darwin-64 darwin10 "
     "darwin10-64"},
};

std::string str(const char *s) { return s == nullptr ? "" : s; }

TEST(GuestOsTable, EveryDetectedIdentifierHasItsToolsImage) {
  size_t n = 0;
  for (const auto &group : kDetected) {
    std::istringstream names(group.names);
    std::string name;
    while (names >> name) {
      SCOPED_TRACE(name);
      ++n;
      const GuestOsEntry *e = find(name.c_str());
      ASSERT_NE(e, nullptr);
      EXPECT_EQ(e->name, name);
      EXPECT_EQ(str(toolsImage(e->id)), group.image);
      // Every "-64" identifier is 64-bit, and only those.
      EXPECT_EQ(is64Bit(e->id), str::endsWithCaseless(name, "-64"));
    }
  }
  // Only the accepted "redhat-64" is beyond what the detectors report.
  EXPECT_EQ(n + 1, tableSize());
  EXPECT_NE(find("redhat-64"), nullptr);
}

TEST(GuestOsTable, IdsAndNamesAreUniqueAndTheTableEndsWithNull) {
  std::set<int> ids;
  std::set<std::string> names;
  size_t n = 0;
  for (const GuestOsEntry *e = table(); e->name != nullptr; ++e, ++n) {
    EXPECT_GE(e->id, kFirstId) << e->name;
    EXPECT_TRUE(ids.insert(e->id).second) << e->name;
    EXPECT_TRUE(names.insert(str::toLower(e->name)).second) << e->name;
    EXPECT_EQ(findById(e->id), e);
  }
  EXPECT_EQ(n, tableSize());
}

TEST(GuestOsTable, LookupIgnoresCaseAndRejectsNearMisses) {
  EXPECT_EQ(idOf("WINXPPRO"), idOf("winXPPro"));
  EXPECT_EQ(idOf("Windows7-64"), idOf("windows7-64"));
  for (const char *name :
       {"", "winXP", "winXPPro-", "winXPPro-64 ", "linux", "windows9"}) {
    EXPECT_EQ(idOf(name), -1) << name;
  }
  EXPECT_EQ(idOf(nullptr), -1);
  EXPECT_FALSE(isWindows(-1));
  EXPECT_EQ(toolsImage(-1), nullptr);
}

TEST(GuestOsTable, ToolsImageRangesOfTheFirstSixtyFourIds) {
  struct {
    int offset;
    const char *image;
  } const rows[] = {
      {2, nullptr},        {3, "winPre2k.iso"}, {7, "windows.iso"},
      {23, "windows.iso"}, {24, nullptr},       {33, nullptr},
      {59, "linux.iso"},   {60, nullptr},
  };
  for (const auto &r : rows) {
    EXPECT_EQ(str(toolsImage(kFirstId + r.offset)), str(r.image)) << r.offset;
  }
}

TEST(GuestOsTable, WindowsFacts) {
  // name, Windows, Vista or later, 2000, Server 2003, Windows 8, Vista
  struct {
    const char *name;
    bool win, nt6, w2k, net, win8, vista;
  } const rows[] = {
      {"winMe", true, false, false, false, false, false},
      {"winNT", true, false, false, false, false, false},
      {"win2000AdvServ", true, false, true, false, false, false},
      {"winXPPro-64", true, false, false, false, false, false},
      {"winNetBusiness", true, false, false, true, false, false},
      {"winNetEnterprise-64", true, false, false, true, false, false},
      {"winvista-64", true, true, false, false, false, true},
      {"longhorn", true, true, false, false, false, false},
      {"windows7srv-64", true, true, false, false, false, false},
      {"windows8", true, true, false, false, true, false},
      {"windows8srv-64", true, true, false, false, true, false},
      {"ubuntu-64", false, false, false, false, false, false},
      {"darwin11", false, false, false, false, false, false},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name);
    int id = idOf(r.name);
    ASSERT_GE(id, kFirstId);
    EXPECT_EQ(isWindows(id), r.win);
    EXPECT_EQ(isVistaOrLater(id), r.nt6);
    EXPECT_EQ(isWin2000(id), r.w2k);
    EXPECT_EQ(isWinServer2003(id), r.net);
    EXPECT_EQ(isWin8(id), r.win8);
    EXPECT_EQ(isVista(id), r.vista);
  }
}

}  // namespace
}  // namespace gp::guestos
