// Remastering installation discs: the menu rewriters on tables of menus,
// then whole remasters of discs built here by xorriso, grub-mkimage,
// mkfs.fat and mtools, checked with xorriso's own reports.
#include "lib/medium/remaster.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "guestprep/medium.h"
#include "lib/medium/bootmenu.h"
#include "platform/hostio.h"
#include "support/fixtures.h"

namespace {

using gp::medium::MenuEdit;
using gp::medium::MenuFile;
using gp::medium::RemasterStatus;
using gp::test::FileTree;
using gp::test::shellQuote;

const std::vector<std::string> kDebianArgs = {
    "auto=true", "priority=critical", "preseed/file=/cdrom/preseed.cfg"};
const std::vector<std::string> kUbuntuArgs = {"autoinstall",
                                              "ds=nocloud;s=/cdrom/nocloud/"};

// --- isolinux --------------------------------------------------------------

struct IsolinuxCase {
  const char *label;
  FileTree files;  // the first one named by `main`
  std::string main;
  std::vector<std::string> args;
  MenuEdit edit;
  FileTree expected;  // the files that change, as they must read
};

TEST(RemasterIsolinux, RewritesTheFirstInstallerLabelOfTheChain) {
  const IsolinuxCase cases[] = {
      {"Debian: include chain, menu module, timeout 0",
       {{"isolinux/isolinux.cfg",
         "path \ninclude menu.cfg\ndefault vesamenu.c32\nprompt 0\ntimeout "
         "0\n"},
        {"isolinux/menu.cfg",
         "menu title Installer\ninclude stdmenu.cfg\ninclude gtk.cfg\n"
         "include txt.cfg\n"},
        {"isolinux/stdmenu.cfg", "menu color title 1;36;44 #ffffffff\n"},
        {"isolinux/gtk.cfg",
         "default installgui\nlabel installgui\n\tmenu label ^Graphical "
         "install\n\tmenu default\n\tkernel /install.amd/vmlinuz\n\tappend "
         "vga=788 initrd=/install.amd/gtk/initrd.gz --- quiet \n"},
        {"isolinux/txt.cfg",
         "label install\n\tmenu label ^Install\n\tkernel "
         "/install.amd/vmlinuz\n\tappend vga=788 "
         "initrd=/install.amd/initrd.gz --- quiet \n"}},
       "isolinux/isolinux.cfg",
       kDebianArgs,
       MenuEdit::Changed,
       {{"isolinux/isolinux.cfg",
         "path \ninclude menu.cfg\ndefault vesamenu.c32\nprompt 0\ntimeout "
         "50\n"},
        {"isolinux/gtk.cfg",
         "default installgui\nlabel installgui\n\tmenu label ^Graphical "
         "install\n\tmenu default\n\tkernel /install.amd/vmlinuz\n\tappend "
         "vga=788 initrd=/install.amd/gtk/initrd.gz auto=true "
         "priority=critical preseed/file=/cdrom/preseed.cfg --- quiet \n"}}},
      {"Red Hat: a menu that waits for ever, default on another label",
       {{"isolinux/isolinux.cfg",
         "default local\nprompt 1\ntimeout 0\nlabel local\n  localboot "
         "0xffff\nlabel linux\n  menu label ^Install\n  kernel vmlinuz\n  "
         "append initrd=initrd.img inst.stage2=hd:LABEL=RHEL-9 quiet\nlabel "
         "check\n  menu default\n  kernel vmlinuz\n  append "
         "initrd=initrd.img rd.live.check quiet\n"}},
       "isolinux/isolinux.cfg",
       {"inst.ks=hd:LABEL=RHEL-9:/ks.cfg"},
       MenuEdit::Changed,
       {{"isolinux/isolinux.cfg",
         "default linux\nprompt 1\ntimeout 50\nlabel local\n  localboot "
         "0xffff\nlabel linux\n  menu default\n  menu label ^Install\n  kernel "
         "vmlinuz\n  append initrd=initrd.img inst.stage2=hd:LABEL=RHEL-9 "
         "quiet inst.ks=hd:LABEL=RHEL-9:/ks.cfg\nlabel check\n  kernel "
         "vmlinuz\n  append initrd=initrd.img rd.live.check quiet\n"}}},
      {"SUSE: loader directory, absolute include, no timeout, no append",
       {{"boot/x86_64/loader/isolinux.cfg",
         "ui gfxboot bootlogo message\ninclude "
         "/boot/x86_64/loader/entries.cfg\n"},
        {"boot/x86_64/loader/entries.cfg",
         "label harddisk\n  localboot 0x80\nlabel linux\n  kernel linux\n  "
         "initrd initrd\n"}},
       "boot/x86_64/loader/isolinux.cfg",
       {"autoyast=cd:/autoinst.xml"},
       MenuEdit::Changed,
       {{"boot/x86_64/loader/isolinux.cfg",
         "timeout 50\nui gfxboot bootlogo message\ninclude "
         "/boot/x86_64/loader/entries.cfg\n"},
        {"boot/x86_64/loader/entries.cfg",
         "label harddisk\n  localboot 0x80\nlabel linux\n  menu default\n  "
         "kernel linux\n  append autoyast=cd:/autoinst.xml\n  initrd "
         "initrd\n"}}},
      {"include cycle, only tools",
       {{"a/a.cfg", "include b.cfg\nlabel mem\n kernel memtest\n"},
        {"a/b.cfg", "include a.cfg\nlabel hdt\n kernel hdt.c32\n"}},
       "a/a.cfg",
       kDebianArgs,
       MenuEdit::NoInstallerEntry,
       {}},
      {"a blank inside a value",
       {{"isolinux/isolinux.cfg",
         "label linux\n kernel vmlinuz\n append initrd=initrd.img\n"}},
       "isolinux/isolinux.cfg",
       {"inst.ks=hd:LABEL=My Disc:/ks.cfg"},
       MenuEdit::Refused,
       {}},
      {"a line break inside a value",
       {{"isolinux/isolinux.cfg",
         "label linux\n kernel vmlinuz\n append initrd=initrd.img\n"}},
       "isolinux/isolinux.cfg",
       {"a=b\nlabel evil"},
       MenuEdit::Refused,
       {}},
  };
  for (const IsolinuxCase &c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<MenuFile> chain = gp::medium::collectIsolinuxChain(
        c.main, [&c](const std::string &path) -> std::optional<std::string> {
          auto it = c.files.find(path);
          return it == c.files.end() ? std::nullopt
                                     : std::optional<std::string>(it->second);
        });
    ASSERT_FALSE(chain.empty());
    EXPECT_EQ(c.main, chain[0].path);
    gp::medium::MenuResult r = gp::medium::rewriteIsolinuxChain(chain, c.args);
    EXPECT_EQ(c.edit, r.edit) << r.reason;
    FileTree changed;
    for (const MenuFile &f : chain) {
      EXPECT_EQ(f.changed, f.text != c.files.at(f.path)) << f.path;
      if (f.changed) {
        changed[f.path] = f.text;
      }
    }
    EXPECT_EQ(c.expected, changed);
  }
}

// --- GRUB --------------------------------------------------------------------

struct GrubCase {
  const char *label;
  std::string text;
  std::vector<std::string> args;
  MenuEdit edit;
  std::string expected;  // the rewritten text (for Changed)
};

TEST(RemasterGrub, RewritesTheFirstInstallerEntry) {
  const GrubCase cases[] = {
      {"Ubuntu: a timeout, a value with ';', arguments before ---",
       "set timeout=30\n\nloadfont unicode\nmenuentry \"Try or Install Ubuntu "
       "Server\" {\n\tset gfxpayload=keep\n\tlinux\t/casper/vmlinuz  ---\n"
       "\tinitrd\t/casper/initrd\n}\nmenuentry 'Test memory' {\n\tlinux16 "
       "/boot/memtest86+x64.bin\n}\n",
       kUbuntuArgs, MenuEdit::Changed,
       "set default='Try or Install Ubuntu Server'\nset timeout=5\n\n"
       "loadfont unicode\nmenuentry \"Try or Install Ubuntu Server\" {\n\tset "
       "gfxpayload=keep\n\tlinux\t/casper/vmlinuz  autoinstall "
       "'ds=nocloud;s=/cdrom/nocloud/' ---\n\tinitrd\t/casper/initrd\n}\n"
       "menuentry 'Test memory' {\n\tlinux16 /boot/memtest86+x64.bin\n}\n"},
      {"Debian: no timeout, no default, options before the title",
       "if [ ${iso_path} ] ; then\nset loopback=\"findiso=${iso_path}\"\nfi\n"
       "menuentry --hotkey=g 'Graphical install' {\n    set "
       "background_color=black\n    linux    /install.amd/vmlinuz vga=788 --- "
       "quiet\n    initrd   /install.amd/gtk/initrd.gz\n}\n",
       kDebianArgs, MenuEdit::Changed,
       "set default='Graphical install'\nset timeout=5\nif [ ${iso_path} ] ; "
       "then\nset loopback=\"findiso=${iso_path}\"\nfi\nmenuentry "
       "--hotkey=g 'Graphical install' {\n    set background_color=black\n   "
       " linux    /install.amd/vmlinuz vga=788 auto=true priority=critical "
       "preseed/file=/cdrom/preseed.cfg --- quiet\n    initrd   "
       "/install.amd/gtk/initrd.gz\n}\n"},
      {"Fedora: a default by number, a timeout inside a condition",
       "set default=\"1\"\nif [ x$feature_timeout_style = xy ] ; then\n  set "
       "timeout_style=menu\n  set timeout=60\nelse\n  set timeout=60\nfi\n"
       "menuentry 'Install Fedora 40' --class fedora --class gnu-linux {\n\t"
       "linuxefi /images/pxeboot/vmlinuz inst.stage2=hd:LABEL=Fedora-40 "
       "quiet\n\tinitrdefi /images/pxeboot/initrd.img\n}\nmenuentry 'Test "
       "this media & install Fedora 40' --class fedora {\n\tlinuxefi "
       "/images/pxeboot/vmlinuz inst.stage2=hd:LABEL=Fedora-40 rd.live.check "
       "quiet\n\tinitrdefi /images/pxeboot/initrd.img\n}\n",
       {"inst.ks=hd:LABEL=Fedora-40:/ks.cfg"},
       MenuEdit::Changed,
       "set default='Install Fedora 40'\nif [ x$feature_timeout_style = xy ] "
       "; then\n  set timeout_style=menu\n  set timeout=5\nelse\n  set "
       "timeout=5\nfi\nmenuentry 'Install Fedora 40' --class fedora --class "
       "gnu-linux {\n\tlinuxefi /images/pxeboot/vmlinuz "
       "inst.stage2=hd:LABEL=Fedora-40 quiet "
       "inst.ks=hd:LABEL=Fedora-40:/ks.cfg\n\tinitrdefi "
       "/images/pxeboot/initrd.img\n}\nmenuentry 'Test this media & install "
       "Fedora 40' --class fedora {\n\tlinuxefi /images/pxeboot/vmlinuz "
       "inst.stage2=hd:LABEL=Fedora-40 rd.live.check quiet\n\tinitrdefi "
       "/images/pxeboot/initrd.img\n}\n"},
      {"an entry inside a submenu, named by its id",
       "set timeout=-1\nsubmenu 'More' {\n  menuentry 'Install' --id inst {\n"
       "    linux /vmlinuz\n    initrd /initrd\n  }\n}\n",
       {"autoyast=cd:/autoinst.xml"},
       MenuEdit::Changed,
       "set default='More>inst'\nset timeout=5\nsubmenu 'More' {\n  "
       "menuentry 'Install' --id inst {\n    linux /vmlinuz "
       "autoyast=cd:/autoinst.xml\n    initrd /initrd\n  }\n}\n"},
      {"a title holding '>' and a quote",
       "menuentry \"Install >> it's\" {\n linux /vmlinuz\n initrd /initrd\n}\n",
       {"a'b"},
       MenuEdit::Changed,
       "set default=0\nset timeout=5\nmenuentry \"Install >> it's\" {\n linux "
       "/vmlinuz 'a'\\''b'\n initrd /initrd\n}\n"},
      {"the stub inside an EFI image",
       "search --file --set=root /.disk/info\nset prefix=($root)/boot/grub\n"
       "configfile $prefix/grub.cfg\n",
       kUbuntuArgs, MenuEdit::NoInstallerEntry, ""},
      {"a kernel without an initrd is no installer",
       "menuentry 'x' {\n linux /boot/vmlinuz\n}\n", kUbuntuArgs,
       MenuEdit::NoInstallerEntry, ""},
      {"a control character",
       "menuentry 'x' {\n linux /v\n initrd /i\n}\n",
       {"a\nb"},
       MenuEdit::Refused,
       ""},
  };
  for (const GrubCase &c : cases) {
    SCOPED_TRACE(c.label);
    std::string text = c.text;
    gp::medium::MenuResult r = gp::medium::rewriteGrubConfig(text, c.args);
    EXPECT_EQ(c.edit, r.edit) << r.reason;
    EXPECT_EQ(c.edit == MenuEdit::Changed ? c.expected : c.text, text);
  }
}

TEST(RemasterGrub, WordsAreQuotedOnlyWhenNeeded) {
  const std::pair<const char *, std::optional<std::string>> cases[] = {
      {"quiet", "quiet"},
      {"inst.ks=hd:LABEL=A-B_1:/ks.cfg", "inst.ks=hd:LABEL=A-B_1:/ks.cfg"},
      {"ds=nocloud;s=/cdrom/nocloud/", "'ds=nocloud;s=/cdrom/nocloud/'"},
      {"a b$c", "'a b$c'"},
      {"it's", "'it'\\''s'"},
      {"", "''"},
      {"a\tb", std::nullopt},
  };
  for (const auto &[in, out] : cases) {
    EXPECT_EQ(out, gp::medium::grubWord(in)) << in;
  }
}

// --- Whole discs -------------------------------------------------------------

std::string fixtureDir() { return std::string(GP_BINARY_DIR) + "/fixtures"; }

// GRUB's BIOS El Torito image and its EFI loader, made once.
struct GrubPieces {
  std::string bios, efi;
};

GrubPieces grubPieces() {
  GrubPieces g{fixtureDir() + "/remaster-grub-eltorito.img",
               fixtureDir() + "/remaster-grub-bootx64.efi"};
  if (!gp::test::fileExists(g.bios) || !gp::test::fileExists(g.efi)) {
    std::string d = shellQuote(fixtureDir());
    // Tests running side by side each make their own and rename it in.
    std::string cmd =
        "set -e; mkdir -p " + d + "; cd " + d +
        "; grub-mkimage -O i386-pc-eltorito -p /boot/grub -o rg-bios.$$ "
        "biosdisk iso9660 normal configfile linux"
        "; grub-mkimage -O x86_64-efi -p /EFI/BOOT -o rg-efi.$$ "
        "iso9660 fat part_gpt normal configfile linux"
        "; mv rg-bios.$$ remaster-grub-eltorito.img"
        "; mv rg-efi.$$ remaster-grub-bootx64.efi";
    EXPECT_EQ(0, gp::test::runCommand("(" + cmd + ") >/dev/null 2>&1"));
  }
  return g;
}

// A FAT EFI system image holding GRUB and `config` as EFI/BOOT/grub.cfg.
std::string efiImage(const gp::test::TempDir &tmp, const std::string &config) {
  std::string img = tmp / "efi.img";
  std::string cfg = tmp / "efi-grub.cfg";
  gp::test::writeFile(cfg, config);
  std::string cmd = "set -e; mkfs.fat -C " + shellQuote(img) +
                    " 4096 >/dev/null; mmd -i " + shellQuote(img) +
                    " ::/EFI ::/EFI/BOOT; mcopy -i " + shellQuote(img) + " " +
                    shellQuote(grubPieces().efi) +
                    " ::/EFI/BOOT/BOOTX64.EFI; mcopy -i " + shellQuote(img) +
                    " " + shellQuote(cfg) + " ::/EFI/BOOT/grub.cfg";
  EXPECT_EQ(0, gp::test::runCommand("(" + cmd + ") 2>&1")) << cmd;
  return img;
}

std::string master(const gp::test::TempDir &tmp, const FileTree &files,
                   const std::string &volid, const std::string &bootArgs,
                   const FileTree &copies = {}) {
  std::string root = tmp / "tree";
  gp::test::writeTree(root, files);
  for (const auto &[path, host] : copies) {
    gp::test::writeFile(root + "/" + path, gp::test::readFile(host));
  }
  std::string iso = tmp / "disc.iso";
  std::string cmd = "cd " + shellQuote(tmp.path()) +
                    " && xorriso -as mkisofs -quiet -R -J -V " +
                    shellQuote(volid) + " " + bootArgs + " -o " +
                    shellQuote(iso) + " tree 2>&1";
  EXPECT_EQ(0, gp::test::runCommand(cmd)) << cmd;
  return iso;
}

std::string extract(const std::string &iso, const std::string &path) {
  gp::test::TempDir tmp;
  std::string out = tmp / "file";
  std::string cmd = "xorriso -osirrox on -indev " + shellQuote(iso) +
                    " -extract " + shellQuote(path) + " " + shellQuote(out) +
                    " >/dev/null 2>&1";
  if (gp::test::runCommand(cmd) != 0) {
    return "(missing)";
  }
  return gp::test::readFile(out);
}

// What must survive a remaster of the boot equipment xorriso reports:
// the volume id, the catalog's entries and their files, the system area
// (MBR, GPT) and the appended partitions' types; not where things lie.
std::string bootReport(const std::string &iso) {
  std::string out;
  gp::test::runCommand(
      "xorriso -indev " + shellQuote(iso) +
          " -report_el_torito plain -report_system_area plain 2>&1 | grep -e "
          "'^Boot record' -e '^Volume id' -e '^El Torito cat path' -e '^El "
          "Torito img' -e '^System area summary' -e 'Appended' -e 'GPT type "
          "GUID      :   2'",
      &out);
  return out;
}

// The grub.cfg inside the EFI image of `iso`: the catalog's EFI entry
// extracted by xorriso, read by mtools.
std::string efiConfig(const std::string &iso) {
  gp::test::TempDir tmp;
  std::string out;
  std::string cmd = "cd " + shellQuote(tmp.path()) +
                    " && xorriso -osirrox on -indev " + shellQuote(iso) +
                    " -extract_boot_images ./ >/dev/null 2>&1 && "
                    "MTOOLS_SKIP_CHECK=1 mtype -i eltorito_img2_uefi.img "
                    "::/EFI/BOOT/grub.cfg";
  EXPECT_EQ(0, gp::test::runCommand(cmd, &out)) << cmd;
  return out;
}

const char kUbuntuMenu[] =
    "set timeout=30\nmenuentry \"Try or Install Ubuntu Server\" {\n\tset "
    "gfxpayload=keep\n\tlinux\t/casper/vmlinuz loglevel=7 console=ttyS0 "
    "---\n\tinitrd\t/casper/initrd\n}\n";
const char kUbuntuEfiMenu[] =
    "menuentry \"Try or Install Ubuntu Server\" {\n\tlinux\t/casper/vmlinuz "
    "---\n\tinitrd\t/casper/initrd\n}\n";

FileTree ubuntuTree() {
  return {{".disk/info",
           "Ubuntu-Server 24.04 LTS \"Noble Numbat\" - Release amd64\n"},
          {"casper/vmlinuz", "kernel"},
          {"casper/initrd", "initrd"},
          {"boot/grub/grub.cfg", kUbuntuMenu}};
}

struct Outcome {
  RemasterStatus status;
  std::string error;
  std::vector<std::string> progress;
};

Outcome remaster(const std::string &iso, const std::string &answer,
                 const std::string &out) {
  Outcome r;
  r.status = gp::medium::remasterMedium(
      iso, answer, out, r.error,
      [&r](const std::string &line) { r.progress.push_back(line); });
  return r;
}

// Every entry of a directory.
std::vector<std::string> listDir(const std::string &dir) {
  std::vector<std::string> out;
  if (DIR *d = opendir(dir.c_str())) {
    while (dirent *e = readdir(d)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") {
        out.push_back(name);
      }
    }
    closedir(d);
  }
  std::sort(out.begin(), out.end());
  return out;
}

