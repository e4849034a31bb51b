// The Windows answer files: winnt.sif, autoun~0.xml and storePwd.ini made
// from the shipped templates, compared with saved results, checked with
// xmllint and iconv, and fed hostile templates.
//
// GP_UPDATE_GOLDEN=1 rewrites tests/data/answerfiles/windows/ from the
// library instead of comparing with it.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <cstdlib>
#include <string>

#include "guestprep/autoinstall.h"
#include "platform/log.h"
#include "platform/timezone.h"
#include "support/fixtures.h"

namespace {

using gp::test::TempDir;

const char kFn[] = "AutoInstall_PrepareAnswerFileEx: ";

std::string shipped(const char *name) {
  return gp::test::sourcePath(std::string("data/templates/windows/") + name);
}

struct Call {
  std::string winnt = shipped("winnt.sif");
  std::string unattend = shipped("autounattend.xml");
  std::string storePwd = shipped("storePwd.ini");
  bool withStorePwd = true;
  const char *productKey = nullptr;
  const char *kmsHost = nullptr;
  const char *userName = "Jane";
  const char *password = "secret";
  const char *guestId = "winXPPro";
  const char *language = nullptr;
  const char *imageName = nullptr;
  bool keepAutoLogon = false;

  Bool run(const std::string &workDir) const {
    return AutoInstall_PrepareAnswerFileEx(
        winnt.c_str(), unattend.c_str(),
        withStorePwd ? storePwd.c_str() : nullptr, productKey, kmsHost,
        userName, password, guestId, workDir.c_str(), language, imageName,
        keepAutoLogon ? TRUE : FALSE);
  }
};

// The text of every node an expression selects, "|"-joined; "-" for none.
std::string xpathTexts(const std::string &xmlPath, const char *expression) {
  xmlDoc *doc = xmlReadFile(xmlPath.c_str(), nullptr, XML_PARSE_NONET);
  if (doc == nullptr) {
    return "(unparsable)";
  }
  xmlXPathContext *ctx = xmlXPathNewContext(doc);
  xmlXPathRegisterNs(ctx, BAD_CAST "u",
                     BAD_CAST "urn:schemas-microsoft-com:unattend");
  xmlXPathObject *res = xmlXPathEvalExpression(BAD_CAST expression, ctx);
  std::string out;
  for (int i = 0; res && res->nodesetval && i < res->nodesetval->nodeNr; ++i) {
    xmlChar *t = xmlNodeGetContent(res->nodesetval->nodeTab[i]);
    out += (i ? "|" : "") + std::string(reinterpret_cast<char *>(t));
    xmlFree(t);
  }
  int n = res && res->nodesetval ? res->nodesetval->nodeNr : 0;
  xmlXPathFreeObject(res);
  xmlXPathFreeContext(ctx);
  xmlFreeDoc(doc);
  return n == 0 ? "-" : out;
}

const char kShell[] =
    "//u:settings[@pass='oobeSystem']/u:component[@name='Microsoft-Windows-"
    "Shell-Setup']";
std::string shell(const char *rest) { return std::string(kShell) + rest; }

bool xmllintAccepts(const std::string &path) {
  return gp::test::runCommand("xmllint --noout --nonet " +
                              gp::test::shellQuote(path) + " 2>&1") == 0;
}

std::string iconvBytes(const std::string &utf8, const char *encoding) {
  TempDir d;
  gp::test::writeFile(d / "in", utf8);
  std::string out;
  gp::test::runCommand("iconv -f UTF-8 -t " + std::string(encoding) + " " +
                           gp::test::shellQuote(d / "in"),
                       &out);
  return out;
}

bool contains(const std::string &haystack, const std::string &needle) {
  return haystack.find(needle) != std::string::npos;
}

class WindowsAnswer : public ::testing::Test {
 protected:
  TempDir dir;
  gp::tz::ScopedLocalZone zone{85, "GMT Standard Time"};
  std::string winnt() { return gp::test::readFile(dir / "winnt.sif"); }
  std::string xml() { return dir / "autoun~0.xml"; }
};

TEST_F(WindowsAnswer, GoldenOutputs) {
  struct Golden {
    const char *name;
    Call call;
  };
  Call xp;
  xp.productKey = "AAAAA-BBBBB-CCCCC-DDDDD-EEEEE";
  xp.userName = "Jane Doe";
  Call net64;
  net64.guestId = "winNetStandard-64";
  net64.productKey = "BBBBB-CCCCC-DDDDD-EEEEE-FFFFF";
  net64.userName = "山田";
  net64.language = "Japanese";
  net64.keepAutoLogon = true;
  Call win7;
  win7.guestId = "windows7-64";
  win7.productKey = "CCCCC-DDDDD-EEEEE-FFFFF-GGGGG";
  win7.language = "de-DE";
  win7.imageName = "Windows 7 ULTIMATE";
  Call win8;
  win8.guestId = "windows8";
  win8.productKey = "DDDDD-EEEEE-FFFFF-GGGGG-HHHHH";
  win8.kmsHost = "kms.example.org:1688";
  win8.imageName = "Windows 8 Pro";
  win8.withStorePwd = false;
  const Golden goldens[] = {{"winXPPro", xp},
                            {"winNetStandard-64", net64},
                            {"windows7-64", win7},
                            {"windows8", win8}};
  const bool update = std::getenv("GP_UPDATE_GOLDEN") != nullptr;
  for (const Golden &g : goldens) {
    SCOPED_TRACE(g.name);
    TempDir out;
    gp::LogCapture log;
    ASSERT_EQ(g.call.run(out.path()), TRUE);
    EXPECT_TRUE(log.lines().empty()) << log.text();
    EXPECT_TRUE(xmllintAccepts(out / "autoun~0.xml"));
    for (const char *file : {"winnt.sif", "autoun~0.xml", "storePwd.ini"}) {
      std::string golden = gp::test::sourcePath(
          std::string("tests/data/answerfiles/windows/") + g.name + "/" + file);
      bool made = gp::test::fileExists(out / file);
      EXPECT_EQ(made,
                g.call.withStorePwd || std::string(file) != "storePwd.ini");
      if (!made) {
        continue;
      }
      if (update) {
        gp::test::writeFile(golden, gp::test::readFile(out / file));
      } else {
        EXPECT_EQ(gp::test::readFile(out / file), gp::test::readFile(golden))
            << file;
      }
    }
  }
}

TEST_F(WindowsAnswer, HostileTextIsStoredLiterallyAndNamespacesStay) {
  Call c;
  c.guestId = "windows7";
  c.userName = "<J&ne> \"O'Hara\" Ü &amp; ]]> 名";
  c.password = "p<a>s&s\"w'o;rd ä &#65;";
  c.imageName = "Image & <Co>";
  ASSERT_EQ(c.run(dir.path()), TRUE);
  ASSERT_TRUE(xmllintAccepts(xml()));
  EXPECT_EQ(xpathTexts(xml(), shell("/u:AutoLogon/u:Username").c_str()),
            c.userName);
  EXPECT_EQ(xpathTexts(xml(), shell("/u:UserAccounts/u:LocalAccounts/"
                                    "u:LocalAccount/u:Name")
                                  .c_str()),
            c.userName);
  EXPECT_EQ(xpathTexts(xml(), shell("/u:AutoLogon/u:Password/u:Value").c_str()),
            c.password);
  EXPECT_EQ(xpathTexts(xml(), "//u:MetaData/u:Value"), c.imageName);
  std::string text = gp::test::readFile(xml());
  for (const char *ns :
       {"xmlns=\"urn:schemas-microsoft-com:unattend\"",
        "xmlns:wcm=\"http://schemas.microsoft.com/WMIConfig/2002/State\"",
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""}) {
    EXPECT_TRUE(contains(text, ns)) << ns;
  }
  EXPECT_EQ(
      xpathTexts(xml(), shell("/u:FirstLogonCommands/u:SynchronousCommand/"
                              "@*[local-name()='action']")
                            .c_str()),
      "add|add");
}

TEST_F(WindowsAnswer, NamesLandInTheLanguagesEncoding) {
  struct {
    const char *language;
    const char *name;
    const char *encoding;  // null: has no form there, written as UTF-8
  } const rows[] = {
      {"Japanese", "山田太郎 ｶﾀｶﾅ", "CP932"},
      {"Russian", "Иван Петров", "windows-1251"},
      {"Simplified Chinese", "张伟", "GBK"},
      {"Traditional Chinese", "陳大文", "CP950"},
      {"Korean", "김민준", "CP949"},
      {"de-DE", "Zoë Müller", "windows-1252"},
      {"Japanese", "Zoë", nullptr},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name);
    TempDir out;
    Call c;
    c.language = r.language;
    c.userName = r.name;
    c.password = r.name;
    gp::LogCapture log;
    ASSERT_EQ(c.run(out.path()), TRUE);
    std::string bytes = r.encoding ? iconvBytes(r.name, r.encoding) : r.name;
    ASSERT_FALSE(bytes.empty());
    EXPECT_NE(bytes == r.name, r.encoding != nullptr);
    std::string sif = gp::test::readFile(out / "winnt.sif");
    EXPECT_TRUE(contains(sif, "FullName=\"" + bytes + "\"\n"));
    EXPECT_TRUE(contains(sif, "AdminPassword=\"" + bytes + "\"\n"));
    // The XML file keeps UTF-8.
    EXPECT_EQ(xpathTexts(out / "autoun~0.xml",
                         shell("/u:AutoLogon/u:Username").c_str()),
              r.name);
    std::string failed =
        std::string(kFn) + "Failed to perform conversion from UTF-8 to CP932\n";
    EXPECT_EQ(log.text(), r.encoding ? "" : failed + failed);
  }
}

