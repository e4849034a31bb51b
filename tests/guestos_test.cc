// The guest OS table: every identifier the detectors report is known, with
// the right tools image, and the Windows facts the answer files rely on.
#include "platform/guestos.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "platform/strutil.h"

namespace gp::guestos {
namespace {

struct Produced {
  const char *name;
  const char *image;  // null: no tools image
};

// Every identifier the detectors can report, detector by detector.
const Produced kDetected[] = {
    // Windows NT family, product-name table and substring rules.
    {"winNetStandard", "windows.iso"},
    {"winNetEnterprise", "windows.iso"},
    {"winNetWeb", "windows.iso"},
    {"winNetStandard-64", "windows.iso"},
    {"winNetEnterprise-64", "windows.iso"},
    {"winNetBusiness", "windows.iso"},
    {"win2000Pro", "windows.iso"},
    {"win2000Serv", "windows.iso"},
    {"win2000AdvServ", "windows.iso"},
    {"winNT", "windows.iso"},
    {"winXPPro", "windows.iso"},
    {"winXPPro-64", "windows.iso"},
    {"winXPHome", "windows.iso"},
    // Windows 95, 98 and Me.
    {"win98", "winPre2k.iso"},
    {"win95", "winPre2k.iso"},
    {"winMe", "winPre2k.iso"},
    // Windows Vista and newer.
    {"winvista", "windows.iso"},
    {"winvista-64", "windows.iso"},
    {"longhorn", "windows.iso"},
    {"longhorn-64", "windows.iso"},
    {"windows7", "windows.iso"},
    {"windows7-64", "windows.iso"},
    {"windows7srv-64", "windows.iso"},
    {"windows8", "windows.iso"},
    {"windows8-64", "windows.iso"},
    {"windows8srv-64", "windows.iso"},
    // Red Hat family.
    {"rhel3", "linux.iso"},
    {"rhel3-64", "linux.iso"},
    {"rhel4", "linux.iso"},
    {"rhel4-64", "linux.iso"},
    {"rhel5", "linux.iso"},
    {"rhel5-64", "linux.iso"},
    {"rhel6", "linux.iso"},
    {"rhel6-64", "linux.iso"},
    {"centos", "linux.iso"},
    {"centos-64", "linux.iso"},
    {"asianux3", "linux.iso"},
    {"asianux3-64", "linux.iso"},
    {"oraclelinux", "linux.iso"},
    {"oraclelinux-64", "linux.iso"},
    {"fedora", "linux.iso"},
    {"fedora-64", "linux.iso"},
    {"rhel2", "linux.iso"},
    {"redhat", "linux.iso"},
    // Mandriva, Debian, SUSE, Turbolinux.
    {"mandrake", "linux.iso"},
    {"mandriva", "linux.iso"},
    {"mandriva-64", "linux.iso"},
    {"debian4", "linux.iso"},
    {"debian4-64", "linux.iso"},
    {"debian5", "linux.iso"},
    {"debian5-64", "linux.iso"},
    {"debian7", "linux.iso"},
    {"debian7-64", "linux.iso"},
    {"ubuntu", "linux.iso"},
    {"ubuntu-64", "linux.iso"},
    {"suse", "linux.iso"},
    {"suse-64", "linux.iso"},
    {"opensuse", "linux.iso"},
    {"opensuse-64", "linux.iso"},
    {"sles", "linux.iso"},
    {"sles-64", "linux.iso"},
    {"sles10", "linux.iso"},
    {"sles10-64", "linux.iso"},
    {"sles11", "linux.iso"},
    {"sles11-64", "linux.iso"},
    {"sjds", "linux.iso"},
    {"nld9", "linux.iso"},
    {"turbolinux", "linux.iso"},
    // Solaris, NetWare, FreeBSD, Orvex, Mac OS X.
    {"solaris7", "solaris.iso"},
    {"solaris8", "solaris.iso"},
    {"solaris9", "solaris.iso"},
    {"solaris10", "solaris.iso"},
    {"solaris10-64", "solaris.iso"},
    {"netware6", "netware.iso"},
    {"netware5", "netware.iso"},
    {"freeBSD", "freebsd.iso"},
    {"freeBSD-64", "freebsd.iso"},
    {"ztkernel", nullptr},
    {"ztkernel5", nullptr},
    {"darwin11", nullptr},
    {"darwin11-64", nullptr},
    {"darwin", nullptr},
    {"darwin-64", nullptr},
    {"darwin10", nullptr},
    {"darwin10-64", nullptr},
};

std::string str(const char *s) { return s == nullptr ? "(none)" : s; }

TEST(GuestOsTable, EveryDetectedIdentifierHasItsToolsImage) {
  for (const Produced &p : kDetected) {
    SCOPED_TRACE(p.name);
    const GuestOsEntry *e = find(p.name);
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e->name, p.name);
    EXPECT_EQ(str(toolsImage(e->id)), str(p.image));
    // Every "-64" identifier is 64-bit, and only those.
    EXPECT_EQ(is64Bit(e->id), str::endsWithCaseless(p.name, "-64"));
  }
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
  // Only the accepted "redhat-64" is beyond what the detectors report.
  EXPECT_EQ(n, sizeof kDetected / sizeof kDetected[0] + 1);
  EXPECT_NE(find("redhat-64"), nullptr);
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
      {2, nullptr},        {3, "winPre2k.iso"}, {6, "winPre2k.iso"},
      {7, "windows.iso"},  {23, "windows.iso"}, {24, nullptr},
      {26, nullptr},       {27, "linux.iso"},   {32, "linux.iso"},
      {33, nullptr},       {34, nullptr},       {35, "linux.iso"},
      {39, "linux.iso"},   {40, "freebsd.iso"}, {41, "freebsd.iso"},
      {42, "solaris.iso"}, {46, "solaris.iso"}, {47, nullptr},
      {55, nullptr},       {56, "netware.iso"}, {58, "netware.iso"},
      {59, "linux.iso"},   {60, nullptr},       {63, nullptr},
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
