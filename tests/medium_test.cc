// The description of installation media, on images built at test time by
// the real mastering tools, grouped by family.
#include "guestprep/medium.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>

#include "lib/medium/wim.h"
#include "support/fixtures.h"
#include "support/udf_fixtures.h"

namespace {

using gp::test::FileTree;
using Json = nlohmann::json;

Json describe(const std::string &image) {
  char *text = Guestprep_DescribeMedium(image.c_str());
  EXPECT_NE(nullptr, text) << image;
  if (text == nullptr) {
    return Json();
  }
  Json doc = Json::parse(text);
  std::free(text);
  return doc;
}

// A bootable image of `files` made by xorriso with `bootArgs` (paths below
// the tree), cached in the build tree by content.
std::string bootableIso(FileTree files, const std::string &bootArgs,
                        const FileTree &copies = {}) {
  std::string key = bootArgs;
  for (const auto &[path, content] : files) {
    key += "\n" + path + "\n" + content;
  }
  for (const auto &[path, host] : copies) {
    key += "\n" + path + "<" + host;
  }
  std::string out = std::string(GP_BINARY_DIR) + "/fixtures/medium-" +
                    std::to_string(std::hash<std::string>()(key)) + ".iso";
  if (gp::test::fileExists(out)) {
    return out;
  }
  gp::test::TempDir tmp;
  std::string root = tmp / "tree";
  gp::test::writeTree(root, files);
  for (const auto &[path, host] : copies) {
    gp::test::writeFile(root + "/" + path, gp::test::readFile(host));
  }
  std::string cmd = "mkdir -p " + gp::test::shellQuote(GP_BINARY_DIR) +
                    "/fixtures && xorriso -as mkisofs -quiet -R -J -V TEST " +
                    bootArgs + " -o " + gp::test::shellQuote(out + ".tmp") +
                    " " + gp::test::shellQuote(root) + " && mv " +
                    gp::test::shellQuote(out + ".tmp") + " " +
                    gp::test::shellQuote(out);
  EXPECT_EQ(0, gp::test::runCommand(cmd)) << cmd;
  return out;
}

const char kIsolinuxBin[] = "/usr/lib/ISOLINUX/isolinux.bin";
const std::string kIsolinuxBoot =
    "-b isolinux/isolinux.bin -c isolinux/boot.cat -no-emul-boot "
    "-boot-load-size 4 -boot-info-table";
const std::string kEfiBoot =
    "-eltorito-alt-boot -e images/efiboot.img -no-emul-boot";

std::string treeinfo(const std::string &sections) {
  return "[header]\ntype = productmd.treeinfo\nversion = 1.2\n\n" + sections;
}

struct OsCase {
  const char *label;
  FileTree files;
  const char *id;
  const char *distro;
  const char *version;
  const char *arch;
  const char *installer;
};

void expectOs(const OsCase &c) {
  SCOPED_TRACE(c.label);
  Json doc = describe(
      gp::test::isoFromTree(c.files, gp::test::IsoFlavor::JolietRockRidge));
  ASSERT_TRUE(doc["os"].is_object()) << doc.dump();
  EXPECT_EQ(c.id, doc["os"]["id"]);
  EXPECT_EQ(c.distro, doc["os"]["distro"]);
  EXPECT_EQ("linux", doc["os"]["family"]);
  EXPECT_EQ(c.version, doc["os"]["version"]);
  EXPECT_EQ(c.arch, doc["os"]["arch"]);
  if (c.installer == nullptr) {
    EXPECT_TRUE(doc["os"]["installer"].is_null());
  } else {
    EXPECT_EQ(c.installer, doc["os"]["installer"]);
  }
  EXPECT_FALSE(doc["evidence"].empty());
}

TEST(MediumRedHat, TreeinfoVersionsFollowTheDatabaseIds) {
  const OsCase cases[] = {
      {"RHEL 9.3",
       {{".treeinfo", treeinfo("[release]\nname = Red Hat Enterprise Linux\n"
                               "short = RHEL\nversion = 9.3\n[tree]\narch = "
                               "x86_64\n")}},
       "rhel9.3",
       "rhel",
       "9.3",
       "x86_64",
       "anaconda"},
      {"RHEL 8.0.0",
       {{".treeinfo", treeinfo("[release]\nname = Red Hat Enterprise Linux\n"
                               "short = RHEL\nversion = 8.0.0\n[tree]\narch = "
                               "s390x\n")}},
       "rhel8.0",
       "rhel",
       "8.0.0",
       "s390x",
       "anaconda"},
      {"RHEL 10 written as a bare major",
       {{".treeinfo", treeinfo("[release]\nname = Red Hat Enterprise Linux\n"
                               "short = RHEL\nversion = 10\n[tree]\narch = "
                               "aarch64\n")}},
       "rhel10.0",
       "rhel",
       "10",
       "aarch64",
       "anaconda"},
      {"CentOS 7 has only [general]",
       {{".treeinfo",
         "[general]\nname = CentOS-7\nfamily = CentOS\nversion = 7\narch = "
         "x86_64\n"}},
       "centos7.0",
       "centos",
       "7",
       "x86_64",
       "anaconda"},
      {"CentOS Stream 9",
       {{".treeinfo", treeinfo("[release]\nname = CentOS Stream\nshort = "
                               "CentOS-Stream\nversion = 9\n[tree]\narch = "
                               "ppc64le\n")}},
       "centos-stream9",
       "centos-stream",
       "9",
       "ppc64le",
       "anaconda"},
      {"Rocky 9.3",
       {{".treeinfo", treeinfo("[release]\nname = Rocky Linux\nshort = Rocky\n"
                               "version = 9.3\n[tree]\narch = x86_64\n")}},
       "rocky9.3",
       "rocky",
       "9.3",
       "x86_64",
       "anaconda"},
      {"AlmaLinux 9.3",
       {{".treeinfo", treeinfo("[release]\nname = AlmaLinux\nshort = "
                               "AlmaLinux\nversion = 9.3\n[tree]\narch = "
                               "x86_64\n")}},
       "almalinux9.3",
       "almalinux",
       "9.3",
       "x86_64",
       "anaconda"},
      {"Oracle Linux 9.3",
       {{".treeinfo", treeinfo("[release]\nname = Oracle Linux\nshort = OL\n"
                               "version = 9.3\n[tree]\narch = x86_64\n")}},
       "ol9.3",
       "ol",
       "9.3",
       "x86_64",
       "anaconda"},
      {"Fedora 40 with a 0.3 header and the arch from .discinfo",
       {{".treeinfo",
         "[header]\nversion = 0.3\n[product]\nname = Fedora\nshort = "
         "Fedora\nversion = 40\n"},
        {".discinfo", "1713000000.000000\n40\naarch64\n"}},
       "fedora40",
       "fedora",
       "40",
       "aarch64",
       "anaconda"},
  };
  for (const OsCase &c : cases) {
    expectOs(c);
  }
}

TEST(MediumSuse, TreeinfoProductsAndContent) {
  const OsCase cases[] = {
      {"SLE 15 SP4 .treeinfo",
       {{".treeinfo", treeinfo("[release]\nname = SUSE Linux Enterprise\n"
                               "short = SLE\nversion = 15 SP4\n[tree]\narch "
                               "= x86_64\n")}},
       "sle15sp4",
       "sle",
       "15 SP4",
       "x86_64",
       "yast"},
      {"SLES 15 SP5 media.1/products",
       {{"media.1/products", "/ SLES15-SP5 15.5-0\n"}, {"boot/aarch64/", ""}},
       "sle15sp5",
       "sle",
       "15.5-0",
       "aarch64",
       "yast"},
      {"SLES 12 SP5 content",
       {{"content",
         "CONTENTSTYLE 11\nLABEL SUSE Linux Enterprise Server 12 SP5\n"
         "VERSION 12.5\nBASEARCHS x86_64\n"}},
       "sles12sp5",
       "sles",
       "12.5",
       "x86_64",
       "yast"},
      {"openSUSE Leap 15.5",
       {{"media.1/products", "/ openSUSE-Leap 15.5-0\n"}, {"boot/x86_64/", ""}},
       "opensuse15.5",
       "opensuse",
       "15.5-0",
       "x86_64",
       "yast"},
      {"Leap 16 installs with agama",
       {{".treeinfo", treeinfo("[release]\nname = openSUSE Leap\nversion = "
                               "16.0\n[tree]\narch = x86_64\n")}},
       "opensuse16.0",
       "opensuse",
       "16.0",
       "x86_64",
       "agama"},
  };
  for (const OsCase &c : cases) {
    expectOs(c);
  }
}

TEST(MediumDebian, DiskInfoAndInstallerDirectories) {
  const OsCase cases[] = {
      {"Debian 12 DVD",
       {{".disk/info",
         "Debian GNU/Linux 12.5.0 \"Bookworm\" - Official amd64 DVD "
         "Binary-1 20240210-11:28"},
        {"install.amd/vmlinuz", "k"}},
       "debian12",
       "debian",
       "12.5.0",
       "x86_64",
       "debian-installer"},
      {"Ubuntu Server 24.04",
       {{".disk/info",
         "Ubuntu-Server 24.04 LTS \"Noble Numbat\" - Release amd64 "
         "(20240423)"},
        {"casper/vmlinuz", "k"}},
       "ubuntu24.04",
       "ubuntu",
       "24.04",
       "x86_64",
       "subiquity"},
      {"Ubuntu desktop 22.04 on arm64",
       {{".disk/info",
         "Ubuntu 22.04.4 LTS \"Jammy Jellyfish\" - Release arm64 "
         "(20240220)"},
        {"casper/vmlinuz", "k"}},
       "ubuntu22.04",
       "ubuntu",
       "22.04.4",
       "aarch64",
       "live"},
      {"Kali live reads as Kali, not Debian",
       {{".disk/info",
         "Debian GNU/Linux Kali-rolling \"Kali-rolling\" - Official "
         "Snapshot amd64 LIVE/INSTALL Binary 20240219-04:33"},
        {"live/vmlinuz", "k"},
        {"install.amd/vmlinuz", "k"}},
       "kali-rolling",
       "kali",
       "Kali-rolling",
       "x86_64",
       "debian-installer"},
      {"Debian live without the installer",
       {{".disk/info",
         "Debian GNU/Linux 12.5.0 \"Bookworm\" - Official Live amd64 "
         "20240210"},
        {"live/vmlinuz", "k"}},
       "debian12",
       "debian",
       "12.5.0",
       "x86_64",
       "live"},
  };
  for (const OsCase &c : cases) {
    expectOs(c);
  }
}

TEST(MediumBoot, IsolinuxAndEfiEntriesNameTheirFiles) {
  std::string iso = bootableIso(
      {{"isolinux/isolinux.cfg", "default linux\n"},
       {"images/efiboot.img", std::string(64 * 1024, '\0')},
       {".treeinfo", treeinfo("[release]\nname = Rocky Linux\nversion = "
                              "9.3\n[tree]\narch = x86_64\n")}},
      kIsolinuxBoot + " " + kEfiBoot,
      {{"isolinux/isolinux.bin", kIsolinuxBin}});
  Json doc = describe(iso);
  EXPECT_EQ("TEST", doc["volume_id"]);
  const Json &boot = doc["boot"];
  EXPECT_EQ("isolinux", boot["bios"]);
  EXPECT_EQ("isolinux/isolinux.cfg", boot["bios_config"]);
  EXPECT_EQ(true, boot["uefi"]);
  EXPECT_EQ(Json::parse(R"([{"platform":"x86","image":"isolinux/isolinux.bin"},
                            {"platform":"efi","image":"images/efiboot.img"}])"),
            boot["el_torito"]);
}

