#include "support/boot_discs.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <utility>
#include <vector>

#include "support/fixtures.h"

extern char **environ;

namespace fs = std::filesystem;

namespace gp::test {
namespace {

// Raised when the recipes below change, so that cached discs are rebuilt.
constexpr const char kRecipeVersion[] = "1";

// Every installer entry carries these, or the kernel prints nothing on the
// serial console.
constexpr const char kConsole[] = "loglevel=7 console=ttyS0";

std::string fixturesDir() { return std::string(GP_BINARY_DIR) + "/fixtures"; }

std::string firstLine(const std::string &text) {
  return text.substr(0, text.find('\n'));
}

// The kernel from the archive (shared with the other boot test) and the
// signed loaders, cached in the build tree.
struct Pieces {
  std::string kernel, initrd, shim, signedGrub;
};

// The RAM disk's /init: the command line to the serial port, then power
// off; the kernel's own "Kernel command line:" comes first, so a run
// normally ends before /init starts.
constexpr const char kInit[] =
    "#!/bin/busybox sh\n"
    "/bin/busybox mount -t proc proc /proc\n"
    "/bin/busybox mount -t devtmpfs dev /dev\n"
    "echo \"GUESTPREP-CMDLINE: $(/bin/busybox cat /proc/cmdline)\" "
    ">/dev/ttyS0\n"
    "/bin/busybox poweroff -f\n";

bool makeRamDisk(const std::string &path) {
  TempDir tmp;
  const std::string root = tmp / "root";
  writeFile(root + "/init", kInit);
  for (const char *dir : {"/proc", "/dev", "/bin"}) {
    fs::create_directories(root + dir);
  }
  fs::copy_file("/bin/busybox", root + "/bin/busybox");
  fs::permissions(root + "/init", fs::perms::owner_all, fs::perm_options::add);
  const std::string part = path + ".part" + std::to_string(::getpid());
  return runCommand("cd " + shellQuote(root) +
                    " && find . | cpio -o -H newc 2>/dev/null | gzip -1 >" +
                    shellQuote(part) + " && mv " + shellQuote(part) + " " +
                    shellQuote(path)) == 0;
}

bool fetchPieces(Pieces &p, std::string &error) {
  std::string out;
  if (runCommand(sourcePath("scripts/fetch-test-kernel") + " " +
                     shellQuote(fixturesDir() + "/kernel") + " 2>&1",
                 &out) != 0) {
    error = "no kernel: " + out;
    return false;
  }
  p.kernel = firstLine(out);
  out.clear();
  if (runCommand(sourcePath("scripts/fetch-test-boot-pieces") + " " +
                     shellQuote(fixturesDir() + "/signed-loaders") + " 2>&1",
                 &out) != 0) {
    error = "no signed loaders: " + out;
    return false;
  }
  p.shim = firstLine(out);
  p.signedGrub = firstLine(out.substr(out.find('\n') + 1));
  p.initrd = fixturesDir() + "/boot-discs/initrd.gz";
  fs::create_directories(fixturesDir() + "/boot-discs");
  if (!fileExists(p.initrd) && !makeRamDisk(p.initrd)) {
    error = "cannot make the RAM disk";
    return false;
  }
  return true;
}

// A disc being laid out: text files, copies of host files, and files made
// by commands; `key` collects what decides its bytes. A dry layout only
// collects the key, so that a cached disc costs no work.
class Layout {
 public:
  Layout(std::string root, bool dry) : root_(std::move(root)), dry_(dry) {}
  const std::string &root() const { return root_; }
  bool dry() const { return dry_; }

  void text(const std::string &path, const std::string &content) {
    key_ += "\n" + path + "\n" + content;
    if (!dry_) {
      writeFile(root_ + "/" + path, content);
    }
  }
  void copy(const std::string &path, const std::string &from) {
    key_ += "\n" + path + " <- " + from;
    if (!dry_) {
      fs::create_directories(fs::path(root_ + "/" + path).parent_path());
      fs::copy_file(from, root_ + "/" + path,
                    fs::copy_options::overwrite_existing);
    }
  }
  // A file made by a shell command, which finds the file's path in $f.
  bool make(const std::string &path, const std::string &command) {
    key_ += "\n" + path + " <- " + command;
    if (dry_) {
      return true;
    }
    fs::create_directories(fs::path(root_ + "/" + path).parent_path());
    std::string out;
    if (runCommand("(set -e; f=" + shellQuote(root_ + "/" + path) + "; " +
                       command + ") 2>&1",
                   &out) != 0) {
      failure_ = path + ": " + out;
      return false;
    }
    return true;
  }
  // What the command that failed printed.
  const std::string &failure() const { return failure_; }
  void keyPart(const std::string &s) { key_ += "\n" + s; }
  const std::string &key() const { return key_; }