// Sets SOURCE_DATE_EPOCH for its lifetime.
struct FixedDate {
  FixedDate() { setenv("SOURCE_DATE_EPOCH", "1700000000", 1); }
  ~FixedDate() { unsetenv("SOURCE_DATE_EPOCH"); }
};

// A temporary directory of this test's own, so that scratch files left
// behind show.
struct OwnTmp {
  explicit OwnTmp(const std::string &dir) : dir_(dir) {
    gp::test::writeFile(dir + "/.keep", "");
    setenv("TMPDIR", dir.c_str(), 1);
  }
  ~OwnTmp() { unsetenv("TMPDIR"); }
  // What the remaster left in the user's directory there.
  std::vector<std::string> left() const {
    return listDir(gp::userTempDirectory());
  }
  std::string dir_;
};

TEST(RemasterDisc, GrubOnlyUbuntuWithAnEfiImageFile) {
  gp::test::TempDir tmp;
  GrubPieces grub = grubPieces();
  std::string efi = efiImage(tmp, kUbuntuEfiMenu);
  std::string iso = master(
      tmp, ubuntuTree(), "Ubuntu-Server 24.04 LTS amd64",
      "-b boot/grub/i386-pc/eltorito.img -no-emul-boot -boot-load-size 4 "
      "-boot-info-table --grub2-boot-info -eltorito-alt-boot -e "
      "boot/grub/efi.img -no-emul-boot",
      {{"boot/grub/i386-pc/eltorito.img", grub.bios},
       {"boot/grub/efi.img", efi}});
  std::string answer = tmp / "user-data";
  gp::test::writeFile(answer, "#cloud-config\nautoinstall:\n  version: 1\n");
  std::string before = gp::test::readFile(iso);
  FixedDate date;
  OwnTmp scratch(tmp / "tmp");
  Outcome r = remaster(iso, answer, tmp / "out.iso");
  ASSERT_EQ(RemasterStatus::Ok, r.status) << r.error;
  EXPECT_EQ(before, gp::test::readFile(iso));

  std::string out = tmp / "out.iso";
  EXPECT_NE(std::string::npos,
            extract(out, "/boot/grub/grub.cfg")
                .find("\tlinux\t/casper/vmlinuz loglevel=7 console=ttyS0 "
                      "autoinstall 'ds=nocloud;s=/cdrom/nocloud/' ---\n"));
  EXPECT_EQ("#cloud-config\nautoinstall:\n  version: 1\n",
            extract(out, "/nocloud/user-data"));
  EXPECT_EQ("", extract(out, "/nocloud/meta-data"));
  EXPECT_NE(std::string::npos,
            efiConfig(out).find("autoinstall 'ds=nocloud;s=/cdrom/nocloud/' "
                                "---"));
  EXPECT_EQ(bootReport(iso), bootReport(out));

  // The same bytes again, and no scratch left anywhere.
  Outcome again = remaster(iso, answer, tmp / "again.iso");
  ASSERT_EQ(RemasterStatus::Ok, again.status) << again.error;
  EXPECT_TRUE(gp::test::readFile(out) == gp::test::readFile(tmp / "again.iso"));
  EXPECT_EQ(std::vector<std::string>({"again.iso", "disc.iso", "efi-grub.cfg",
                                      "efi.img", "out.iso", "tmp", "tree",
                                      "user-data"}),
            listDir(tmp.path()));
  EXPECT_TRUE(scratch.left().empty());
}