TEST(MediumBoot, SuseLoaderDirectoryKeepsItsConfig) {
  std::string iso = bootableIso(
      {{"boot/x86_64/loader/isolinux.cfg", "default linux\n"},
       {"media.1/products", "/ SLES15-SP4 15.4-0\n"}},
      "-b boot/x86_64/loader/isolinux.bin -c boot/x86_64/loader/boot.cat "
      "-no-emul-boot -boot-load-size 4 -boot-info-table",
      {{"boot/x86_64/loader/isolinux.bin", kIsolinuxBin}});
  Json doc = describe(iso);
  EXPECT_EQ("isolinux", doc["boot"]["bios"]);
  EXPECT_EQ("boot/x86_64/loader/isolinux.cfg", doc["boot"]["bios_config"]);
  EXPECT_EQ(false, doc["boot"]["uefi"]);
  EXPECT_EQ("sle15sp4", doc["os"]["id"]);
}

// GRUB's own BIOS El Torito image and a FAT EFI system image holding its
// EFI loader, made once by grub-mkimage, mkfs.fat and mtools.
struct GrubImages {
  std::string bios, efi;
};

GrubImages grubImages() {
  std::string dir = std::string(GP_BINARY_DIR) + "/fixtures";
  GrubImages g{dir + "/grub-eltorito.img", dir + "/grub-efiboot.img"};
  if (gp::test::fileExists(g.bios) && gp::test::fileExists(g.efi)) {
    return g;
  }
  std::string d = gp::test::shellQuote(dir);
  std::string cmd =
      "set -e; mkdir -p " + d + "; cd " + d +
      "; grub-mkimage -O i386-pc-eltorito -p /boot/grub -o grub-eltorito.tmp "
      "biosdisk iso9660 normal configfile"
      "; grub-mkimage -O x86_64-efi -p /EFI/BOOT -o grub-bootx64.efi "
      "iso9660 fat part_gpt normal configfile"
      "; rm -f grub-efiboot.tmp; mkfs.fat -C grub-efiboot.tmp 4096"
      "; mmd -i grub-efiboot.tmp ::/EFI ::/EFI/BOOT"
      "; mcopy -i grub-efiboot.tmp grub-bootx64.efi ::/EFI/BOOT/BOOTX64.EFI"
      "; mv grub-eltorito.tmp grub-eltorito.img"
      "; mv grub-efiboot.tmp grub-efiboot.img";
  EXPECT_EQ(0, gp::test::runCommand("(" + cmd + ") >/dev/null 2>&1")) << cmd;
  return g;
}

