// The boot ISO really boots: a small installation disc (the system's
// isolinux, a kernel from the Debian archive, a busybox RAM disk that prints
// its command line) is scanned and mastered by the library, then booted
// under QEMU without acceleration. The serial log must show the kernel
// command line with the disc's own arguments and the answer-file
// arguments.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "guestprep/autoinstall.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;
namespace fs = std::filesystem;

constexpr const char kMarker[] = "GUESTPREP-CMDLINE:";

// The RAM disk's /init: the command line to the first serial port, then
// power off at once.
constexpr const char kInit[] =
    "#!/bin/busybox sh\n"
    "/bin/busybox mount -t proc proc /proc\n"
    "/bin/busybox mount -t devtmpfs dev /dev\n"
    "echo \"GUESTPREP-CMDLINE: $(/bin/busybox cat /proc/cmdline)\" "
    ">/dev/ttyS0\n"
    "/bin/busybox poweroff -f\n";

std::string kernelFromArchive() {
  std::string out;
  int rc = runCommand(
      sourcePath("scripts/fetch-test-kernel") + " " +
          shellQuote(std::string(GP_BINARY_DIR) + "/fixtures/kernel"),
      &out);
  out.erase(out.find_last_not_of('\n') + 1);
  return rc == 0 ? out : std::string();
}

bool makeRamDisk(const TempDir &tmp, const std::string &path) {
  std::string root = tmp / "ramdisk";
  writeFile(root + "/init", kInit);
  fs::create_directories(root + "/proc");
  fs::create_directories(root + "/dev");
  fs::create_directories(root + "/bin");
  fs::copy_file("/bin/busybox", root + "/bin/busybox");
  fs::permissions(root + "/init", fs::perms::owner_all, fs::perm_options::add);
  return runCommand("cd " + shellQuote(root) +
                    " && find . | cpio -o -H newc 2>/dev/null | gzip -1 >" +
                    shellQuote(path)) == 0;
}

TEST(LinuxBootQemu, MasteredImageBootsWithTheAnswerFileArguments) {
  const std::string kernel = kernelFromArchive();
  ASSERT_FALSE(kernel.empty()) << "no kernel: see scripts/fetch-test-kernel";
  TempDir tmp;
  const std::string disc = tmp / "disc";
  writeFile(disc + "/isolinux/isolinux.cfg",
            "default vesamenu.c32\nprompt 0\nlabel install\n"
            "  kernel /casper/vmlinuz\n"
            "  append initrd=/casper/initrd.gz quiet disc=own --\n");
  fs::create_directories(disc + "/casper");
  fs::copy_file(kernel, disc + "/casper/vmlinuz");
  ASSERT_TRUE(makeRamDisk(tmp, disc + "/casper/initrd.gz"));
  fs::copy_file("/usr/lib/ISOLINUX/isolinux.bin",
                disc + "/isolinux/isolinux.bin");
  fs::copy_file("/usr/lib/syslinux/modules/bios/ldlinux.c32",
                disc + "/isolinux/ldlinux.c32");
  const std::string discIso = tmp / "disc.iso";
  ASSERT_EQ(0, runCommand("xorriso -as mkisofs -quiet -J -R -o " +
                          shellQuote(discIso) + " " + shellQuote(disc) +
                          " 2>/dev/null"));

  const std::string staging = tmp / "staging", out = tmp / "out";
  fs::create_directories(out);
  ASSERT_EQ(TRUE, AutoInstall_ScanISO(discIso.c_str(), staging.c_str(),
                                      "ubuntu-64", nullptr));
  ASSERT_EQ(TRUE,
            AutoInstall_MasterISO(staging.c_str(), "xorrisofs", out.c_str()));

  const std::string serial = tmp / "serial.log";
  runCommand(
      "timeout 240 qemu-system-x86_64 -accel tcg -m 256 -nographic "
      "-no-reboot -monitor none -boot d -cdrom " +
      shellQuote(out + "/autoinst.iso") + " -serial " +
      shellQuote("file:" + serial) + " >/dev/null 2>&1 </dev/null");
  const std::string log = readFile(serial);
  const size_t at = log.find(kMarker);
  ASSERT_NE(std::string::npos, at) << log.substr(0, 2000);
  const std::string cmdline = log.substr(at, log.find('\n', at) - at);
  EXPECT_NE(std::string::npos,
            cmdline.find("initrd=initrd.gz quiet disc=own --  "
                         "debian-installer/custom-installation=/custom "
                         "find_preseed=/preseed.cfg auto "
                         "preseed/file=/floppy/preseed.cfg automatic-ubiquity "
                         "noprompt priority=critical locale=en_US "
                         "console-setup/modelcode=evdev"))
      << cmdline;
}

}  // namespace