TEST(RemasterDisc, AppendedEfiPartitionKeepsTheHybridLayout) {
  gp::test::TempDir tmp;
  GrubPieces grub = grubPieces();
  std::string efi = efiImage(tmp, kUbuntuEfiMenu);
  std::string iso =
      master(tmp, ubuntuTree(), "Ubuntu-Server 24.04 LTS amd64",
             "--grub2-mbr /usr/lib/grub/i386-pc/boot_hybrid.img "
             "-partition_offset 16 -append_partition 2 0xef " +
                 shellQuote(efi) +
                 " -appended_part_as_gpt -c boot.catalog -b "
                 "boot/grub/i386-pc/eltorito.img -no-emul-boot "
                 "-boot-load-size 4 -boot-info-table --grub2-boot-info "
                 "-eltorito-alt-boot -e '--interval:appended_partition_2:::' "
                 "-no-emul-boot",
             {{"boot/grub/i386-pc/eltorito.img", grub.bios}});
  std::string answer = tmp / "user-data";
  gp::test::writeFile(answer, "#cloud-config\n");
  Outcome r = remaster(iso, answer, tmp / "out.iso");
  ASSERT_EQ(RemasterStatus::Ok, r.status) << r.error;
  std::string out = tmp / "out.iso";
  EXPECT_EQ(bootReport(iso), bootReport(out));
  EXPECT_NE(std::string::npos, bootReport(out).find("GPT"));
  EXPECT_NE(std::string::npos,
            efiConfig(out).find("autoinstall 'ds=nocloud;s=/cdrom/nocloud/' "
                                "---"));
  bool sawPartition = false;
  for (const std::string &line : r.progress) {
    sawPartition = sawPartition || line.find("appended partition 2") == 0 ||
                   line.find("rewriting appended partition 2") == 0;
  }
  EXPECT_TRUE(sawPartition);
}