TEST(MediumBoot, GrubOnlyDiscs) {
  GrubImages grub = grubImages();
  struct {
    const char *label;
    const char *biosImage;
    const char *efiImage;
    const char *config;
  } cases[] = {
      {"Fedora 37 and later, RHEL 10", "images/eltorito.img",
       "images/efiboot.img", "boot/grub2/grub.cfg"},
      {"Ubuntu 21.10 and later", "boot/grub/i386-pc/eltorito.img",
       "boot/grub/efi.img", "boot/grub/grub.cfg"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.label);
    std::string iso =
        bootableIso({{c.config, "menuentry x {\n}\n"}},
                    std::string("-b ") + c.biosImage +
                        " -no-emul-boot -boot-load-size 4 -boot-info-table "
                        "-eltorito-alt-boot -e " +
                        c.efiImage + " -no-emul-boot",
                    {{c.biosImage, grub.bios}, {c.efiImage, grub.efi}});
    Json boot = describe(iso)["boot"];
    EXPECT_EQ("grub", boot["bios"]);
    EXPECT_EQ(c.config, boot["bios_config"]);
    EXPECT_EQ(true, boot["uefi"]);
    ASSERT_EQ(2u, boot["el_torito"].size());
    EXPECT_EQ(c.biosImage, boot["el_torito"][0]["image"]);
    EXPECT_EQ(c.efiImage, boot["el_torito"][1]["image"]);
  }
}