TEST_F(WindowsAnswer, ProductKeyAndActivationByGeneration) {
  const std::string slmgr = "|cscript.exe \\windows\\system32\\slmgr.vbs /";
  const std::string ipk = slmgr + "ipk K1" + slmgr + "ato";
  const std::string skms = slmgr + "skms kms1" + slmgr + "ato";
  struct {
    const char *guest;
    const char *kms;
    const char *xmlKey;  // the product key element's value, "-" when gone
    std::string commands;
    bool productId;
  } const rows[] = {
      {"winvista", nullptr, "", ipk, false},
      {"windows8", "kms1", "K1", skms, false},
      {"windows7-64", nullptr, "-", ipk, false},
      {"longhorn", "kms1", "-", skms, false},
      {"win2000Pro", nullptr, "-", ipk, true},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.guest);
    TempDir out;
    Call c;
    c.guestId = r.guest;
    c.productKey = "K1";
    c.kmsHost = r.kms;
    c.keepAutoLogon = true;  // no command to turn automatic logon off
    ASSERT_EQ(c.run(out.path()), TRUE);
    std::string x = out / "autoun~0.xml";
    EXPECT_EQ(xpathTexts(x, "//u:UserData/u:ProductKey/u:Key"), r.xmlKey);
    EXPECT_EQ(xpathTexts(x, "//u:SynchronousCommand/u:CommandLine"),
              "cmd.exe /c a:\\zttools.cmd" + r.commands);
    EXPECT_EQ(xpathTexts(x, "//u:SynchronousCommand/u:Order"), "1|2|3");
    std::string sif = gp::test::readFile(out / "winnt.sif");
    EXPECT_TRUE(contains(sif, "ProductKey=\"K1\"\n"));
    EXPECT_EQ(contains(sif, "ProductID=\"K1\"\n"), r.productId);
  }
}