// Fedora 37 and later: GRUB only, the menu inside the EFI image uses
// linuxefi, and here the EFI image is hidden from the file tree.
TEST(RemasterDisc, HiddenEfiImageOfAnAnacondaDisc) {
  gp::test::TempDir tmp;
  GrubPieces grub = grubPieces();
  const std::string menu =
      "set default=\"1\"\nset timeout=60\nmenuentry 'Install Fedora 40' "
      "--class fedora {\n\tlinuxefi /images/pxeboot/vmlinuz "
      "inst.stage2=hd:LABEL=Fedora-S-dvd-x86_64-40 quiet\n\tinitrdefi "
      "/images/pxeboot/initrd.img\n}\nmenuentry 'Test this media & install "
      "Fedora 40' --class fedora {\n\tlinuxefi /images/pxeboot/vmlinuz "
      "inst.stage2=hd:LABEL=Fedora-S-dvd-x86_64-40 rd.live.check quiet\n"
      "\tinitrdefi /images/pxeboot/initrd.img\n}\n";
  std::string efi = efiImage(tmp, menu);
  std::string iso = master(
      tmp,
      {{".treeinfo",
        "[header]\ntype = productmd.treeinfo\nversion = 1.2\n\n[release]\n"
        "name = Fedora\nshort = Fedora\nversion = 40\n\n[tree]\narch = "
        "x86_64\nplatforms = x86_64\n"},
       {"boot/grub2/grub.cfg", menu},
       {"images/pxeboot/vmlinuz", "kernel"},
       {"images/pxeboot/initrd.img", "initrd"}},
      "Fedora-S-dvd-x86_64-40",
      "-b images/eltorito.img -no-emul-boot -boot-load-size 4 "
      "-boot-info-table -eltorito-alt-boot -e images/efiboot.img "
      "-no-emul-boot -hide images/efiboot.img -hide-joliet images/efiboot.img",
      {{"images/eltorito.img", grub.bios}, {"images/efiboot.img", efi}});
  std::string answer = tmp / "ks.cfg";
  gp::test::writeFile(answer, "text\nreboot\n");
  Outcome r = remaster(iso, answer, tmp / "out.iso");
  ASSERT_EQ(RemasterStatus::Ok, r.status) << r.error;
  std::string out = tmp / "out.iso";
  const std::string line =
      "\tlinuxefi /images/pxeboot/vmlinuz "
      "inst.stage2=hd:LABEL=Fedora-S-dvd-x86_64-40 quiet "
      "inst.ks=hd:LABEL=Fedora-S-dvd-x86_64-40:/ks.cfg\n";
  std::string config = efiConfig(out);
  EXPECT_NE(std::string::npos, config.find(line)) << config;
  EXPECT_EQ(0u,
            config.find("set default='Install Fedora 40'\nset timeout=5\n"));
  EXPECT_NE(std::string::npos, extract(out, "/boot/grub2/grub.cfg").find(line));
  EXPECT_EQ("text\nreboot\n", extract(out, "/ks.cfg"));
  EXPECT_EQ(bootReport(iso), bootReport(out));
}

