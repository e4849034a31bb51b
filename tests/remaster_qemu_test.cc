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
#include "lib/medium/remaster.h"
#include "support/boot_discs.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;

struct Answer {
  const char *fileName;
  const char *content;
};

Answer answerFor(BootDisc disc) {
  switch (disc) {
    case BootDisc::Debian:
      return {"preseed.cfg",
              "d-i debian-installer/locale string en_US.UTF-8\n"
              "d-i netcfg/get_hostname string guest\n"};
    case BootDisc::Suse:
      return {"autoinst.xml",
              "<?xml version=\"1.0\"?>\n"
              "<profile xmlns=\"http://www.suse.com/1.0/yast2ns\" "
              "xmlns:config=\"http://www.suse.com/1.0/configns\"/>\n"};
    case BootDisc::Fedora:
      return {"ks.cfg",
              "text\nreboot\n%packages\n@^server-product-environment\n%end\n"};
    case BootDisc::Ubuntu:
      return {"user-data", "#cloud-config\nautoinstall:\n  version: 1\n"};
  }
  return {};
}

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

// The arguments that make the installer read its answer file, as they
// reach the kernel (loader quoting removed).
std::vector<std::string> answerArguments(BootDisc disc) {
  switch (disc) {
    case BootDisc::Debian:
      return {"auto=true", "priority=critical",
              "preseed/file=/cdrom/preseed.cfg"};
    case BootDisc::Suse:
      return {"autoyast=cd:/autoinst.xml"};
    case BootDisc::Fedora:
      return {"inst.ks=hd:LABEL=" + bootDiscVolumeId(disc) + ":/ks.cfg"};
    case BootDisc::Ubuntu:
      return {"autoinstall", "ds=nocloud;s=/cdrom/nocloud/"};
  }
  return {};
}

std::vector<std::string> words(const std::string &line) {
  std::vector<std::string> out;
  size_t at = 0;
  while ((at = line.find_first_not_of(' ', at)) != std::string::npos) {
    size_t end = line.find(' ', at);
    out.push_back(line.substr(at, end - at));
    at = end;
  }
  return out;
}

struct BootCase {
  const char *name;
  BootDisc disc;
  Firmware firmware;
  BootDevice device;
  // The installer entry's own arguments, in their order.
  std::vector<std::string> own;
};

void PrintTo(const BootCase &c, std::ostream *os) { *os << c.name; }

class RemasterQemu : public testing::TestWithParam<BootCase> {};

TEST_P(RemasterQemu, KernelCommandLineCarriesTheAnswerAndTheEntry) {
  const BootCase &c = GetParam();
  std::string error;
  const std::string disc = bootDisc(c.disc, error);
  ASSERT_FALSE(disc.empty()) << error;

  TempDir tmp;
  const Answer answer = answerFor(c.disc);
  const std::string answerFile = tmp / answer.fileName;
  writeFile(answerFile, answer.content);
  const std::string out = tmp / "remastered.iso";
  ASSERT_EQ(gp::medium::RemasterStatus::Ok,
            gp::medium::remasterMedium(disc, answerFile, out, error))
      << error;

  const BootRun run = bootUntilCommandLine(out, c.firmware, c.device);
  ASSERT_TRUE(run.sawCommandLine)
      << run.log.substr(run.log.size() > 4000 ? run.log.size() - 4000 : 0);
  RecordProperty("command_line", run.commandLine);
  const std::vector<std::string> got = words(run.commandLine);
  auto position = [&](const std::string &word) {
    for (size_t i = 0; i < got.size(); ++i) {
      if (got[i] == word) {
        return static_cast<long>(i);
      }
    }
    return -1L;
  };
  long previous = -1;
  for (const std::string &own : c.own) {
    const long at = position(own);
    EXPECT_GT(at, previous)
        << own << " missing or moved in: " << run.commandLine;
    previous = at;
  }
  const long separator = position("---");
  for (const std::string &arg : answerArguments(c.disc)) {
    const long at = position(arg);
    EXPECT_NE(-1, at) << arg << " missing in: " << run.commandLine;
    if (c.disc == BootDisc::Debian) {
      // d-i copies what follows "---" into the installed system.
      EXPECT_LT(at, separator) << arg << " after ---: " << run.commandLine;
    }
  }
  if (c.firmware == Firmware::OvmfSecureBoot) {
    EXPECT_TRUE(run.secureBoot) << "the kernel did not report Secure Boot";
  }
}

const std::vector<std::string> kDebianOwn = {"vga=788", "---", "quiet",
                                             "loglevel=7", "console=ttyS0"};
const std::vector<std::string> kFedoraOwn = {
    "inst.stage2=hd:LABEL=Fedora-S-dvd-x86_64-40", "quiet", "loglevel=7",
    "console=ttyS0"};

INSTANTIATE_TEST_SUITE_P(
    Discs, RemasterQemu,
    testing::Values(
        // isolinux with an include chain and "timeout 0"; the Debian path.
        BootCase{"DebianIsolinuxSeaBios", BootDisc::Debian, Firmware::SeaBios,
                 BootDevice::Cdrom, kDebianOwn},
        // Written to a USB stick: the hybrid MBR starts isolinux.
        BootCase{"DebianUsbStickSeaBios", BootDisc::Debian, Firmware::SeaBios,
                 BootDevice::Disk, kDebianOwn},
        // Debian's signed shim and GRUB, a GRUB menu without a timeout.
        BootCase{"DebianShimSecureBoot", BootDisc::Debian,
                 Firmware::OvmfSecureBoot, BootDevice::Cdrom, kDebianOwn},
        // The loader in boot/x86_64/loader/, the hard disk the default.
        BootCase{"SuseLoaderDirectorySeaBios",
                 BootDisc::Suse,
                 Firmware::SeaBios,
                 BootDevice::Cdrom,
                 {"splash=silent", "showopts", "loglevel=7", "console=ttyS0"}},
        // GRUB only: its BIOS El Torito image, then its EFI image.
        BootCase{"FedoraGrubSeaBios", BootDisc::Fedora, Firmware::SeaBios,
                 BootDevice::Cdrom, kFedoraOwn},
        BootCase{"FedoraGrubOvmf", BootDisc::Fedora, Firmware::Ovmf,
                 BootDevice::Cdrom, kFedoraOwn},
        // Written to a USB stick: the hybrid GPT's EFI partition, whose
        // GRUB reads the grub.cfg inside the EFI image.
        BootCase{"FedoraUsbStickOvmf", BootDisc::Fedora, Firmware::Ovmf,
                 BootDevice::Disk, kFedoraOwn},
        // The EFI image is an appended GPT partition.
        BootCase{"UbuntuAppendedPartitionOvmf",
                 BootDisc::Ubuntu,
                 Firmware::Ovmf,
                 BootDevice::Cdrom,
                 {"quiet", "loglevel=7", "console=ttyS0", "---"}}),
    [](const testing::TestParamInfo<BootCase> &param) {
      return std::string(param.param.name);
    });

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