TEST_F(WindowsAnswer, WithoutPasswordAutoLogonIsLeftAlone) {
  Call c;
  c.password = nullptr;
  c.guestId = "windows7";
  ASSERT_EQ(c.run(dir.path()), TRUE);
  EXPECT_FALSE(contains(winnt(), "AutoLogon"));
  EXPECT_EQ(gp::test::readFile(dir / "storePwd.ini"),
            gp::test::readFile(shipped("storePwd.ini")));
  EXPECT_EQ(xpathTexts(xml(), shell("/u:AutoLogon/u:Enabled").c_str()),
            "false");
  EXPECT_EQ(
      xpathTexts(xml(), shell("/u:FirstLogonCommands/u:SynchronousCommand/"
                              "u:Order")
                            .c_str()),
      "1");
}

TEST_F(WindowsAnswer, UnknownTimeZoneIndexStillWritesTheName) {
  gp::tz::ScopedLocalZone yukon(-1, "Yukon Standard Time");
  Call c;
  ASSERT_EQ(c.run(dir.path()), TRUE);
  EXPECT_FALSE(contains(winnt(), "TimeZone"));
  EXPECT_EQ(xpathTexts(xml(), shell("/u:TimeZone").c_str()),
            "Yukon Standard Time");
}

TEST_F(WindowsAnswer, NonWindowsOrUnknownGuestTouchesNothing) {
  for (const char *guest : {"ubuntu-64", "winXP", ""}) {
    Call c;
    c.guestId = guest;
    gp::LogCapture log;
    EXPECT_EQ(c.run(dir.path()), FALSE);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(
        log.lines()[0],
        std::string(kFn) + "GuestOS_IsWin failed for guestID " + guest + "\n");
  }
  EXPECT_FALSE(gp::test::fileExists(dir / "winnt.sif"));
  EXPECT_FALSE(gp::test::fileExists(xml()));
}