TEST(RemasterDisc, IsolinuxInTheSuseLoaderDirectory) {
  gp::test::TempDir tmp;
  std::string iso = master(
      tmp,
      {{"media.1/products", "/ SLES15-SP4 15.4-0\n"},
       {"boot/x86_64/loader/isolinux.cfg",
        "default harddisk\ntimeout 0\ninclude entries.cfg\n"},
       {"boot/x86_64/loader/entries.cfg",
        "label harddisk\n  localboot 0x80\nlabel linux\n  kernel linux\n  "
        "append initrd=initrd splash=silent showopts\n"},
       {"boot/x86_64/loader/linux", "kernel"},
       {"boot/x86_64/loader/initrd", "initrd"}},
      "SLE-15-SP4-Full-x86_6419.1.001",
      "-b boot/x86_64/loader/isolinux.bin -c boot/x86_64/loader/boot.cat "
      "-no-emul-boot -boot-load-size 4 -boot-info-table",
      {{"boot/x86_64/loader/isolinux.bin", "/usr/lib/ISOLINUX/isolinux.bin"}});
  std::string answer = tmp / "autoinst.xml";
  gp::test::writeFile(answer, "<profile/>\n");
  Outcome r = remaster(iso, answer, tmp / "out.iso");
  ASSERT_EQ(RemasterStatus::Ok, r.status) << r.error;
  std::string out = tmp / "out.iso";
  EXPECT_EQ("default linux\ntimeout 50\ninclude entries.cfg\n",
            extract(out, "/boot/x86_64/loader/isolinux.cfg"));
  EXPECT_EQ(
      "label harddisk\n  localboot 0x80\nlabel linux\n  menu default\n  "
      "kernel linux\n  append initrd=initrd splash=silent showopts "
      "autoyast=cd:/autoinst.xml\n",
      extract(out, "/boot/x86_64/loader/entries.cfg"));
  EXPECT_EQ("<profile/>\n", extract(out, "/autoinst.xml"));
  EXPECT_EQ(bootReport(iso), bootReport(out));
  char *doc = Guestprep_DescribeMedium(out.c_str());
  ASSERT_NE(nullptr, doc);
  EXPECT_NE(nullptr, std::strstr(doc, "SLE-15-SP4-Full-x86_6419.1.001"));
  std::free(doc);
}

