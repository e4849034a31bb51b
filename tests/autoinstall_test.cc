// Support decisions, limits, input validation and Windows product names of
// the unattended installation, through the exported C functions.
#include "guestprep/autoinstall.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/abi.h"
#include "support/fixtures.h"

namespace {

GuessInfo guestInfo(const char *osName, uint32_t subVersion = 0,
                    const char *version = "") {
  GuessInfo info;
  std::memset(&info, 0, sizeof info);
  info.osName = osName;
  info.subVersion = subVersion;
  std::strncpy(info.versionString, version, sizeof info.versionString - 1);
  return info;
}

// Sets an environment variable for the lifetime of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, const char *value) : name_(name) {
    const char *old = std::getenv(name);
    hadOld_ = old != nullptr;
    if (hadOld_) old_ = old;
    setenv(name, value, 1);
  }
  ~ScopedEnv() {
    if (hadOld_) {
      setenv(name_, old_.c_str(), 1);
    } else {
      unsetenv(name_);
    }
  }

 private:
  const char *name_;
  bool hadOld_;
  std::string old_;
};

// Messages in the default (English) texts unless a test asks otherwise.
class AutoInstallTest : public ::testing::Test {
 protected:
  ScopedEnv lang_{"GUESTPREP_LANG", "C"};
};

std::string prettyName(const char *name) {
  gp::MallocPtr<char> out(AutoInstall_GetPrettyWindowsName(name));
  return out ? out.get() : "(null)";
}

// ---- Configuration and support ----

