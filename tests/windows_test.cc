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

struct Outcome {
  int rc;
  GuessInfo info;
  std::string osName() const { return info.osName ? info.osName : "<none>"; }
};

Outcome identify(const FileTree &tree) {
  Outcome out{};
  std::memset(&out.info, 0x5A, sizeof out.info);  // Guess_Guest must clear
  out.rc = Guess_Guest(test::udfBridgeFromTree(tree).c_str(), 0, &out.info);
  return out;
}

FileTree ntTree(const std::string &dir, const std::string &setupText,
                const std::string &localization = "") {
  FileTree tree = {{dir + "/TXTSETUP.SIF", setupText}};
  if (!localization.empty()) {
    tree[dir + "/PRODSPEC.INI"] =
        "[Product Specification]\r\nProduct=x\r\nLocalization=" + localization +
        "\r\nVersion=5.1\r\n";
  }
  return tree;
}

std::string setupFile(const std::string &key, const std::string &product) {
  return "[SetupData]\r\nArchitecture = i386\r\n" + key + " = \"" + product +
         "\"\r\nMajorVersion = 5\r\n";
}

TEST(WindowsNT, ProductNames) {
  struct Case {
    const char *product;
    const char *osName;
  };
  for (Case c : {
           Case{"Windows XP Professional x64 Edition", "winXPPro-64"},
           Case{"Windows XP Home Edition", "winXPHome"},
           Case{"Microsoft Windows 2000 Server", "win2000Serv"},
           Case{"Windows Server 2003, Web", "winNetWeb"},
           // A table name is compared whole and case-sensitively; this one
           // falls through to the substring rules and matches none.
           Case{"microsoft windows 2000 server", "<none>"},
       }) {
    SCOPED_TRACE(c.product);
    Outcome o = identify(ntTree("I386", setupFile("wks_id", c.product)));
    EXPECT_EQ(o.osName(), c.osName);
    EXPECT_EQ(o.rc, o.info.osName ? GUESS_FOUND : GUESS_NOT_FOUND);
    EXPECT_EQ(o.info.subVersion, 0u);
  }
}

TEST(WindowsNT, WhichFileAndKeyDecide) {
  // I386 outranks AMD64.
  FileTree both =
      ntTree("I386", setupFile("wks_id", "Windows XP Home Edition"));
  both["AMD64/TXTSETUP.SIF"] =
      setupFile("wks_id", "Windows XP Professional x64 Edition");
  EXPECT_EQ(identify(both).osName(), "winXPHome");
  // An AMD64-only medium, with its localisation next to the setup file.
  EXPECT_EQ(identify(ntTree("AMD64",
                            setupFile("srv_id",
                                      "Windows Server 2003 Standard x64 "
                                      "Edition"),
                            "English"))
                .info.language,
            std::string("English"));
  // "wks_id " wins over an earlier "srv_id ".
  std::string text = setupFile("srv_id", "Windows Server 2003, Enterprise") +
                     setupFile("wks_id", "Windows XP Professional");
  EXPECT_EQ(identify(ntTree("I386", text)).osName(), "winXPPro");
  // "wks_id" without its blank is not the key.
  EXPECT_EQ(identify(ntTree("I386", "wks_id=\"Windows XP Professional\"\r\n"))
                .osName(),
            "<none>");
}

TEST(WindowsNT, Localization) {
  Outcome german = identify(
      ntTree("I386", setupFile("wks_id", "Windows XP Professional"), "German"));
  EXPECT_EQ(german.osName(), "winXPPro");
  EXPECT_STREQ(german.info.language, "German");
  // Without PRODSPEC.INI the language stays empty: the Vista detector that
  // would write its default never runs.
  Outcome none =
      identify(ntTree("I386", setupFile("wks_id", "Windows XP Professional")));
  EXPECT_EQ(none.osName(), "winXPPro");
  EXPECT_STREQ(none.info.language, "");
  // A value longer than the field is cut to 127 characters.
  Outcome longName =
      identify(ntTree("I386", setupFile("wks_id", "Windows XP Professional"),
                      std::string(200, 'L')));
  EXPECT_EQ(std::string(longName.info.language), std::string(127, 'L'));
}

TEST(WindowsLegacy, DirectoryPrecedence) {
  EXPECT_EQ(identify({{"win98/setup.exe", "x"}}).osName(), "win98");
  EXPECT_EQ(identify({{"WIN98/SETUP.EXE", "x"}, {"win95/a", "x"}}).osName(),
            "win95");
  EXPECT_EQ(identify({{"win95/a", "x"}, {"win9x/b", "x"}}).osName(), "winMe");
}