TEST_F(WindowsAnswer, BadXmlTemplatesFailWithoutALogLine) {
  const char *const templates[] = {
      "this is not XML",
      "<?xml version=\"1.0\"?>\n<!DOCTYPE unattend [\n<!ENTITY x SYSTEM "
      "\"file:///etc/passwd\">\n]>\n<unattend "
      "xmlns=\"urn:schemas-microsoft-com:unattend\">&x;</unattend>\n",
      "<?xml version=\"1.0\"?>\n<!DOCTYPE b [<!ENTITY a \"aaaaaaaaaa\">"
      "<!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">"
      "<!ENTITY c \"&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;\">"
      "<!ENTITY d \"&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;\">]>\n<b>&d;&d;&d;</b>\n",
      "<unattend xmlns=\"urn:schemas-microsoft-com:unattend\">",
  };
  for (const char *text : templates) {
    TempDir out;
    gp::test::writeFile(out / "bad.xml", text);
    Call c;
    c.unattend = out / "bad.xml";
    gp::LogCapture log;
    EXPECT_EQ(c.run(out.path()), FALSE) << text;
    EXPECT_TRUE(log.lines().empty()) << log.text();
    // winnt.sif was finished; the XML copy is the template unchanged.
    EXPECT_TRUE(
        contains(gp::test::readFile(out / "winnt.sif"), "FullName=\"Jane\""));
    EXPECT_EQ(gp::test::readFile(out / "autoun~0.xml"), text);
  }
}

TEST_F(WindowsAnswer, RefusedInputLeavesNoFile) {
  TempDir tmp;
  std::string big(10u << 20, ';');
  gp::test::writeFile(tmp / "big.sif", big);
  std::string longKey(300, 'K');
  struct Case {
    const char *what;
    Call call;
    std::string workDir;
    std::string logLine;
  };
  Call bigSif;
  bigSif.winnt = tmp / "big.sif";
  Call keyCall;
  keyCall.productKey = longKey.c_str();
  Call missing;
  const Case cases[] = {
      {"template of 10 MB", bigSif, dir.path(),
       "File_CopyFromNameToName from=\"" + tmp / "big.sif" + "\" to=\"" +
           dir / "winnt.sif" + "\"\n"},
      {"work directory that is a file", missing, tmp / "big.sif",
       "File_CopyFromNameToName from=\"" + shipped("winnt.sif") + "\" to=\"" +
           tmp / "big.sif/winnt.sif" + "\"\n"},
      {"product key of 300 characters", keyCall, dir.path(),
       "IniUtil_WriteIniFileString unattendFilePath=\"" + dir / "winnt.sif" +
           "\", ProductKey=\"" + longKey + "\"\n"},
  };
  for (const Case &k : cases) {
    SCOPED_TRACE(k.what);
    gp::LogCapture log;
    EXPECT_EQ(k.call.run(k.workDir), FALSE);
    ASSERT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_EQ(log.lines()[0], kFn + k.logLine);
    EXPECT_FALSE(gp::test::fileExists(dir / "winnt.sif"));
    EXPECT_FALSE(gp::test::fileExists(xml()));
  }
}

TEST_F(WindowsAnswer, IniWriteFailureIsLoggedAndTheXmlStaysTheTemplate) {
  // A section header without ']' makes every INI write fail.
  TempDir tmp;
  gp::test::writeFile(tmp / "broken.sif", "[UserData\nFullName=x\n");
  Call c;
  c.winnt = tmp / "broken.sif";
  gp::LogCapture log;
  EXPECT_EQ(c.run(dir.path()), FALSE);
  ASSERT_EQ(log.lines().size(), 1u) << log.text();
  EXPECT_EQ(log.lines()[0],
            std::string(kFn) +
                "IniUtil_WriteIniFileString unattendFilePath=\"" +
                dir / "winnt.sif" + "\", FullName=\"Jane\"\n");
  EXPECT_EQ(gp::test::readFile(xml()),
            gp::test::readFile(shipped("autounattend.xml")));
}