TEST_F(AutoInstallTest, ConfigInfoNeedsAnExactFamilyAndLeavesOutAlone) {
  GuessInfo info = guestInfo("winXPPro");
  AutoInstallConfigInfo out;
  std::memset(&out, 0xAB, sizeof out);
  AutoInstallConfigInfo before = out;
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("Windows", &info, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("linux ", &info, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo(nullptr, &info, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", nullptr, &out));
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", &info, nullptr));
  GuessInfo noName = guestInfo(nullptr);
  EXPECT_FALSE(AutoInstall_GetInstallConfigInfo("windows", &noName, &out));
  EXPECT_EQ(0, std::memcmp(&before, &out, sizeof out));
}

int listLength(const AutoInstallReservedName *list) {
  int n = 0;
  while (list != nullptr && list[n].name != nullptr) ++n;
  return n;
}

TEST_F(AutoInstallTest, RulesMatchCaselessAndFallBackToTheFamilyDefault) {
  struct Case {
    const char *osName;
    uint32_t maxNameLength;
    uint8_t guestFlags[2];
    int reservedNames;  // list A has 6 entries, list B 4
  } cases[] = {
      {"winXPPro", 50, {1, 1}, 6},    {"WINXPPRO", 50, {1, 1}, 6},
      {"winNetWeb", 50, {1, 0}, 6},   {"win2000Serv", 50, {1, 1}, 6},
      {"windows7", 20, {1, 1}, 4},    {"windows7-64", 20, {1, 1}, 4},
      {"longhorn-64", 20, {1, 1}, 4}, {"windows8", 50, {0, 0}, 6},
      {"winNT", 50, {0, 0}, 6},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.osName);
    GuessInfo info = guestInfo(c.osName, 0, "SP2");
    AutoInstallConfigInfo out;
    ASSERT_TRUE(AutoInstall_GetInstallConfigInfo("windows", &info, &out));
    EXPECT_EQ(c.maxNameLength, out.maxNameLength);
    EXPECT_EQ(0, std::memcmp(c.guestFlags, out.guestFlags, 2));
    EXPECT_EQ(c.reservedNames, listLength(out.reservedNames));
    EXPECT_STREQ("administra", out.reservedNames[0].name);
    EXPECT_EQ(1u, out.reservedNames[0].isPrefix);
    EXPECT_EQ(nullptr, out.reservedShortNames);
    EXPECT_EQ(127u, out.maxPasswordLength);
    EXPECT_EQ(1, out.familyFlags[0]);
  }

  // Every identifier, Windows ones too, gets the one Linux rule.
  for (const char *os : {"ubuntu-64", "winXPPro"}) {
    GuessInfo info = guestInfo(os);
    AutoInstallConfigInfo out;
    ASSERT_TRUE(AutoInstall_GetInstallConfigInfo("linux", &info, &out));
    EXPECT_EQ(52u, out.maxNameLength) << os;
    EXPECT_EQ(32u, out.maxShortNameLength);
    EXPECT_EQ(nullptr, out.reservedNames);
    const uint8_t familyFlags[4] = {0, 1, 1, 1};
    EXPECT_EQ(0, std::memcmp(familyFlags, out.familyFlags, 4));
    ASSERT_EQ(1, listLength(out.reservedShortNames));
    EXPECT_STREQ("root", out.reservedShortNames[0].name);
    EXPECT_EQ(0u, out.reservedShortNames[0].isPrefix);
  }
}

TEST_F(AutoInstallTest, SupportedGuests) {
  struct Case {
    const char *osName;
    uint32_t subVersion;
    Bool supported;
  } cases[] = {
      {"WINVISTA", 0, TRUE},
      {"longhorn", 0, TRUE},
      {"windows8-64", 0, TRUE},
      {"win2000Pro", 0, FALSE},
      {"winNT", 0, FALSE},
      {"rhel3", 0, TRUE},
      {"redhat-64", 0, TRUE},
      {"centos", GUESS_VERSION_CENTOS_5, TRUE},
      {"rhel2", 0, FALSE},
      {"redhat", 0, FALSE},
      {"fedora", GUESS_VERSION_FEDORA_8, FALSE},
      {"fedora-64", GUESS_VERSION_FEDORA_13, FALSE},
      {"RHEL5", 0, FALSE},  // Linux kinds are case-sensitive
      {"ubuntu", GUESS_VERSION_UBUNTU_710_OR_HIGHER, TRUE},
      {"ubuntu-64", GUESS_VERSION_UBUNTU_SERVER_810_OR_HIGHER, TRUE},
      {"ubuntu", GUESS_VERSION_UNKNOWN, FALSE},
      {"ubuntu", GUESS_VERSION_UBUNTU_SERVER_804_OR_LOWER, FALSE},
      {"ubuntu-64", GUESS_VERSION_UBUNTU_704_OR_LOWER, FALSE},
      {"opensuse", GUESS_VERSION_UNKNOWN, TRUE},
      {"sles10", GUESS_VERSION_SLED_ALL, TRUE},
      {"opensuse-64", GUESS_VERSION_OPENSUSE_11_2_OR_LOWER, FALSE},
      {"sles10", GUESS_VERSION_SLES_10_SP2_OR_LOWER, FALSE},
      {"sles11", GUESS_VERSION_SLED_10_SP2_OR_LOWER, FALSE},
      {"mandriva", GUESS_VERSION_MANDRIVA_2008_1_OR_HIGHER, FALSE},
      {"debian5", 0, FALSE},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::string(c.osName) + " " + std::to_string(c.subVersion));
    GuessInfo info = guestInfo(c.osName, c.subVersion);
    EXPECT_EQ(c.supported, AutoInstall_IsSupportedGuest(&info));
  }
  GuessInfo none = guestInfo(nullptr);
  EXPECT_FALSE(AutoInstall_IsSupportedGuest(&none));
  EXPECT_FALSE(AutoInstall_IsSupportedGuest(nullptr));
}

TEST_F(AutoInstallTest, FloppyNeedFollowsTheInstallerKind) {
  EXPECT_FALSE(AutoInstall_NeedsFloppy_Linux("fedora-64"));
  EXPECT_FALSE(AutoInstall_NeedsFloppy_Linux("debian5"));
  EXPECT_FALSE(AutoInstall_NeedsFloppy_Linux("UBUNTU"));
  EXPECT_FALSE(AutoInstall_NeedsFloppy_Linux(nullptr));
  for (const char *os :
       {"ubuntu-64", "opensuse", "sles11", "sles10-64", "mandriva"}) {
    EXPECT_TRUE(AutoInstall_NeedsFloppy_Linux(os)) << os;
  }
}

// ---- Validation ----

struct Validation {
  int code;
  std::string message;
};

using Validator = AutoInstallValidation (*)(const char *, const GuessInfo *,
                                            const char *, char **);

Validation validate(Validator fn, const char *family, const char *osName,
                    const std::string &text) {
  GuessInfo info = guestInfo(osName);
  char *message = nullptr;
  Validation v{fn(family, &info, text.c_str(), &message), ""};
  if (message != nullptr) {
    v.message = message;
    std::free(message);
  }
  return v;
}

int code(Validator fn, const char *family, const char *osName,
         const std::string &text) {
  GuessInfo info = guestInfo(osName);
  return fn(family, &info, text.c_str(), nullptr);
}

TEST_F(AutoInstallTest, LinuxUserNames) {
  auto check = [](const char *os, const std::string &text) {
    return code(AutoInstall_ValidateShortName, "linux", os, text);
  };
  EXPECT_EQ(AUTOINSTALL_VALID, check("rhel5", "john-2"));
  EXPECT_EQ(AUTOINSTALL_VALID, check("rhel5", "2john"));
  EXPECT_EQ(AUTOINSTALL_VALID, check("rhel5", ""));
  EXPECT_EQ(AUTOINSTALL_BAD_UBUNTU_USERNAME, check("ubuntu", "2john"));
  EXPECT_EQ(AUTOINSTALL_BAD_UBUNTU_USERNAME, check("ubuntu-64", ""));
  EXPECT_EQ(AUTOINSTALL_BAD_UBUNTU_USERNAME, check("ubuntu", "-john"));
  EXPECT_EQ(AUTOINSTALL_VALID, check("ubuntu", "john-2"));
  // The Ubuntu test is by installer kind, which is case-sensitive.
  EXPECT_EQ(AUTOINSTALL_VALID, check("Ubuntu", "2john"));
  EXPECT_EQ(AUTOINSTALL_BAD_LINUX_USERNAME, check("ubuntu", "jOhn"));
  // Every byte outside a-z, 0-9 and "-" is refused.
  for (int c = 1; c < 256; ++c) {
    bool allowed = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
    std::string text = std::string("ab") + static_cast<char>(c);
    EXPECT_EQ(allowed ? AUTOINSTALL_VALID : AUTOINSTALL_BAD_LINUX_USERNAME,
              check("rhel5", text))
        << "byte " << c;
  }
}

TEST_F(AutoInstallTest, LinuxFullNamesAndPasswords) {
  auto name = [](const std::string &text) {
    return code(AutoInstall_ValidateName, "linux", "sles11", text);
  };
  auto password = [](const std::string &text) {
    return code(AutoInstall_ValidatePassword, "linux", "sles11", text);
  };
  for (char c : std::string(":\"\\,")) {
    EXPECT_EQ(AUTOINSTALL_BAD_LINUX_NAME, name(std::string("J") + c + "D"))
        << c;
  }
  EXPECT_EQ(AUTOINSTALL_BAD_LINUX_NAME, name("Doe, John"));
  EXPECT_EQ(AUTOINSTALL_BAD_GECOS_SUBSTRING, name("a]]>b"));
  EXPECT_EQ(AUTOINSTALL_BAD_LINUX_NAME, name("a]]>b,c"));  // first rule wins
  EXPECT_EQ(AUTOINSTALL_VALID, name("a]] >b"));
  EXPECT_EQ(AUTOINSTALL_VALID, name("J\xc3\xbcrgen O'Neil-Smith <x>; [y]"));

  EXPECT_EQ(AUTOINSTALL_BAD_PASSWORD_SUBSTRING, password("x]]>y"));
  EXPECT_EQ(AUTOINSTALL_BAD_PASSWORD_SUBSTRING, password("]]>"));
  EXPECT_EQ(AUTOINSTALL_VALID, password("]]"));
  EXPECT_EQ(AUTOINSTALL_VALID, password("a\"b\\c:d,e$f'g"));
  // Unknown kinds are not checked.
  GuessInfo info = guestInfo("rhel5");
  EXPECT_EQ(AUTOINSTALL_VALID,
            AutoInstallValidateLinuxText(&info, "A,]]>", 7, nullptr));
}

TEST_F(AutoInstallTest, WindowsNames) {
  const std::string refused = "/\\[]\":;|<>+=,?*";
  for (int c = 1; c < 256; ++c) {
    bool bad = refused.find(static_cast<char>(c)) != std::string::npos;
    std::string text = std::string("Ad") + static_cast<char>(c) + "min";
    EXPECT_EQ(bad ? AUTOINSTALL_BAD_WINDOWS_NAME : AUTOINSTALL_VALID,
              code(AutoInstall_ValidateName, "windows", "winXPPro", text))
        << "byte " << c;
    // Short names and passwords are not checked on Windows.
    EXPECT_EQ(AUTOINSTALL_VALID,
              code(AutoInstall_ValidateShortName, "windows", "winXPPro", text));
  }
  EXPECT_EQ(AUTOINSTALL_BAD_WINDOWS_NAME,
            code(AutoInstall_ValidateName, "windows", "windows7", "Admin?"));
  EXPECT_EQ(AUTOINSTALL_BAD_WINDOWS_NAME,
            code(AutoInstall_ValidateName, "windows", "windows7", "Doe, John"));
  EXPECT_EQ(AUTOINSTALL_VALID, code(AutoInstall_ValidateShortName, "windows",
                                    "windows7", "Doe, John"));
  EXPECT_EQ(AUTOINSTALL_VALID,
            code(AutoInstall_ValidatePassword, "windows", "windows7", "x]]>y"));
}

TEST_F(AutoInstallTest, RefusalMessagesAreTheDefaultTexts) {
  struct Case {
    Validator fn;
    const char *family;
    const char *os;
    const char *text;
    int code;
    const char *message;
  } cases[] = {
      {AutoInstall_ValidateName, "linux", "rhel5", "a:b",
       AUTOINSTALL_BAD_LINUX_NAME,
       "The full name does not allow the following characters: ':\"\\,'\n"
       "Enter a new value."},
      {AutoInstall_ValidateName, "windows", "winXPPro", "a*b",
       AUTOINSTALL_BAD_WINDOWS_NAME,
       "The name must not contain the following characters:\n"
       "'/\\[]\":;|<>+=,?*'\nEnter a new value."},
      {AutoInstall_ValidatePassword, "linux", "rhel5", "]]>",
       AUTOINSTALL_BAD_PASSWORD_SUBSTRING,
       "The password must not contain the characters ']]>' in a row.\n"
       "Enter a new value."},
      {AutoInstall_ValidateName, "linux", "rhel5", "]]>",
       AUTOINSTALL_BAD_GECOS_SUBSTRING,
       "The full name must not contain the characters ']]>' in a row.\n"
       "Enter a new value."},
      {AutoInstall_ValidateShortName, "linux", "rhel5", "A",
       AUTOINSTALL_BAD_LINUX_USERNAME,
       "The user name must consist only of lowercase US English characters, "
       "numbers 0 to 9 and dashes.\nEnter a new value."},
      {AutoInstall_ValidateShortName, "linux", "ubuntu", "1",
       AUTOINSTALL_BAD_UBUNTU_USERNAME,
       "The user name must start with a lowercase US English character.\n"
       "Enter a new value."},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.text);
    Validation v = validate(c.fn, c.family, c.os, c.text);
    EXPECT_EQ(c.code, v.code);
    EXPECT_EQ(c.message, v.message);
  }
}