TEST(MediumBoot, NoCatalogMeansNoBiosBoot) {
  Json doc = describe(gp::test::isoFromTree({{"readme.txt", "hello\n"}},
                                            gp::test::IsoFlavor::Joliet));
  EXPECT_TRUE(doc["os"].is_null());
  EXPECT_TRUE(doc["boot"]["bios"].is_null());
  EXPECT_TRUE(doc["boot"]["bios_config"].is_null());
  EXPECT_EQ(false, doc["boot"]["uefi"]);
  EXPECT_TRUE(doc["boot"]["el_torito"].empty());
  EXPECT_TRUE(doc["editions"].empty());
  EXPECT_TRUE(doc["language"].is_null());
  EXPECT_EQ("GUESS_NOT_FOUND", doc["guess"]["resultName"]);
}

// A Windows disc made by genisoimage -udf from a directory that `script`
// fills (run in an empty directory holding disc/sources/), cached by the
// script's text.
std::string windowsDisc(const std::string &script) {
  std::string out = std::string(GP_BINARY_DIR) + "/fixtures/windows-" +
                    std::to_string(std::hash<std::string>()(script)) + ".iso";
  if (gp::test::fileExists(out)) {
    return out;
  }
  gp::test::TempDir tmp;
  std::string cmd = "set -e; cd " + gp::test::shellQuote(tmp.path()) +
                    "; mkdir -p src disc/sources; echo hi > src/a.txt; " +
                    script +
                    "\n genisoimage -quiet -udf -J -R -V CCCOMA_X64FRE_EN-US "
                    "-o disc.iso disc; mkdir -p " +
                    gp::test::shellQuote(GP_BINARY_DIR) +
                    "/fixtures; mv disc.iso " + gp::test::shellQuote(out);
  EXPECT_EQ(0, gp::test::runCommand("(" + cmd + ") >/dev/null 2>&1")) << cmd;
  return out;
}