TEST(RemasterDisc, RefusalsWriteNothing) {
  gp::test::TempDir tmp;
  std::string iso = master(tmp, {{"readme.txt", "hello\n"}}, "DATA", "");
  std::string answer = tmp / "ks.cfg";
  gp::test::writeFile(answer, "text\n");
  std::string out = tmp / "out.iso";

  Outcome r = remaster(iso, answer, out);
  EXPECT_EQ(RemasterStatus::NoInstallerBoot, r.status);
  EXPECT_FALSE(gp::test::fileExists(out));

  r = remaster(iso, tmp / "missing.cfg", out);
  EXPECT_EQ(RemasterStatus::BadArguments, r.status);
  EXPECT_NE(std::string::npos, r.error.find("missing.cfg")) << r.error;

  std::string before = gp::test::readFile(iso);
  r = remaster(iso, answer, iso);
  EXPECT_EQ(RemasterStatus::BadArguments, r.status);
  EXPECT_NE(std::string::npos, r.error.find(iso)) << r.error;
  EXPECT_EQ(before, gp::test::readFile(iso));

  char *message = nullptr;
  EXPECT_EQ(1, Guestprep_RemasterMedium(iso.c_str(), answer.c_str(),
                                        out.c_str(), &message));
  ASSERT_NE(nullptr, message);
  std::free(message);
  EXPECT_EQ(std::vector<std::string>({"disc.iso", "ks.cfg", "tree"}),
            listDir(tmp.path()));
}