 private:
  std::string root_;
  bool dry_;
  std::string key_;
  std::string failure_;
};

uint64_t fnv1a(std::string_view data) {
  uint64_t h = 1469598103934665603ull;
  for (unsigned char c : data) {
    h ^= c;
    h *= 1099511628211ull;
  }
  return h;
}

// The modules GRUB needs for the menus below; images are built with them
// inside, as the disc carries no module directory.
constexpr const char kGrubModules[] =
    "part_gpt part_msdos fat iso9660 search search_fs_file search_label "
    "normal configfile linux echo test gzio ls cat sleep all_video font "
    "gfxterm chain";

std::string grubImage(const std::string &format, const std::string &prefix,
                      const std::string &earlyConfig) {
  std::string cmd =
      "grub-mkimage -O " + format + " -o \"$f\" -p " + shellQuote(prefix);
  if (!earlyConfig.empty()) {
    cmd = "printf '%s' " + shellQuote(earlyConfig) + " >\"$f.cfg\"; " + cmd +
          " -c \"$f.cfg\"";
  }
  cmd += std::string(" ") + kGrubModules;
  if (format == "i386-pc-eltorito") {
    cmd += " biosdisk";
  }
  if (!earlyConfig.empty()) {
    cmd += "; rm -f \"$f.cfg\"";
  }
  return cmd;
}

// A FAT image of `kib` KiB (mkfs.fat, files copied in with mtools)
// holding `files`: path in the image -> host file or, with a leading '=',
// the content.
std::string fatImage(
    unsigned kib,
    const std::vector<std::pair<std::string, std::string>> &files) {
  std::string fill;
  for (const auto &[path, source] : files) {
    std::string parts;
    for (const auto &part : fs::path(path).parent_path()) {
      parts += "/" + part.string();
      fill += "mmd -i \"$f\" ::" + shellQuote(parts) + " 2>/dev/null || true; ";
    }
    if (!source.empty() && source[0] == '=') {
      fill +=
          "printf '%s' " + shellQuote(source.substr(1)) +
          " >\"$f.in\"; mcopy -i \"$f\" \"$f.in\" ::" + shellQuote("/" + path) +
          "; rm -f \"$f.in\"; ";
    } else {
      fill += "mcopy -i \"$f\" " + shellQuote(source) +
              " ::" + shellQuote("/" + path) + "; ";
    }
  }
  return "rm -f \"$f\"; mkfs.fat -C -n EFIBOOT \"$f\" " + std::to_string(kib) +
         "; " + fill;
}

// --- Debian: isolinux, and shim with signed GRUB in the EFI image --------

bool layOutDebian(Layout &d, const Pieces &p, std::string &options) {
  d.text(".disk/info",
         "Debian GNU/Linux 12.5.0 \"Bookworm\" - Official amd64 NETINST "
         "with firmware 20240210-11:27");
  d.copy("install.amd/vmlinuz", p.kernel);
  d.copy("install.amd/initrd.gz", p.initrd);
  d.copy("install.amd/gtk/initrd.gz", p.initrd);
  d.copy("isolinux/isolinux.bin", "/usr/lib/ISOLINUX/isolinux.bin");
  for (const char *module :
       {"ldlinux.c32", "vesamenu.c32", "libcom32.c32", "libutil.c32"}) {
    d.copy(std::string("isolinux/") + module,
           std::string("/usr/lib/syslinux/modules/bios/") + module);
  }
  d.text("isolinux/isolinux.cfg",
         "# D-I config version 2.0\n"
         "# search path for the c32 support libraries (libcom32, libutil "
         "etc.)\n"
         "path \n"
         "include menu.cfg\n"
         "default vesamenu.c32\n"
         "prompt 0\n"
         "timeout 0\n");
  d.text("isolinux/menu.cfg",
         "menu hshift 4\n"
         "menu width 70\n\n"
         "menu title Debian GNU/Linux installer menu (BIOS mode)\n"
         "include stdmenu.cfg\n"
         "include gtk.cfg\n"
         "include txt.cfg\n"
         "menu begin advanced\n"
         "    menu label ^Advanced options\n"
         "\tmenu title Advanced options\n"
         "\tinclude stdmenu.cfg\n"
         "\tlabel mainmenu\n"
         "\t\tmenu label ^Back..\n"
         "\t\tmenu exit\n"
         "\tinclude adtxt.cfg\n"
         "menu end\n");
  d.text("isolinux/stdmenu.cfg",
         "menu color title\t* #FFFFFFFF *\n"
         "menu color sel\t\t* #ffffffff #76a1d0ff *\n"
         "menu tabmsg Press ENTER to boot or TAB to edit a menu entry\n");
  d.text("isolinux/gtk.cfg",
         "default installgui\n"
         "label installgui\n"
         "\tmenu label ^Graphical install\n"
         "\tmenu default\n"
         "\tkernel /install.amd/vmlinuz\n"
         "\tappend vga=788 initrd=/install.amd/gtk/initrd.gz --- quiet " +
             std::string(kConsole) + "\n");
  d.text("isolinux/txt.cfg",
         "label install\n"
         "\tmenu label ^Install\n"
         "\tkernel /install.amd/vmlinuz\n"
         "\tappend vga=788 initrd=/install.amd/initrd.gz --- quiet " +
             std::string(kConsole) + "\n");
  d.text("isolinux/adtxt.cfg",
         "label expert\n"
         "\tmenu label E^xpert install\n"
         "\tkernel /install.amd/vmlinuz\n"
         "\tappend priority=low vga=788 initrd=/install.amd/initrd.gz --- \n"
         "label rescue\n"
         "\tmenu label ^Rescue mode\n"
         "\tkernel /install.amd/vmlinuz\n"
         "\tappend vga=788 initrd=/install.amd/initrd.gz rescue/enable=true "
         "--- quiet \n");
  // Debian's signed GRUB for discs finds the disc by /.disk/info and reads
  // /boot/grub/grub.cfg there; its menu sets no timeout.
  d.text("boot/grub/grub.cfg",
         "if [ x$feature_default_font_path = xy ] ; then\n"
         "   font=unicode\n"
         "else\n"
         "   font=$prefix/font.pf2\n"
         "fi\n\n"
         "set menu_color_normal=cyan/blue\n"
         "set menu_color_highlight=white/blue\n\n"
         "menuentry --hotkey=g 'Graphical install' {\n"
         "    set background_color=black\n"
         "    linux    /install.amd/vmlinuz vga=788 --- quiet " +
             std::string(kConsole) +
             "\n"
             "    initrd   /install.amd/gtk/initrd.gz\n"
             "}\n"
             "menuentry --hotkey=i 'Install' {\n"
             "    set background_color=black\n"
             "    linux    /install.amd/vmlinuz vga=788 --- quiet " +
             kConsole +
             "\n"
             "    initrd   /install.amd/initrd.gz\n"
             "}\n"
             "submenu --hotkey=a 'Advanced options ...' {\n"
             "    menuentry '... Rescue mode' {\n"
             "        linux    /install.amd/vmlinuz vga=788 "
             "rescue/enable=true --- quiet\n"
             "        initrd   /install.amd/initrd.gz\n"
             "    }\n"
             "}\n");
  if (!d.make("boot/grub/efi.img",
              fatImage(6144, {{"EFI/boot/bootx64.efi", p.shim},
                              {"EFI/boot/grubx64.efi", p.signedGrub}}))) {
    return false;
  }
  options =
      "-r -J -isohybrid-mbr /usr/lib/ISOLINUX/isohdpfx.bin "
      "-b isolinux/isolinux.bin -c isolinux/boot.cat -no-emul-boot "
      "-boot-load-size 4 -boot-info-table -eltorito-alt-boot "
      "-e boot/grub/efi.img -no-emul-boot -isohybrid-gpt-basdat";
  return true;
}

// --- SUSE: the loader directory boot/x86_64/loader/ ------------------------

bool layOutSuse(Layout &d, const Pieces &p, std::string &options) {
  d.text("media.1/products", "/ openSUSE-Leap 15.5-0\n");
  d.text("content",
         "CONTENTSTYLE 11\nLABEL openSUSE Leap 15.5\nVERSION 15.5-0\n"
         "BASEARCHS x86_64\n");
  const std::string loader = "boot/x86_64/loader/";
  d.copy(loader + "linux", p.kernel);
  d.copy(loader + "initrd", p.initrd);
  d.copy(loader + "isolinux.bin", "/usr/lib/ISOLINUX/isolinux.bin");
  d.copy(loader + "ldlinux.c32", "/usr/lib/syslinux/modules/bios/ldlinux.c32");
  d.text(loader + "message", "Welcome to openSUSE Leap 15.5!\n");
  // SUSE builds its isolinux to look beside itself; Debian's looks for
  // ldlinux.c32 and its first configuration in fixed directories only, so
  // a stub there hands over to the loader directory.
  d.copy("boot/isolinux/ldlinux.c32",
         "/usr/lib/syslinux/modules/bios/ldlinux.c32");
  d.text("boot/isolinux/isolinux.cfg",
         "default loader\nprompt 0\nlabel loader\n  config /" + loader +
             "isolinux.cfg /" + loader + "\n");
  // The hard disk is the first entry and the default; the installer's
  // kernel and RAM disk are named relative to the loader's directory.
  d.text(loader + "isolinux.cfg",
         "default harddisk\n\n"
         "# hard disk\n"
         "label harddisk\n"
         "  localboot 0x80\n\n"
         "# install\n"
         "label linux\n"
         "  kernel linux\n"
         "  append initrd=initrd splash=silent showopts " +
             std::string(kConsole) +
             "\n\n"
             "# upgrade\n"
             "label upgrade\n"
             "  kernel linux\n"
             "  append initrd=initrd splash=silent upgrade=1 showopts\n\n"
             "# rescue\n"
             "label rescue\n"
             "  kernel linux\n"
             "  append initrd=initrd splash=silent rescue=1 showopts\n\n"
             "implicit\t1\n"
             "display\t\tmessage\n"
             "prompt\t\t1\n"
             "timeout\t\t600\n");
  const std::string grubCfg =
      "with_gfx=1\n"
      "gfxmode=auto\n"
      "set timeout=60\n"
      "set default=0\n\n"
      "menuentry 'Boot from Hard Disk' --class opensuse --class gnu-linux "
      "--class gnu --class os {\n"
      "  exit\n"
      "}\n"
      "menuentry 'Installation' --class opensuse --class gnu-linux --class "
      "gnu --class os {\n"
      "  set gfxpayload=keep\n"
      "  echo 'Loading kernel ...'\n"
      "  linux /boot/x86_64/loader/linux splash=silent " +
      std::string(kConsole) +
      "\n"
      "  echo 'Loading initial ramdisk ...'\n"
      "  initrd /boot/x86_64/loader/initrd\n"
      "}\n";
  d.text("EFI/BOOT/grub.cfg", grubCfg);
  if (!d.make("EFI/BOOT/bootx64.efi",
              grubImage("x86_64-efi", "/EFI/BOOT", "")) ||
      !d.make("boot/x86_64/efi",
              fatImage(2048, {{"EFI/BOOT/bootx64.efi",
                               d.root() + "/EFI/BOOT/bootx64.efi"},
                              {"EFI/BOOT/grub.cfg", "=" + grubCfg}}))) {
    return false;
  }
  options =
      "-r -J -isohybrid-mbr /usr/lib/ISOLINUX/isohdpfx.bin "
      "-b boot/x86_64/loader/isolinux.bin -c boot/x86_64/boot.catalog "
      "-no-emul-boot -boot-load-size 4 -boot-info-table -eltorito-alt-boot "
      "-e boot/x86_64/efi -no-emul-boot -isohybrid-gpt-basdat";
  return true;
}

// --- Fedora: GRUB only, the EFI image carries its grub.cfg ----------------

std::string fedoraGrubCfg(const std::string &volumeId) {
  const std::string stage2 = "inst.stage2=hd:LABEL=" + volumeId;
  const std::string kernel = "\tlinux /images/pxeboot/vmlinuz " + stage2;
  const std::string initrd = "\tinitrd /images/pxeboot/initrd.img\n";
  return "set default=\"1\"\n\n"
         "function load_video {\n"
         "  insmod all_video\n"
         "}\n\n"
         "load_video\n"
         "set gfxpayload=keep\n"
         "insmod gzio\n"
         "insmod part_gpt\n\n"
         "set timeout=60\n"
         "### END /etc/grub.d/00_header ###\n\n"
         "search --no-floppy --set=root -l '" +
         volumeId +
         "'\n\n"
         "### BEGIN /etc/grub.d/10_linux ###\n"
         "menuentry 'Install Fedora 40' --class fedora --class gnu-linux "
         "--class gnu --class os {\n" +
         kernel + " quiet " + kConsole + "\n" + initrd +
         "}\n"
         "menuentry 'Test this media & install Fedora 40' --class fedora "
         "--class gnu-linux --class gnu --class os {\n" +
         kernel + " rd.live.check quiet " + kConsole + "\n" + initrd +
         "}\n"
         "submenu 'Troubleshooting -->' {\n"
         "\tmenuentry 'Rescue a Fedora system' --class fedora --class "
         "gnu-linux --class gnu --class os {\n"
         "\t" +
         kernel + " inst.rescue quiet\n\t" + initrd +
         "\t}\n"
         "}\n";
}

bool layOutFedora(Layout &d, const Pieces &p, const std::string &volumeId,
                  std::string &options) {
  d.text(".treeinfo",
         "[header]\ntype = productmd.treeinfo\nversion = 1.2\n\n"
         "[release]\nname = Fedora\nshort = Fedora\nversion = 40\n\n"
         "[tree]\narch = x86_64\nplatforms = x86_64\n\n"
         "[images-x86_64]\nkernel = images/pxeboot/vmlinuz\n"
         "initrd = images/pxeboot/initrd.img\n"
         "efiboot.img = images/efiboot.img\n");
  d.text(".discinfo", "1713000000.000000\n40\nx86_64\n");
  d.copy("images/pxeboot/vmlinuz", p.kernel);
  d.copy("images/pxeboot/initrd.img", p.initrd);
  const std::string cfg = fedoraGrubCfg(volumeId);
  d.text("boot/grub2/grub.cfg", cfg);
  d.text("EFI/BOOT/grub.cfg", cfg);
  if (!d.make("images/eltorito.img",
              grubImage("i386-pc-eltorito", "/boot/grub2", "")) ||
      !d.make("EFI/BOOT/BOOTX64.EFI",
              grubImage("x86_64-efi", "/EFI/BOOT", "")) ||
      !d.make("images/efiboot.img",
              fatImage(2048, {{"EFI/BOOT/BOOTX64.EFI",
                               d.root() + "/EFI/BOOT/BOOTX64.EFI"},
                              {"EFI/BOOT/grub.cfg", "=" + cfg}}))) {
    return false;
  }
  options =
      "-r -J --grub2-mbr /usr/lib/grub/i386-pc/boot_hybrid.img "
      "-b images/eltorito.img -c boot.cat -no-emul-boot -boot-load-size 4 "
      "-boot-info-table --grub2-boot-info -eltorito-alt-boot "
      "-e images/efiboot.img -no-emul-boot -efi-boot-part --efi-boot-image";
  return true;
}

// --- Ubuntu: GRUB only, the EFI image an appended GPT partition ----------

bool layOutUbuntu(Layout &d, const Pieces &p, const TempDir &tmp,
                  std::string &options) {
  d.text(".disk/info",
         "Ubuntu-Server 24.04 LTS \"Noble Numbat\" - Release amd64 "
         "(20240423)");
  d.copy("casper/vmlinuz", p.kernel);
  d.copy("casper/initrd", p.initrd);
  d.text("boot/grub/grub.cfg",
         "set timeout=30\n\n"
         "loadfont unicode\n\n"
         "set menu_color_normal=white/black\n"
         "set menu_color_highlight=black/light-gray\n\n"
         "menuentry \"Try or Install Ubuntu Server\" {\n"
         "\tset gfxpayload=keep\n"
         "\tlinux\t/casper/vmlinuz  quiet " +
             std::string(kConsole) +
             " ---\n"
             "\tinitrd\t/casper/initrd\n"
             "}\n"
             "menuentry \"Ubuntu Server with the HWE kernel\" {\n"
             "\tset gfxpayload=keep\n"
             "\tlinux\t/casper/hwe-vmlinuz  ---\n"
             "\tinitrd\t/casper/hwe-initrd\n"
             "}\n"
             "if [ \"$grub_platform\" = \"efi\" ]; then\n"
             "menuentry 'Boot from next volume' {\n"
             "\texit 1\n"
             "}\n"
             "else\n"
             "menuentry 'Test memory' {\n"
             "\tlinux16 /boot/memtest86+x64.bin\n"
             "}\n"
             "fi\n");
  // GRUB finds the disc by /.disk/info wherever it started from.
  const std::string early =
      "search --file --set=root /.disk/info\n"
      "set prefix=($root)/boot/grub\n"
      "configfile $prefix/grub.cfg\n";
  if (!d.make("boot/grub/i386-pc/eltorito.img",
              grubImage("i386-pc-eltorito", "/boot/grub", "")) ||
      !d.make("EFI/boot/bootx64.efi",
              grubImage("x86_64-efi", "/EFI/boot", early))) {
    return false;
  }
  // The EFI image lives outside the ISO tree, appended as partition 2.
  Layout efi(tmp / "efi-part", d.dry());
  if (!efi.make("efi.img",
                fatImage(2048, {{"EFI/boot/bootx64.efi",
                                 d.root() + "/EFI/boot/bootx64.efi"}}))) {
    return false;
  }
  d.keyPart(efi.key());
  options =
      "-r -J --grub2-mbr /usr/lib/grub/i386-pc/boot_hybrid.img "
      "--protective-msdos-label -partition_cyl_align off "
      "-partition_offset 16 --mbr-force-bootable "
      "-append_partition 2 0xef " +
      shellQuote(efi.root() + "/efi.img") +
      " -appended_part_as_gpt -c boot.catalog "
      "-b boot/grub/i386-pc/eltorito.img -no-emul-boot -boot-load-size 4 "
      "-boot-info-table --grub2-boot-info -eltorito-alt-boot "
      "-e --interval:appended_partition_2:all:: -no-emul-boot";
  return true;
}

}  // namespace

const char *bootDiscName(BootDisc disc) {
  switch (disc) {
    case BootDisc::Debian:
      return "debian";
    case BootDisc::Suse:
      return "suse";
    case BootDisc::Fedora:
      return "fedora";
    case BootDisc::Ubuntu:
      return "ubuntu";
  }
  return "unknown";
}

std::string bootDiscVolumeId(BootDisc disc) {
  switch (disc) {
    case BootDisc::Debian:
      return "Debian 12.5.0 amd64 n";
    case BootDisc::Suse:
      return "openSUSE-Leap-15.5-DVD-x86_64";
    case BootDisc::Fedora:
      return "Fedora-S-dvd-x86_64-40";
    case BootDisc::Ubuntu:
      return "Ubuntu-Server 24.04 LTS amd64";
  }
  return {};
}

namespace {

bool layOut(BootDisc disc, Layout &layout, const Pieces &pieces,
            const TempDir &tmp, std::string &options) {
  switch (disc) {
    case BootDisc::Debian:
      return layOutDebian(layout, pieces, options);
    case BootDisc::Suse:
      return layOutSuse(layout, pieces, options);
    case BootDisc::Fedora:
      return layOutFedora(layout, pieces, bootDiscVolumeId(disc), options);
    case BootDisc::Ubuntu:
      return layOutUbuntu(layout, pieces, tmp, options);
  }
  return false;
}

}  // namespace

std::string bootDisc(BootDisc disc, std::string &error) {
  Pieces pieces;
  if (!fetchPieces(pieces, error)) {
    return {};
  }
  TempDir tmp;
  const std::string volumeId = bootDiscVolumeId(disc);
  std::string options;
  Layout dry(tmp / "disc", true);
  layOut(disc, dry, pieces, tmp, options);
  // The key names files below the temporary directory; leave its name out.
  std::string key =
      std::string(kRecipeVersion) + volumeId + options + dry.key();
  for (size_t at; (at = key.find(tmp.path())) != std::string::npos;) {
    key.replace(at, tmp.path().size(), "<tmp>");
  }
  char hash[17];
  std::snprintf(hash, sizeof hash, "%016llx",
                static_cast<unsigned long long>(fnv1a(key)));
  const std::string image =
      fixturesDir() + "/boot-discs/" + bootDiscName(disc) + "-" + hash + ".iso";
  if (fileExists(image)) {
    return image;
  }
  Layout layout(tmp / "disc", false);
  if (!layOut(disc, layout, pieces, tmp, options)) {
    error = std::string("cannot lay out the ") + bootDiscName(disc) +
            " disc: " + layout.failure();
    return {};
  }
  const std::string part = image + ".part" + std::to_string(::getpid());
  std::string out;
  if (runCommand("xorriso -as mkisofs -quiet -V " + shellQuote(volumeId) +
                     " --modification-date=2024042312000000 " + options +
                     " -o " + shellQuote(part) + " " +
                     shellQuote(layout.root()) + " 2>&1 && mv " +
                     shellQuote(part) + " " + shellQuote(image),
                 &out) != 0) {
    fs::remove(part);
    error = "xorriso failed: " + out;
    return {};
  }
  return image;
}

namespace {

std::vector<std::string> firmwareOptions(Firmware firmware,
                                         const std::string &vars) {
  const std::string ovmf = "/usr/share/OVMF/";
  switch (firmware) {
    case Firmware::SeaBios:
      return {};
    case Firmware::Ovmf:
      fs::copy_file(ovmf + "OVMF_VARS_4M.fd", vars);
      return {"-drive",
              "if=pflash,format=raw,unit=0,readonly=on,file=" + ovmf +
                  "OVMF_CODE_4M.fd",
              "-drive", "if=pflash,format=raw,unit=1,file=" + vars};
    case Firmware::OvmfSecureBoot:
      fs::copy_file(ovmf + "OVMF_VARS_4M.ms.fd", vars);
      return {"-machine",
              "q35,smm=on",
              "-global",
              "driver=cfi.pflash01,property=secure,value=on",
              "-drive",
              "if=pflash,format=raw,unit=0,readonly=on,file=" + ovmf +
                  "OVMF_CODE_4M.secboot.fd",
              "-drive",
              "if=pflash,format=raw,unit=1,file=" + vars};
  }
  return {};
}

std::vector<std::string> deviceOptions(BootDevice device,
                                       const std::string &image) {
  if (device == BootDevice::Cdrom) {
    return {"-drive", "file=" + image + ",media=cdrom,readonly=on,if=ide"};
  }
  return {"-drive", "file=" + image + ",format=raw,if=virtio,readonly=on"};
}

// The kernel's own line, complete with its end of line.
bool findCommandLine(const std::string &log, BootRun &run) {
  static const std::string kLine = "Kernel command line: ";
  const size_t at = log.find(kLine);
  if (at == std::string::npos) {
    return false;
  }
  const size_t end = log.find('\n', at);
  if (end == std::string::npos) {
    return false;
  }
  run.commandLine = log.substr(at + kLine.size(), end - at - kLine.size());
  while (!run.commandLine.empty() &&
         (run.commandLine.back() == '\r' || run.commandLine.back() == ' ')) {
    run.commandLine.pop_back();
  }
  run.sawCommandLine = true;
  return true;
}

}  // namespace

BootRun bootUntilCommandLine(const std::string &image, Firmware firmware,
                             BootDevice device, int seconds) {
  TempDir tmp;
  const std::string serial = tmp / "serial.log";
  std::vector<std::string> args = {"qemu-system-x86_64",
                                   "-accel",
                                   "tcg",
                                   "-m",
                                   "512",
                                   "-display",
                                   "none",
                                   "-no-reboot",
                                   "-monitor",
                                   "none",
                                   "-serial",
                                   "file:" + serial};
  for (auto &&list : {firmwareOptions(firmware, tmp / "vars.fd"),
                      deviceOptions(device, image)}) {
    args.insert(args.end(), list.begin(), list.end());
  }
  std::vector<char *> argv;
  for (std::string &a : args) {
    argv.push_back(a.data());
  }
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  const std::string qemuLog = tmp / "qemu.log";
  posix_spawn_file_actions_addopen(&actions, 1, qemuLog.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t pid = -1;
  BootRun run;
  const int rc =
      posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    run.log = "cannot start qemu-system-x86_64";
    return run;
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  bool exited = false;
  while (std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    run.log = readFile(serial);
    if (findCommandLine(run.log, run)) {
      break;
    }
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      exited = true;
      break;
    }
  }
  if (!exited) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
  run.log = readFile(serial) + readFile(qemuLog);
  findCommandLine(run.log, run);
  run.secureBoot =
      run.log.find("secureboot: Secure boot enabled") != std::string::npos;
  return run;
}

}  // namespace gp::test
