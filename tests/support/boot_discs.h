// Installation discs that really boot, built at test time from real pieces
// (Debian's isolinux, GRUB's own BIOS and UEFI images, Debian's signed shim
// and GRUB, a kernel from the Debian archive and a busybox RAM disk), laid
// out and mastered the way the distributions master theirs; and a QEMU run
// that boots a disc until the kernel prints its command line.
#pragma once

#include <string>

namespace gp::test {

enum class BootDisc {
  // debian-installer: isolinux/ with an include chain, vesamenu and
  // "timeout 0"; a GRUB menu without a timeout; the EFI image holds
  // Debian's signed shim and GRUB; hybrid MBR/GPT.
  Debian,
  // YaST: the loader in boot/x86_64/loader/, a hard-disk entry first and
  // default; GRUB in the EFI image reads EFI/BOOT/grub.cfg.
  Suse,
  // Anaconda without isolinux: GRUB's BIOS El Torito image and an EFI
  // image carrying its own grub.cfg; "set default" names a second entry.
  Fedora,
  // subiquity: GRUB only, the EFI image an appended GPT partition that
  // the El Torito EFI entry points at.
  Ubuntu,
};

// The name of the disc kind, for messages and cache files.
const char *bootDiscName(BootDisc disc);

// The disc's volume id.
std::string bootDiscVolumeId(BootDisc disc);

// The disc image, built once per build tree (the kernel and the signed
// loaders are fetched from the Debian archive on first use); empty with
// `error` set when a piece cannot be had.
std::string bootDisc(BootDisc disc, std::string &error);

enum class Firmware {
  SeaBios,
  Ovmf,
  OvmfSecureBoot,  // Secure Boot enforced, the usual keys enrolled
};

enum class BootDevice {
  Cdrom,
  // The hybrid image as written to a USB stick, attached as a plain disk
  // (the firmware boots both alike; an emulated USB controller is slow).
  Disk,
};

struct BootRun {
  bool sawCommandLine = false;
  std::string commandLine;  // what the kernel printed after "command line:"
  bool secureBoot = false;  // the kernel reported Secure Boot enabled
  std::string log;          // the serial console, for failure messages
};

// Boots `image` under qemu-system-x86_64 without acceleration, the serial
// console to a file, until the kernel prints its command line or
// `seconds` pass; QEMU is killed either way.
BootRun bootUntilCommandLine(const std::string &image, Firmware firmware,
                             BootDevice device = BootDevice::Cdrom,
                             int seconds = 180);

}  // namespace gp::test