// The mastering tool failing, or writing an image that lost its EFI entry,
// leaves nothing behind.
TEST(RemasterDisc, AFailingToolLeavesNothing) {
  gp::test::TempDir tmp;
  GrubPieces grub = grubPieces();
  std::string efi = efiImage(tmp, kUbuntuEfiMenu);
  std::string iso = master(
      tmp, ubuntuTree(), "UBUNTU",
      "-b boot/grub/i386-pc/eltorito.img -no-emul-boot -boot-load-size 4 "
      "-boot-info-table -eltorito-alt-boot -e boot/grub/efi.img -no-emul-boot",
      {{"boot/grub/i386-pc/eltorito.img", grub.bios},
       {"boot/grub/efi.img", efi}});
  std::string answer = tmp / "user-data";
  gp::test::writeFile(answer, "#cloud-config\n");
  std::string out = tmp / "out.iso";
  OwnTmp scratch(tmp / "tmp");
  std::vector<std::string> files = listDir(tmp.path());

  static std::string (*edit)(const std::string &) = nullptr;
  gp::HostOps ops = gp::hostOps();
  ops.system = [](const char *command) -> int {
    std::string c = command;
    if (c.find(" -outdev ") != std::string::npos) {
      c = edit(c);
    }
    return std::system(c.c_str());
  };
  const std::pair<const char *, std::string (*)(const std::string &)> cases[] =
      {{"the tool fails after writing part of the image",
        [](const std::string &c) {
          size_t end = c.rfind(") >");
          return c.substr(0, end) + "; exit 3" + c.substr(end);
        }},
       {"the tool writes an image without its boot entries",
        [](const std::string &c) {
          std::string replay = " -boot_image any replay";
          std::string cut = c;
          return cut.replace(cut.find(replay), replay.size(), "");
        }}};
  for (const auto &[label, fn] : cases) {
    SCOPED_TRACE(label);
    edit = fn;
    gp::ScopedHostOps scoped(ops);
    Outcome r = remaster(iso, answer, out);
    EXPECT_EQ(RemasterStatus::Failed, r.status);
    EXPECT_FALSE(r.error.empty());
    EXPECT_EQ(files, listDir(tmp.path()));
    EXPECT_TRUE(scratch.left().empty());
  }
}

}  // namespace