struct Sources {
  std::string branch = "win7_rtm";
  std::string arch = "amd64";
  std::string type = "Client";
  std::string staged;
  std::string languages = "en-US = 3\r\n";
  std::string images = "install_Windows 7 ULTIMATE.clg";
};

FileTree vistaTree(const Sources &s) {
  std::string product = "[Product]\r\nType=" + s.type + "\r\n";
  if (!s.staged.empty()) {
    product += "staged=" + s.staged + "\r\n";
  }
  std::string build = "[BUILDINFO]\r\n";
  if (!s.arch.empty()) {
    build += "BuildArch=" + s.arch + "\r\n";
  }
  build += "BuildBranch=" + s.branch + "\r\nBuildType=fre\r\n";
  FileTree tree = {
      {"sources/product.ini", product},
      {"sources/idwbinfo.txt", build},
      {"sources/lang.ini", "[Available UI Languages]\r\n" + s.languages +
                               "\r\n[Fallback Languages]\r\nen-US = en-us\r\n"},
      {"sources/setup.exe", "MZ"},
  };
  if (!s.images.empty()) {
    tree["sources/" + s.images] = "catalog";
  }
  return tree;
}

TEST(WindowsVista, ReleaseClasses) {
  struct Case {
    const char *branch;
    const char *type;
    const char *arch;
    const char *image;
    const char *osName;
  };
  for (Case c : {
           Case{"vista_rtm", "Client", "x86", "", "winvista"},
           Case{"lh_sp2rtm", "Client", "amd64", "", "winvista-64"},
           Case{"vista_gdr", "Server", "amd64", "", "longhorn-64"},
           Case{"win7sp1_rtm", "Client", "x86", "", "windows7"},
           // A server of Windows 7 is 64-bit whatever its BuildArch says.
           Case{"win7_rtm", "Server", "x86", "", "windows7srv-64"},
           Case{"winmain_win8rtm", "Client", "amd64", "", "windows8-64"},
           Case{"winmain", "Client", "x86", "", "windows8"},
           // Prefix tests: "xwinmain" is no class by itself...
           Case{"xwinmain", "Client", "amd64", "", "<none>"},
           // ...unless an install image name decides it.
           Case{"xwinmain", "Client", "amd64",
                "install_Windows 7 HOMEBASIC.clg", "windows7-64"},
           Case{"xwinmain", "Client", "x86",
                "INSTALL_WINDOWS VISTA BUSINESS.CLG", "winvista"},
           // No class, but a server: the Server 2008 identifiers.
           Case{"xwinmain", "Server", "x86", "", "longhorn"},
           Case{"xwinmain", "Server", "AMD64", "", "longhorn"},
       }) {
    SCOPED_TRACE(std::string(c.branch) + " " + c.type + " " + c.arch);
    Sources s;
    s.branch = c.branch;
    s.type = c.type;
    s.arch = c.arch;
    s.images = c.image;
    Outcome o = identify(vistaTree(s));
    EXPECT_EQ(o.osName(), c.osName);
    EXPECT_STREQ(o.info.language, "en-US");
  }
}

TEST(WindowsVista, StagedDecidesWindows8Servers) {
  Sources s;
  s.branch = "win8_rtm";
  s.type = "Server";
  s.staged = "ServerStandardCore";  // case-sensitive: not SERVERSTANDARD
  EXPECT_EQ(identify(vistaTree(s)).osName(), "windows8-64");
  s.type = "Client";
  s.staged = "SERVERSTANDARD,SERVERDATACENTER";
  EXPECT_EQ(identify(vistaTree(s)).osName(), "windows8srv-64");
  // The rule is for Windows 8 only.
  s.branch = "win7_rtm";
  EXPECT_EQ(identify(vistaTree(s)).osName(), "windows7-64");
}

TEST(WindowsVista, SideWritesStayWhenNotRecognised) {
  Sources s;
  s.arch = "";  // no BuildArch= at all
  s.languages = "de-DE = 1\r\n";
  Outcome o = identify(vistaTree(s));
  EXPECT_EQ(o.rc, GUESS_NOT_FOUND);
  EXPECT_EQ(o.info.osName, nullptr);
  EXPECT_STREQ(o.info.editions, "Windows 7 ULTIMATE?");
  EXPECT_STREQ(o.info.language, "en-US");

  // Any image that opens but matches nothing reports the default language.
  Outcome plain = identify({{"readme.txt", "hello"}});
  EXPECT_EQ(plain.rc, GUESS_NOT_FOUND);
  EXPECT_STREQ(plain.info.language, "en-US");
  EXPECT_STREQ(plain.info.editions, "");
}