TEST_F(AutoInstallTest, MessageIsLeftAloneOnSuccess) {
  GuessInfo info = guestInfo("rhel5");
  char sentinel[] = "untouched";
  char *message = sentinel;
  EXPECT_EQ(AUTOINSTALL_VALID,
            AutoInstall_ValidateName("linux", &info, "John Doe", &message));
  EXPECT_EQ(sentinel, message);
  EXPECT_EQ(AUTOINSTALL_VALID,
            AutoInstall_ValidatePassword("windows", &info, "x]]>y", &message));
  EXPECT_EQ(sentinel, message);
}

TEST(AutoInstallDeathTest, UnknownFamilyStopsTheProcess) {
  GuessInfo info = guestInfo("rhel5");
  EXPECT_DEATH(AutoInstall_ValidateName("Linux", &info, "x", nullptr),
               "NOT_REACHED lib/guestInstall/autoinstall:[0-9]+");
  EXPECT_DEATH(AutoInstall_ValidatePassword(nullptr, &info, "x", nullptr),
               "NOT_REACHED lib/guestInstall/autoinstall:[0-9]+");
}

// ---- Windows product names ----

TEST_F(AutoInstallTest, PrettyWindowsNames) {
  const std::pair<const char *, const char *> cases[] = {
      {"Windows Longhorn SERVERDATACENTERVCORE",
       "Windows Server 2008 Datacenter Core without Hyper-V"},
      {"Windows Longhorn SERVERENTERPRISEV",
       "Windows Server 2008 Enterprise without Hyper-V"},
      {"Windows Server 2008 R2 SERVERSTANDARDCORE",
       "Windows Server 2008 R2 Standard Core"},
      {"Windows 7 PROFESSIONAL", "Windows 7 Professional"},
      {"Windows 7 HOMEPREMIUMN", "Windows 7 Home Premium N"},
      {"Windows 7 HOMEPREMIUMKN", "Windows 7 Home Premium KN"},
      {"Windows Vista ULTIMATEX", "Windows Vista Ultimate"},
      {"Windows Vista ultimate", "Windows Vista ultimate"},
      {"Windows 8 Pro", "Windows 8 Pro"},
      {"Windows", "Windows"},
      {"Windows 7 ", "Windows 7 "},
      {"", ""},
      // A product text that begins a longer key takes that key's name.
      {"Windows Server 2008 SERVERWEB", "Windows Server 2008 R2 Web Edition"},
      {"Windows SERVERWEB", "Windows Server 2008 Web Edition"},
      // Arguments are inserted, never read as directives.
      {"%s%n STARTER", "%s%n Starter"},
  };
  for (const auto &[name, pretty] : cases) {
    EXPECT_EQ(pretty, prettyName(name)) << name;
  }
  EXPECT_EQ(nullptr, AutoInstall_GetPrettyWindowsName(nullptr));
}