namespace {

// Every command the remaster ran, for the test below.
std::vector<std::string> &commandsRun() {
  static std::vector<std::string> commands;
  return commands;
}

}  // namespace

// An EFI image whose menu only hands over to the disc's own menu has
// nothing to change: it is read where it lies, never copied, and the new
// image keeps it as it was.
TEST(RemasterDisc, AnEfiImageWithNothingToChangeIsNotCopied) {
  const std::string stub =
      "search --file --set=root /.disk/info\nset prefix=($root)/boot/grub\n"
      "configfile $prefix/grub.cfg\n";
  gp::test::TempDir tmp;
  GrubPieces grub = grubPieces();
  std::string efi = efiImage(tmp, stub);
  const struct {
    const char *label;
    std::string bootArgs;
  } discs[] = {
      {"an image file",
       "-b boot/grub/i386-pc/eltorito.img -no-emul-boot -boot-load-size 4 "
       "-boot-info-table -eltorito-alt-boot -e boot/grub/efi.img "
       "-no-emul-boot"},
      {"an appended partition",
       "-append_partition 2 0xef " + shellQuote(efi) +
           " -appended_part_as_gpt -b boot/grub/i386-pc/eltorito.img "
           "-no-emul-boot -boot-load-size 4 -boot-info-table "
           "-eltorito-alt-boot -e '--interval:appended_partition_2:::' "
           "-no-emul-boot"},
  };
  gp::HostOps ops = gp::hostOps();
  ops.system = [](const char *command) -> int {
    commandsRun().push_back(command);
    return std::system(command);
  };
  ops.open = [](const char *path, int flags, mode_t mode) -> int {
    commandsRun().push_back(std::string("open ") + path);
    return ::open(path, flags, mode);
  };
  for (const auto &disc : discs) {
    SCOPED_TRACE(disc.label);
    gp::test::TempDir work;
    std::string iso = master(work, ubuntuTree(), "UBUNTU", disc.bootArgs,
                             {{"boot/grub/i386-pc/eltorito.img", grub.bios},
                              {"boot/grub/efi.img", efi}});
    std::string answer = work / "user-data";
    gp::test::writeFile(answer, "#cloud-config\n");
    commandsRun().clear();
    Outcome r;
    {
      gp::ScopedHostOps scoped(ops);
      r = remaster(iso, answer, work / "out.iso");
    }
    ASSERT_EQ(RemasterStatus::Ok, r.status) << r.error;
    EXPECT_FALSE(commandsRun().empty());
    for (const std::string &c : commandsRun()) {
      // A copy of the image would be extracted or opened in the scratch
      // area under one of these names.
      EXPECT_EQ(std::string::npos, c.find("efi.img' '")) << c;
      EXPECT_EQ(std::string::npos, c.find("/efi-0.img")) << c;
      EXPECT_EQ(std::string::npos, c.find("/partition-2.img")) << c;
      EXPECT_EQ(std::string::npos, c.find("mcopy")) << c;
      EXPECT_EQ(std::string::npos, c.find("-append_partition")) << c;
    }
    EXPECT_EQ(stub, efiConfig(work / "out.iso"));
    EXPECT_NE(
        std::string::npos,
        extract(work / "out.iso", "/boot/grub/grub.cfg").find("autoinstall"));
  }
}
