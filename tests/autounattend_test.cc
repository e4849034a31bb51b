// Autounattend.xml for today's Windows: the shipped template filled from
// the entries, checked with xmllint, read back by XPath, and the hidden
// passwords compared with what iconv and base64 make of them.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "lib/medium/install_entries.h"
#include "support/fixtures.h"

namespace {

using gp::medium::Answer;
using gp::medium::Described;
using gp::medium::Edition;
using gp::medium::Firmware;
using gp::medium::InstallEntries;
using gp::test::shellQuote;
using gp::test::TempDir;

Described windowsDisc(const std::string &id = "win11",
                      const std::string &arch = "x86_64") {
  Described d;
  gp::medium::OsFacts os;
  os.id = id;
  os.distro = "win";
  os.family = "windows";
  os.name = id;
  os.arch = arch;
  os.installer = "windows-setup";
  d.facts.os = os;
  for (const char *name : {"Windows 11 Home", "Windows 11 Pro"}) {
    Edition e;
    e.index = static_cast<uint32_t>(d.facts.editions.size() + 1);
    e.name = name;
    e.arch = arch;
    d.facts.editions.push_back(e);
  }
  d.facts.language = "en-US";
  return d;
}

InstallEntries baseEntries() {
  InstallEntries e;
  e.user = "jane";
  e.fullName = "Jane Doe";
  e.password = "secret";
  e.rootPassword = "rootsecret";
  e.templateDir = gp::test::sourcePath("data/templates");
  return e;
}

// A written answer file read back with libxml2.
class Unattend {
 public:
  explicit Unattend(const std::string &text)
      : doc_(xmlReadMemory(text.data(), static_cast<int>(text.size()),
                           "Autounattend.xml", nullptr, XML_PARSE_NONET)),
        ctx_(doc_ ? xmlXPathNewContext(doc_) : nullptr) {
    if (ctx_ != nullptr) {
      xmlXPathRegisterNs(ctx_, BAD_CAST "u",
                         BAD_CAST "urn:schemas-microsoft-com:unattend");
      xmlXPathRegisterNs(ctx_, BAD_CAST "wcm",
                         BAD_CAST
                         "http://schemas.microsoft.com/WMIConfig/2002/State");
    }
  }
  ~Unattend() {
    xmlXPathFreeContext(ctx_);
    xmlFreeDoc(doc_);
  }
  Unattend(const Unattend &) = delete;
  Unattend &operator=(const Unattend &) = delete;

  bool parsed() const { return ctx_ != nullptr; }

  // The text of every node selected, "|"-joined; "-" when none is.
  std::string texts(const std::string &expression) const {
    xmlXPathObject *res =
        xmlXPathEvalExpression(BAD_CAST expression.c_str(), ctx_);
    std::string out = "-";
    for (int i = 0; res && res->nodesetval && i < res->nodesetval->nodeNr;
         ++i) {
      xmlChar *t = xmlNodeGetContent(res->nodesetval->nodeTab[i]);
      out = (i == 0 ? "" : out + "|") + reinterpret_cast<char *>(t);
      xmlFree(t);
    }
    xmlXPathFreeObject(res);
    return out;
  }