// ---- German texts ----

TEST(AutoInstallGermanTest, MessagesAndNamesComeFromTheCatalog) {
  ScopedEnv dir("GUESTPREP_MSGDIR", gp::test::sourcePath("messages").c_str());
  ScopedEnv lang("GUESTPREP_LANG", "de_DE.UTF-8");
  EXPECT_EQ("Windows Server 2008 Datacenter Core ohne Hyper-V",
            prettyName("Windows Longhorn SERVERDATACENTERVCORE"));
  Validation v =
      validate(AutoInstall_ValidateShortName, "linux", "ubuntu", "1");
  EXPECT_EQ(AUTOINSTALL_BAD_UBUNTU_USERNAME, v.code);
  EXPECT_EQ(
      "Der Benutzername muss mit einem englischen Kleinbuchstaben (US) "
      "beginnen.\nGeben Sie einen neuen Wert ein.",
      v.message);
  v = validate(AutoInstall_ValidateName, "linux", "rhel5", "a,b");
  EXPECT_NE(std::string::npos,
            v.message.find("vollst\xc3\xa4ndige Name darf folgende Zeichen "
                           "nicht enthalten: ':\"\\,'\n"));
}

// ---- Command line ----

int cli(const std::string &args, std::string *out) {
  out->clear();
  return gp::test::runCommand(
      std::string("GUESTPREP_LANG=C ") + GP_CLI + " " + args + " 2>&1", out);
}

