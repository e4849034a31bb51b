// How a medium boots: the El Torito catalog, the file each entry loads and
// the BIOS boot loader's configuration.
#include <array>

#include "lib/medium/description.h"
#include "platform/strutil.h"

namespace gp::medium {
using namespace gp::str;
namespace {

constexpr uint64_t kSector = 2048;
constexpr size_t kCatalogBytes = 4 * kSector;

// Where mastering tools put boot images, tried before a bounded walk.
constexpr std::array<const char *, 8> kBootDirs = {
    "isolinux",    "images",  "boot/grub/i386-pc",
    "boot/grub",   "boot",    "boot/x86_64/loader",
    "boot/x86_64", "efi/boot"};

// Files whose first sector is one of `sectors`, from the usual boot
// directories and then the first levels of the tree, all bounded.
std::optional<std::string> fileAt(MediumFiles &files, uint32_t sector) {
  for (const char *dir : kBootDirs) {
    for (const FoundFile &f : files.list(dir, 256)) {
      if (!f.isDirectory && f.extent == sector && f.size > 0) {
        return f.path;
      }
    }
  }
  for (const FoundFile &f : files.list("", 256)) {
    if (!f.isDirectory && f.extent == sector && f.size > 0) {
      return f.path;
    }
  }
  return std::nullopt;
}

std::optional<std::string> firstExisting(
    MediumFiles &files, std::initializer_list<std::string> paths) {
  for (const std::string &p : paths) {
    if (std::optional<FoundFile> f = files.find(p); f && !f->isDirectory) {
      return f->path;
    }
  }
  return std::nullopt;
}

std::string directoryOf(const std::string &path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

void biosLoader(MediumFiles &files, const std::optional<std::string> &image,
                BootFacts &boot) {
  std::string lower = image ? toLower(*image) : "";
  if (image && (endsWithCaseless(lower, "isolinux.bin") ||
                endsWithCaseless(lower, "syslinux.bin"))) {
    std::string dir = directoryOf(*image);
    boot.bios = "isolinux";
    boot.biosConfig = firstExisting(
        files, {dir + "isolinux.cfg", dir + "syslinux.cfg",
                "isolinux/isolinux.cfg", "syslinux/syslinux.cfg"});
    return;
  }
  std::optional<std::string> grub = firstExisting(
      files,
      {"boot/grub2/grub.cfg", "boot/grub/grub.cfg", "EFI/BOOT/grub.cfg"});
  if (image &&
      (contains(lower, "grub") || endsWithCaseless(lower, "eltorito.img") ||
       endsWithCaseless(lower, "bios.img"))) {
    boot.bios = "grub";
    boot.biosConfig = grub;
    return;
  }
  // A boot image that no file owns: judge by the loaders on the disc.
  std::optional<std::string> isolinux = firstExisting(
      files, {"isolinux/isolinux.cfg", "boot/x86_64/loader/isolinux.cfg",
              "syslinux/syslinux.cfg"});
  if (!image && isolinux) {
    boot.bios = "isolinux";
    boot.biosConfig = isolinux;
  } else if (!image && grub) {
    boot.bios = "grub";
    boot.biosConfig = grub;
  } else {
    boot.bios = "other";
  }
}

}  // namespace

void describeBoot(MediumFiles &files, Description &out) {
  std::string descriptor;
  if (!files.isIso() || !files.readRaw(17 * kSector, kSector, descriptor)) {
    return;
  }
  uint32_t sector = catalogSector(ByteView(std::string_view(descriptor)));
  std::string catalog;
  if (sector == 0 ||
      !files.readRaw(uint64_t{sector} * kSector,
                     static_cast<size_t>(std::min<uint64_t>(
                         kCatalogBytes,
                         files.imageSize() -
                             std::min<uint64_t>(files.imageSize(),
                                                uint64_t{sector} * kSector))),
                     catalog)) {
    return;
  }
  std::optional<std::string> biosImage;
  bool bios = false;
  for (const BootEntry &e : parseCatalog(ByteView(std::string_view(catalog)))) {
    BootImage image;
    image.platform = e.platform;
    image.image = fileAt(files, e.loadSector);
    if (e.platform == BootPlatform::Efi) {
      out.boot.uefi = true;
    }
    if (e.platform == BootPlatform::X86 && e.bootable && !bios) {
      bios = true;
      biosImage = image.image;
    }
    out.boot.elTorito.push_back(std::move(image));
  }
  if (bios) {
    biosLoader(files, biosImage, out.boot);
  }
}

}  // namespace gp::medium