 private:
  xmlDoc *doc_;
  xmlXPathContext *ctx_;
};

const std::string kPe =
    "//u:settings[@pass='windowsPE']/u:component[@name='Microsoft-Windows-"
    "Setup']";
const std::string kSpecialize = "//u:settings[@pass='specialize']";
const std::string kOobe =
    "//u:settings[@pass='oobeSystem']/u:component[@name='Microsoft-Windows-"
    "Shell-Setup']";
const std::string kAccount =
    kOobe + "/u:UserAccounts/u:LocalAccounts/u:LocalAccount";

std::string writeOk(const Described &disc, const InstallEntries &entries) {
  Answer answer;
  std::string error;
  EXPECT_TRUE(gp::medium::writeAutounattend(disc, entries, answer, error))
      << error;
  if (answer.files.size() != 1) {
    ADD_FAILURE() << "one file expected";
    return "";
  }
  EXPECT_EQ(answer.installer, "windows-setup");
  EXPECT_EQ(answer.volumeLabel, "AUTOUNATTEND");
  EXPECT_EQ(answer.files[0].name, "Autounattend.xml");
  return answer.files[0].text;
}

std::string refusal(const Described &disc, const InstallEntries &entries) {
  Answer answer;
  std::string error;
  EXPECT_FALSE(gp::medium::writeAutounattend(disc, entries, answer, error));
  EXPECT_TRUE(answer.files.empty());
  return error;
}

// What `printf %s TEXT | iconv -t UTF-16LE | base64` prints.
std::string iconvBase64(const std::string &text) {
  std::string out;
  gp::test::runCommand("printf %s " + shellQuote(text) +
                           " | iconv -f UTF-8 -t UTF-16LE | base64 -w0",
                       &out);
  return out;
}

TEST(Autounattend, XmllintAcceptsEveryVariant) {
  TempDir dir;
  for (Firmware fw : {Firmware::Uefi, Firmware::Bios}) {
    for (bool extras : {false, true}) {
      InstallEntries e = baseEntries();
      e.firmware = fw;
      e.bypassRequirements = extras;
      e.powerOff = extras;
      e.productKey = extras ? "VK7JG-NPHTM-C97JM-9MPGT-3V66T" : "";
      gp::test::writeFile(dir / "Autounattend.xml", writeOk(windowsDisc(), e));
      EXPECT_EQ(
          gp::test::runCommand("xmllint --noout --nonet " +
                               shellQuote(dir / "Autounattend.xml") + " 2>&1"),
          0);
    }
  }
}

TEST(Autounattend, EachPassCarriesTheEntries) {
  InstallEntries e = baseEntries();
  e.timeZone = "Europe/Berlin";
  e.hostname = "build-01";
  Unattend xml(writeOk(windowsDisc(), e));
  ASSERT_TRUE(xml.parsed());
  const struct {
    std::string path, want;
  } checks[] = {
      {"//u:component[@name='Microsoft-Windows-International-Core-WinPE']/"
       "u:SetupUILanguage/u:UILanguage",
       "en-US"},
      {"//u:component[@name='Microsoft-Windows-International-Core']/"
       "u:UserLocale",
       "en-US"},
      {kPe + "/u:ImageInstall/u:OSImage/u:InstallFrom/u:MetaData/u:Key",
       "/IMAGE/NAME"},
      {kPe + "/u:ImageInstall/u:OSImage/u:InstallFrom/u:MetaData/u:Value",
       "Windows 11 Home"},
      {kPe + "/u:UserData/u:AcceptEula", "true"},
      {kPe + "/u:UserData/u:ProductKey", "-"},
      {kPe + "/u:RunSynchronous", "-"},
      {kSpecialize + "//u:ComputerName", "build-01"},
      {kSpecialize + "//u:RunSynchronous", "-"},
      {kOobe + "/u:TimeZone", "W. Europe Standard Time"},
      {kOobe + "/u:AutoLogon/u:Username", "jane"},
      {kOobe + "/u:AutoLogon/u:Enabled", "true"},
      {kOobe + "/u:OOBE/u:HideEULAPage", "true"},
      {kOobe + "/u:OOBE/u:HideOnlineAccountScreens", "true"},
      {kOobe + "/u:OOBE/u:HideWirelessSetupInOOBE", "true"},
      {kOobe + "/u:OOBE/u:ProtectYourPC", "3"},
      {kAccount + "/u:Name", "jane"},
      {kAccount + "/u:DisplayName", "Jane Doe"},
      {kAccount + "/u:Group", "Administrators"},
      {kAccount + "/@wcm:action", "add"},
      {kPe + "//u:MetaData/@wcm:action", "add"},
      {"//u:PlainText", "false|false|false"},
      {kOobe + "/u:FirstLogonCommands/u:SynchronousCommand/u:Order", "1"},
      {"//u:component[@processorArchitecture!='amd64']", "-"},
      {"/comment()", "-"},
  };
  for (const auto &c : checks) {
    EXPECT_EQ(xml.texts(c.path), c.want) << c.path;
  }
}

TEST(Autounattend, PasswordsAreTheFormatsBase64OfUtf16) {
  InstallEntries e = baseEntries();
  e.password = "pä$$ \"w&<d>\\ 密码";
  e.rootPassword = "Adm1n:#'";
  Unattend xml(writeOk(windowsDisc(), e));
  const std::string user = iconvBase64(e.password + "Password");
  ASSERT_FALSE(user.empty());
  EXPECT_EQ(xml.texts(kAccount + "/u:Password/u:Value"), user);
  EXPECT_EQ(xml.texts(kOobe + "/u:AutoLogon/u:Password/u:Value"), user);
  EXPECT_EQ(
      xml.texts(kOobe + "/u:UserAccounts/u:AdministratorPassword/u:Value"),
      iconvBase64(e.rootPassword + "AdministratorPassword"));
  // The example of the format's documentation: "pw" as administrator.
  e.rootPassword = "pw";
  Unattend doc(writeOk(windowsDisc(), e));
  EXPECT_EQ(
      doc.texts(kOobe + "/u:UserAccounts/u:AdministratorPassword/u:Value"),
      "cAB3AEEAZABtAGkAbgBpAHMAdAByAGEAdABvAHIAUABhAHMAcwB3AG8AcgBkAA==");
  e.rootPassword.clear();
  Unattend none(writeOk(windowsDisc(), e));
  EXPECT_EQ(none.texts("//u:AdministratorPassword"), "-");
}

TEST(Autounattend, OptionsChangeTheirPartsOnly) {
  struct Case {
    const char *what;
    std::function<void(InstallEntries &, Described &)> change;
    std::string path, want;
  };
  const std::string disk = kPe + "/u:DiskConfiguration/u:Disk";
  const std::string types =
      disk + "/u:CreatePartitions/u:CreatePartition/u:Type";
  const std::string installTo = kPe + "/u:ImageInstall/u:OSImage/u:InstallTo";
  const std::string labConfig =
      "//u:settings[@pass='windowsPE']//u:RunSynchronousCommand/u:Path";
  const Case cases[] = {
      {"uefi layout", [](InstallEntries &, Described &) {}, types,
       "EFI|MSR|Primary"},
      {"uefi target", [](InstallEntries &, Described &) {},
       installTo + "/u:PartitionID", "3"},
      {"bios layout",
       [](InstallEntries &e, Described &) { e.firmware = Firmware::Bios; },
       types, "Primary|Primary"},
      {"bios target",
       [](InstallEntries &e, Described &) { e.firmware = Firmware::Bios; },
       installTo + "/u:PartitionID", "2"},
      {"bypass on 11",
       [](InstallEntries &e, Described &) { e.bypassRequirements = true; },
       labConfig,
       "reg.exe add HKLM\\SYSTEM\\Setup\\LabConfig /v BypassTPMCheck /t "
       "REG_DWORD /d 1 /f|reg.exe add HKLM\\SYSTEM\\Setup\\LabConfig /v "
       "BypassSecureBootCheck /t REG_DWORD /d 1 /f|reg.exe add "
       "HKLM\\SYSTEM\\Setup\\LabConfig /v BypassRAMCheck /t REG_DWORD /d 1 "
       "/f"},
      {"bypass nro on 11",
       [](InstallEntries &e, Described &) { e.bypassRequirements = true; },
       kSpecialize + "//u:RunSynchronousCommand/u:Path",
       "reg.exe add HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\OOBE "
       "/v BypassNRO /t REG_DWORD /d 1 /f"},
      {"no bypass on 10",
       [](InstallEntries &e, Described &d) {
         e.bypassRequirements = true;
         d = windowsDisc("win10");
       },
       "//u:RunSynchronous", "-"},
      {"product key",
       [](InstallEntries &e, Described &) {
         e.productKey = "VK7JG-NPHTM-C97JM-9MPGT-3V66T";
       },
       kPe + "/u:UserData/u:ProductKey/u:Key", "VK7JG-NPHTM-C97JM-9MPGT-3V66T"},
      {"power off", [](InstallEntries &e, Described &) { e.powerOff = true; },
       kOobe + "/u:FirstLogonCommands/u:SynchronousCommand/u:CommandLine",
       "cmd.exe /c for %d in (D E F G H I J K L M N O P Q R S T U V W X Y Z) "
       "do @if exist %d:\\zttools.cmd call %d:\\zttools.cmd|shutdown.exe /s /t "
       "0"},
      {"edition by name",
       [](InstallEntries &e, Described &) { e.edition = "windows 11 pro"; },
       kPe + "//u:MetaData/u:Value", "Windows 11 Pro"},
      {"arm64",
       [](InstallEntries &, Described &d) {
         d = windowsDisc("win11", "aarch64");
       },
       "//u:component[@processorArchitecture='arm64']/@name",
       "Microsoft-Windows-International-Core-WinPE|Microsoft-Windows-Setup|"
       "Microsoft-Windows-Shell-Setup|Microsoft-Windows-International-Core|"
       "Microsoft-Windows-Shell-Setup"},
      {"language with underscore",
       [](InstallEntries &e, Described &) { e.language = "de_DE.UTF-8"; },
       "//u:InputLocale", "de-DE|de-DE"},
      {"disc language by default",
       [](InstallEntries &, Described &d) { d.facts.language = "fr-FR"; },
       "//u:UILanguage", "fr-FR|fr-FR|fr-FR"},
      {"utc by default", [](InstallEntries &, Described &) {},
       kOobe + "/u:TimeZone", "UTC"},
      {"computer name from the user",
       [](InstallEntries &e, Described &) { e.user = "jane.doe-of-house1"; },
       kSpecialize + "//u:ComputerName", "janedoe-of-hous"},
      {"computer name left to Windows",
       [](InstallEntries &e, Described &) { e.user = "1234"; },
       kSpecialize + "//u:ComputerName", "*"},
  };
  for (const Case &c : cases) {
    InstallEntries e = baseEntries();
    Described d = windowsDisc();
    c.change(e, d);
    Unattend xml(writeOk(d, e));
    EXPECT_EQ(xml.texts(c.path), c.want) << c.what;
  }
}

TEST(Autounattend, AwkwardEntriesComeBackIntact) {
  InstallEntries e = baseEntries();
  e.user = "Jö'&#$x";
  e.fullName = "Zoë \"Q\" <O'Neil> & Co: #1 $HOME C:\\Users";
  e.password = "&amp; <![CDATA[ ]]> $(id) `x` \\n";
  e.timeZone = "America/Argentina/Buenos_Aires";
  Described d = windowsDisc();
  d.facts.editions[0].name = "Pro & <N> \"x\" 'y' $z #w \\v é";
  Unattend xml(writeOk(d, e));
  ASSERT_TRUE(xml.parsed());
  EXPECT_EQ(xml.texts(kAccount + "/u:Name"), e.user);
  EXPECT_EQ(xml.texts(kAccount + "/u:DisplayName"), e.fullName);
  EXPECT_EQ(xml.texts(kOobe + "/u:RegisteredOwner"), e.fullName);
  EXPECT_EQ(xml.texts(kPe + "//u:MetaData/u:Value"), d.facts.editions[0].name);
  EXPECT_EQ(xml.texts(kAccount + "/u:Password/u:Value"),
            iconvBase64(e.password + "Password"));
  EXPECT_EQ(xml.texts(kOobe + "/u:TimeZone"), "Argentina Standard Time");
}

TEST(Autounattend, RefusesWhatItCannotWrite) {
  struct Case {
    const char *what;
    std::function<void(InstallEntries &, Described &)> change;
    const char *says;
  };
  const Case cases[] = {
      {"line break",
       [](InstallEntries &e, Described &) { e.fullName = "a\nb"; },
       "full name holds a line break"},
      {"not utf-8", [](InstallEntries &e, Described &) { e.user = "\xff"; },
       "user name holds"},
      {"account characters",
       [](InstallEntries &e, Described &) { e.user = "a:b"; },
       "The name must not contain"},
      {"built-in account",
       [](InstallEntries &e, Described &) { e.user = "administrator"; },
       "built-in account"},
      {"no user", [](InstallEntries &e, Described &) { e.user.clear(); },
       "user name is needed"},
      {"product key",
       [](InstallEntries &e, Described &) { e.productKey = "ABCDE-12345"; },
       "five groups of five"},
      {"host name",
       [](InstallEntries &e, Described &) { e.hostname = "my_host"; },
       "not a Windows computer name"},
      {"time zone",
       [](InstallEntries &e, Described &) { e.timeZone = "Mars/Olympus"; },
       "\"Mars/Olympus\" is not a known IANA zone"},
      {"language",
       [](InstallEntries &e, Described &) { e.language = "english"; },
       "not a language tag"},
      {"language without region",
       [](InstallEntries &e, Described &) { e.language = "de"; },
       "not a language tag"},
      {"edition",
       [](InstallEntries &e, Described &) {
         e.edition = "Windows 11 Ultimate";
       },
       "no edition \"Windows 11 Ultimate\"; it has \"Windows 11 Home\", "
       "\"Windows 11 Pro\""},
      {"no editions",
       [](InstallEntries &, Described &d) { d.facts.editions.clear(); },
       "no install image"},
      {"architecture",
       [](InstallEntries &, Described &d) {
         d = windowsDisc("win11", "ppc64le");
       },
       "architecture \"ppc64le\""},
      {"old release",
       [](InstallEntries &, Described &d) { d = windowsDisc("win8.1"); },
       "not one of the releases"},
      {"linux disc",
       [](InstallEntries &, Described &d) {
         d.facts.os->installer = "anaconda";
       },
       "not installed by Windows Setup"},
  };
  for (const Case &c : cases) {
    InstallEntries e = baseEntries();
    Described d = windowsDisc();
    c.change(e, d);
    EXPECT_NE(refusal(d, e).find(c.says), std::string::npos)
        << c.what << ": " << refusal(d, e);
  }
}

TEST(Autounattend, TemplatesAreFoundAndCheckedLikeInput) {
  TempDir dir;
  InstallEntries e = baseEntries();
  e.templateDir = dir.path();
  const std::string shipped = gp::test::readFile(
      gp::test::sourcePath("data/templates/windows-setup/autounattend.xml"));
  // A template of the caller's own is used as it is.
  std::string own = shipped;
  own.replace(own.find("<ProtectYourPC>3"), 16, "<ProtectYourPC>1");
  gp::test::writeFile(dir / "windows-setup/autounattend.xml", own);
  EXPECT_EQ(Unattend(writeOk(windowsDisc(), e))
                .texts(kOobe + "/u:OOBE/u:ProtectYourPC"),
            "1");
  // Entities are where a template could reach outside itself.
  gp::test::writeFile(dir / "windows-setup/autounattend.xml",
                      "<?xml version=\"1.0\"?><!DOCTYPE u [<!ENTITY e "
                      "SYSTEM \"/etc/passwd\">]>\n" +
                          shipped.substr(shipped.find("<unattend")));
  EXPECT_NE(refusal(windowsDisc(), e).find("not a well-formed"),
            std::string::npos);
  // Without a layout for the firmware there is nothing to install to.
  std::string noEfi = shipped;
  noEfi.replace(noEfi.find("<Type>EFI</Type>"), 16, "<Type>Primary</Type>");
  gp::test::writeFile(dir / "windows-setup/autounattend.xml", noEfi);
  EXPECT_NE(refusal(windowsDisc(), e).find("no single disk layout for UEFI"),
            std::string::npos);
  e.templateDir = dir / "none";
  EXPECT_NE(refusal(windowsDisc(), e).find("cannot read the template"),
            std::string::npos);
  // GUESTPREP_TEMPLATEDIR stands in when the entries name no directory.
  e.templateDir.clear();
  gp::test::writeFile(dir / "windows-setup/autounattend.xml", own);
  setenv("GUESTPREP_TEMPLATEDIR", dir.path().c_str(), 1);
  std::string text = writeOk(windowsDisc(), e);
  unsetenv("GUESTPREP_TEMPLATEDIR");
  EXPECT_EQ(Unattend(text).texts(kOobe + "/u:OOBE/u:ProtectYourPC"), "1");
}

// A Windows 11 arm64 disc with two images, made by wimlib-imagex and
// genisoimage and cached in the build tree.
std::string arm64Disc() {
  const std::string out =
      std::string(GP_BINARY_DIR) + "/fixtures/autounattend-win11-arm64.iso";
  if (gp::test::fileExists(out)) {
    return out;
  }
  TempDir tmp;
  std::string props;
  for (const char *index : {"1", "2"}) {
    props += std::string(" wimlib-imagex info disc/sources/install.wim ") +
             index +
             " --image-property WINDOWS/ARCH=12"
             " --image-property WINDOWS/EDITIONID=Core"
             " --image-property WINDOWS/INSTALLATIONTYPE=Client"
             " --image-property WINDOWS/VERSION/MAJOR=10"
             " --image-property WINDOWS/VERSION/MINOR=0"
             " --image-property WINDOWS/VERSION/BUILD=26100"
             " --image-property WINDOWS/LANGUAGES/DEFAULT=de-DE;";
  }
  const std::string cmd =
      "set -e; cd " + shellQuote(tmp.path()) +
      "; mkdir -p src disc/sources; echo hi > src/a.txt;"
      " wimlib-imagex capture src disc/sources/install.wim 'Windows 11 Home';"
      " wimlib-imagex append src disc/sources/install.wim 'Windows 11 Pro';" +
      props +
      " genisoimage -quiet -udf -J -R -V CCCOMA_A64FRE_DE-DE -o disc.iso disc;"
      " mkdir -p " +
      shellQuote(std::string(GP_BINARY_DIR) + "/fixtures") + "; mv disc.iso " +
      shellQuote(out);
  EXPECT_EQ(gp::test::runCommand("(" + cmd + ") >/dev/null 2>&1"), 0) << cmd;
  return out;
}

// From a described disc to the seed medium, as the prepare command goes.
TEST(Autounattend, FromTheDescribedDiscToTheSeedMedium) {
  std::optional<Described> disc =
      gp::medium::describeImage(arm64Disc().c_str(), nullptr);
  ASSERT_TRUE(disc.has_value());
  InstallEntries e = baseEntries();
  e.edition = "Windows 11 Pro";
  Answer answer;
  std::string error;
  ASSERT_TRUE(gp::medium::writeAutounattend(*disc, e, answer, error)) << error;
  TempDir dir;
  ASSERT_TRUE(gp::medium::makeSeedMedium(answer, dir / "seed.iso", error))
      << error;
  ASSERT_EQ(gp::test::runCommand(
                "xorriso -osirrox on -indev " + shellQuote(dir / "seed.iso") +
                " -extract /Autounattend.xml " + shellQuote(dir / "back.xml") +
                " >/dev/null 2>&1"),
            0);
  EXPECT_EQ(gp::test::runCommand("xmllint --noout --nonet " +
                                 shellQuote(dir / "back.xml") + " 2>&1"),
            0);
  Unattend xml(gp::test::readFile(dir / "back.xml"));
  EXPECT_EQ(xml.texts(kPe + "//u:MetaData/u:Value"), "Windows 11 Pro");
  EXPECT_EQ(xml.texts("//u:SetupUILanguage/u:UILanguage"), "de-DE");
  EXPECT_EQ(xml.texts("//u:component[@processorArchitecture!='arm64']"), "-");
  EXPECT_EQ(xml.texts("//u:settings[@pass='windowsPE']/u:component[1]/"
                      "@processorArchitecture"),
            "arm64");
}

}  // namespace
