// The Windows boot floppy: whole floppies for an XP and a Windows 7 guest
// with drivers from a driver floppy, a tools image and a host directory,
// checked with mdir, mcopy and fsck.fat; failures half-way; hostile driver
// floppies and driver description files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/log.h"
#include "support/fatcheck.h"
#include "support/fixtures.h"

namespace {

namespace fs = std::filesystem;
using gp::test::TempDir;
using Names = std::set<std::string>;

const char kFn[] = "AutoInstall_MakeFloppyImg: ";
const char kMtools[] = "MTOOLS_SKIP_CHECK=1 MTOOLS_NO_VFAT=0 ";

const char kZtOem[] =
    "[Disks]\r\nd1 = \"Zentav SCSI driver disk\",\\ztscsi.sys,\\\r\n"
    "[scsi]\r\nZTSCSI = \"Zentav PVSCSI Controller\"\r\n";
const char kLsiOem[] =
    "[Disks]\r\nd1 = \"LSI Logic disk\",\\lsi_sas.sys,\\\r\n"
    "[scsi]\r\nLSI_SAS_AMD64 = \"LSI Logic SAS (x64)\"\r\n";

std::string shipped(const char *name) {
  return gp::test::sourcePath(std::string("data/templates/windows/") + name);
}

Names dirNames(const std::string &dir) {
  Names out;
  for (const auto &e : fs::directory_iterator(dir)) {
    out.insert(e.path().filename().string());
  }
  return out;
}

// The names on the image as a guest sees them, lower-cased.
Names imageNames(const std::string &image) {
  Names out;
  for (const auto &e : gp::test::mdirList(image)) {
    std::string n = e.longName.empty() ? e.shortName : e.longName;
    std::transform(n.begin(), n.end(), n.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    out.insert(n);
  }
  return out;
}

std::string imageFile(const std::string &image, const char *name) {
  std::string content;
  EXPECT_TRUE(gp::test::mcopyOut(image, name, content)) << name;
  return content;
}

// A driver floppy with upper-case 8.3 names, as shipped ones have.
std::string makeDriverFloppy(const std::string &path,
                             const gp::test::FileTree &files) {
  EXPECT_TRUE(gp::test::mkfsFat12(path));
  TempDir staging;
  for (const auto &[name, content] : files) {
    gp::test::writeFile(staging / name, content);
    EXPECT_TRUE(gp::test::mcopyIn(path, staging / name, name));
  }
  return path;
}

// A caller's directories: the working directory with fresh answer files,
// support files with the driver floppy, and the upgrader.
struct Caller {
  TempDir root;
  std::string work = root / "work";
  std::string support = root / "support";
  std::string upgrader = root / "upgrader";

  explicit Caller(const char *guestId, bool storePwd = true) {
    fs::create_directories(work);
    gp::test::writeFile(support + "/storePwd.exe", "MZ storePwd");
    gp::test::writeFile(support + "/unattend.cmd", "@echo off\r\n");
    gp::test::writeFile(upgrader + "/ZentavToolsUpgrader.exe", "MZ upgrader");
    makeDriverFloppy(support + "/ztscsi.flp",
                     {{"TXTSETUP.OEM", kZtOem},
                      {"ZTSCSI.SYS", gp::test::pattern(3000, 1)},
                      {"ZTSCSI.INF", "[Version]\r\n"}});
    EXPECT_TRUE(AutoInstall_PrepareAnswerFileEx(
        shipped("winnt.sif").c_str(), shipped("autounattend.xml").c_str(),
        storePwd ? shipped("storePwd.ini").c_str() : nullptr, nullptr, nullptr,
        "Jane", "secret", guestId, work.c_str(), nullptr, nullptr, FALSE));
  }

  Bool make(const char *toolsIso, const char *driverDir) const {
    return AutoInstall_MakeFloppyImg(nullptr, work.c_str(), toolsIso, driverDir,
                                     upgrader.c_str(), support.c_str());
  }
  std::string image() const { return work + "/autoinst.flp"; }
};

std::string toolsIso() {
  return gp::test::isoFromTree(
      {{"drivers/scsi/win7/txtsetup.oem", kLsiOem},
       {"drivers/scsi/win7/lsi_sas.sys", gp::test::pattern(5000, 2)},
       {"drivers/other/readme.txt", "x"}},
      gp::test::IsoFlavor::JolietRockRidge);
}

TEST(WindowsFloppy, WholeFloppies) {
  const std::string iso = toolsIso();
  struct Case {
    const char *label;
    const char *guestId;
    bool storePwd;
    enum { kDriverFloppy, kToolsIso, kHostDir, kNone } drivers;
    Names driverFiles;
    const char *massStorage;  // the MassStorageDrivers line, or ""
    bool upgrader;
  };
  const Case cases[] = {
      {"XP, driver floppy",
       "winXPPro",
       true,
       Case::kDriverFloppy,
       {"txtsetup.oem", "ztscsi.sys", "ztscsi.inf"},
       "\"Zentav PVSCSI Controller\"=OEM",
       true},
      {"Windows 7, tools image",
       "windows7-64",
       false,
       Case::kToolsIso,
       {"txtsetup.oem", "lsi_sas.sys"},
       "\"LSI Logic SAS (x64)\"=OEM",
       true},
      {"XP, host directory, no upgrader and no tools image",
       "winXPPro",
       false,
       Case::kHostDir,
       {"txtsetup.oem", "ztscsi.sys"},
       "\"Zentav PVSCSI Controller\"=OEM",
       false},
      {"Windows 7, no drivers", "windows7", true, Case::kNone, {}, "", true},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.label);
    Caller s(c.guestId, c.storePwd);
    const std::string hostDrivers = s.root / "hostdrivers";
    std::string missingIso = s.root / "no-tools.iso";
    if (!c.upgrader) {
      fs::remove(s.upgrader + "/ZentavToolsUpgrader.exe");
    }
    Bool ok = FALSE;
    gp::LogCapture log;
    switch (c.drivers) {
      case Case::kDriverFloppy:
        ok = s.make(missingIso.c_str(), "drivers/scsi/xp");
        break;
      case Case::kToolsIso:
        ok = s.make(iso.c_str(), "drivers/scsi/win7");
        break;
      case Case::kHostDir:
        gp::test::writeFile(hostDrivers + "/txtsetup.oem", kZtOem);
        gp::test::writeFile(hostDrivers + "/ztscsi.sys", "driver");
        ok = s.make(nullptr, hostDrivers.c_str());
        break;
      case Case::kNone:
        ok = s.make(nullptr, nullptr);
        break;
    }
    EXPECT_EQ(ok, TRUE) << log.text();
    EXPECT_EQ(log.text(), "");

    Names expected = c.driverFiles;
    expected.insert({"winnt.sif", "autoun~0.xml", "unattend.cmd"});
    if (c.upgrader) {
      expected.insert("upgrader.exe");
    }
    if (c.storePwd) {
      expected.insert({"storepwd.ini", "storepwd.exe"});
    }
    EXPECT_EQ(imageNames(s.image()), expected);
    std::string report;
    EXPECT_TRUE(gp::test::fsckClean(s.image(), &report)) << report;

    const std::string sif = imageFile(s.image(), "winnt.sif");
    for (const std::string &driver : c.driverFiles) {
      EXPECT_NE(sif.find("\n" + driver + "\n"), std::string::npos) << driver;
    }
    EXPECT_EQ(sif.find("[OEMBootFiles]") != std::string::npos,
              !c.driverFiles.empty());
    if (*c.massStorage != '\0') {
      EXPECT_NE(sif.find(std::string("[MassStorageDrivers]\n") + c.massStorage),
                std::string::npos)
          << sif;
    } else {
      EXPECT_EQ(sif.find("MassStorageDrivers"), std::string::npos);
    }
    EXPECT_EQ(imageFile(s.image(), "unattend.cmd"), "@echo off\r\n");
    if (c.drivers == Case::kDriverFloppy) {
      EXPECT_EQ(imageFile(s.image(), "ztscsi.sys"), gp::test::pattern(3000, 1));
    }

    // Only the image stays; a caller's driver directory keeps its files.
    EXPECT_EQ(dirNames(s.work), Names{"autoinst.flp"});
    if (c.drivers == Case::kHostDir) {
      EXPECT_EQ(dirNames(hostDrivers), (Names{"txtsetup.oem", "ztscsi.sys"}));
    }
  }
}

TEST(WindowsFloppy, StartsFromATemplateFloppy) {
  Caller s("winXPPro", false);
  const std::string templ = s.root / "template.flp";
  makeDriverFloppy(templ, {{"README.TXT", "keep me"}});
  gp::LogCapture log;
  EXPECT_EQ(
      AutoInstall_MakeFloppyImg(templ.c_str(), s.work.c_str(), nullptr, nullptr,
                                s.upgrader.c_str(), s.support.c_str()),
      TRUE)
      << log.text();
  EXPECT_EQ(imageFile(s.image(), "readme.txt"), "keep me");
  EXPECT_EQ(gp::test::readFile(templ).size(), 1474560u);
  EXPECT_EQ(imageNames(templ), Names{"readme.txt"});
}

TEST(WindowsFloppy, FailuresHalfWayCleanUp) {
  const std::string iso = toolsIso();
  gp::test::FileTree manyFiles;
  for (int i = 0; i < 1100; ++i) {
    manyFiles["d/f" + std::to_string(i) + ".sys"] = "x";
  }
  const std::string many =
      gp::test::isoFromTree(manyFiles, gp::test::IsoFlavor::JolietRockRidge);
  struct Case {
    const char *label;
    void (*arrange)(Caller &);
    const char *toolsIso;  // "iso": the tools image; "bad": a text file
    const char *driverDir;
    std::string logLine;  // with "$R" for the setup's root directory
  };
  const Case cases[] = {
      {"driver floppy missing",
       [](Caller &s) { fs::remove(s.support + "/ztscsi.flp"); }, "missing",
       "drivers",
       "File_CopyFromNameToName from=\"$R/support/ztscsi.flp\" "
       "to=\"$R/work/scsi/ztscsi.flp\"\n"},
      {"driver directory not on the tools image", nullptr, "iso",
       "drivers/scsi/nothere",
       "Iso9660_Extract res=3 scsiDriverDir=\"drivers/scsi/nothere\""
       "tempdir=\"$R/work/scsi\"\n"},
      {"tools image not ISO 9660", nullptr, "bad", "drivers",
       "Iso9660_Open res=2 toolsIsoPath=\"$R/bad.iso\"\n"},
      {"upgrader missing with a tools image",
       [](Caller &s) { fs::remove(s.upgrader + "/ZentavToolsUpgrader.exe"); },
       "iso", "drivers/scsi/win7",
       "AddFileToFloppyImg (tools \"$ISO\") "
       "UPGRADER_EXE=\"$R/upgrader/ZentavToolsUpgrader.exe\"\n"},
      {"floppy full",
       [](Caller &s) {
         gp::test::writeFile(s.support + "/storePwd.exe",
                             std::string(1500000, 'x'));
       },
       "missing", "drivers",
       "AddFileToFloppyImg STOREPWD_EXE_FILENAME=\"$R/support/"
       "storePwd.exe\"\n"},
      {"driver floppy not FAT",
       [](Caller &s) {
         gp::test::writeFile(s.support + "/ztscsi.flp", std::string(4096, 'z'));
       },
       "missing", "drivers",
       "FSImage_OpenVolume err=2 scsiFlp=\"$R/work/scsi/ztscsi.flp\"\n"},
      {"too many driver files on the tools image", nullptr, "many", "d",
       "File_ListDirectory nf=-1 tempdir=\"$R/work/scsi\"\n"},
      {"unattend.cmd missing",
       [](Caller &s) { fs::remove(s.support + "/unattend.cmd"); }, nullptr,
       nullptr,
       "AddFileToFloppyImg UNATTENDED_CMD=\"$R/support/unattend.cmd\"\n"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.label);
    Caller s("winXPPro");
    if (c.arrange != nullptr) {
      c.arrange(s);
    }
    gp::test::writeFile(s.root / "bad.iso", "not an image");
    std::string tools;
    if (c.toolsIso != nullptr) {
      tools = std::string(c.toolsIso) == "many"  ? many
              : std::string(c.toolsIso) == "iso" ? iso
              : std::string(c.toolsIso) == "bad" ? s.root / "bad.iso"
                                                 : s.root / "missing.iso";
    }
    gp::LogCapture log;
    EXPECT_EQ(s.make(c.toolsIso ? tools.c_str() : nullptr, c.driverDir), FALSE);
    std::string line = kFn + c.logLine;
    for (auto [from, to] :
         {std::pair<std::string, std::string>{"$R", s.root.path()},
          {"$ISO", iso}}) {
      for (size_t at; (at = line.find(from)) != std::string::npos;) {
        line.replace(at, from.size(), to);
      }
    }
    ASSERT_FALSE(log.lines().empty());
    EXPECT_EQ(log.lines().back(), line);
    EXPECT_EQ(dirNames(s.work), Names{"autoinst.flp"});
  }
}

TEST(WindowsFloppy, EmptyHostDriverDirectoryFailsAndGoes) {
  Caller s("winXPPro");
  const std::string drivers = s.root / "empty";
  fs::create_directories(drivers);
  gp::LogCapture log;
  EXPECT_EQ(s.make(nullptr, drivers.c_str()), FALSE);
  EXPECT_EQ(log.text(), std::string(kFn) +
                            "File_ListDirectory nf=0 tempdir=\"" + drivers +
                            "\"\n");
  EXPECT_FALSE(fs::exists(drivers));
  EXPECT_EQ(dirNames(s.work), Names{"autoinst.flp"});
}

// Replaces the first occurrence of `from` in the image's bytes.
void patchImage(const std::string &image, const std::string &from,
                const std::string &to) {
  std::string bytes = gp::test::readFile(image);
  const size_t at = bytes.find(from);
  ASSERT_NE(at, std::string::npos);
  bytes.replace(at, from.size(), to);
  gp::test::writeFile(image, bytes);
}

std::string utf16(const std::string &ascii) {
  std::string out;
  for (char c : ascii) {
    out += c;
    out += '\0';
  }
  return out;
}

TEST(WindowsFloppy, HostileDriverFloppies) {
  struct Case {
    const char *label;
    void (*craft)(const std::string &image);
  };
  const Case cases[] = {
      {"long name with a slash",
       [](const std::string &img) {
         makeDriverFloppy(
             img, {{"TXTSETUP.OEM", kZtOem}, {"xx_xx_escape.sys", "evil"}});
         patchImage(img, utf16("xx_xx"), utf16("../.."));
       }},
      {"short name dot dot",
       [](const std::string &img) {
         makeDriverFloppy(img, {{"TXTSETUP.OEM", kZtOem}, {"DOTDOT.SYS", "e"}});
         patchImage(img, "DOTDOT  SYS", "..         ");
       }},
      {"hundreds of entries",
       [](const std::string &img) {
         ASSERT_EQ(gp::test::runCommand("mkfs.fat -C -F 12 -r 512 " +
                                        gp::test::shellQuote(img) +
                                        " 1440 >/dev/null 2>&1"),
                   0);
         TempDir many;
         std::string args;
         for (int i = 0; i < 400; ++i) {
           const std::string name = "F" + std::to_string(i) + ".SYS";
           gp::test::writeFile(many / name, name);
           args += " " + gp::test::shellQuote(many / name);
         }
         ASSERT_EQ(
             gp::test::runCommand(std::string(kMtools) + "mcopy -i " +
                                  gp::test::shellQuote(img) + args + " ::/"),
             0);
       }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.label);
    Caller s("winXPPro");
    fs::remove(s.support + "/ztscsi.flp");
    c.craft(s.support + "/ztscsi.flp");
    const Names rootBefore = dirNames(s.root.path());
    const std::string missing = s.root / "missing.iso";
    gp::LogCapture log;
    s.make(missing.c_str(), "drivers");
    EXPECT_EQ(dirNames(s.root.path()), rootBefore);
    EXPECT_EQ(dirNames(s.work), Names{"autoinst.flp"});
    EXPECT_FALSE(fs::exists(s.root / "escape.sys"));
    EXPECT_FALSE(fs::exists(s.work + "/escape.sys"));
    std::string report;
    EXPECT_TRUE(gp::test::fsckClean(s.image(), &report)) << report;
  }
}

TEST(WindowsFloppy, StagingLinkIsNotFollowed) {
  Caller s("winXPPro");
  const std::string outside = s.root / "outside";
  fs::create_directories(outside);
  fs::create_directory_symlink(outside, s.work + "/scsi");
  const std::string missing = s.root / "missing.iso";
  gp::LogCapture log;
  EXPECT_EQ(s.make(missing.c_str(), "drivers"), TRUE) << log.text();
  EXPECT_TRUE(fs::is_empty(outside));
  EXPECT_EQ(dirNames(s.work), Names{"autoinst.flp"});
}

TEST(WindowsFloppy, WriteOemDriverInfoOnHostileFiles) {
  struct Case {
    const char *label;
    std::string oem;
    const char *entry;  // the line expected in winnt.sif, or nullptr
  };
  std::string big = "ZTSCSI = \"Big\"\n";
  big.resize(10u << 20, 'x');
  std::string binary = gp::test::pattern(4096, 9);
  binary.replace(100, 20, "LSI_SCSI_32 \"a\nb\"\0");
  const Case cases[] = {
      {"plain", kZtOem, "\"Zentav PVSCSI Controller\"=OEM\n"},
      {"the first key of the table wins wherever it stands",
       "LSI_SAS_32 = \"LSI\"\n; ZTSCSI \"Zentav\"\n", "\"Zentav\"=OEM\n"},
      {"a key without two quotes gives way", "SYMMPI_IA64 = \"ia64\"\nZTSCSI\n",
       "\"ia64\"=OEM\n"},
      {"keys are case sensitive", "ztscsi = \"x\"", nullptr},
      {"the text ends at NUL", std::string("x\0ZTSCSI = \"x\"", 15), nullptr},
      {"10 MB is not read", big, nullptr},
      {"binary with a line feed in the description", binary, nullptr},
      {"empty", "", nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.label);
    TempDir dir;
    const std::string sif = dir / "winnt.sif";
    gp::test::writeFile(sif, "[Data]\nA=1\n");
    gp::test::writeFile(dir / "txtsetup.oem", c.oem);
    WriteOEMDriverInfo((dir / "txtsetup.oem").c_str(), sif.c_str());
    const std::string after = gp::test::readFile(sif);
    if (c.entry == nullptr) {
      EXPECT_EQ(after, "[Data]\nA=1\n");
    } else {
      EXPECT_EQ(after,
                std::string("[Data]\nA=1\n[MassStorageDrivers]\n") + c.entry);
    }
  }
}

}  // namespace