// wimlib-imagex info arguments that give image `index` the properties of
// a real install image.
std::string windowsProps(const std::string &wim, int index, int arch,
                         const char *edition, const char *type, int build,
                         const char *language) {
  return " wimlib-imagex info " + wim + " " + std::to_string(index) +
         " --image-property WINDOWS/ARCH=" + std::to_string(arch) +
         " --image-property WINDOWS/EDITIONID=" + edition +
         " --image-property 'WINDOWS/INSTALLATIONTYPE=" + type + "'" +
         " --image-property WINDOWS/VERSION/MAJOR=10"
         " --image-property WINDOWS/VERSION/MINOR=0"
         " --image-property WINDOWS/VERSION/BUILD=" +
         std::to_string(build) +
         " --image-property WINDOWS/LANGUAGES/DEFAULT=" + language + ";";
}

TEST(MediumWindows, EditionsOfAnInstallWimAndTheLanguageOfLangIni) {
  const std::string wim = "disc/sources/install.wim";
  std::string iso = windowsDisc(
      "wimlib-imagex capture src " + wim + " 'Windows 10 Home';" +
      "wimlib-imagex append src " + wim + " 'Windows 10 Pro';" +
      windowsProps(wim, 1, 9, "Core", "Client", 22000, "de-DE") +
      windowsProps(wim, 2, 9, "Professional", "Client", 22000, "de-DE") +
      "wimlib-imagex info " + wim +
      " 2 --image-property 'DISPLAYNAME=Windows 11 Pro';"
      "printf '[Available UI Languages]\r\nfr-FR = 3\r\n' > "
      "disc/sources/lang.ini");
  Json doc = describe(iso);
  // Early Windows 11 images still carry Windows 10 names: the build decides.
  EXPECT_EQ("win11", doc["os"]["id"]);
  EXPECT_EQ("windows", doc["os"]["family"]);
  EXPECT_EQ("10.0.22000", doc["os"]["version"]);
  EXPECT_EQ("windows-setup", doc["os"]["installer"]);
  EXPECT_EQ("fr-FR", doc["language"]);
  ASSERT_EQ(2u, doc["editions"].size());
  EXPECT_EQ(Json::parse(R"({"index":2,"name":"Windows 10 Pro",
      "display_name":"Windows 11 Pro","edition_id":"Professional",
      "installation_type":"Client","build":22000,"arch":"x86_64"})"),
            doc["editions"][1]);
  EXPECT_EQ(Json::parse(R"(["sources/install.wim","sources/lang.ini"])"),
            doc["evidence"]);
}

TEST(MediumWindows, SolidEsdOfServerEditions) {
  const std::string esd = "disc/sources/install.esd";
  std::string iso = windowsDisc(
      "wimlib-imagex capture --solid src " + esd +
      " 'Windows Server 2022 SERVERSTANDARDCORE';" +
      "wimlib-imagex append --solid src " + esd +
      " 'Windows Server 2022 SERVERSTANDARD';" +
      windowsProps(esd, 1, 12, "ServerStandard", "Server Core", 20348,
                   "en-US") +
      windowsProps(esd, 2, 12, "ServerStandard", "Server", 20348, "en-US"));
  Json doc = describe(iso);
  EXPECT_EQ("win2k22", doc["os"]["id"]);
  EXPECT_EQ("aarch64", doc["os"]["arch"]);
  EXPECT_EQ("en-US", doc["language"]);  // from the XML: no lang.ini
  ASSERT_EQ(2u, doc["editions"].size());
  EXPECT_EQ("Server Core", doc["editions"][0]["installation_type"]);
}

