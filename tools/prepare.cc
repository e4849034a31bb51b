// guestprep prepare [FAMILY] IMAGE ...: the family word picks the classic
// journey from an installation image to what the new machine boots from;
// without it the disc's description picks the way.
#include "tools/prepare.h"

#include <cstdio>

namespace gp::cli {
namespace {

constexpr const char kName[] = "prepare";

int prepare(const Args &args) {
  if (!args.empty()) {
    Args rest(args.begin() + 1, args.end());
    if (args[0] == "linux") {
      return prepareLinux(rest);
    }
    if (args[0] == "windows") {
      return prepareWindows(rest);
    }
    return prepareAny(args);
  }
  std::fprintf(stderr, "guestprep %s: the image is required\n", kName);
  return usageError(kName);
}

}  // namespace

GP_COMMAND(kName,
           "IMAGE --out DIR --user U --full-name F --password P "
           "--root-password R [--edition NAME] [--language L] "
           "[--time-zone Z] [--hostname H] [--product-key K] "
           "[--firmware uefi|bios] [--bypass-requirements] [--no-prompt] "
           "[--power-off] [--template-dir D] [--repo URL] [--json]\n"
           "       guestprep prepare linux IMAGE --out DIR --user U "
           "--full-name F --password P "
           "--root-password R [--tools-dir D] [--template-dir D] "
           "[--master TOOL] [--json]\n"
           "       guestprep prepare windows IMAGE --out DIR --user U "
           "--password P [--product-key K] [--kms HOST] [--image NAME] "
           "[--keep-autologon]\n"
           "         [--support-dir D [--upgrader-dir D] [--tools-iso ISO] "
           "[--driver-dir D] [--template-floppy FLP]] [--json]",
           "make the answer files and boot media of an unattended "
           "installation",
           prepare);

}  // namespace gp::cli