TEST(AutoInstallCliTest, ValidatePrintsCodeAndMessage) {
  std::string out;
  EXPECT_NE(0, cli("validate --family linux --kind short --os ubuntu-64 "
                   "2john",
                   &out));
  EXPECT_EQ(
      "6 AUTOINSTALL_BAD_UBUNTU_USERNAME\n"
      "The user name must start with a lowercase US English character.\n"
      "Enter a new value.\n",
      out);
  EXPECT_EQ(0,
            cli("validate --family windows --kind password -- 'x]]>y'", &out));
  EXPECT_EQ("0 AUTOINSTALL_VALID\n", out);
  // A family the library does not know is refused before it gets there.
  EXPECT_NE(0, cli("validate --family Windows --kind name x", &out));
  EXPECT_EQ(std::string::npos, out.find("NOT_REACHED"));
}

TEST(AutoInstallCliTest, PrettyNameAndCheckWithoutImage) {
  std::string out;
  EXPECT_EQ(0,
            cli("pretty-name 'Windows Vista ULTIMATEX' 'Windows 8 Pro'", &out));
  EXPECT_EQ("Windows Vista Ultimate\nWindows 8 Pro\n", out);
  EXPECT_EQ(0, cli("check --os windows7-64", &out));
  EXPECT_NE(std::string::npos, out.find("family:             windows\n"));
  EXPECT_NE(std::string::npos, out.find("maxNameLength:      20\n"));
  EXPECT_NE(std::string::npos,
            out.find("reservedNames:      administra* amministratore guest "
                     "guests\n"));
  EXPECT_NE(0, cli("check --family linux --os ubuntu --sub-version 3", &out));
  EXPECT_NE(std::string::npos, out.find("supported:          FALSE\n"));
  EXPECT_NE(std::string::npos, out.find("needsFloppy:        TRUE\n"));
  EXPECT_EQ(2, cli("check /nonexistent/image.iso", &out));
}

TEST(AutoInstallCliTest, CheckIdentifiesTheImage) {
  std::string iso = gp::test::isoFromTree(
      {{".discinfo",
        "1273712438.740122\nRed Hat Enterprise Linux Server 5\n"
        "x86_64\n1\n"},
       {"isolinux/isolinux.cfg", "default linux\n"}},
      gp::test::IsoFlavor::JolietRockRidge);
  GuessInfo info;
  if (Guess_Guest(iso.c_str(), 0, &info) == GUESS_OPEN_FAILED) {
    GTEST_SKIP() << "this build cannot read ISO 9660 images yet";
  }
  std::string out;
  EXPECT_EQ(0, cli("check " + gp::test::shellQuote(iso), &out)) << out;
  EXPECT_NE(std::string::npos, out.find("osName:             rhel5-64\n"));
  EXPECT_NE(std::string::npos, out.find("needsFloppy:        FALSE\n"));
}

}  // namespace