TEST(MediumWindows, BrokenHeadersGiveNoEditionsButTheDiscIsDescribed) {
  // The XML resource claims 1 MiB at offset 0x100 of a 512-byte file, or
  // an absurd size, or points at bytes that are not XML.
  const char *headers[] = {
      "MSWIM\\0\\0\\0\\0320\\0\\0\\0",
      "MSWIM\\0\\0\\0",
  };
  for (const char *h : headers) {
    SCOPED_TRACE(h);
    std::string iso = windowsDisc(
        std::string("head -c 512 /dev/urandom > disc/sources/install.wim; "
                    "printf '") +
        h +
        "' | dd of=disc/sources/install.wim conv=notrunc status=none; "
        "printf '\\377\\377\\377\\377\\377\\377\\377\\0' | dd "
        "of=disc/sources/install.wim bs=1 seek=72 conv=notrunc status=none;"
        "printf '[BUILDINFO]\\r\\nBuildArch=amd64\\r\\n' > "
        "disc/sources/idwbinfo.txt");
    Json doc = describe(iso);
    EXPECT_EQ("win", doc["os"]["distro"]);
    EXPECT_TRUE(doc["editions"].empty());
    EXPECT_EQ("x86_64", doc["os"]["arch"]);  // from idwbinfo.txt
  }
}

TEST(MediumWindows, FilesOnTheUdfSideOnly) {
  // As on Microsoft's own discs, the ISO 9660 side holds nothing useful.
  gp::test::TempDir tmp;
  std::string wim = tmp / "install.wim";
  ASSERT_EQ(0, gp::test::runCommand(
                   "(set -e; cd " + gp::test::shellQuote(tmp.path()) +
                   "; mkdir src; echo hi > src/a; wimlib-imagex capture src "
                   "install.wim 'Windows Server 2025 SERVERDATACENTER';" +
                   windowsProps("install.wim", 1, 9, "ServerDatacenter",
                                "Server", 26100, "en-GB") +
                   ") >/dev/null 2>&1"));
  Json doc = describe(gp::test::pycdlibUdfFromTree(
      {{"sources/install.wim", gp::test::readFile(wim)},
       {"sources/lang.ini", "[Available UI Languages]\nja-JP = 3\n"}}));
  EXPECT_EQ("win2k25", doc["os"]["id"]);
  EXPECT_EQ("ja-JP", doc["language"]);
  ASSERT_EQ(1u, doc["editions"].size());
  EXPECT_EQ("Windows Server 2025 SERVERDATACENTER", doc["editions"][0]["name"]);
}

TEST(MediumWindows, TheBuildDecidesTheRelease) {
  struct {
    const char *type;
    uint32_t build;
    const char *id;
  } cases[] = {
      {"Client", 9600, "win8.1"},
      {"Client", 19045, "win10"},
      {"Client", 21999, "win10"},
      {"Client", 22000, "win11"},
      {"Client", 26100, "win11"},
      {"Server", 9600, "win2k12r2"},
      {"Server Core", 14393, "win2k16"},
      {"Server", 17763, "win2k19"},
      {"Server", 20348, "win2k22"},
      {"Server Core", 26100, "win2k25"},
      {"Client", 9200, ""},
  };
  for (const auto &c : cases) {
    gp::medium::Edition e;
    e.installationType = c.type;
    e.build = c.build;
    EXPECT_EQ(c.id, gp::medium::windowsId(e)) << c.type << " " << c.build;
  }
}

TEST(MediumErrors, UnreadableImagesSetErrno) {
  gp::test::TempDir tmp;
  gp::test::writeFile(tmp / "text", "not an image\n");
  struct {
    std::string path;
    int err;
  } cases[] = {
      {tmp / "missing", ENOENT}, {tmp / "text", EINVAL}, {tmp.path(), EINVAL}};
  for (const auto &c : cases) {
    errno = 0;
    EXPECT_EQ(nullptr, Guestprep_DescribeMedium(c.path.c_str())) << c.path;
    EXPECT_EQ(c.err, errno) << c.path;
  }
  errno = 0;
  EXPECT_EQ(nullptr, Guestprep_DescribeMedium(nullptr));
  EXPECT_EQ(EINVAL, errno);
}

}  // namespace
