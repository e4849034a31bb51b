// Linux boot media: the isolinux parser, both scans against saved rewritten
// configurations, hostile discs, mastering with the real tools, and the
// floppy and tools files checked with mtools and fsck.fat.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "guestprep/autoinstall.h"
#include "lib/guestInstall/autoinstallGuestLinux_isolinux.h"
#include "platform/hostio.h"
#include "platform/log.h"
#include "support/fatcheck.h"
#include "support/fixtures.h"

namespace {

using namespace gp::test;
namespace fs = std::filesystem;
namespace ai = gp::autoinstall;
using namespace std::literals;

constexpr const char kIsolinuxBin[] = "/usr/lib/ISOLINUX/isolinux.bin";

// ---- parser ----

TEST(IsolinuxParser, FindsTheFirstCompleteEntry) {
  const struct {
    std::string_view text;
    bool ok;
    const char *kernel = "", *initrd = "", *append = "";
  } cases[] = {
      {"label linux\n  kernel vmlinuz\n  append initrd=initrd.img text\n", true,
       "vmlinuz", "initrd.img", "text "},
      // Append before kernel belongs to the same entry, ended by the text.
      {"label x\n append a initrd=i b\n kernel k", true, "k", "i", "a b "},
      // Caseless keywords, carriage returns, the last initrd= counts.
      {"LABEL linux\r\n KERNEL k\r\r\n APPEND initrd=a INITRD=b c\r\n", true,
       "k", "b", "c "},
      // An incomplete entry loses what it found, so k1 and x never mix in.
      {"label a\n kernel k1\nlabel b\n append initrd=x y\nlabel c\n kernel "
       "k2\n append initrd=i2 z\n",
       true, "k2", "i2", "z "},
      // Nothing before the first label counts; "label " alone is no label.
      {"kernel k0\nlabel \n kernel k\n append initrd=i\nlabel x\n kernel k1\n"
       " append initrd=i1\n",
       true, "k1", "i1", ""},
      // A label written with leading spaces starts nothing.
      {"  label linux\n kernel k\n append initrd=i\n", false},
      // No initrd= piece: the file fails.
      {"label linux\n kernel k\n append text\n", false},
      {"label linux\n kernel k\n", false},
      // Everything after a NUL byte is not part of the text.
      {"label linux\n kernel k\n\0 append initrd=i\n"sv, false},
  };
  for (const auto &c : cases) {
    ai::IsolinuxBootEntry e;
    SCOPED_TRACE(std::string(c.text));
    ASSERT_EQ(c.ok, ai::parseIsolinuxConfig(c.text, e));
    if (c.ok) {
      EXPECT_EQ(c.kernel, e.kernel);
      EXPECT_EQ(c.initrd, e.initrd);
      EXPECT_EQ(c.append, e.append);
    }
  }
}

TEST(IsolinuxParser, RefusesTextsThatWouldNotFitTheirBuffers) {
  ai::IsolinuxBootEntry e;
  auto withAppend = [](size_t n) {
    std::string args = "initrd=i " + std::string(n - 9, 'a');
    return "label l\n kernel k\n append " + args + "\n";
  };
  EXPECT_TRUE(ai::parseIsolinuxConfig(withAppend(510), e));
  EXPECT_FALSE(ai::parseIsolinuxConfig(withAppend(511), e));
  // Two append lines of one entry add up past the buffer.
  EXPECT_FALSE(ai::parseIsolinuxConfig(
      "label l\n append " + std::string(300, 'a') + "\n append initrd=i " +
          std::string(300, 'b') + "\n kernel k\n",
      e));
  std::string text = "label l\n kernel k\n append initrd=i\n";
  text.resize(4095, '#');
  EXPECT_TRUE(ai::parseIsolinuxConfig(text, e));
  EXPECT_FALSE(ai::parseIsolinuxConfig(text + "#", e));
  ai::IsolinuxBootEntry huge{std::string(3900, 'k'), "i", "a "};
  std::string out;
  EXPECT_FALSE(ai::rewriteIsolinuxConfig(huge, ai::LINUX_KIND_UBUNTU, out));
}

// ---- scans ----

struct Disc {
  const char *name;
  const char *os;
  FileTree tree;
  std::vector<std::string> staged;  // expected in isolinux/, besides the cfg
};

const std::vector<Disc> &discs() {
  static const std::vector<Disc> all = {
      {"redhat",
       "rhel5",
       {{"isolinux/isolinux.cfg",
         "default linux\nprompt 1\ntimeout 600\ndisplay boot.msg\nlabel linux\n"
         "  kernel vmlinuz\n  append initrd=initrd.img askmethod\nlabel text\n"
         "  kernel vmlinuz\n  append initrd=initrd.img text\n"},
        {"isolinux/vmlinuz", "KERNEL-RH"},
        {"isolinux/initrd.img", "RAMDISK-RH"},
        {"isolinux/isolinux.bin", "BIN-RH"},
        {"isolinux/ldlinux.c32", "LDLINUX-RH"}},
       {"vmlinuz", "initrd.img", "isolinux.bin", "ldlinux.c32"}},
      {"ubuntu",
       "ubuntu-64",
       {{"isolinux/isolinux.cfg", "default vesamenu.c32\ninclude menu.cfg\n"},
        {"isolinux/menu.cfg", "menu title Ubuntu\ninclude txt.cfg\n"},
        {"isolinux/txt.cfg",
         "default live\nlabel live\n  menu label ^Try Ubuntu\n"
         "  kernel /casper/vmlinuz\n  append  file=/cdrom/preseed/ubuntu.seed "
         "boot=casper initrd=/casper/initrd.lz quiet splash --\n"},
        {"casper/vmlinuz", "KERNEL-UB"},
        {"casper/initrd.lz", "RAMDISK-UB"},
        {"isolinux/isolinux.bin", "BIN-UB"}},
       {"vmlinuz", "initrd.lz", "isolinux.bin"}},
      {"suse",
       "sles11-64",
       {{"boot/x86_64/loader/isolinux.cfg",
         "default harddisk\n\n# hard disk\nlabel harddisk\n  localboot 0x80\n"
         "\n# install\nlabel linux\n  kernel linux\n"
         "  append initrd=initrd splash=silent showopts\n"},
        {"boot/x86_64/loader/linux", "KERNEL-SUSE"},
        {"boot/x86_64/loader/initrd", "RAMDISK-SUSE"},
        {"boot/x86_64/loader/isolinux.bin", "BIN-SUSE"}},
       {"linux", "initrd", "isolinux.bin"}},
      {"mandriva",
       "mandriva",
       {{"isolinux/isolinux.cfg",
         "default linux\nprompt 1\nlabel linux\n  kernel alt0/vmlinuz\n"
         "  append initrd=alt0/all.rdz automatic=method:cdrom vga=788 "
         "splash=silent\n"},
        {"isolinux/alt0/vmlinuz", "KERNEL-MDV"},
        {"isolinux/alt0/all.rdz", "RAMDISK-MDV"},
        {"isolinux/isolinux.bin", "BIN-MDV"}},
       {"vmlinuz", "all.rdz", "isolinux.bin"}},
  };
  return all;
}

std::vector<std::string> listing(const std::string &dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto &e : fs::directory_iterator(dir, ec)) {
    names.push_back(e.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class LinuxBoot : public ::testing::Test {
 protected:
  TempDir tmp;
  gp::LogCapture log;

  std::string discDir(const Disc &d) {
    std::string dir = tmp / (std::string(d.name) + "-disc");
    writeTree(dir, d.tree);
    return dir;
  }
};

// Both scans of each kind's disc give the saved configuration and bring
// each boot file from where the configuration names it.
TEST_F(LinuxBoot, BothScansRewriteEachKindsDiscAsSaved) {
  for (const Disc &d : discs()) {
    SCOPED_TRACE(d.name);
    std::string disk = tmp / (std::string(d.name) + "-fromdisk");
    std::string iso = tmp / (std::string(d.name) + "-fromiso");
    ASSERT_EQ(TRUE, AutoInstall_ScanDisk(discDir(d).c_str(), disk.c_str(), d.os,
                                         nullptr))
        << log.text();
    ASSERT_EQ(TRUE, AutoInstall_ScanISO(
                        isoFromTree(d.tree, IsoFlavor::JolietRockRidge).c_str(),
                        iso.c_str(), d.os, nullptr));
    std::string golden =
        readFile(sourcePath("tests/data/isolinux/") + d.name + ".cfg");
    std::vector<std::string> expected = d.staged;
    expected.push_back("isolinux.cfg");
    std::sort(expected.begin(), expected.end());
    for (const std::string &out : {disk, iso}) {
      EXPECT_EQ(golden, readFile(out + "/isolinux/isolinux.cfg"));
      EXPECT_EQ(expected, listing(out + "/isolinux"));
      EXPECT_EQ(std::vector<std::string>{"isolinux"}, listing(out));
    }
    for (const auto &[path, content] : d.tree) {
      std::string staged =
          disk + "/isolinux/" + fs::path(path).filename().string();
      if (path.find(".cfg") == std::string::npos) {
        EXPECT_EQ(content, readFile(staged)) << path;
      }
    }
  }
  EXPECT_EQ("", log.text());
}

// Upper-case primary names are found from the configuration's names, and a
// host isolinux.bin brings its ldlinux.c32 along.
TEST_F(LinuxBoot, PrimaryNamesAndAHostBootLoader) {
  const Disc &d = discs()[2];
  std::string out = tmp / "out", loader = tmp / "loader";
  writeFile(loader + "/isolinux.bin", "HOST-BIN");
  writeFile(loader + "/ldlinux.c32", "HOST-LDLINUX");
  ASSERT_EQ(TRUE, AutoInstall_ScanISO(
                      isoFromTree(d.tree, IsoFlavor::Primary).c_str(),
                      out.c_str(), d.os, (loader + "/isolinux.bin").c_str()));
  EXPECT_EQ("KERNEL-SUSE", readFile(out + "/isolinux/linux"));
  EXPECT_EQ("HOST-BIN", readFile(out + "/isolinux/isolinux.bin"));
  EXPECT_EQ("HOST-LDLINUX", readFile(out + "/isolinux/ldlinux.c32"));
}

// Hostile discs: each is refused with its line, and nothing of the disc
// reaches the staging directory.
TEST_F(LinuxBoot, RefusesHostileDiscs) {
  const std::string parseFailed =
      "AutoInstall_ScanDisk: parseIsolinuxConfig failed";
  const struct {
    const char *name;
    FileTree tree;
    const char *link;  // "from>to" made in the disc after the tree
    std::string line;
  } cases[] = {
      {"huge",
       {{"isolinux/isolinux.cfg",
         "label l\n kernel k\n append initrd=i\n" + std::string(1 << 20, '#')}},
       nullptr,
       parseFailed},
      {"no-line-ends",
       {{"isolinux/isolinux.cfg", std::string(3000, 'x')}},
       nullptr,
       parseFailed},
      {"long-append",
       {{"isolinux/isolinux.cfg", "label l\n kernel k\n append initrd=i " +
                                      std::string(600, 'a') + "\n"}},
       nullptr,
       parseFailed},
      {"climbs",
       {{"isolinux/isolinux.cfg",
         "label l\n kernel ../../etc/hostname\n append initrd=i\n"},
        {"isolinux/i", "RAMDISK"}},
       nullptr,
       "refusing boot file \"../../etc/hostname\""},
      {"link-out",
       {{"isolinux/isolinux.cfg", "label l\n kernel k\n append initrd=i\n"},
        {"isolinux/i", "RAMDISK"}},
       "isolinux/k>/etc/hostname",
       "it leads outside the disc"},
      {"loop",
       {{"a/b/", ""}},
       "a/b/loop>../..",
       "parseCfgFilesInDisk: findFileInDisk failed isolinux.cfg in"},
      {"cfg-is-dir",
       {{"isolinux/isolinux.cfg/", ""}},
       nullptr,
       "parseCfgFilesInDisk: FileIO_Open failed pathIsolinuxCfg="},
      {"empty",
       {{"isolinux/isolinux.cfg", ""}},
       nullptr,
       "parseCfgFilesInDisk: FileIO_Read failed"},
      // Deeper than the search goes: not found, and the stack stays small.
      {"deep",
       {{[] {
           std::string deep;
           for (int i = 0; i < 40; ++i) deep += "d/";
           return deep + "isolinux.cfg";
         }(),
         "label l\n kernel k\n append initrd=i\n"}},
       nullptr,
       "parseCfgFilesInDisk: findFileInDisk failed isolinux.cfg in"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    std::string disc = tmp / (std::string(c.name) + "-disc");
    std::string out = tmp / (std::string(c.name) + "-out");
    writeTree(disc, c.tree);
    if (c.link != nullptr) {
      std::string entry = c.link;
      fs::create_symlink(entry.substr(entry.find('>') + 1),
                         disc + "/" + entry.substr(0, entry.find('>')));
    }
    log.clear();
    EXPECT_EQ(FALSE, AutoInstall_ScanDisk(disc.c_str(), out.c_str(), "ubuntu",
                                          nullptr));
    EXPECT_NE(std::string::npos, log.text().find(c.line)) << log.text();
    EXPECT_TRUE(listing(out + "/isolinux").empty());
    if (c.link == nullptr) {
      out += "-iso";
      EXPECT_EQ(FALSE, AutoInstall_ScanISO(
                           isoFromTree(c.tree, IsoFlavor::RockRidge).c_str(),
                           out.c_str(), "ubuntu", nullptr));
      EXPECT_TRUE(listing(out + "/isolinux").empty());
    }
  }
}

// A full disk at each write of the scan: the failed step is logged, and no
// temporary file is left in the staging directory.
int gWritesLeft;
ssize_t writeUntilFull(int fd, const void *buf, size_t n) {
  if (gWritesLeft-- <= 0) {
    errno = ENOSPC;
    return -1;
  }
  return gp::realHostOps().write(fd, buf, n);
}

TEST_F(LinuxBoot, FullDiskFailsTheStepThatWrites) {
  const Disc &d = discs()[0];
  const std::string disc = discDir(d);
  const struct {
    int writesLeft;
    std::string line;
    std::vector<std::string> staged;
  } cases[] = {
      {0,
       "File_CopyFromNameToName failed from=\"" + disc + "/isolinux/vmlinuz\"",
       {}},
      {1,
       "File_CopyFromNameToName failed from=\"" + disc +
           "/isolinux/initrd.img\"",
       {"vmlinuz"}},
      {2,
       "AutoInstall_ScanDisk: FileIO_Write failed errio=28",
       {"initrd.img", "isolinux.cfg", "vmlinuz"}},
  };
  gp::HostOps ops = gp::realHostOps();
  ops.write = writeUntilFull;
  for (const auto &c : cases) {
    std::string out = tmp / ("full" + std::to_string(c.writesLeft));
    log.clear();
    gWritesLeft = c.writesLeft;
    {
      gp::ScopedHostOps scoped(ops);
      EXPECT_EQ(FALSE,
                AutoInstall_ScanDisk(disc.c_str(), out.c_str(), d.os, nullptr));
    }
    EXPECT_NE(std::string::npos, log.text().find(c.line)) << log.text();
    EXPECT_EQ(c.staged, listing(out + "/isolinux"));
  }
}

// ---- mastering ----

std::string elTorito(const std::string &iso) {
  std::string report;
  runCommand("xorriso -indev " + shellQuote(iso) +
                 " -report_el_torito plain 2>/dev/null",
             &report);
  // Without Rock Ridge names the paths come in upper case.
  std::transform(report.begin(), report.end(), report.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return report;
}

int gSystemCalls;
int countingSystem(const char *command) {
  ++gSystemCalls;
  return gp::realHostOps().system(command);
}

TEST_F(LinuxBoot, MastersABootableImageWithEitherToolAndRemovesStaging) {
  // A link in the staging tree must be removed, its target kept.
  writeFile(tmp / "outside/keep", "KEEP");
  for (const char *tool : {"xorrisofs", "genisoimage", "false"}) {
    SCOPED_TRACE(tool);
    std::string staging = tmp / "staging", out = tmp / tool;
    fs::create_directories(out);
    ASSERT_EQ(TRUE,
              AutoInstall_ScanDisk(discDir(discs()[1]).c_str(), staging.c_str(),
                                   "ubuntu", kIsolinuxBin));
    fs::create_directory_symlink(tmp / "outside", staging + "/isolinux/out");
    fs::create_symlink(tmp / "outside/keep", out + "/autoinst.iso");
    std::string path;
    runCommand(std::string("command -v ") + tool, &path);
    path.erase(path.find_last_not_of('\n') + 1);
    bool works = std::string(tool) != "false";
    EXPECT_EQ(
        works ? TRUE : FALSE,
        AutoInstall_MasterISO(staging.c_str(), path.c_str(), out.c_str()));
    EXPECT_FALSE(fileExists(staging));
    EXPECT_EQ("KEEP", readFile(tmp / "outside/keep"));
    if (works) {
      std::string report = elTorito(out + "/autoinst.iso");
      EXPECT_NE(std::string::npos,
                report.find("el torito img path :   1  /isolinux/isolinux.bin"))
          << report;
      EXPECT_NE(std::string::npos, report.find("bios  y   none")) << report;
    }
  }
}

TEST_F(LinuxBoot, RefusesShellActiveArgumentsBeforeRunningAnything) {
  gp::HostOps ops = gp::realHostOps();
  ops.system = countingSystem;
  gp::ScopedHostOps scoped(ops);
  const std::string marker = tmp / "ran";
  const struct {
    std::string staging, tool, out;
  } cases[] = {
      {tmp / "s$(touch ran)", "xorrisofs", tmp.path()},
      {tmp / "s", "x`touch " + marker + "`", tmp.path()},
      {tmp / "s", "xorrisofs", tmp / "o\" \"; touch ran"},
      {tmp / "s\\", "xorrisofs", tmp.path()},
      {tmp / "s", "xorrisofs", tmp / "o\ntouch ran"},
  };
  gSystemCalls = 0;
  for (const auto &c : cases) {
    writeFile(c.staging + "/isolinux/isolinux.cfg", "x");
    log.clear();
    EXPECT_EQ(FALSE, AutoInstall_MasterISO(c.staging.c_str(), c.tool.c_str(),
                                           c.out.c_str()));
    EXPECT_EQ(0u, log.text().rfind("AutoInstall_MasterISO: refusing", 0))
        << log.text();
    const std::string text = log.text();
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));  // one line
    EXPECT_FALSE(fileExists(c.staging)) << c.staging;
  }
  EXPECT_EQ(0, gSystemCalls);
  EXPECT_FALSE(fileExists(marker));
  EXPECT_EQ(FALSE,
            AutoInstall_MasterISO(nullptr, "xorrisofs", tmp.path().c_str()));
}

// ---- floppy and tools ----

TEST_F(LinuxBoot, FloppyCarriesTheAnswerFileUnderTheKindsName) {
  std::string templates = tmp / "templates";
  fs::create_directories(templates);
  ASSERT_TRUE(mkfsFat12(templates + "/suse.flp"));
  ASSERT_TRUE(mkfsFat12(templates + "/mandriva.flp"));
  const struct {
    const char *os, *name;
  } kinds[] = {{"ubuntu", "preseed.cfg"},
               {"sles10", "autoinst.xml"},
               {"mandriva", "auto_i~1.cfg"}};
  for (const auto &k : kinds) {
    SCOPED_TRACE(k.os);
    std::string answers = tmp / (std::string(k.os) + "-answers");
    std::string work = tmp / (std::string(k.os) + "-work");
    fs::create_directories(work);
    // A link in the floppy's place is replaced, its target left alone.
    writeFile(tmp / "victim", "VICTIM");
    fs::create_symlink(tmp / "victim", work + "/autoinst.flp");
    ASSERT_EQ(TRUE, AutoInstall_PrepareAnswerFileEx_Linux(
                        k.os, GUESS_VERSION_UNKNOWN, answers.c_str(), "jdoe",
                        "John Doe", "pw", "rootpw", nullptr, FALSE));
    ASSERT_EQ(TRUE, AutoInstall_MakeFloppyImg_Linux(
                        answers.c_str(), work.c_str(), templates.c_str(), k.os))
        << log.text();
    std::string image = work + "/autoinst.flp", content, report;
    std::vector<MdirEntry> entries = mdirList(image);
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ(k.name, entries[0].shortName);
    EXPECT_TRUE(mcopyOut(image, k.name, content));
    EXPECT_NE(std::string::npos, content.find("jdoe"));
    EXPECT_TRUE(fsckClean(image, &report)) << report;
    EXPECT_TRUE(readFile(tmp / "victim") == "VICTIM");
  }
  // Red Hat reads its kickstart from the CD: no floppy at all.
  EXPECT_EQ(TRUE,
            AutoInstall_MakeFloppyImg_Linux(
                tmp.path().c_str(), tmp.path().c_str(), nullptr, "rhel5"));
  EXPECT_FALSE(fileExists(tmp / "autoinst.flp"));
  EXPECT_EQ(FALSE, AutoInstall_MakeFloppyImg_Linux(
                       (tmp / "sles10-answers").c_str(), tmp.path().c_str(),
                       (tmp / "none").c_str(), "sles10"));
  EXPECT_NE(std::string::npos,
            log.text().find("AutoInstall_MakeFloppyImg_Linux: !File_Exists "
                            "failed templatePath=\"" +
                            tmp / "none/suse.flp"));
}

TEST_F(LinuxBoot, ToolsFilesTakeTheirShortNames) {
  std::string tools = tmp / "tools", dest = tmp / "dest";
  fs::create_directories(dest);
  writeFile(tools + "/zentav-tools-upgrader-32", "U32");
  writeFile(tools + "/zentav-tools-upgrader-64", "U64");
  EXPECT_EQ(FALSE, AutoInstall_AddTools_Linux(dest.c_str(), tools.c_str()));
  EXPECT_EQ((std::vector<std::string>{"upgra32", "upgra64"}), listing(dest));
  writeFile(tools + "/run_upgrader.sh", "#!/bin/sh\n");
  writeFile(dest + "/upgra32", "OLD");
  EXPECT_EQ(TRUE, AutoInstall_AddTools_Linux(dest.c_str(), tools.c_str()));
  EXPECT_EQ("U32", readFile(dest + "/upgra32"));
  EXPECT_EQ("#!/bin/sh\n", readFile(dest + "/upgrade.sh"));
}

// ---- guestprep prepare linux ----

// An example disc with stand-in boot files, as an image.
std::string exampleImage(const TempDir &tmp, const std::string &name,
                         const std::string &loaderDir) {
  std::string tree = tmp / name;
  fs::copy(sourcePath("examples/media/" + name), tree,
           fs::copy_options::recursive);
  const std::string dir = tree + "/" + loaderDir;
  fs::copy_file(kIsolinuxBin, dir + "/isolinux.bin");
  for (const char *file :
       {"install/vmlinuz", "install/initrd.gz", "linux", "initrd"}) {
    writeFile((std::string(file).find('/') == std::string::npos ? dir : tree) +
                  "/" + file,
              file);
  }
  return isoFromDirectory(tree, IsoFlavor::JolietRockRidge);
}

TEST_F(LinuxBoot, PrepareCommandGoesFromImageToBootMedia) {
  const std::string entries =
      " --user jdoe --full-name 'John Doe' --password pw --root-password rpw";
  const std::string ubuntu = exampleImage(tmp, "ubuntu-desktop", "isolinux");
  const std::string out = tmp / "media";
  std::string json;
  ASSERT_EQ(0, runCommand(std::string(GP_CLI) + " prepare linux " +
                              shellQuote(ubuntu) + " --out " + shellQuote(out) +
                              entries + " --json 2>" + shellQuote(tmp / "err"),
                          &json))
      << readFile(tmp / "err");
  EXPECT_EQ("{\"iso\":\"" + out + "/autoinst.iso\",\"floppy\":\"" + out +
                "/autoinst.flp\",\"tools\":null}\n",
            json);
  EXPECT_NE(std::string::npos,
            elTorito(out + "/autoinst.iso").find("/isolinux/isolinux.bin"));
  EXPECT_EQ((std::vector<std::string>{"autoinst.flp", "autoinst.iso"}),
            listing(out));
  const std::string progress = readFile(tmp / "err");
  EXPECT_EQ(7, std::count(progress.begin(), progress.end(), '['));

  // SUSE needs its template floppy: the step is named, nothing is left.
  const std::string suse =
      exampleImage(tmp, "sles11-x86_64", "boot/x86_64/loader");
  const std::string failed = tmp / "failed";
  EXPECT_EQ(
      1, runCommand(std::string(GP_CLI) + " prepare linux " + shellQuote(suse) +
                    " --out " + shellQuote(failed) + entries + " 2>" +
                    shellQuote(tmp / "err") + " >/dev/null"));
  EXPECT_NE(std::string::npos,
            readFile(tmp / "err")
                .find("guestprep prepare linux: building autoinst.flp failed"))
      << readFile(tmp / "err");
  EXPECT_TRUE(listing(failed).empty());
}

}  // namespace