TEST_F(WindowsAnswer, TemplateWithoutFirstLogonCommandStops) {
  TempDir tmp;
  gp::test::writeFile(
      tmp / "noorder.xml",
      "<unattend xmlns=\"urn:schemas-microsoft-com:unattend\"><settings "
      "pass=\"oobeSystem\"><component name=\"Microsoft-Windows-Shell-Setup\"/>"
      "</settings></unattend>");
  Call c;
  c.unattend = tmp / "noorder.xml";
  EXPECT_DEATH(c.run(dir.path()),
               "NOT_REACHED lib/guestInstall/autoinstallGuestWindows:[0-9]+");
}

TEST(PrepareWindowsCommand, WritesTheFilesForAnImage) {
  gp::test::FileTree tree = {
      {"sources/product.ini", "[Product]\r\nType=Client\r\n"},
      {"sources/idwbinfo.txt",
       "[BUILDINFO]\r\nBuildArch=amd64\r\nBuildBranch=win7_rtm\r\n"},
      {"sources/lang.ini",
       "[Available UI Languages]\r\nfr-FR = 3\r\n\r\n"
       "[Fallback Languages]\r\nen-US = en-us\r\n"},
      {"sources/install_Windows 7 PROFESSIONAL.clg", "c"},
  };
  std::string iso =
      gp::test::isoFromTree(tree, gp::test::IsoFlavor::JolietRockRidge);
  TempDir out;
  std::string cmd =
      "TZ=Asia/Tokyo GUESTPREP_TEMPLATEDIR=" +
      gp::test::shellQuote(gp::test::sourcePath("data/templates")) + " " +
      GP_CLI + " prepare windows " + gp::test::shellQuote(iso) + " --out " +
      gp::test::shellQuote(out / "answers") +
      " --user Marie --password 's3cret' --product-key K1";
  std::string stdoutText;
  ASSERT_EQ(0, gp::test::runCommand(cmd, &stdoutText)) << stdoutText;
  EXPECT_TRUE(contains(stdoutText, "guest:    windows7-64\n")) << stdoutText;
  std::string x = out / "answers/autoun~0.xml";
  EXPECT_EQ(xpathTexts(x, "//u:MetaData/u:Value"), "Windows 7 PROFESSIONAL");
  EXPECT_EQ(xpathTexts(x, "//u:UserLocale"), "fr-FR");
  EXPECT_EQ(xpathTexts(x, shell("/u:TimeZone").c_str()), "Tokyo Standard Time");
  std::string sif = gp::test::readFile(out / "answers/winnt.sif");
  EXPECT_TRUE(contains(sif, "TimeZone=235\n"));
  EXPECT_TRUE(contains(sif, "FullName=\"Marie\"\n"));
  EXPECT_TRUE(gp::test::fileExists(out / "answers/storePwd.ini"));
  // A TZ naming no zone: no time zone anywhere, the template's stays.
  std::string nowhere = cmd;
  nowhere.replace(0, std::string("TZ=Asia/Tokyo").size(), "TZ=Nowhere/Land");
  ASSERT_EQ(0, gp::test::runCommand(nowhere + " --out " +
                                    gp::test::shellQuote(out / "nowhere") +
                                    " >/dev/null"));
  EXPECT_FALSE(
      contains(gp::test::readFile(out / "nowhere/winnt.sif"), "TimeZone"));
  EXPECT_EQ(
      xpathTexts(out / "nowhere/autoun~0.xml", shell("/u:TimeZone").c_str()),
      "UTC");
  // A name Windows refuses, and an image that is not Windows.
  EXPECT_EQ(1, gp::test::runCommand(cmd + " --user 'a/b' 2>/dev/null"));
  std::string linux = gp::test::isoFromTree(
      {{".disk/info", "Ubuntu 10.04 \"Lucid\" - Release amd64\n"}},
      gp::test::IsoFlavor::JolietRockRidge);
  EXPECT_EQ(1,
            gp::test::runCommand(std::string(GP_CLI) + " prepare windows " +
                                 gp::test::shellQuote(linux) +
                                 " --out x --user u --password p 2>/dev/null"));
}

}  // namespace
