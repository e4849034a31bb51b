// Windows media detection, run on real UDF bridge images of marker trees.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "guestprep/guess.h"
#include "support/fixtures.h"
#include "support/udf_fixtures.h"

namespace gp {
namespace {

using test::FileTree;
using test::IsoFlavor;

struct Outcome {
  int rc;
  GuessInfo info;
  explicit Outcome(const std::string &image) {
    std::memset(&info, 0x5A, sizeof info);  // Guess_Guest must clear it
    rc = Guess_Guest(image.c_str(), 0, &info);
  }
  std::string osName() const { return info.osName ? info.osName : "<none>"; }
};
Outcome identify(const FileTree &tree) {
  return Outcome(test::udfBridgeFromTree(tree));
}

// The setup file in `dir`, and PRODSPEC.INI next to it with a localisation.
FileTree nt(const std::string &dir, const std::string &key,
            const std::string &product, const std::string &localization = "") {
  FileTree tree = {{dir + "/TXTSETUP.SIF",
                    "[SetupData]\r\n" + key + " = \"" + product + "\"\r\n"}};
  if (!localization.empty()) {
    tree[dir + "/PRODSPEC.INI"] =
        "[Product]\r\nLocalization=" + localization + "\r\n";
  }
  return tree;
}

TEST(WindowsNTAnd9x, ProductsKeysDirectoriesAndLocalization) {
  FileTree both = nt("I386", "srv_id", "Windows Server 2003, Enterprise");
  both["I386/TXTSETUP.SIF"] += "wks_id = \"Windows XP Home Edition\"\r\n";
  both.merge(nt("AMD64", "wks_id", "Windows XP Professional x64 Edition"));
  // clang-format off
  for (const auto &[tree, osName, language] : {
           std::tuple{nt("I386", "wks_id", "Windows XP Home Edition"), "winXPHome", std::string()},
           // A table name is compared whole and case-sensitively; this one
           // falls through to the substring rules and matches none.
           {nt("I386", "wks_id", "microsoft windows 2000 server"), "<none>", ""},
           // An AMD64-only medium, its localisation next to the setup file.
           {nt("AMD64", "srv_id", "Windows Server 2003 Standard x64 Edition", "English"), "winNetStandard-64", "English"},
           // "wks_id" without its blank is not the key.
           {{{"I386/TXTSETUP.SIF", "wks_id=\"Windows XP Pro\"\r\n"}}, "<none>", ""},
           // A value longer than the field is cut to 127 characters.
           {nt("I386", "wks_id", "Windows XP Pro", std::string(200, 'L')), "winXPPro", std::string(127, 'L')},
           // The 9x family by directory: win9x outranks win95, win98.
           {{{"win98/setup.exe", "x"}}, "win98", ""},
           {{{"WIN98/SETUP.EXE", "x"}, {"win95/a", "x"}}, "win95", ""},
           {{{"win95/a", "x"}, {"win9x/b", "x"}}, "winMe", ""},
           // I386 outranks AMD64; "wks_id " wins over an earlier "srv_id ".
           {both, "winXPHome", ""},
       }) {
    // clang-format on
    SCOPED_TRACE(tree.begin()->first + ": " + tree.begin()->second);
    Outcome o = identify(tree);
    EXPECT_EQ(o.osName(), osName);
    EXPECT_EQ(o.rc, o.info.osName ? GUESS_FOUND : GUESS_NOT_FOUND);
    // Without PRODSPEC.INI the language stays empty: the Vista detector,
    // which writes its default, runs only when nothing is recognised.
    EXPECT_EQ(o.info.language, o.info.osName ? language : "en-US");
    EXPECT_STREQ(o.info.editions, "");
  }
}

std::string languages(const std::string &lines) {
  return "[Available UI Languages]\r\n" + lines +
         "\r\n[Fallback Languages]\r\nen-US = en-us\r\n";
}

// A Vista-or-later "sources" tree; an empty `arch` leaves out BuildArch=.
FileTree vista(const std::string &branch = "win7_rtm",
               const std::string &type = "Client",
               const std::string &arch = "amd64",
               const std::string &image = "install_Windows 7 ULTIMATE.clg") {
  FileTree tree = {
      {"sources/product.ini", "[Product]\r\nType=" + type + "\r\n"},
      {"sources/idwbinfo.txt",
       "[BUILDINFO]\r\n" + (arch.empty() ? "" : "BuildArch=" + arch + "\r\n") +
           "BuildBranch=" + branch + "\r\nBuildType=fre\r\n"},
      {"sources/lang.ini", languages("de-DE = 1\r\n")},
  };
  if (!image.empty()) tree["sources/" + image] = "catalog";
  return tree;
}

TEST(WindowsVista, ReleaseClasses) {
  const char *const none = "";
  // clang-format off
  for (auto [branch, type, arch, image, osName] : {
           std::tuple{"vista_gdr", "Server", "amd64", none, "longhorn-64"},
           {"lh_sp2rtm", "Client", "amd64", none, "winvista-64"},
           // A server of Windows 7 is 64-bit whatever its BuildArch says.
           {"win7_rtm", "Server", "x86", none, "windows7srv-64"},
           {"winmain", "Client", "x86", none, "windows8"},
           // "xwinmain" is no class by itself, unless an install image name
           // decides it; without a class a server is a Server 2008.
           {"xwinmain", "Client", "amd64", none, "<none>"},
           {"xwinmain", "Client", "amd64", "install_Windows 7 HOMEBASIC.clg", "windows7-64"},
           {"xwinmain", "Client", "x86", "INSTALL_WINDOWS VISTA BUSINESS.CLG", "winvista"},
           {"xwinmain", "Server", "AMD64", none, "longhorn"},
           // Without BuildArch= at all nothing is recognised.
           {"win7_rtm", "Client", "", none, "<none>"},
           // staged= decides Windows 8 servers only, case-sensitively.
           {"win8_rtm", "Server\r\nstaged=ServerStandardCore", "amd64", none, "windows8-64"},
           {"win8_rtm", "Client\r\nstaged=SERVERSTANDARD,SERVERDATACENTER", "amd64", none, "windows8srv-64"},
           {"win7_rtm", "Client\r\nstaged=SERVERSTANDARD", "amd64", none, "windows7-64"},
       }) {
    // clang-format on
    SCOPED_TRACE(std::string(branch) + " " + type + " " + arch);
    Outcome o = identify(vista(branch, type, arch, image));
    EXPECT_EQ(o.osName(), osName);
    // The chosen language, or the default when nothing is recognised.
    EXPECT_STREQ(o.info.language, o.info.osName ? "de-DE" : "en-US");
  }
}

TEST(WindowsVista, EditionsAreWrittenEvenWhenNotRecognised) {
  FileTree tree = vista("win7_rtm", "Client", "");  // no BuildArch=
  tree["sources/install_Windows 7 STARTER.clg"] = "c";
  tree["sources/install_Windows 7 STARTER.CLG"] = "c";  // suffix is exact
  tree["sources/Install_Windows 7 HOME.clg"] = "c";     // prefix is exact
  Outcome o = identify(tree);
  EXPECT_EQ(o.rc, GUESS_NOT_FOUND);
  EXPECT_STREQ(o.info.editions, "Windows 7 STARTER?Windows 7 ULTIMATE?");
  // A list longer than the field is cut to 511 characters.
  for (int i = 0; i < 30; ++i)
    tree["sources/install_Edition " + std::to_string(i) + " " +
         std::string(20, 'x') + ".clg"] = "c";
  EXPECT_EQ(std::strlen(identify(tree).info.editions), 511u);
}

TEST(WindowsVista, LanguageSection) {
  for (auto [lang, language] : {
           // The last entry counts, negative numbers aside; a number that is
           // not one stops the walk; lines without an assignment are skipped.
           std::pair{languages("en-US = 0\r\nfr-FR = 2\r\nde-DE = -1\r\n"),
                     "fr-FR"},
           {languages("fr-FR = 2\r\nde-DE = one\r\nja-JP = 3\r\n"), "fr-FR"},
           {languages("no assignment\r\n\r\n\r\nja-JP=4\r\n"), "ja-JP"},
           // Without the fallback header the section has no end.
           {std::string("[Available UI Languages]\r\nde-DE = 1\r\n"), "en-US"},
       }) {
    SCOPED_TRACE(lang);
    FileTree tree = vista();
    tree["sources/lang.ini"] = lang;
    Outcome o = identify(tree);
    EXPECT_EQ(o.osName(), "windows7-64");
    EXPECT_STREQ(o.info.language, language);
  }
}

// NT media were ISO 9660 images with upper-case 8.3 names; the NT detector
// runs before the 9x one. pycdlib puts the files in the UDF tree only.
TEST(WindowsMedia, Iso9660AndUdfOnlyImages) {
  FileTree xp = nt("I386", "wks_id", "Windows XP Professional", "English");
  xp["WIN9X/SETUP.EXE"] = "MZ";
  Outcome o(test::isoFromTree(xp, IsoFlavor::Primary));
  EXPECT_EQ(o.osName() + " " + o.info.language, "winXPPro English");
  Outcome udfOnly(test::pycdlibUdfFromTree(vista()));
  EXPECT_EQ(udfOnly.osName(), "windows7-64");
}

}  // namespace
}  // namespace gp