TEST(WindowsVista, Editions) {
  Sources s;
  FileTree tree = vistaTree(s);
  tree["sources/install_Windows 7 STARTER.clg"] = "c";
  tree["sources/install_Windows 7 STARTER.CLG"] = "c";  // suffix is exact
  tree["sources/Install_Windows 7 HOME.clg"] = "c";     // prefix is exact
  std::string editions = identify(tree).info.editions;
  EXPECT_NE(editions.find("Windows 7 ULTIMATE?"), std::string::npos);
  EXPECT_NE(editions.find("Windows 7 STARTER?"), std::string::npos);
  EXPECT_EQ(editions.size(), std::string("Windows 7 ULTIMATE?").size() +
                                 std::string("Windows 7 STARTER?").size());
  // A list longer than the field is cut to 511 characters.
  FileTree many = vistaTree(s);
  for (int i = 0; i < 30; ++i) {
    many["sources/install_Edition number " + std::to_string(100 + i) +
         " with a long name.clg"] = "c";
  }
  EXPECT_EQ(std::strlen(identify(many).info.editions), 511u);
}

TEST(WindowsVista, LanguageSection) {
  struct Case {
    const char *lines;
    const char *language;
  };
  for (Case c : {
           Case{"de-DE = 1\r\nen-US = 0\r\n", "en-US"},
           Case{"en-US = 0\r\nde-DE = 1\r\n", "de-DE"},
           Case{"fr-FR = 2\r\nde-DE = -1\r\n", "fr-FR"},  // negative: ignored
           Case{"no assignment\r\n\r\n\r\nja-JP=4\r\n", "ja-JP"},
           // A number that is not one stops the walk.
           Case{"fr-FR = 2\r\nde-DE = one\r\nja-JP = 3\r\n", "fr-FR"},
           Case{"de-DE = -5\r\n", "en-US"},
       }) {
    SCOPED_TRACE(c.lines);
    Sources s;
    s.languages = c.lines;
    Outcome o = identify(vistaTree(s));
    EXPECT_EQ(o.osName(), "windows7-64");
    EXPECT_STREQ(o.info.language, c.language);
  }
  // Without the fallback header the section has no end: the default.
  FileTree tree = vistaTree(Sources{});
  tree["sources/lang.ini"] = "[Available UI Languages]\r\nde-DE = 1\r\n";
  EXPECT_STREQ(identify(tree).info.language, "en-US");
}

// The NT and 9x families shipped on ISO 9660 media; their directory and
// file names are upper case there, in primary names even 8.3 only.
TEST(WindowsIso9660, NtAnd9xMedia) {
  FileTree xp =
      ntTree("I386", setupFile("wks_id", "Windows XP Professional"), "English");
  xp["WIN9X/SETUP.EXE"] = "MZ";
  for (test::IsoFlavor flavor :
       {test::IsoFlavor::Primary, test::IsoFlavor::JolietRockRidge}) {
    GuessInfo info{};
    EXPECT_EQ(Guess_Guest(test::isoFromTree(xp, flavor).c_str(), 0, &info),
              GUESS_FOUND);
    EXPECT_STREQ(info.osName, "winXPPro");
    EXPECT_STREQ(info.language, "English");
  }
  GuessInfo me{};
  EXPECT_EQ(Guess_Guest(
                test::isoFromTree({{"WIN95/A.CAB", "x"}, {"WIN9X/B.CAB", "x"}},
                                  test::IsoFlavor::Primary)
                    .c_str(),
                0, &me),
            GUESS_FOUND);
  EXPECT_STREQ(me.osName, "winMe");
  GuessInfo seven{};
  EXPECT_EQ(Guess_Guest(test::isoFromTree(vistaTree(Sources{}),
                                          test::IsoFlavor::JolietRockRidge)
                            .c_str(),
                        0, &seven),
            GUESS_FOUND);
  EXPECT_STREQ(seven.osName, "windows7-64");
  EXPECT_STREQ(seven.editions, "Windows 7 ULTIMATE?");
}

TEST(WindowsVista, BridgeImageIsReadThroughUdf) {
  // The markers exist only in the UDF directory tree of this image.
  Outcome o{};
  o.rc = Guess_Guest(
      test::pycdlibUdfFromTree(vistaTree(Sources{})).c_str(), 0, &o.info);
  EXPECT_EQ(o.rc, GUESS_FOUND);
  EXPECT_EQ(o.osName(), "windows7-64");
}

}  // namespace
}  // namespace gp
